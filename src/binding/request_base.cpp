#include <tessel_link/impl/binding/request_base.h>

#include <string_view>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "binding/binding_errors.h"

namespace Binding {

RequestSerializer::~RequestSerializer() = default;

namespace Detail {

namespace {
// The packet format a request writes for itself.
constexpr std::uint32_t kPacketFormatRevision = 2;
}  // namespace

RequestBase::RequestBase(MethodDescriptor method) : method_(std::move(method)) {
    RegisterInterface<RequestBase>(this);
}

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

std::string RequestBase::ElementName(const char* direction) const {
    // Made once a call in each direction, so in one block rather than grown piece by piece.
    const std::string_view head(direction);
    std::string name;
    name.reserve(head.size() + method_.ComponentName.size() + method_.MethodName.size() + 2);
    name.append(head).append(1, '_').append(method_.ComponentName).append(1, '_').append(
        method_.MethodName);
    return name;
}

void RequestBase::WriteRequest(Serialization::Serializer& serializer) const {
    Serialization::WriteScope element(serializer, Serialization::MetaInfo(ElementName("request")));
    WriteArguments(serializer);
}

void RequestBase::ReadReply(Serialization::Deserializer& deserializer) {
    Serialization::ReadScope element(deserializer, Serialization::MetaInfo(ElementName("reply")));
    Common::Error result;
    Serialization::ReadMember(deserializer, Serialization::MetaInfo("result"), result);
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
