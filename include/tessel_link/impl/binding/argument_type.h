#pragma once

// Not API: the untyped core of requests and served methods, used by the generated proxies
// and dispatchers and by the templates of request_impl.h and service_method.h.
//
// Every value type that travels as an argument has one table of functions (ArgumentType);
// a request or a served call is a list of arguments, each with its type's table. The code
// that copies, writes, reads and destroys arguments is therefore compiled once per type,
// and once in all for the request and reply frames, instead of once per method signature.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include <tessel_link/binding/request.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/binding/method_descriptor.h>
#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/serializer.h>

namespace Binding::Detail {

// The MetaInfo of a reply's "result".
TL_API const Serialization::MetaInfo& ResultMeta();

// How values of one argument type are made, copied, destroyed, written and read.
struct ArgumentType {
    std::size_t Size;
    std::size_t Align;
    // Null in the table of a type that a request only sends (see MakeArgumentType).
    void (*Construct)(void* at);  // value-initialised, as a service reads into it
    void (*Copy)(void* at, const void* from);
    void (*Destroy)(void* at);
    void (*Write)(Serialization::Serializer& serializer, const Serialization::MetaInfo& meta,
                  const void* value);
    void (*Read)(Serialization::Deserializer& deserializer, const Serialization::MetaInfo& meta,
                 void* value);
    // Only a wide string can be obscured on the wire.
    bool WideString;
};

// One argument as a request maker hands it over: the caller's value, copied into the
// request, and for a non-constant reference the caller's variable that the reply fills.
struct ErasedArgument {
    const ArgumentType* Type;
    const void* Value;
    void* Target;  // null unless the argument is read back from the reply
    std::string_view Name;
    ArgumentKind Kind;
};

// The request of `method` with `count` arguments. The arguments are copied last to first;
// a Common::Error thrown by a copy leaves nothing behind and passes to the caller.
TL_API std::unique_ptr<Request> MakeRequest(const MethodDescriptor& method,
                                            const ErasedArgument* arguments, std::size_t count);

// One parameter of a served method: its value type, and whether the method's parameter is
// a non-constant reference, whose value goes back in the reply.
struct ServedParameter {
    const ArgumentType* Type;
    bool ReadBack;
};

// Serves one call of a method with the given parameters (see ServeMethod in
// service_method.h for the rules). `invoke` receives the array of pointers to the
// argument values.
TL_API void ServeArguments(const PreparedMethod& method, InvokeFunction invoke,
                           void* implementation, Serialization::Deserializer& request,
                           Serialization::Serializer& reply, const ServedParameter* parameters,
                           std::size_t count);

// The member function pointer of a method, taken apart.
template <class Member>
struct MemberTraits;
template <class Interface, class... P>
struct MemberTraits<Common::Error (Interface::*)(P...)> {
    using Class = Interface;
    using Signature = void(P...);
    static constexpr std::size_t kArity = sizeof...(P);

    template <auto Member, std::size_t... I>
    static Common::Error Call(Interface* object, void* const* values, std::index_sequence<I...>) {
        (void)values;
        return (object->*Member)(*static_cast<std::remove_cvref_t<P>*>(values[I])...);
    }
};

// `implementation` points to the Interface sub-object; the member may be declared in a base
// of it (an interface made of several), so the cast goes to Interface first. `arguments` is
// the array of pointers to the values that ServeArguments read.
template <class Interface, auto Member>
Common::Error InvokeMember(void* implementation, void* arguments) {
    using Traits = MemberTraits<decltype(Member)>;
    Interface* object = static_cast<Interface*>(implementation);
    return Traits::template Call<Member>(object, static_cast<void* const*>(arguments),
                                         std::make_index_sequence<Traits::kArity>{});
}

}  // namespace Binding::Detail
