// An example host. It loads the library given on the command line, takes the two entry
// points from it by name, creates the TestManager proxy over a channel of its own, calls
// GetData and prints what the channel saw and what came back.

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/components/test_management.h>

#include <dlfcn.h>

#include <iostream>
#include <memory>
#include <string>

#include "demo_channel.h"

namespace {

// Counts the type names the library checks in.
class CountingRegistrar : public Core::XidlTypeRegistrar {
public:
    bool RegisterType(const std::string&, Core::XidlTypeCreator) override {
        ++count;
        return true;
    }
    int count = 0;
};

void PrintResult(const char* what, const Common::Error& error) {
    std::cout << what << ": 0x" << std::hex << error.Code() << std::dec;
    if (error.Succeeded()) {
        std::cout << " (success)\n";
    } else {
        std::cout << " " << Common::Utf16ToUtf8(error.Text()) << "\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " path/to/libtessel_link.so\n";
        return 2;
    }

    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << "cannot load " << argv[1] << ": " << dlerror() << "\n";
        return 1;
    }
    const auto createProxy = reinterpret_cast<CreateProxyFunction>(dlsym(library, "CreateProxy"));
    const auto checkInTypes =
        reinterpret_cast<CheckInXIDLTypesFunction>(dlsym(library, "CheckInXIDLTypes"));
    if (createProxy == nullptr || checkInTypes == nullptr) {
        std::cerr << argv[1] << " does not export CreateProxy and CheckInXIDLTypes\n";
        return 1;
    }
    std::cout << "loaded " << argv[1] << "\n";

    CountingRegistrar registrar;
    checkInTypes(&registrar);
    std::cout << "CheckInXIDLTypes: " << registrar.count << " type names checked in\n";

    const Core::ChannelPointer channel = std::make_shared<Demo::DemoChannel>(std::cout);
    Core::ComponentSlot component;
    const std::uint32_t created = createProxy(188, &channel, &component);
    std::cout << "CreateProxy(188): " << created;
    if (created != Core::ProxyCreated) {
        std::cout << " (no proxy)\n";
        return 1;
    }
    std::cout << " -> " << component->GetComponentName() << ", component "
              << component->GetComponentID() << ", interface version "
              << component->GetInterfaceVersion() << "\n";

    auto* manager = Common::QueryInterface<TestManagement::TestManager>(*component);
    if (manager == nullptr) {
        std::cerr << "the component does not offer TestManagement::TestManager\n";
        return 1;
    }

    const std::string hostname = "backup-01.example";
    const std::uint32_t size = 4096;
    std::string data;
    std::cout << "GetData(\"" << hostname << "\", " << size << ", data):\n";
    const Common::Error result = manager->GetData(hostname, size, data);
    PrintResult("GetData returned", result);
    std::cout << "data = \"" << data << "\"\n";

    // The host destroys its proxies before it lets the library go.
    component.reset();
    dlclose(library);
    return result.Succeeded() ? 0 : 1;
}
