#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/por/compare.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "por/por_test_util.h"

namespace {

using Binding::ArgumentKind;
using Binding::Detail::CreateRequest;
using PorTest::Comp;
using PorTest::Str;
using Unit = std::shared_ptr<const Por::View::Unit>;
using Units = std::vector<Unit>;

constexpr std::uint32_t kObjectsID = 910;

// An object registry whose objects are unit trees, as the services that hold schema-free
// objects have them.
class ObjectRegistry {
public:
    virtual ~ObjectRegistry() = default;
    virtual Common::Error Update(const Unit& objectId, const Unit& patch, Units& snapshot) = 0;
};

class FakeRegistry : public ObjectRegistry {
public:
    Common::Error Update(const Unit& objectId, const Unit& patch, Units& snapshot) override {
        SeenId = objectId;
        SeenPatch = patch;
        snapshot = {objectId, nullptr, patch};
        return Common::ErrorSuccess;
    }
    Unit SeenId;
    Unit SeenPatch = Str(u"not called");
};

class RegistryDispatcher final : public Binding::ComponentDispatcher<ObjectRegistry> {
public:
    explicit RegistryDispatcher(std::shared_ptr<ObjectRegistry> implementation)
        : ComponentDispatcher(kObjectsID, "ObjectRegistry", 1, std::move(implementation),
                              {Binding::Serve<ObjectRegistry, &ObjectRegistry::Update>(
                                  1, "Update", 1,
                                  {{"objectId", ArgumentKind{0}},
                                   {"patch", ArgumentKind{0}},
                                   {"snapshot", ArgumentKind{2}}})}) {}
};

// Unit arguments and a sequence of units cross a plain packet in their binary form, a
// missing unit as "is_empty" alone, and arrive as equal trees.
TEST(LoopbackUnits, UnitArgumentsCrossThePacketWhole) {
    auto registry = std::make_shared<FakeRegistry>();
    std::string request;
    Binding::LoopbackChannel channel(
        [&](const Binding::Request&, std::span<const unsigned char> bytes,
            std::span<const unsigned char>) { request.assign(bytes.begin(), bytes.end()); });
    channel.Register(std::make_unique<RegistryDispatcher>(registry));

    Binding::MethodDescriptor method;
    method.ComponentID = kObjectsID;
    method.MethodNumber = 1;
    method.ComponentName = "ObjectRegistry";
    method.MethodName = "Update";
    method.InterfaceVersion = 1;
    method.Category = Binding::kAllCategories;

    const Unit id = Comp("Name", Str(u"host-7"), "Kind", Str(u"machine"));
    const Unit patch;
    Units snapshot;
    auto call = CreateRequest<void(const Unit&, const Unit&, Units&)>(
        method, {id, "objectId", ArgumentKind{0}}, {patch, "patch", ArgumentKind{0}},
        {snapshot, "snapshot", ArgumentKind{2}});
    ASSERT_EQ(Binding::ExecuteCall(channel, call).Code(), 0u);

    EXPECT_NE(request.find("<objectId><is_empty>0</is_empty><value>"), std::string::npos)
        << request;
    EXPECT_NE(request.find("<patch><is_empty>1</is_empty></patch>"), std::string::npos) << request;
    ASSERT_NE(registry->SeenId, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*registry->SeenId, *id));
    EXPECT_EQ(registry->SeenPatch, nullptr);
    ASSERT_EQ(snapshot.size(), 3u);
    ASSERT_NE(snapshot[0], nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*snapshot[0], *id));
    EXPECT_EQ(snapshot[1], nullptr);
    EXPECT_EQ(snapshot[2], nullptr);
}

}  // namespace
