#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

// The tables of argument functions, one per value type of a parameter, and one serving
// function per method signature. Only the units of argument types compile the codecs
// of the types; proxies and dispatchers name the tables.

#include <tessel_link/common/error.h>
#include <tessel_link/impl/binding/argument_type.h>
#include <tessel_link/impl/binding/table_dispatcher.h>

namespace Binding::Generated {

// The method of an overloaded name that has the parameters P, as a pointer to a member
// of the class that declares it.
template <class... P>
struct Overload {
    template <class C>
    static constexpr auto Of(::Common::Error (C::*method)(P...)) {
        return method;
    }
};

extern const Detail::ArgumentType kArgumentType_0;  // ::Shapes::Outline
extern const Detail::ArgumentType kArgumentType_1;  // std::uint32_t
extern const Detail::ArgumentType kArgumentType_2;  // ::Shapes::Fill
extern const Detail::ArgumentType kArgumentType_3;  // std::set<::Shapes::Point>

void Serve_0(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);
void Serve_1(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);
void Serve_2(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);

}  // namespace Binding::Generated
