// The debug services on POSIX systems.
//
// There is no message box here, so AskUser answers as a system that cannot ask anybody.
// A process being traced is not necessarily under a debugger (strace and profilers trace
// too), and a break instruction would kill it, so DebuggerPresent answers false. The debug
// output channel is the system log at debug priority. The stack walk uses the C library's
// backtrace with the dynamic symbol tables; it has no line information.

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/debug_services.h"

namespace Platform {

namespace {

// The name of the function that holds `address`, demangled, or "module+0xOFFSET" when the
// address lies in no symbol that the dynamic tables know.
std::string Symbolize(const void* address) {
    Dl_info info{};
    void* entry = nullptr;
    if (dladdr1(address, &info, &entry, RTLD_DL_SYMENT) == 0) {
        return std::string();
    }
    const auto* symbol = static_cast<const ElfW(Sym)*>(entry);
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    const auto start = reinterpret_cast<std::uintptr_t>(info.dli_saddr);
    char offset[32];
    if (info.dli_sname != nullptr && symbol != nullptr && at >= start &&
        at < start + symbol->st_size) {
        int status = 0;
        std::unique_ptr<char, decltype(&std::free)> demangled(
            abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
        std::snprintf(offset, sizeof offset, "+0x%lx", static_cast<unsigned long>(at - start));
        return std::string(status == 0 ? demangled.get() : info.dli_sname) + offset;
    }
    if (info.dli_fname == nullptr) {
        return std::string();
    }
    std::string module = info.dli_fname;
    const std::size_t slash = module.rfind('/');
    if (slash != std::string::npos) {
        module.erase(0, slash + 1);
    }
    const auto base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    std::snprintf(offset, sizeof offset, "+0x%lx", static_cast<unsigned long>(at - base));
    return module + offset;
}

class PosixDebugServices final : public DebugServices {
public:
    void DebugOutput(const char* text) override { syslog(LOG_USER | LOG_DEBUG, "%s", text); }

    int AskUser(const char*, const char*) override { return 2; }

    bool DebuggerPresent() override { return false; }

    void DebugBreak() override { std::raise(SIGTRAP); }

    void Abort() override { std::abort(); }

    std::string ProgramName() override {
        char path[PATH_MAX];
        const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
        return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
    }

    bool WalkStack(unsigned maxFrames,
                   const std::function<bool(const StackFrame&)>& frame) override {
        constexpr unsigned kMax = 256;
        void* addresses[kMax + 1];
        const unsigned wanted = (maxFrames < kMax ? maxFrames : kMax) + 1;
        const int count = backtrace(addresses, static_cast<int>(wanted));
        // Frame 0 is this function.
        for (int i = 1; i < count; ++i) {
            StackFrame f;
            f.Address = reinterpret_cast<std::uintptr_t>(addresses[i]);
            // A return address points behind the call; look up the call itself.
            f.Symbol = Symbolize(static_cast<const char*>(addresses[i]) - 1);
            if (!frame(f)) {
                break;
            }
        }
        return true;
    }
};

PosixDebugServices g_system;
std::atomic<DebugServices*> g_services{nullptr};

}  // namespace

DebugServices& GetDebugServices() {
    DebugServices* services = g_services.load();
    return services != nullptr ? *services : g_system;
}

DebugServices* SetDebugServices(DebugServices* services) {
    DebugServices* previous = g_services.exchange(services);
    return previous != nullptr ? previous : &g_system;
}

}  // namespace Platform
