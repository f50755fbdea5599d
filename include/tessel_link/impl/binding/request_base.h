#pragma once

// Not API: the common part of every request the generated proxies make.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/binding/request.h>
#include <tessel_link/export.h>

namespace Binding::Detail {

// What all requests share: the method's identity, the channel's properties, the element
// frame of request and reply. The arguments belong to RequestImpl.
class TL_API RequestBase : public Request, public RequestSerializer {
public:
    explicit RequestBase(const MethodDescriptor& method);
    ~RequestBase() override;

    void SetProperty(const std::string& key, const std::u16string& value) override;
    std::uint64_t GetCategory() const override;
    std::uint32_t GetComponentID() const override;
    std::uint32_t GetMethodNumber() const override;
    std::unique_ptr<Serialization::Deserializer> CreateDeserializer(
        std::uint32_t subjectVersion) const override;
    RequestProperties GetProperties() const override;
    std::uint64_t GetInterfaceVersion() const override;
    void WriteRequest(Serialization::Serializer& serializer) const override;
    void ReadReply(Serialization::Deserializer& deserializer) override;
    // The request itself under the key of RequestBase; other keys as the table has them.
    void* QueryType(const char* typeName) override;

    const MethodDescriptor& Method() const { return method_; }

private:

    MethodDescriptor method_;
    RequestProperties properties_;
};

// Reports an obscured argument of a type that cannot be obscured (a programming error of
// the interface definitions).
TL_API void ReportNotObscurable();

}  // namespace Binding::Detail
