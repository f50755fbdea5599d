// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

namespace Binding::Generated {

void Serve_0(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply) {
    static constexpr Detail::ServedParameter kParameters[] = {{&kArgumentType_0, false}, {&kArgumentType_1, true}};
    Detail::ServeArguments(method, invoke, implementation, request, reply, kParameters, 2);
}

void Serve_1(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply) {
    Detail::ServeArguments(method, invoke, implementation, request, reply, nullptr, 0);
}

void Serve_2(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply) {
    static constexpr Detail::ServedParameter kParameters[] = {{&kArgumentType_2, false}, {&kArgumentType_3, false}, {&kArgumentType_1, true}};
    Detail::ServeArguments(method, invoke, implementation, request, reply, kParameters, 3);
}

}  // namespace Binding::Generated
