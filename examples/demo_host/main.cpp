// The example host. It loads the library given on the command line and takes the two entry
// points from it by name; checks in every XIDL type; stands up an in-process service with a
// few components implemented for real (instances kept in memory, connection tests, external
// actions); creates every remote component through CreateProxy, asks each for its interface
// and calls one method of each; then works with the instance manager and prints one whole
// request and reply packet.

#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/components/components.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/facade/make_proxy.h>

#include <dlfcn.h>

#include <cstdio>
#include <iostream>
#include <list>
#include <memory>
#include <string>

#include "demo_calls.h"
#include "demo_services.h"

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

std::string Hex(std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

// The whole chain of an error, one line per record with its origin, or "success".
std::string Describe(const Common::Error& error) {
    return error.ToString();
}

// The head of an error on one line, for the table.
std::string Short(const Common::Error& error) {
    return error.Succeeded() ? "success"
                             : Hex(error.Code()) + " " + Common::Utf16ToUtf8(error.FormattedText());
}

// A piece of the host's own code: how many instances of a type the manager has.
Common::Error CountInstancesOfType(InstanceManagement::InstanceManager& manager, std::uint32_t type,
                                   std::size_t& count) {
    std::list<Common::Guid> ids;
    const Common::Error error = manager.GetInstancesOfType(type, ids);
    count = ids.size();
    return error;
}

// The fake service of the host's test of CountInstancesOfType: it overrides the one method
// the code under test calls; every other method answers "not implemented".
class FakeInstances : public InstanceManagement::InstanceManager_Unimplemented {
public:
    Common::Error GetInstancesOfType(std::uint32_t type, std::list<Common::Guid>& result) override {
        result.assign(type == 2 ? 3 : 0, Common::Guid());
        return Common::ErrorSuccess;
    }
};

// The host's test: CountInstancesOfType against the fake, over an in-process channel.
bool TestCountInstances() {
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(std::make_unique<InstanceManagement::InstanceManager_Dispatcher>(
        std::make_shared<FakeInstances>()));
    auto manager = Core::MakeProxy<InstanceManagement::InstanceManager>(loopback);
    std::size_t servers = 0, desktops = 0;
    const bool counted = CountInstancesOfType(*manager, 2, servers).Succeeded() &&
                         CountInstancesOfType(*manager, 1, desktops).Succeeded() &&
                         servers == 3 && desktops == 0;
    // A method the fake leaves alone answers with an error that says which one it is.
    std::list<Common::Guid> ids;
    const Common::Error missing = manager->GetIDs(ids);
    std::cout << "the host's own test: CountInstancesOfType " << (counted ? "passed" : "FAILED")
              << "; the fake's GetIDs answers: " << missing << "\n";
    return counted && missing.Code() == Core::kErrorNotImplemented;
}

// The packets of the one call whose traffic is shown, as UTF-8 text without the byte
// order mark.
struct ShownCall {
    std::string request;
    std::string reply;
};

std::string PacketText(std::span<const unsigned char> bytes) {
    std::string text(bytes.begin(), bytes.end());
    const std::string bom = "\xEF\xBB\xBF";
    return text.rfind(bom, 0) == 0 ? text.substr(bom.size()) : text;
}

}  // namespace

