#include <tessel_link/components/compatibility_management.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/facade/entry_points.h>

#include <memory>

#include <gtest/gtest.h>

#include "facade/component_info_registry.h"
#include "xidl/components/compatibility_management_proxy.h"
#include "xidl/components/test_management_proxy.h"
#include <tessel_link/testing/scripted_channel.h>

namespace {

// A component already in the host's slot; it notes how many owners the channel had when
// it went, and whether it went at all.
class Resident : public ComponentManagement::Component {
public:
    Resident(const Core::ChannelPointer& channel, long* ownersAtDeath)
        : channel_(channel), ownersAtDeath_(ownersAtDeath) {}
    ~Resident() override { *ownersAtDeath_ = channel_.use_count(); }
    std::uint32_t GetComponentID() const override { return 1; }
    const std::string& GetComponentName() const override { return name_; }
    std::uint32_t GetInterfaceVersion() const override { return 1; }

private:
    const Core::ChannelPointer& channel_;
    long* ownersAtDeath_;
    std::string name_ = "Resident";
};

class CreateProxyTest : public ::testing::Test {
protected:
    Core::ChannelPointer channel = std::make_shared<Testing::ScriptedChannel>();
    Core::ChannelPointer noChannel;
    long ownersAtDeath = -1;
    Core::ComponentSlot slot = std::make_unique<Resident>(channel, &ownersAtDeath);
};

TEST_F(CreateProxyTest, NullChannelIsRefusedBeforeTheLookup) {
    const auto* resident = slot.get();
    EXPECT_EQ(CreateProxy(188, &noChannel, &slot), 2u);
    EXPECT_EQ(CreateProxy(0, &noChannel, &slot), 2u);
    EXPECT_EQ(CreateProxy(188, nullptr, &slot), 2u);
    EXPECT_EQ(CreateProxy(188, &channel, nullptr), 2u);
    EXPECT_EQ(slot.get(), resident);
    EXPECT_EQ(ownersAtDeath, -1);
}

TEST_F(CreateProxyTest, UnknownComponentLeavesTheSlotAlone) {
    const auto* resident = slot.get();
    EXPECT_EQ(CreateProxy(0, &channel, &slot), 1u);
    EXPECT_EQ(CreateProxy(0xffffffffu, &channel, &slot), 1u);
    EXPECT_EQ(slot.get(), resident);
    EXPECT_EQ(ownersAtDeath, -1);
    EXPECT_EQ(channel.use_count(), 1);
}

TEST_F(CreateProxyTest, ReplacedSlotGoesAfterTheNewProxyExists) {
    ASSERT_EQ(CreateProxy(188, &channel, &slot), 0u);
    EXPECT_EQ(ownersAtDeath, 2);  // the test and the new proxy
    EXPECT_EQ(slot->GetComponentID(), 188u);
}

TEST_F(CreateProxyTest, ProxiesAreIndependentAndShareTheChannel) {
    Core::ComponentSlot first;
    Core::ComponentSlot second;
    ASSERT_EQ(CreateProxy(188, &channel, &first), 0u);
    EXPECT_EQ(channel.use_count(), 2);
    ASSERT_EQ(CreateProxy(188, &channel, &second), 0u);
    EXPECT_EQ(channel.use_count(), 3);
    EXPECT_NE(first.get(), second.get());
    first.reset();
    EXPECT_EQ(channel.use_count(), 2);
    second.reset();
    EXPECT_EQ(channel.use_count(), 1);
}

template <class Interface, class Proxy>
void ExpectComponent(Core::ComponentSlot& component, std::uint32_t id, const char* name,
                     std::uint32_t version) {
    SCOPED_TRACE(name);
    EXPECT_EQ(component->GetComponentID(), id);
    EXPECT_EQ(component->GetComponentName(), name);
    EXPECT_EQ(component->GetInterfaceVersion(), version);
    EXPECT_EQ(component->GetState(), 1);

    auto* created = dynamic_cast<Proxy*>(component.get());
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(Common::QueryInterface<Interface>(*component), static_cast<Interface*>(created));
    EXPECT_EQ(Common::QueryInterface<Proxy>(*component), created);
    EXPECT_EQ(Common::QueryInterface<Binding::Request>(*component), nullptr);
    EXPECT_EQ(component->QueryType("TestManagement::TestManager"), nullptr);
    EXPECT_EQ(component->QueryType(nullptr), nullptr);
}

TEST_F(CreateProxyTest, ComponentsAnswerTheirIdentityAndInterfaces) {
    Core::ComponentSlot test;
    Core::ComponentSlot compatibility;
    ASSERT_EQ(CreateProxy(188, &channel, &test), 0u);
    ASSERT_EQ(CreateProxy(17, &channel, &compatibility), 0u);
    ExpectComponent<TestManagement::TestManager, TestManagement::TestManager_Proxy>(
        test, 188, "TestManager", 1);
    ExpectComponent<CompatibilityManagement::CompatibilityManager,
                    CompatibilityManagement::CompatibilityManager_Proxy>(compatibility, 17,
                                                                         "CompatibilityManager", 1);
}

TEST(ComponentInfo, MethodNumbersOutsideTheComponentFail) {
    struct Case {
        std::uint32_t id;
        std::int32_t methods;
    };
    for (const Case c : {Case{17, 1}, Case{188, 4}}) {
        SCOPED_TRACE(c.id);
        const Core::ComponentInfo* info = Core::ComponentInfoRegistry::Instance().Find(c.id);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->GetComponentID(), c.id);

        for (const std::int32_t bad : {0, -1, INT32_MIN, c.methods + 1}) {
            Core::MethodInfo out{7, 7};
            const Common::Error error = info->GetMethodInfo(bad, out);
            EXPECT_EQ(error.Code(), 0xb9000cu) << bad;
            EXPECT_EQ(out, (Core::MethodInfo{7, 7}));
        }
        for (const std::int32_t good : {1, c.methods}) {
            Core::MethodInfo out{7, 7};
            EXPECT_TRUE(info->GetMethodInfo(good, out).Succeeded());
            EXPECT_EQ(out, (Core::MethodInfo{0, 2}));
        }
    }
    Core::MethodInfo out;
    const Common::Error error =
        Core::ComponentInfoRegistry::Instance().Find(188)->GetMethodInfo(0, out);
    EXPECT_STREQ(error.Origin().Func, "Core::ComponentInfoImpl<188>::GetMethodInfo");
}

TEST(ComponentInfo, RegistryReplacesASecondRegistration) {
    class Other : public Core::ComponentInfo {
    public:
        std::uint32_t GetComponentID() const override { return 4242; }
        bool GetClassFlag() const override { return false; }
        Common::Error GetMethodInfo(std::int32_t, Core::MethodInfo&) const override { return {}; }
        std::uint32_t GetInterfaceVersion() const override { return 1; }
        std::uint32_t GetRevision() const override { return 1; }
        std::uint32_t GetOptionFlag(std::uintptr_t, std::uintptr_t) const override { return 0; }
    };
    static Other first;
    static Other second;
    auto& registry = Core::ComponentInfoRegistry::Instance();
    registry.Register(first);
    registry.Register(second);
    EXPECT_EQ(registry.Find(4242), &second);
}

}  // namespace
