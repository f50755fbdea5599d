#pragma once

// Not API: used by the generated dispatchers only.
//
// The service side of one remote method: reads a request element as the proxy's request
// wrote it, calls the implementation, and writes the reply element that the proxy's
// ReadReply expects. Every rule here mirrors one in request_impl.h.

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <tessel_link/impl/binding/argument_type.h>
#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/serialize/serializer.h>

namespace Binding {

namespace Detail {

template <class Signature>
struct ServeMethod;

// Serves every method of the signature void(P...).
//
// Arguments that are sent are read by name into values of their own type; an out argument
// starts value-initialised. An argument that is missing from the request, or cannot be
// read, fails the call with the reader's error and the implementation is not called: a
// service that made up a value would act on something the caller never asked for. (The
// proxy is lenient the other way round: out values are only what the service reports.)
//
// The reply holds "result" and, when it is success, the arguments that the proxy reads
// back: the non-constant references whose kind is not in. A Common::Error thrown by the
// implementation is answered like one it returned.
template <class... P>
struct ServeMethod<void(P...)> {
    static void Serve(const PreparedMethod& method, InvokeFunction invoke, void* implementation,
                      Serialization::Deserializer& request, Serialization::Serializer& reply) {
        if constexpr (sizeof...(P) == 0) {
            ServeArguments(method, invoke, implementation, request, reply, nullptr, 0);
        } else {
            static constexpr ServedParameter kParameters[] = {
                {&kArgumentType<std::remove_cvref_t<P>>, ParameterTraits<P>::kReadBack}...};
            ServeArguments(method, invoke, implementation, request, reply, kParameters,
                           sizeof...(P));
        }
    }
};

}  // namespace Detail

// The row of the method `Member` of `Interface` (a member function returning Common::Error,
// declared in the interface or one of its bases). There is one parameter entry per
// parameter of the method:
//   Binding::Serve<TestManager, &TestManager::GetData>(3, "GetData", 1,
//       {{"hostname", ArgumentKind::Default}, {"size", ArgumentKind::Default},
//        {"result", ArgumentKind::Out}})
template <class Interface, auto Member, std::size_t N>
ServiceMethod Serve(std::uint32_t number, const char* name, std::uint64_t introducedVersion,
                    const ServiceParameter (&parameters)[N]) {
    using Traits = Detail::MemberTraits<decltype(Member)>;
    static_assert(std::is_base_of_v<typename Traits::Class, Interface>);
    static_assert(Traits::kArity == N, "one parameter entry per parameter of the method");
    return {number,
            name,
            introducedVersion,
            std::vector<ServiceParameter>(parameters, parameters + N),
            &Detail::ServeMethod<typename Traits::Signature>::Serve,
            &Detail::InvokeMember<Interface, Member>};
}

// The row of a method without parameters.
template <class Interface, auto Member>
ServiceMethod Serve(std::uint32_t number, const char* name, std::uint64_t introducedVersion) {
    using Traits = Detail::MemberTraits<decltype(Member)>;
    static_assert(std::is_base_of_v<typename Traits::Class, Interface>);
    static_assert(Traits::kArity == 0, "the method has parameters: list them");
    return {number,
            name,
            introducedVersion,
            {},
            &Detail::ServeMethod<typename Traits::Signature>::Serve,
            &Detail::InvokeMember<Interface, Member>};
}

}  // namespace Binding
