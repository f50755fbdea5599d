// Generated dispatchers behind the loopback channel: a proxy's call reaches the host's
// implementation with the arguments it was given, and the reply brings back what the
// implementation set, by method number rather than by the order of operations.

#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/components/mount_management.h>
#include <tessel_link/components/restore_raids_management.h>
#include <tessel_link/facade/entry_points.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/testing/recording_ends.h>

namespace {

class FakeRaids : public RestoreRaidsManagement::RestoreRaidsManager {
public:
    Common::Error ProcessArchive(const std::u16string& sliceUri,
                                 const AccessManagement::Logon& credentials,
                                 const std::u16string& password,
                                 RestoreRaidsManagement::RestoreRaidsInfo& info) override {
        SeenUri = sliceUri;
        SeenLogon = credentials;
        SeenPassword = password;
        SeenInfoOnEntry = info;
        info.Summary = u"two mirrors";
        info.InfoID = u"raid-7";
        return Common::ErrorSuccess;
    }
    Common::Error ApplyConfig(const std::u16string& infoID) override {
        return Common::Error(TL_ORIGIN("FakeRaids::ApplyConfig"), 0x9c0044, infoID);
    }

    std::u16string SeenUri;
    AccessManagement::Logon SeenLogon;
    std::u16string SeenPassword;
    RestoreRaidsManagement::RestoreRaidsInfo SeenInfoOnEntry;
};

class FakeMounts : public MountManagement::MountManager {
public:
    Common::Error MountArchive(const MountManagement::ArchiveDeviceList&) override { return Called("Mount"); }
    Common::Error Unmount(const std::vector<std::u16string>&) override { return Called("Unmount"); }
    Common::Error UnmountTree(const std::u16string&) override { return Called("UnmountTree"); }
    Common::Error GetMountedDevicesInfo(std::vector<MountManagement::MountedDeviceInfo>& info) override {
        info.resize(2);
        info[1].MountPoint = u"/mnt/b";
        return Called("GetMountedDevicesInfo");
    }

    std::vector<std::string> Calls;

private:
    Common::Error Called(const char* what) {
        Calls.push_back(what);
        return Common::ErrorSuccess;
    }
};

template <class Interface>
Interface* Proxy(const Core::ChannelPointer& channel, std::uint32_t id, Core::ComponentSlot& slot) {
    EXPECT_EQ(CreateProxy(id, &channel, &slot), Core::ProxyCreated);
    return slot ? Common::QueryInterface<Interface>(*slot) : nullptr;
}

TEST(GeneratedService, ArgumentsArriveAsSentAndOutArgumentsComeBack) {
    auto raids = std::make_shared<FakeRaids>();
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(std::make_unique<RestoreRaidsManagement::RestoreRaidsManager_Dispatcher>(raids));
    const Core::ChannelPointer channel = loopback;
    Core::ComponentSlot slot;
    auto* manager = Proxy<RestoreRaidsManagement::RestoreRaidsManager>(channel, 233, slot);
    ASSERT_NE(manager, nullptr);

    RestoreRaidsManagement::RestoreRaidsInfo info;
    info.Summary = u"stale";
    ASSERT_TRUE(manager->ProcessArchive(u"bsp://vault/slice", AccessManagement::Logon(u"admin", u""),
                                        u"pa55", info)
                    .Succeeded());
    EXPECT_EQ(raids->SeenUri, u"bsp://vault/slice");
    EXPECT_EQ(raids->SeenLogon, AccessManagement::Logon(u"admin", u""));
    // obscured on the wire, in clear for the implementation
    EXPECT_EQ(raids->SeenPassword, u"pa55");
    // an out argument is not sent: the service starts from a default value
    EXPECT_EQ(raids->SeenInfoOnEntry, RestoreRaidsManagement::RestoreRaidsInfo{});
    EXPECT_EQ(info.Summary, u"two mirrors");
    EXPECT_EQ(info.InfoID, u"raid-7");

    const Common::Error failed = manager->ApplyConfig(u"raid-7");
    EXPECT_EQ(failed.Code(), 0x9c0044u);
}

TEST(GeneratedService, MethodsAreServedByTheirNumber) {
    auto mounts = std::make_shared<FakeMounts>();
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(std::make_unique<MountManagement::MountManager_Dispatcher>(mounts));
    const Core::ChannelPointer channel = loopback;
    Core::ComponentSlot slot;
    auto* manager = Proxy<MountManagement::MountManager>(channel, 196, slot);
    ASSERT_NE(manager, nullptr);

    // UnmountTree is the third operation and method 4; GetMountedDevicesInfo the reverse.
    std::vector<MountManagement::MountedDeviceInfo> devices;
    ASSERT_TRUE(manager->UnmountTree(u"/mnt").Succeeded());
    ASSERT_TRUE(manager->GetMountedDevicesInfo(devices).Succeeded());
    EXPECT_EQ(mounts->Calls, (std::vector<std::string>{"UnmountTree", "GetMountedDevicesInfo"}));
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[1].MountPoint, u"/mnt/b");
}

TEST(GeneratedService, UnknownOrTooNewMethodIsAnErrorNotACrash) {
    MountManagement::MountManager_Dispatcher dispatcher(std::make_shared<FakeMounts>());
    EXPECT_EQ(dispatcher.GetComponentID(), 196u);
    for (const std::uint32_t number : {0u, 5u, 0xffffffffu}) {
        Testing::ScriptedDeserializer request(Testing::Element("request_MountManager_Unmount"));
        Testing::RecordingSerializer reply;
        try {
            dispatcher.Serve(number, 7, request, reply);
            ADD_FAILURE() << "method " << number << " was served";
        } catch (const Common::Error& error) {
            EXPECT_EQ(error.Code(), Binding::kErrorUnknownMethod) << number;
        }
        EXPECT_TRUE(reply.Root.Children.empty());
    }
    // UnmountTree came with version 7 of the interface.
    Testing::ScriptedDeserializer request(Testing::Element("request_MountManager_UnmountTree"));
    Testing::RecordingSerializer reply;
    try {
        dispatcher.Serve(4, 6, request, reply);
        ADD_FAILURE() << "a method newer than the caller's interface was served";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), Binding::kErrorVersionNotSupported);
    }
}

}  // namespace
