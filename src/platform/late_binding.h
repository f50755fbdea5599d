#pragma once

// Functions the library binds by name at run time, from the process or from a library it
// loads on first use. Every such function goes through this layer, which turns a library
// that cannot be loaded or a symbol that is missing into a Common::Error.
//
// Where a library is found, by its short name ("ipc_client"):
//   1. the environment variable TESSEL_LINK_COMPONENTS: entries "name=path" separated by
//      ';', for example "ipc_client=/opt/host/lib/libipc_client.so";
//   2. the file /etc/tessel_link/components.conf: one "name = path" per line, '#' starts
//      a comment;
//   3. otherwise the system's default search for "lib<name>.so" (a name that holds a '/'
//      or ".so" is taken as it is).
// The first entry for a name wins. Libraries stay loaded until the process ends.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace Platform {

// 0x140fa1: the library could not be loaded; its "path" names it.
inline constexpr std::uint32_t kErrorLateBindingLibrary = 0x140fa1;
// 0x140fa2: the library has no such symbol; "path" and "function" name both.
inline constexpr std::uint32_t kErrorLateBindingSymbol = 0x140fa2;

inline constexpr const char kComponentsVariable[] = "TESSEL_LINK_COMPONENTS";
inline constexpr const char kComponentsFile[] = "/etc/tessel_link/components.conf";

// The system's dynamic loader; tests put a fake in its place.
class DynamicLoader {
public:
    virtual ~DynamicLoader() = default;
    // Null on failure, with the reason in LastError.
    virtual void* Open(const std::string& path) = 0;
    // Null when absent. A null library means the process as it stands.
    virtual void* Symbol(void* library, const char* name) = 0;
    // The reason of the last failure on this thread.
    virtual std::string LastError() = 0;
};

DynamicLoader& SystemLoader();

struct ComponentLocations {
    // The value of the variable; empty when unset.
    std::string Variable;
    std::string File = kComponentsFile;

    // The variable as the process has it, and the system file.
    static ComponentLocations FromEnvironment();
};

// The path configured for a library, or empty.
std::string ConfiguredPath(const std::string& name, const ComponentLocations& locations);

class LateBinding {
public:
    explicit LateBinding(DynamicLoader& loader = SystemLoader(),
                         ComponentLocations locations = ComponentLocations::FromEnvironment());

    // The library, loaded on first use. Throws 0x140fa1 when it cannot be loaded.
    void* Library(const std::string& name);
    // The function of the library. Throws 0x140fa1 or 0x140fa2.
    void* Function(const std::string& library, const char* function);
    // The function as the process already has it, or null.
    void* InProcess(const char* function);
    // Whether the configuration names the library.
    bool Configured(const std::string& name) const;

private:
    DynamicLoader& loader_;
    const ComponentLocations locations_;
    std::mutex lock_;
    std::map<std::string, std::pair<void*, std::string>> loaded_;
};

// The process's binding, made on first use from the environment.
LateBinding& ProcessLateBinding();

}  // namespace Platform
