// A host outside the library's tree: it stands up a test manager in its own process behind
// a loopback channel, makes the component's typed proxy, calls one method and prints the
// reply (or the whole error). Built with find_package(TesselLink) or with
// `pkg-config --cflags --libs tessel_link` against an installed tree.

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/facade/make_proxy.h>
#include <tessel_link/version.h>

namespace {

// The host's own implementation of the component's interface.
class Tests : public TestManagement::TestManager {
public:
    Common::Error Test() override { return Common::ErrorSuccess; }
    Common::Error TestCancel() override { return Common::ErrorSuccess; }
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override {
        result = std::to_string(size) + " bytes for " + hostname;
        return Common::ErrorSuccess;
    }
    Common::Error ResumeCancel(std::map<std::string, std::u16string>&) override {
        return Common::ErrorSuccess;
    }
};

}  // namespace

int main() {
    std::printf("tessel_link %s\n", TESSEL_LINK_VERSION_STRING);

    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(
        std::make_unique<TestManagement::TestManager_Dispatcher>(std::make_shared<Tests>()));
    Core::ChannelPointer channel = loopback;

    try {
        // Owns the component and hands out its interface; no component number is written here.
        auto tests = Core::MakeProxy<TestManagement::TestManager>(channel);
        std::string reply;
        const Common::Error error = tests->GetData("backup-01.example", 4096, reply);
        if (error.Failed()) {
            std::fprintf(stderr, "GetData failed: %s\n", error.ToString().c_str());
            return 1;
        }
        std::printf("GetData: %s\n", reply.c_str());
    } catch (const Common::Error& error) {
        std::fprintf(stderr, "no proxy: %s\n", error.ToString().c_str());
        return 1;
    }
    return 0;
}
