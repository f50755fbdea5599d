// The generated family of all components: every catalogue entry can be created, answers its
// identity, has its information registered, and is reachable by its interface's type name.

#include <tessel_link/components/components.h>
#include <tessel_link/facade/entry_points.h>

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "facade/component_catalogue.h"
#include "facade/component_info_registry.h"
#include "facade/event_manager_proxy_impl.h"
#include <tessel_link/testing/scripted_channel.h>
#include "xidl/components/archive_management_proxy.h"
#include "xidl/components/features_proxy.h"
#include "xidl/components/group_management_proxy.h"

namespace {

class ComponentFamily : public ::testing::Test {
protected:
    std::shared_ptr<Testing::ScriptedChannel> fake = std::make_shared<Testing::ScriptedChannel>();
    Core::ChannelPointer channel = fake;

    Core::ComponentSlot Create(std::uint32_t id) {
        Core::ComponentSlot slot;
        EXPECT_EQ(CreateProxy(id, &channel, &slot), Core::ProxyCreated) << id;
        return slot;
    }
};

TEST_F(ComponentFamily, EveryComponentIsCreatedWithItsIdentityAndInformation) {
    const auto components = Core::Catalogue::Components();
    ASSERT_EQ(components.size(), 57u);
    std::size_t methods = 0;
    for (const Core::Catalogue::Component& entry : components) {
        SCOPED_TRACE(entry.Interface);
        methods += entry.MethodCount;
        const Core::ComponentSlot component = Create(entry.ID);
        ASSERT_NE(component, nullptr);
        EXPECT_EQ(component->GetComponentID(), entry.ID);
        EXPECT_EQ(component->GetComponentName(), entry.Name);
        EXPECT_EQ(component->GetInterfaceVersion(), entry.Version);
        EXPECT_EQ(component->QueryType("no such type"), nullptr);

        const Core::ComponentInfo* info = Core::ComponentInfoRegistry::Instance().Find(entry.ID);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->GetComponentID(), entry.ID);
        EXPECT_EQ(info->GetInterfaceVersion(), entry.Version);
        EXPECT_EQ(info->GetRevision(), 1u);
        const auto count = static_cast<std::int32_t>(entry.MethodCount);
        Core::MethodInfo out{9, 9};
        EXPECT_TRUE(info->GetMethodInfo(count, out).Succeeded());
        EXPECT_EQ(info->GetMethodInfo(count + 1, out).Code(), Core::kMethodNumberOutOfRange);
    }
    EXPECT_EQ(methods, 395u);
    // No service call takes place while proxies are made.
    EXPECT_EQ(fake->Sends, 0);
}

TEST_F(ComponentFamily, FlagsAndMethodInformationSetFewComponentsApart) {
    const std::set<std::uint32_t> classFlag{132, 143, 205, 221, 271, 274, 301, 528, 611};
    const std::set<std::uint32_t> optionFlag{271, 274, 458, 459};
    for (const Core::Catalogue::Component& entry : Core::Catalogue::Components()) {
        SCOPED_TRACE(entry.ID);
        const Core::ComponentInfo* info = Core::ComponentInfoRegistry::Instance().Find(entry.ID);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->GetClassFlag(), classFlag.count(entry.ID) == 1);
        EXPECT_EQ(info->GetOptionFlag(1, 2), optionFlag.count(entry.ID) == 1 ? 1u : 0u);
        const Core::MethodInfo expected = entry.ID == 132   ? Core::MethodInfo{0, 1}
                                          : entry.ID == 187 ? Core::MethodInfo{2, 2}
                                                            : Core::MethodInfo{0, 2};
        for (std::int32_t number = 1; number <= static_cast<std::int32_t>(entry.MethodCount);
             ++number) {
            Core::MethodInfo out;
            ASSERT_TRUE(info->GetMethodInfo(number, out).Succeeded());
            EXPECT_EQ(out, expected) << number;
        }
    }
}

