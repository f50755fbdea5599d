#include <tessel_link/binding/request_base.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/serialize/codec.h>
#include <tessel_link/serialize/scope_guards.h>

#include "binding/binding_errors.h"

namespace Binding {

RequestSerializer::~RequestSerializer() = default;

namespace Detail {

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
    return std::string(direction) + "_" + method_.ComponentName + "_" + method_.MethodName;
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
    std::uint32_t /*subjectVersion*/) const {
    // A loop-back deserializer needs the XML packet writer and reader, which this build
    // does not have yet.
    throw NotAvailableYet(TL_ORIGIN("Binding::Detail::RequestBase::CreateDeserializer"));
}

std::u16string ObscureArgument(const std::u16string& /*text*/) {
    // Refuse rather than send a secret in clear while no obscurer is built in.
    throw NotAvailableYet(TL_ORIGIN("Binding::Detail::ObscureArgument"));
}

void ReportNotObscurable() {
    TL_ASSERT_TEXT(false, "!\"Value is not encryptable but encyption was requested\"");
}

}  // namespace Detail
}  // namespace Binding
