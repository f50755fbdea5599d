#include <tessel_link/impl/serialize/polymorph.h>

#include <map>
#include <mutex>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/impl/serialize/scope_guards.h>

namespace Serialization {

namespace {

constexpr std::uint32_t kFailedToCreate = 0x9c0005;
constexpr std::uint32_t kFailedToCreateRow = 615;
constexpr std::uint32_t kNoFactory = 0x9c0006;
constexpr std::uint32_t kNoFactoryRow = 619;

struct Registry {
    std::mutex lock;
    std::map<std::uint32_t, SerializableFactory*> factories;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

// Both elements exist once; their MetaInfo is built on first use.
const MetaInfo& ClassIdMeta() {
    static const MetaInfo meta("ClassID");
    return meta;
}
const MetaInfo& ObjectMeta() {
    static const MetaInfo meta("Object");
    return meta;
}

}  // namespace

Serializable::~Serializable() = default;
SerializableFactory::~SerializableFactory() = default;

void RegisterFactory(std::uint32_t classId, SerializableFactory* factory) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    registry.factories[classId] = factory;
}

void UnregisterFactory(std::uint32_t classId) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    registry.factories.erase(classId);
}

SerializableFactory* FindFactory(std::uint32_t classId) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    auto found = registry.factories.find(classId);
    return found == registry.factories.end() ? nullptr : found->second;
}

Serializer& operator<<(Serializer& serializer, const std::shared_ptr<Serializable>& object) {
    if (!object) {
        return serializer;
    }
    serializer.Write(ClassIdMeta(), object->GetClassID());
    WriteScope scope(serializer, ObjectMeta());
    object->Write(serializer);
    return serializer;
}

Deserializer& operator>>(Deserializer& deserializer, std::shared_ptr<Serializable>& object) {
    object.reset();
    if (!(deserializer.NextMetaInfo() == ClassIdMeta())) {
        return deserializer;
    }
    std::uint32_t classId = 0;
    deserializer.Read(ClassIdMeta(), classId);
    if (classId == 0) {
        throw Common::Error(TL_ORIGIN("Serialization::operator >>"), kNoFactory,
                            Common::GetMessageRow(kNoFactoryRow));
    }
    std::unique_ptr<Serializable> made;
    if (SerializableFactory* factory = FindFactory(classId)) {
        made = factory->Create(classId);
    }
    if (!made) {
        TL_ASSERT_TEXT(false, "!\"Why factory couldn't create object??\"");
        throw Common::Error(TL_ORIGIN("Serialization::operator >>"), kFailedToCreate,
                            Common::GetMessageRow(kFailedToCreateRow));
    }
    {
        ReadScope scope(deserializer, ObjectMeta());
        made->Read(deserializer);
    }
    object = std::move(made);
    return deserializer;
}

}  // namespace Serialization