TEST_F(ComponentFamily, ControlComponentsShareTheirNameButNotTheirID) {
    std::set<std::uint32_t> ids;
    for (const std::uint32_t id : {251u, 311u, 326u, 724u, 730u, 735u, 749u, 776u}) {
        const Core::ComponentSlot component = Create(id);
        EXPECT_EQ(component->GetComponentName(), "Control");
        ids.insert(component->GetComponentID());
    }
    EXPECT_EQ(ids.size(), 8u);

    // Same element name on the wire; the channel tells them apart by the ID.
    const Core::ComponentSlot esx = Create(251);
    const Core::ComponentSlot hci = Create(724);
    auto* first = Common::QueryInterface<Features::EsxAgent::Control>(*esx);
    auto* second = Common::QueryInterface<Features::HciAgent::Control>(*hci);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(Common::QueryInterface<Features::HciAgent::Control>(*esx), nullptr);
    EXPECT_TRUE(first->CheckConfiguredConnection().Succeeded());
    EXPECT_EQ(fake->ComponentID, 251u);
    const std::string element = fake->Written.Children.at(0).Name;
    EXPECT_TRUE(second->CheckConfiguredConnection().Succeeded());
    EXPECT_EQ(fake->ComponentID, 724u);
    EXPECT_EQ(fake->Written.Children.at(0).Name, element);
    EXPECT_EQ(element, "request_Control_CheckConfiguredConnection");
}

TEST_F(ComponentFamily, InterfaceAndProxyAreFoundByTypeName) {
    // An interface that is a caster itself shares the component's one table.
    const Core::ComponentSlot archive = Create(161);
    auto* manager = Common::QueryInterface<ArchiveManagement::ArchiveManager>(*archive);
    auto* proxy = Common::QueryInterface<ArchiveManagement::ArchiveManager_Proxy>(*archive);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(proxy, dynamic_cast<ArchiveManagement::ArchiveManager_Proxy*>(archive.get()));
    EXPECT_EQ(static_cast<ArchiveManagement::ArchiveManager*>(proxy), manager);
    EXPECT_EQ(Common::QueryInterface<ArchiveManagement::ArchiveManager>(*manager), manager);

    const Core::ComponentSlot group = Create(130);
    EXPECT_NE(Common::QueryInterface<GroupManagement::GroupManager_Proxy>(*group), nullptr);
    EXPECT_EQ(Common::QueryInterface<ArchiveManagement::ArchiveManager>(*group), nullptr);
}

TEST_F(ComponentFamily, EventManagerIsTheExtendedProxy) {
    const Core::ComponentSlot component = Create(132);
    EXPECT_NE(dynamic_cast<EventManagement::EventManager_ProxyImplComponent*>(component.get()),
              nullptr);
    auto* manager = Common::QueryInterface<EventManagement::EventManager>(*component);
    ASSERT_NE(manager, nullptr);
    EXPECT_NE(Common::QueryInterface<EventManagement::EventManager_Proxy>(*component), nullptr);

    // Its remote methods are ordinary calls ...
    std::uint32_t queue = 0;
    EXPECT_TRUE(manager->CreateQueue(7, queue).Succeeded());
    EXPECT_EQ(fake->MethodNumber, 2u);
    EXPECT_EQ(fake->Written.Children.at(0).Name, "request_EventManager_CreateQueue");
    std::list<EventManagement::Event> events;
    EXPECT_TRUE(manager->AbsorbQueue(queue, events).Succeeded());
    EXPECT_EQ(fake->MethodNumber, 4u);

    // ... and the local ones make no call.
    const int sends = fake->Sends;
    EXPECT_TRUE(manager->Subscribe(7, nullptr).Failed());
    EXPECT_TRUE(manager->AbsorbQueue(queue, static_cast<EventManagement::EventDispatcher*>(nullptr))
                    .Failed());
    EXPECT_EQ(fake->Sends, sends);
}

TEST_F(ComponentFamily, MethodNumberIsNotTheSlot) {
    const Core::ComponentSlot component = Create(130);
    auto* groups = Common::QueryInterface<GroupManagement::GroupManager>(*component);
    ASSERT_NE(groups, nullptr);
    // AddInstance is the eighth operation of the interface, and method 12 to the service.
    EXPECT_TRUE(groups->AddInstance(Common::Guid{}, Common::Guid{}).Succeeded());
    EXPECT_EQ(fake->MethodNumber, 12u);
    EXPECT_TRUE(groups->AddGroup(Common::Guid{}, Common::Guid{}).Succeeded());
    EXPECT_EQ(fake->MethodNumber, 8u);
}

}  // namespace
