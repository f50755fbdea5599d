#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

// One creation function per method signature: every method whose parameters have the
// same types makes its request through the same RequestImpl instantiation, which
// only the signature units compile.

#include <memory>

#include <tessel_link/impl/serialize/unit_member.h>

#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/binding/request.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/por/view.h>
#include <tessel_link/xidl/records.h>
#include <tessel_link/components/orderings.h>

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

std::unique_ptr<Request> CreateRequest_0(const MethodDescriptor& method, const ::Binding::Detail::Argument<const ::Shapes::Outline&>&, const ::Binding::Detail::Argument<std::uint32_t&>&);
void Serve_0(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);
std::unique_ptr<Request> CreateRequest_1(const MethodDescriptor& method);
void Serve_1(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);
std::unique_ptr<Request> CreateRequest_2(const MethodDescriptor& method, const ::Binding::Detail::Argument<::Shapes::Fill>&, const ::Binding::Detail::Argument<const std::set<::Shapes::Point>&>&, const ::Binding::Detail::Argument<std::uint32_t&>&);
void Serve_2(const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, ::Serialization::Deserializer& request, ::Serialization::Serializer& reply);

}  // namespace Binding::Generated
