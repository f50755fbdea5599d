#pragma once

// Not API: the argument slots of a request, used by the generated proxies only.
// A host's channel sees a call through Binding::Request.

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include <tessel_link/impl/binding/argument_type.h>
#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/impl/binding/request_base.h>
#include <tessel_link/common/error.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/obscurer.h>

namespace Binding::Detail {

// How a parameter type P of a method is held and whether it comes back: only a
// non-constant reference is ever read back from a reply.
template <class P>
struct ParameterTraits {
    using Value = std::remove_cvref_t<P>;
    static constexpr bool kReadBack =
        std::is_lvalue_reference_v<P> && !std::is_const_v<std::remove_reference_t<P>>;
    using Reference = std::conditional_t<kReadBack, Value&, const Value&>;
    using Target = std::conditional_t<kReadBack, Value*, const Value*>;
};

// What a request maker passes for one parameter: the caller's argument, its name in the
// packet and its kind.
template <class P>
struct Argument {
    typename ParameterTraits<P>::Reference Ref;
    std::string_view Name;
    ArgumentKind Kind;
};

// The table of functions of the argument type T, made once per type.
template <class T>
struct ArgumentCodec {
    static void Construct(void* at) { ::new (at) T(); }
    static void Copy(void* at, const void* from) { ::new (at) T(*static_cast<const T*>(from)); }
    static void Destroy(void* at) { static_cast<T*>(at)->~T(); }
    static void Write(Serialization::Serializer& serializer, const Serialization::MetaInfo& meta,
                      const void* value) {
        Serialization::WriteMember(serializer, meta, *static_cast<const T*>(value));
    }
    static void Read(Serialization::Deserializer& deserializer, const Serialization::MetaInfo& meta,
                     void* value) {
        Serialization::ReadMember(deserializer, meta, *static_cast<T*>(value));
    }
};

// The whole table, or (kReadable false) the part that an argument which is only sent
// needs: a type that can be written but not read or made may still be sent.
template <class T, bool kReadable = true>
constexpr ArgumentType MakeArgumentType() {
    if constexpr (kReadable) {
        return {sizeof(T),
                alignof(T),
                &ArgumentCodec<T>::Construct,
                &ArgumentCodec<T>::Copy,
                &ArgumentCodec<T>::Destroy,
                &ArgumentCodec<T>::Write,
                &ArgumentCodec<T>::Read,
                std::is_same_v<T, std::u16string>};
    } else {
        return {sizeof(T),
                alignof(T),
                nullptr,
                &ArgumentCodec<T>::Copy,
                &ArgumentCodec<T>::Destroy,
                &ArgumentCodec<T>::Write,
                nullptr,
                std::is_same_v<T, std::u16string>};
    }
}

template <class T, bool kReadable = true>
inline constexpr ArgumentType kArgumentType = MakeArgumentType<T, kReadable>();

// What a parameter P hands to MakeRequest: the caller's argument is copied into the request
// (also for a non-constant reference); only a non-constant reference has a variable that the
// reply stores into.
template <class P>
ErasedArgument Erase(const Argument<P>& argument) {
    using Traits = ParameterTraits<P>;
    void* target = nullptr;
    if constexpr (Traits::kReadBack) {
        target = &argument.Ref;
    }
    return {&kArgumentType<typename Traits::Value, Traits::kReadBack>, &argument.Ref, target,
            argument.Name, argument.Kind};
}

template <class Signature>
class RequestImpl;

// The request of every method with the signature void(P...), whichever component it
// belongs to.
template <class... P>
class RequestImpl<void(P...)> final {
public:
    // The creation function of the signature.
    static std::unique_ptr<Request> Create(const MethodDescriptor& method,
                                           const Argument<P>&... arguments) {
        if constexpr (sizeof...(P) == 0) {
            return MakeRequest(method, nullptr, 0);
        } else {
            const ErasedArgument erased[] = {Erase<P>(arguments)...};
            return MakeRequest(method, erased, sizeof...(P));
        }
    }
};

// Builds the request of a method with the given signature:
//   CreateRequest<void(const std::string&, std::string&)>(
//       method, {host, "hostname", ArgumentKind::Default}, {out, "result", ArgumentKind::Out});
template <class Signature>
inline constexpr auto CreateRequest = &RequestImpl<Signature>::Create;

}  // namespace Binding::Detail
