#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/components/instance_management.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/facade/catalogue.h>
#include <tessel_link/facade/make_proxy.h>
#include <tessel_link/testing/scripted_channel.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using TestManagement::TestManager;

TEST(MakeProxy, HandsOutTheInterfaceOfTheComponentItNames) {
    auto channel = std::make_shared<Testing::ScriptedChannel>();
    Core::Proxy<TestManager> manager = Core::MakeProxy<TestManager>(channel);
    ASSERT_NE(manager, nullptr);

    const ComponentManagement::Component& component = *manager.get_deleter().Component;
    EXPECT_EQ(component.GetComponentID(), TestManager::kComponentId);
    EXPECT_EQ(component.GetComponentName(), TestManager::kInterfaceName);
    EXPECT_EQ(component.GetInterfaceVersion(), TestManager::kInterfaceVersion);

    std::string result;
    EXPECT_TRUE(manager->GetData("host", 4, result).Succeeded());
    EXPECT_EQ(channel->ComponentID, 188u);
    EXPECT_EQ(channel->MethodNumber, 3u);
    ASSERT_EQ(channel->Written.Children.size(), 1u);
    EXPECT_EQ(channel->Written.Children[0].Name, "request_TestManager_GetData");

    // The proxy shares the channel until it goes.
    EXPECT_EQ(channel.use_count(), 2);
    manager.reset();
    EXPECT_EQ(channel.use_count(), 1);
}

TEST(MakeProxy, NullChannelIsAClearError) {
    try {
        (void)Core::MakeProxy<TestManager>(nullptr);
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), Binding::kErrorNullPointer);
        EXPECT_NE(error.ToString().find("channel given is null"), std::string::npos)
            << error.ToString();
    }
    try {
        (void)Core::MakeComponent(0xfffffff0u, std::make_shared<Testing::ScriptedChannel>());
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), Binding::kErrorUnknownComponent);
        EXPECT_NE(error.ToString().find("4294967280"), std::string::npos) << error.ToString();
    }
}

TEST(MakeProxy, ConstantsAgreeWithTheCatalogue) {
    for (const auto& [id, name, version] :
         {std::tuple{TestManager::kComponentId, TestManager::kInterfaceName,
                     TestManager::kInterfaceVersion},
          std::tuple{InstanceManagement::InstanceManager::kComponentId,
                     InstanceManagement::InstanceManager::kInterfaceName,
                     InstanceManagement::InstanceManager::kInterfaceVersion}}) {
        const Core::Catalogue::Component* byId = Core::Catalogue::FindComponent(id);
        ASSERT_NE(byId, nullptr) << id;
        EXPECT_STREQ(byId->Name, name);
        EXPECT_EQ(byId->Version, version);
        EXPECT_EQ(Core::Catalogue::FindComponent(std::string_view(name)), byId);
        EXPECT_EQ(Core::Catalogue::FindComponent(std::string_view(byId->Interface)), byId);
    }
}

TEST(Catalogue, FindsComponentsAndMethodsByNameAndNumber) {
    const Core::Catalogue::Component* tests = Core::Catalogue::FindComponent("TestManager");
    ASSERT_NE(tests, nullptr);
    EXPECT_STREQ(tests->Interface, "TestManagement::TestManager");
    const Core::Catalogue::Method* getData = tests->FindMethod("GetData");
    ASSERT_NE(getData, nullptr);
    EXPECT_EQ(getData, tests->FindMethod(3u));
    ASSERT_EQ(getData->Parameters().size(), 3u);
    EXPECT_STREQ(getData->Parameters()[2].Name, "result");
    EXPECT_EQ(getData->Parameters()[2].Kind, Core::Catalogue::kParameterOut);
    EXPECT_EQ(tests->FindMethod("NoSuchMethod"), nullptr);
    EXPECT_EQ(tests->FindMethod(99u), nullptr);

    EXPECT_EQ(Core::Catalogue::FindComponent("NoSuchManager"), nullptr);
    EXPECT_EQ(Core::Catalogue::FindComponent(""), nullptr);
    EXPECT_EQ(Core::Catalogue::FindComponent(0u), nullptr);
    // Components come by ascending ID.
    std::uint32_t previous = 0;
    for (const Core::Catalogue::Component& c : Core::Catalogue::Components()) {
        EXPECT_GT(c.ID, previous);
        previous = c.ID;
    }
}

// A fake that implements only what its test needs.
class PingOnly : public TestManagement::TestManager_Unimplemented {
public:
    Common::Error Test() override {
        ++Pings;
        return Common::ErrorSuccess;
    }
    int Pings = 0;
};

TEST(Unimplemented, FakeAnswersOnlyWhatItOverrides) {
    auto fake = std::make_shared<PingOnly>();
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(std::make_unique<TestManagement::TestManager_Dispatcher>(fake));
    auto manager = Core::MakeProxy<TestManager>(loopback);

    EXPECT_TRUE(manager->Test().Succeeded());
    EXPECT_EQ(fake->Pings, 1);

    // Across the service the error keeps its code and names the method.
    std::string result;
    const Common::Error missing = manager->GetData("host", 1, result);
    EXPECT_EQ(missing.Code(), Core::kErrorNotImplemented);
    EXPECT_NE(missing.ToString().find("'TestManagement::TestManager::GetData' is not implemented"),
              std::string::npos)
        << missing.ToString();

    // Called directly, too.
    const Common::Error direct = fake->TestCancel();
    EXPECT_EQ(direct.Code(), Core::kErrorNotImplemented);
    EXPECT_EQ(direct.FormattedText(),
              u"The method 'TestManagement::TestManager::TestCancel' is not implemented.");
}

}  // namespace
