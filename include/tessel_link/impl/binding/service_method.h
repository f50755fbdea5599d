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

TL_API const Serialization::MetaInfo& ResultMeta();

// The member function pointer of a method, taken apart.
template <class Member>
struct MemberTraits;
template <class Interface, class... P>
struct MemberTraits<Common::Error (Interface::*)(P...)> {
    using Class = Interface;
    using Signature = void(P...);
    using Values = std::tuple<std::remove_cvref_t<P>...>;
    static constexpr std::size_t kArity = sizeof...(P);
};

// `implementation` points to the Interface sub-object; the member may be declared in a base
// of it (an interface made of several), so the cast goes to Interface first.
template <class Interface, auto Member>
Common::Error InvokeMember(void* implementation, void* arguments) {
    using Traits = MemberTraits<decltype(Member)>;
    Interface* object = static_cast<Interface*>(implementation);
    auto& values = *static_cast<typename Traits::Values*>(arguments);
    return std::apply([object](auto&... value) { return (object->*Member)(value...); }, values);
}

// Reads one argument of the request. An obscured wide string arrives obscured and is handed
// to the implementation in clear; an obscured argument of another type was never written
// (the proxy refuses it), so it is not looked for either.
template <class T>
void ReadRequestArgument(Serialization::Deserializer& request, const Serialization::MetaInfo& meta,
                         ArgumentKind kind, T& value) {
    if (!IsWritten(kind)) {
        return;
    }
    if (!IsObscured(kind)) {
        Serialization::ReadMember(request, meta, value);
    } else if constexpr (std::is_same_v<T, std::u16string>) {
        Serialization::ReadObscuredMember(request, meta, value);
    }
}

template <class Signature>
struct ServeMethod;

// Serves every method of the signature void(P...).
//
// Arguments that are sent are read by name into values of their own type; an out argument
// starts default-constructed. An argument that is missing from the request, or cannot be
// read, fails the call with the reader's error and the implementation is not called: a
// service that made up a value would act on something the caller never asked for. (The
// proxy is lenient the other way round: out values are only what the service reports.)
//
// The reply holds "result" and, when it is success, the arguments that the proxy reads
// back: the non-constant references whose kind is not in. A Common::Error thrown by the
// implementation is answered like one it returned.
template <class... P>
struct ServeMethod<void(P...)> {
    using Values = std::tuple<std::remove_cvref_t<P>...>;

    static void Serve(const PreparedMethod& method, InvokeFunction invoke, void* implementation,
                      Serialization::Deserializer& request, Serialization::Serializer& reply) {
        Values values{};
        Common::Error result;
        try {
            ReadArguments(method, request, values, std::index_sequence_for<P...>{});
        } catch (const Common::Error& error) {
            result = error;
        }
        if (result.Succeeded()) {
            try {
                result = invoke(implementation, &values);
            } catch (const Common::Error& error) {
                result = error;
            }
        }
        Serialization::WriteScope element(reply, method.ReplyElement);
        reply.Write(ResultMeta(), result);
        if (result.Succeeded()) {
            WriteResults(method, reply, values, std::index_sequence_for<P...>{});
        }
    }

private:
    template <std::size_t... I>
    static void ReadArguments(const PreparedMethod& method, Serialization::Deserializer& request,
                              Values& values, std::index_sequence<I...>) {
        Serialization::ReadScope element(request, method.RequestElement);
        (ReadRequestArgument(request, method.ArgumentMeta[I], method.ArgumentKinds[I],
                             std::get<I>(values)),
         ...);
        (void)values;
    }

    template <std::size_t... I>
    static void WriteResults(const PreparedMethod& method, Serialization::Serializer& reply,
                             const Values& values, std::index_sequence<I...>) {
        (WriteResult<P>(reply, method.ArgumentMeta[I], method.ArgumentKinds[I],
                        std::get<I>(values)),
         ...);
        (void)method;
        (void)values;
    }

    template <class Parameter, class T>
    static void WriteResult(Serialization::Serializer& reply, const Serialization::MetaInfo& meta,
                            ArgumentKind kind, const T& value) {
        if constexpr (ParameterTraits<Parameter>::kReadBack) {
            if (IsReadBack(kind)) {
                Serialization::WriteMember(reply, meta, value);
            }
        } else {
            (void)reply;
            (void)meta;
            (void)kind;
            (void)value;
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
