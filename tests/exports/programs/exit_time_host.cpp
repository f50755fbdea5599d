// A host that still uses the library while its process ends, or that unloads it first.
//
//   exit_time_host exit LIBRARY     loads the library, and from a handler that exit() runs
//                                   after the library's statics would have been destroyed,
//                                   creates proxies and makes a value of every XIDL type
//   exit_time_host unload LIBRARY   loads the library, uses it and unloads it; the library's
//                                   statics go with it (a leak check sees any left behind)
//
// The program is not linked with the library: like a host, it finds the entry points by name.

#include <tessel_link/facade/entry_points.h>
#include <tessel_link/por/construction.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Never sent to: creating a proxy makes no call.
class IdleChannel : public Binding::RequestChannel {
public:
    Common::Error Send(std::unique_ptr<Binding::Request>,
                       std::unique_ptr<Binding::RequestJob>&) override {
        std::abort();
    }
};

class ValueMaker : public Core::XidlTypeRegistrar {
public:
    bool RegisterType(const std::string&, Core::XidlTypeCreator creator) override {
        std::unique_ptr<Por::Construction::Unit> value;
        made += creator(value) != nullptr;
        ++names;
        return true;
    }
    int names = 0;
    int made = 0;
};

CreateProxyFunction g_createProxy = nullptr;
CheckInXIDLTypesFunction g_checkInTypes = nullptr;

// Creates two proxies and one value of each type; false with a line on stderr if any fails.
bool UseLibrary(const char* when) {
    const Core::ChannelPointer channel = std::make_shared<IdleChannel>();
    for (std::uint32_t id : {188u, 161u}) {
        Core::ComponentSlot component;
        const std::uint32_t result = g_createProxy(id, &channel, &component);
        if (result != Core::ProxyCreated || !component) {
            std::fprintf(stderr, "%s: CreateProxy(%u) gave %u\n", when, id, result);
            return false;
        }
    }
    ValueMaker maker;
    g_checkInTypes(&maker);
    if (maker.names != 635 || maker.made != maker.names) {
        std::fprintf(stderr, "%s: %d type names, %d values made\n", when, maker.names, maker.made);
        return false;
    }
    return true;
}

void UseLibraryAtExit() {
    if (!UseLibrary("at exit")) {
        _exit(1);
    }
    std::puts("the library served the host at exit");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || (std::strcmp(argv[1], "exit") != 0 && std::strcmp(argv[1], "unload") != 0)) {
        std::fprintf(stderr, "usage: %s exit|unload LIBRARY\n", argv[0]);
        return 2;
    }
    const bool atExit = std::strcmp(argv[1], "exit") == 0;
    // Handlers run newest first: registered before the library is loaded, this one runs
    // after every handler the library's loading registers.
    if (atExit) {
        std::atexit(UseLibraryAtExit);
    }
    void* library = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "cannot load %s: %s\n", argv[2], dlerror());
        return 1;
    }
    g_createProxy = reinterpret_cast<CreateProxyFunction>(dlsym(library, "CreateProxy"));
    g_checkInTypes = reinterpret_cast<CheckInXIDLTypesFunction>(dlsym(library, "CheckInXIDLTypes"));
    if (g_createProxy == nullptr || g_checkInTypes == nullptr || !UseLibrary("loaded")) {
        return 1;
    }
    if (!atExit) {
        if (dlclose(library) != 0) {
            std::fprintf(stderr, "cannot unload: %s\n", dlerror());
            return 1;
        }
        std::puts("the library was unloaded");
    }
    return 0;
}
