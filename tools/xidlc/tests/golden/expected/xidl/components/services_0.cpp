// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

#include <tessel_link/impl/binding/service_method.h>

namespace Binding::Generated {

void Serve_0(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply) {
    Detail::ServeMethod<void(const ::Shapes::Outline&, std::uint32_t&)>::Serve(method, invoke, implementation, request, reply);
}

}  // namespace Binding::Generated
