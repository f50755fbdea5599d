#pragma once

// One remote call as a channel sees it: its identity, properties and packets.

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Binding {

// Free-form properties that a channel may attach to a request; the library sets none.
using RequestProperties = std::map<std::string, std::u16string>;

// One remote call, as the host's channel sees it. The channel routes it by component,
// method and interface version, writes it with WriteRequest into a packet of its own, and
// hands the reply to ReadReply, which stores the out arguments in the caller's variables.
class TL_API Request : public virtual Common::DynamicCasterImpl {
public:
    // A free-form property for the channel.
    virtual void SetProperty(const std::string& key, const std::u16string& value) = 0;
    virtual std::uint64_t GetCategory() const = 0;  // the category the packet is written for
    virtual std::uint32_t GetComponentID() const = 0;  // the component that serves the call
    virtual std::uint32_t GetMethodNumber() const = 0;  // the method's number in its interface
    // A deserializer positioned over the request's own packet, for a channel that serves
    // the call inside the process.
    virtual std::unique_ptr<Serialization::Deserializer> CreateDeserializer(
        std::uint32_t subjectVersion) const = 0;
    virtual RequestProperties GetProperties() const = 0;  // the properties set so far
    // The interface version the caller speaks.
    virtual std::uint64_t GetInterfaceVersion() const = 0;
    // Writes the element "request_<Interface>_<Method>" with every argument that is sent.
    // The request keeps copies of its arguments, so this may be called more than once.
    virtual void WriteRequest(Serialization::Serializer& serializer) const = 0;
    // Enters "reply_<Interface>_<Method>", reads "result" and, when it is success, the out
    // arguments. Throws Common::Error when the element or "result" is missing.
    virtual void ReadReply(Serialization::Deserializer& deserializer) = 0;
};

// The argument marshalling of a request, one implementation per method signature.
class TL_API RequestSerializer : private Common::NonCopyable {
public:
    virtual ~RequestSerializer();
    // Writes every argument that is sent.
    virtual void WriteArguments(Serialization::Serializer& serializer) const = 0;
    // Reads the arguments that come back.
    virtual void ReadArguments(Serialization::Deserializer& deserializer) = 0;
};

}  // namespace Binding