int main(int argc, char** argv) {
    // A failed internal check (such as an enumeration value without a name) is logged and
    // the host goes on, unless the user asked otherwise with CORVANE_SAFE_ASSERT.
    Common::SetAssertionDefault(Common::AssertToLog);
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
    std::cout << "CheckInXIDLTypes: " << registrar.count << " type names checked in\n\n";

    // The in-process service. Components without an implementation here are answered by
    // the loopback with its error for an unknown component.
    auto instances = std::make_shared<Demo::InMemoryInstanceManager>();
    auto compatibility = std::make_shared<Demo::CompatibilityService>();
    ShownCall shown;
    auto loopback = std::make_shared<Binding::LoopbackChannel>(
        [&shown](const Binding::Request& request, std::span<const unsigned char> requestPacket,
                 std::span<const unsigned char> replyPacket) {
            // GetData, method 3 of the test manager
            if (request.GetComponentID() == 188 && request.GetMethodNumber() == 3) {
                shown.request = PacketText(requestPacket);
                shown.reply = PacketText(replyPacket);
            }
        });
    loopback->Register(std::make_unique<InstanceManagement::InstanceManager_Dispatcher>(instances));
    loopback->Register(
        std::make_unique<TestManagement::TestManager_Dispatcher>(std::make_shared<Demo::TestService>()));
    loopback->Register(
        std::make_unique<CompatibilityManagement::CompatibilityManager_Dispatcher>(compatibility));
    const Core::ChannelPointer channel = loopback;

    int created = 0, typed = 0, served = 0;
    std::printf("%-4s  %-62s  %-7s  %-9s  %-26s  %s\n", "ID", "interface", "proxy", "interface",
                "method called", "result");
    for (const Demo::DemoCall& call : Demo::DemoCalls()) {
        Core::ComponentSlot component;
        const std::uint32_t outcome = createProxy(call.ComponentID, &channel, &component);
        const bool isCreated = outcome == Core::ProxyCreated && component;
        bool found = false;
        Common::Error result;
        if (isCreated && call.Call != nullptr) {
            result = call.Call(*component, found);
        }
        created += isCreated;
        typed += found;
        served += found && result.Succeeded();
        std::string outcomeText = "-";
        if (found) {
            outcomeText = result.Code() == Binding::kErrorUnknownComponent
                              ? "no service here (" + Hex(result.Code()) + ")"
                              : Short(result);
        }
        std::printf("%-4u  %-62s  %-7s  %-9s  %-26s  %s\n", call.ComponentID, call.Interface,
                    isCreated ? "created" : "failed", found ? "found" : "missing", call.Method,
                    outcomeText.c_str());
    }
    std::cout << "\n" << Demo::DemoCalls().size() << " components: " << created
              << " proxies created, " << typed << " interfaces found, " << served
              << " calls served by the in-process service\n\n";

    // A short session with the instance manager, whose instances live in the service. The
    // typed proxy needs no component number and owns its component.
    Core::Proxy<InstanceManagement::InstanceManager> manager;
    Core::Proxy<TestManagement::TestManager> tests;
    try {
        manager = Core::MakeProxy<InstanceManagement::InstanceManager>(channel);
        tests = Core::MakeProxy<TestManagement::TestManager>(channel);
    } catch (const Common::Error& error) {
        std::cerr << "no typed proxy: " << error << "\n";
        return 1;
    }
    for (const char16_t* path : {u"/srv/mail", u"/srv/db", u"/home"}) {
        InstanceManagement::Instance instance;
        instance.Type = path[1] == u's' ? 2 : 1;
        instance.FullPath = path;
        const Common::Error added = manager->Add(instance);
        std::cout << "InstanceManager.Add(" << Common::Utf16ToUtf8(path) << "): " << Describe(added)
                  << "\n";
    }
    std::list<Common::Guid> ids;
    std::list<InstanceManagement::Instance> list;
    std::list<Common::Guid> servers;
    const Common::Error listed = manager->GetIDs(ids);
    const Common::Error read = manager->GetList(ids, list);
    const Common::Error typedList = manager->GetInstancesOfType(2, servers);
    std::cout << "InstanceManager.GetIDs: " << Describe(listed) << ", " << ids.size()
              << " instances; GetList: " << Describe(read) << ", " << list.size()
              << " read back; GetInstancesOfType(2): " << servers.size() << "\n";
    InstanceManagement::Instance stranger;
    stranger.FullPath = u"/nowhere";
    std::cout << "InstanceManager.Update(/nowhere): " << Describe(manager->Update(stranger)) << "\n";
    std::cout << "CompatibilityManager actions taken: " << compatibility->Actions << "\n\n";

    // One call with its packets in full.
    std::string data;
    const Common::Error got = tests->GetData("backup-01.example", 4096, data);
    std::cout << "TestManager.GetData(\"backup-01.example\", 4096, data): " << Describe(got)
              << "\ndata = \"" << data << "\"\n";
    std::cout << "the request packet:\n" << shown.request << "\nthe reply packet:\n"
              << shown.reply << "\n";

    // Every method of every component once, with default arguments: each request is built
    // and crosses the in-process service, including those that carry enumeration values
    // without names (they travel as numbers, with a logged check).
    int methods = 0, succeeded = 0, noService = 0;
    for (const Demo::DemoCall& call : Demo::EveryMethodCall()) {
        Core::ComponentSlot component;
        bool found = false;
        if (createProxy(call.ComponentID, &channel, &component) != Core::ProxyCreated) {
            continue;
        }
        const Common::Error result = call.Call(*component, found);
        methods += found;
        succeeded += found && result.Succeeded();
        noService += found && result.Code() == Binding::kErrorUnknownComponent;
    }
    std::cout << methods << " methods called through the in-process service: " << succeeded
              << " succeeded, " << noService << " found no service here, "
              << methods - succeeded - noService << " answered with the service's error\n";

    const bool tested = TestCountInstances();
    const bool allWell = created == static_cast<int>(Demo::DemoCalls().size()) &&
                         typed == created && got.Succeeded() && read.Succeeded() &&
                         list.size() == 3 && tested;
    // The host destroys its proxies before it lets the library go.
    manager.reset();
    tests.reset();
    dlclose(library);
    return allWell ? 0 : 1;
}
