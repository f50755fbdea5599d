#include <tessel_link/common/error.h>
#include <tessel_link/common/trace.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "binding/job_timeout_binding.h"
#include "platform/late_binding.h"

namespace {

using Platform::ComponentLocations;
using Platform::LateBinding;

ComponentLocations Nowhere() {
    ComponentLocations locations;
    locations.File = "/nonexistent/tessel_link/components.conf";
    return locations;
}

Common::Error Caught(const std::function<void()>& action) {
    try {
        action();
    } catch (const Common::Error& error) {
        return error;
    }
    return Common::Error();
}

// Opens only the libraries it was given, and knows only their listed symbols; it notes
// every path it was asked for.
class FakeLoader : public Platform::DynamicLoader {
public:
    void* Open(const std::string& path) override {
        Opened.push_back(path);
        const auto at = Libraries.find(path);
        return at == Libraries.end() ? nullptr : &at->second;
    }
    void* Symbol(void* library, const char* name) override {
        const auto& symbols = library == nullptr ? Process : *static_cast<Symbols*>(library);
        const auto at = symbols.find(name);
        return at == symbols.end() ? nullptr : at->second;
    }
    std::string LastError() override { return "fake loader says no"; }

    using Symbols = std::map<std::string, void*>;
    std::map<std::string, Symbols> Libraries;
    Symbols Process;
    std::vector<std::string> Opened;
};

TEST(LateBinding, AMissingLibraryNamesItsPath) {
    LateBinding binding(Platform::SystemLoader(), Nowhere());
    const Common::Error error =
        Caught([&] { binding.Library("tessel_absent_component"); });
    EXPECT_EQ(error.Code(), 0x140fa1u);
    EXPECT_STREQ(error.GetNames(), "path,$module");
    EXPECT_STREQ(error.GetAnsi("path"), "libtessel_absent_component.so");
    EXPECT_TRUE(error.Text().empty());
    EXPECT_STREQ(error.Origin().Func, "`anonymous-namespace'::FailureHook");
    EXPECT_EQ(error.Cause().Text(), u"Cannot load the dynamic library.");
    // The loader's own reason stands beneath.
    const std::u16string reason = error.Cause().Cause().Text();
    EXPECT_NE(reason.find(u"libtessel_absent_component.so"), std::u16string::npos);
}

TEST(LateBinding, AMissingSymbolNamesLibraryAndFunction) {
    ComponentLocations locations = Nowhere();
    locations.Variable = "other=/x.so;zlib = libz.so.1";
    LateBinding binding(Platform::SystemLoader(), locations);
    EXPECT_NE(binding.Function("zlib", "crc32"), nullptr);

    const Common::Error error = Caught([&] { binding.Function("zlib", "tessel_absent"); });
    EXPECT_EQ(error.Code(), 0x140fa2u);
    EXPECT_STREQ(error.GetNames(), "path,function,$module");
    EXPECT_STREQ(error.GetAnsi("path"), "libz.so.1");
    EXPECT_STREQ(error.GetAnsi("function"), "tessel_absent");
    EXPECT_STREQ(error.Origin().Func, "`anonymous-namespace'::FailureHook");
    EXPECT_EQ(error.Cause().Text(), u"Cannot find the symbol in the dynamic library.");
    EXPECT_NE(error.Cause().Cause().Text().find(u"tessel_absent"), std::u16string::npos);
    // The process itself is searched without loading anything.
    EXPECT_EQ(binding.InProcess("tessel_absent"), nullptr);
}

TEST(LateBinding, TheVariableComesBeforeTheFileAndTheFileBeforeTheDefault) {
    const std::string file = ::testing::TempDir() + "late_binding_components.conf";
    {
        std::ofstream out(file);
        out << "# components of this host\n"
               "\n"
               "ipc_client = /opt/file/libipc.so   # the transport\n"
               "  journal=/opt/file/libjournal.so\n"
               "broken line without a value\n"
               "empty =\n";
    }
    ComponentLocations locations;
    locations.File = file;
    locations.Variable = "ipc_client=/opt/env/libipc.so;;nonsense";
    EXPECT_EQ(Platform::ConfiguredPath("ipc_client", locations), "/opt/env/libipc.so");
    EXPECT_EQ(Platform::ConfiguredPath("journal", locations), "/opt/file/libjournal.so");
    EXPECT_EQ(Platform::ConfiguredPath("empty", locations), "");
    EXPECT_EQ(Platform::ConfiguredPath("broken line without a value", locations), "");

    FakeLoader loader;
    loader.Libraries["/opt/file/libjournal.so"] = {};
    loader.Libraries["libplain.so"] = {};
    loader.Libraries["./libpath.so.2"] = {};
    LateBinding binding(loader, locations);
    EXPECT_NE(binding.Library("journal"), nullptr);
    EXPECT_NE(binding.Library("plain"), nullptr);
    EXPECT_NE(binding.Library("./libpath.so.2"), nullptr);
    // A library is loaded once.
    EXPECT_NE(binding.Library("plain"), nullptr);
    EXPECT_EQ(loader.Opened, (std::vector<std::string>{"/opt/file/libjournal.so", "libplain.so",
                                                       "./libpath.so.2"}));
    const Common::Error error = Caught([&] { binding.Library("ipc_client"); });
    EXPECT_STREQ(error.GetAnsi("path"), "/opt/env/libipc.so");
    EXPECT_EQ(error.Cause().Cause().Text(), u"fake loader says no");
    std::remove(file.c_str());
}

void HostTimeout(std::unique_ptr<Binding::RequestJob>, std::uint32_t,
                 std::unique_ptr<Binding::RequestJob>*, std::uint32_t, int) {}

std::vector<std::uint32_t> g_traced;
void TraceInto(int, const Common::Error& error) {
    g_traced.push_back(error.Code());
}

TEST(LateBinding, TheJobTimeOutIsTakenFromTheProcessThenFromTheTransport) {
    FakeLoader loader;
    void* host = reinterpret_cast<void*>(&HostTimeout);

    // Without either, the library wraps jobs itself, and loads nothing for it.
    LateBinding none(loader, Nowhere());
    EXPECT_EQ(Binding::Detail::ResolveSetJobTimeout(none), nullptr);
    EXPECT_TRUE(loader.Opened.empty());

    loader.Process[Binding::kSetJobTimeoutName] = host;
    LateBinding inProcess(loader, Nowhere());
    EXPECT_EQ(reinterpret_cast<void*>(Binding::Detail::ResolveSetJobTimeout(inProcess)), host);
    loader.Process.clear();

    ComponentLocations locations = Nowhere();
    locations.Variable = "ipc_client=/opt/host/libipc_client.so";
    loader.Libraries["/opt/host/libipc_client.so"][Binding::kSetJobTimeoutName] = host;
    LateBinding configured(loader, locations);
    EXPECT_EQ(reinterpret_cast<void*>(Binding::Detail::ResolveSetJobTimeout(configured)), host);

    // A transport without the function is traced and left alone.
    loader.Libraries["/opt/host/libipc_client.so"].clear();
    LateBinding lacking(loader, locations);
    g_traced.clear();
    Common::SetTraceErrorSink(&TraceInto);
    EXPECT_EQ(Binding::Detail::ResolveSetJobTimeout(lacking), nullptr);
    Common::SetTraceErrorSink(nullptr);
    EXPECT_EQ(g_traced, std::vector<std::uint32_t>{0x140fa2});
}

}  // namespace
