#include <tessel_link/impl/binding/request_base.h>

#include <cstring>
#include <optional>
#include <string_view>

#include <tessel_link/impl/binding/argument_type.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "binding/binding_errors.h"
#include "common/thread_cache.h"

namespace Binding {

RequestSerializer::~RequestSerializer() = default;

namespace Detail {

namespace {
// The packet format a request writes for itself.
constexpr std::uint32_t kPacketFormatRevision = 2;
}  // namespace

RequestBase::RequestBase(const MethodDescriptor& method) : method_(method) {}

RequestBase::~RequestBase() = default;

void RequestBase::SetProperty(const std::string& key, const std::u16string& value) {
    properties_.insert_or_assign(key, value);
}

std::uint64_t RequestBase::GetCategory() const {
    return method_.Category;
}

std::uint32_t RequestBase::GetComponentID() const {
    return method_.ComponentID;
}

std::uint32_t RequestBase::GetMethodNumber() const {
    return method_.MethodNumber;
}

RequestProperties RequestBase::GetProperties() const {
    return properties_;
}

std::uint64_t RequestBase::GetInterfaceVersion() const {
    return method_.InterfaceVersion;
}

void* RequestBase::QueryType(const char* typeName) {
    // The request answers for its own type without an entry in the table: requests are made
    // for every call, and asked for their type hardly ever.
    if (void* registered = DynamicCasterImpl::QueryType(typeName)) {
        return registered;
    }
    if (typeName != nullptr && std::strcmp(typeName, TypeKey<RequestBase>()) == 0) {
        return static_cast<void*>(this);
    }
    return nullptr;
}

namespace {

struct Kept {
    Serialization::MetaInfo Meta;
    bool InUse = false;
};

// The MetaInfo of a request's or a reply's element. Its name is formed anew for every
// element, into a MetaInfo that the thread keeps, so that a name longer than a short string
// costs no allocation; an element opened while the thread's one is in use (a call made
// from inside the reading or writing of another) gets a MetaInfo of its own, and so does one
// opened while the thread ends.
class ElementMeta {
public:
    ElementMeta(std::string_view direction, const MethodDescriptor& method) {
        Kept* kept = Common::ThreadCache<Kept>::Get();
        if (kept != nullptr && !kept->InUse) {
            kept->InUse = true;
            kept_ = kept;
            meta_ = &kept->Meta;
        } else {
            meta_ = &own_.emplace();
        }
        // Sized first, then copied piece by piece: within the kept capacity this touches no
        // allocator and runs no growth checks per piece.
        const std::string_view component = method.ComponentName;
        const std::string_view name = method.MethodName;
        std::string& formed = meta_->Name;
        formed.resize(direction.size() + component.size() + name.size() + 2);
        char* at = formed.data();
        at = Put(at, direction);
        *at++ = '_';
        at = Put(at, component);
        *at++ = '_';
        Put(at, name);
    }
    ~ElementMeta() {
        if (kept_ != nullptr) {
            kept_->InUse = false;
        }
    }
    ElementMeta(const ElementMeta&) = delete;
    ElementMeta& operator=(const ElementMeta&) = delete;

    const Serialization::MetaInfo& Get() const { return *meta_; }

private:
    static char* Put(char* at, std::string_view piece) {
        std::memcpy(at, piece.data(), piece.size());
        return at + piece.size();
    }

    Kept* kept_ = nullptr;
    std::optional<Serialization::MetaInfo> own_;
    Serialization::MetaInfo* meta_;
};

}  // namespace

void RequestBase::WriteRequest(Serialization::Serializer& serializer) const {
    const ElementMeta meta("request", method_);
    Serialization::WriteScope element(serializer, meta.Get());
    WriteArguments(serializer);
}

void RequestBase::ReadReply(Serialization::Deserializer& deserializer) {
    const ElementMeta meta("reply", method_);
    Serialization::ReadScope element(deserializer, meta.Get());
    Common::Error result;
    Serialization::ReadMember(deserializer, ResultMeta(), result);
    // A failed call sends no out values worth having: the caller's variables stay as they
    // were, and the failure reaches the caller through the job's result.
    if (result.Code() == Common::ErrorSuccess.Code()) {
        ReadArguments(deserializer);
    }
}

std::unique_ptr<Serialization::Deserializer> RequestBase::CreateDeserializer(
    std::uint32_t subjectVersion) const {
    // The packet is written for the request's own category, so that elements that belong to
    // another category are left out of it.
    Serialization::XMLPacketSerializer serializer(kPacketFormatRevision,
                                                  static_cast<std::uint32_t>(method_.Category));
    WriteRequest(serializer);
    std::vector<unsigned char> data;
    serializer.Finish(data);
    TL_ASSERT(data.size());
    // The reader copies what it needs while it is built, so the bytes may go with this scope.
    return std::make_unique<Serialization::XMLPacketDeserializer>(data.data(), data.size(),
                                                                  subjectVersion);
}

void ReportNotObscurable() {
    TL_ASSERT_TEXT(false, "!\"Value is not encryptable but encyption was requested\"");
}

}  // namespace Detail
}  // namespace Binding
