#pragma once

// The service side of a component, as a channel that serves calls finds it.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Binding {

// The failures of calls that no service method answers.
// "Cannot find a component with ID '{0}'.": no dispatcher serves the component.
inline constexpr std::uint32_t kErrorUnknownComponent = 0xb9000b;
// "Failed to get method info.": the component has no method of that number (the code of
// ComponentInfo::GetMethodInfo for a number out of range).
inline constexpr std::uint32_t kErrorUnknownMethod = 0xb9000c;
// "The component version is not supported. The server or client is out of date.": the
// method came after the interface version the caller speaks.
inline constexpr std::uint32_t kErrorVersionNotSupported = 0xb9000d;

// The service side of one component: serves calls that arrive as request packets by
// calling an implementation of the component's interface and writing the reply.
//
// Serve is called with the method number and the interface version that came with the
// request, a deserializer over the request packet (positioned before the request element)
// and a serializer for the reply packet. It writes the element "reply_<Interface>_<Method>"
// with "result" and, on success, the out arguments. A method the component does not have,
// or one newer than the caller's interface version, throws Common::Error and writes nothing:
// without a method there is no reply element to write.
//
// A dispatcher does not change after it is built; Serve may run on many threads at once,
// and the implementation must allow that too.
class TL_API ServiceDispatcher {
public:
    virtual ~ServiceDispatcher();
    virtual std::uint32_t GetComponentID() const = 0;  // the component it serves
    // Serves one call; see above.
    virtual void Serve(std::uint32_t methodNumber, std::uint64_t interfaceVersion,
                       Serialization::Deserializer& request,
                       Serialization::Serializer& reply) const = 0;
};

}  // namespace Binding
