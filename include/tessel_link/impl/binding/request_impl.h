#pragma once

// Not API: the argument slots of a request, used by the generated proxies only.
// A host's channel sees a call through Binding::Request.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

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

// A request's slot for one parameter: a copy of the argument taken when the request is
// built (also for a non-constant reference), and the caller's variable, which only
// ReadArguments stores into. A parameter passed by value has no caller's variable that
// outlives the request maker, so its Target is null.
template <class P>
struct ArgumentSlot {
    using Traits = ParameterTraits<P>;

    explicit ArgumentSlot(const Argument<P>& argument)
        : Value(argument.Ref),
          Target(std::is_reference_v<P> ? &argument.Ref : nullptr),
          Name(argument.Name),
          Kind(argument.Kind) {}

    typename Traits::Value Value;
    typename Traits::Target Target;
    std::string Name;
    ArgumentKind Kind;
};

template <class T>
void WriteArgument(Serialization::Serializer& serializer, const T& value, const std::string& name,
                   ArgumentKind kind) {
    if (!IsWritten(kind)) {
        return;
    }
    const Serialization::MetaInfo meta(name);
    if (!IsObscured(kind)) {
        Serialization::WriteMember(serializer, meta, value);
    } else if constexpr (std::is_same_v<T, std::u16string>) {
        Serialization::WriteMember(serializer, meta, Serialization::Obscure(value));
    } else {
        ReportNotObscurable();
    }
}

// A reply that lacks an out argument, or holds one that cannot be read, leaves the caller's
// variable as it was (or partly filled) and the call still succeeds: this is what keeps
// older and newer versions of an interface talking to each other.
template <class T>
void ReadArgument(Serialization::Deserializer& deserializer, T& target, const std::string& name,
                  ArgumentKind kind) {
    if (!IsReadBack(kind)) {
        return;
    }
    try {
        Serialization::ReadMember(deserializer, Serialization::MetaInfo(name), target);
    } catch (const Common::Error&) {
    }
}

template <class Signature>
class RequestImpl;

// The request of every method with the signature void(P...), whichever component it
// belongs to.
template <class... P>
class RequestImpl<void(P...)> final : public RequestBase {
public:
    using Slots = std::tuple<ArgumentSlot<P>...>;

    explicit RequestImpl(const MethodDescriptor& method, const Argument<P>&... arguments)
        : RequestBase(method), slots_(ArgumentSlot<P>(arguments)...) {}

    // The creation function that request makers call, one per signature.
    static std::unique_ptr<Request> Create(const MethodDescriptor& method,
                                           const Argument<P>&... arguments) {
        return std::make_unique<RequestImpl>(method, arguments...);
    }

    void WriteArguments(Serialization::Serializer& serializer) const override {
        std::apply(
            [&serializer](const auto&... slot) {
                (WriteArgument(serializer, slot.Value, slot.Name, slot.Kind), ...);
            },
            slots_);
    }

    void ReadArguments(Serialization::Deserializer& deserializer) override {
        std::apply([&deserializer](auto&... slot) { (ReadSlot(deserializer, slot), ...); }, slots_);
    }

    const Slots& GetSlots() const { return slots_; }

private:
    template <class Slot>
    static void ReadSlot(Serialization::Deserializer& deserializer, Slot& slot) {
        if constexpr (Slot::Traits::kReadBack) {
            ReadArgument(deserializer, *slot.Target, slot.Name, slot.Kind);
        } else {
            (void)deserializer;
            (void)slot;
        }
    }

    Slots slots_;
};

// Builds the request of a method with the given signature:
//   CreateRequest<void(const std::string&, std::string&)>(
//       method, {host, "hostname", ArgumentKind::Default}, {out, "result", ArgumentKind::Out});
template <class Signature>
inline constexpr auto CreateRequest = &RequestImpl<Signature>::Create;

}  // namespace Binding::Detail
