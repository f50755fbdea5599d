#include <tessel_link/impl/binding/argument_type.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include <tessel_link/impl/binding/request_base.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/obscurer.h>

namespace Binding::Detail {

namespace {

// Values of several types in one allocation: each at an offset that suits its alignment.
class ValueBlock {
public:
    template <class TypeOf>
    ValueBlock(std::size_t count, TypeOf typeOf) : offsets_(count) {
        std::size_t size = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const ArgumentType& type = typeOf(i);
            align_ = std::max(align_, type.Align);
            size = (size + type.Align - 1) / type.Align * type.Align;
            offsets_[i] = size;
            size += type.Size;
        }
        if (count != 0) {
            data_ = static_cast<unsigned char*>(::operator new(size, std::align_val_t{align_}));
        }
    }
    ~ValueBlock() {
        if (data_) {
            ::operator delete(data_, std::align_val_t{align_});
        }
    }
    ValueBlock(const ValueBlock&) = delete;
    ValueBlock& operator=(const ValueBlock&) = delete;

    void* At(std::size_t i) const { return data_ + offsets_[i]; }

private:
    std::vector<std::size_t> offsets_;
    std::size_t align_ = alignof(std::max_align_t);
    unsigned char* data_ = nullptr;
};

// The arguments of a request or a call: constructed last to first, as the members of a
// tuple are, and destroyed first to last. A constructor that throws leaves nothing behind.
class ArgumentValues {
public:
    template <class TypeOf, class Make>
    ArgumentValues(std::size_t count, TypeOf typeOf, Make make)
        : block_(count, typeOf), types_(count), pointers_(count) {
        for (std::size_t i = 0; i < count; ++i) {
            types_[i] = &typeOf(i);
            pointers_[i] = block_.At(i);
        }
        std::size_t built = count;
        try {
            while (built != 0) {
                make(built - 1, pointers_[built - 1]);
                --built;
            }
        } catch (...) {
            for (std::size_t i = built; i < count; ++i) {
                types_[i]->Destroy(pointers_[i]);
            }
            throw;
        }
    }
    ~ArgumentValues() {
        for (std::size_t i = 0; i < types_.size(); ++i) {
            types_[i]->Destroy(pointers_[i]);
        }
    }
    ArgumentValues(const ArgumentValues&) = delete;
    ArgumentValues& operator=(const ArgumentValues&) = delete;

    void* operator[](std::size_t i) const { return pointers_[i]; }
    void** Pointers() { return pointers_.data(); }

private:
    ValueBlock block_;
    std::vector<const ArgumentType*> types_;
    std::vector<void*> pointers_;
};

// A request's record of one argument: the caller's variable (read back only), its name in
// the packet and its kind.
struct Slot {
    const ArgumentType* Type;
    void* Target;
    std::string Name;
    ArgumentKind Kind;
};

class ArgumentRequest final : public RequestBase {
public:
    ArgumentRequest(const MethodDescriptor& method, const ErasedArgument* arguments,
                    std::size_t count)
        : RequestBase(method),
          values_(
              count, [arguments](std::size_t i) -> const ArgumentType& { return *arguments[i].Type; },
              [arguments](std::size_t i, void* at) { arguments[i].Type->Copy(at, arguments[i].Value); }) {
        slots_.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const ErasedArgument& argument = arguments[i];
            slots_.push_back({argument.Type, argument.Target, std::string(argument.Name), argument.Kind});
        }
    }

    void WriteArguments(Serialization::Serializer& serializer) const override {
        for (std::size_t i = 0; i < slots_.size(); ++i) {
            const Slot& slot = slots_[i];
            if (!IsWritten(slot.Kind)) {
                continue;
            }
            const Serialization::MetaInfo meta(slot.Name);
            if (!IsObscured(slot.Kind)) {
                slot.Type->Write(serializer, meta, values_[i]);
            } else if (slot.Type->WideString) {
                serializer.Write(meta, Serialization::Obscure(*static_cast<const std::u16string*>(values_[i])));
            } else {
                ReportNotObscurable();
            }
        }
    }

    // A reply that lacks an out argument, or holds one that cannot be read, leaves the
    // caller's variable as it was (or partly filled) and the call still succeeds: this is
    // what keeps older and newer versions of an interface talking to each other.
    void ReadArguments(Serialization::Deserializer& deserializer) override {
        for (const Slot& slot : slots_) {
            if (slot.Target == nullptr || !IsReadBack(slot.Kind)) {
                continue;
            }
            try {
                slot.Type->Read(deserializer, Serialization::MetaInfo(slot.Name), slot.Target);
            } catch (const Common::Error&) {
            }
        }
    }

private:
    ArgumentValues values_;
    std::vector<Slot> slots_;
};

}  // namespace

std::unique_ptr<Request> MakeRequest(const MethodDescriptor& method, const ErasedArgument* arguments,
                                     std::size_t count) {
    return std::make_unique<ArgumentRequest>(method, arguments, count);
}

void ServeArguments(const PreparedMethod& method, InvokeFunction invoke, void* implementation,
                    Serialization::Deserializer& request, Serialization::Serializer& reply,
                    const ServedParameter* parameters, std::size_t count) {
    ArgumentValues values(
        count, [parameters](std::size_t i) -> const ArgumentType& { return *parameters[i].Type; },
        [parameters](std::size_t i, void* at) { parameters[i].Type->Construct(at); });
    Common::Error result;
    try {
        Serialization::ReadScope element(request, method.RequestElement);
        for (std::size_t i = 0; i < count; ++i) {
            const ArgumentKind kind = method.ArgumentKinds[i];
            if (!IsWritten(kind)) {
                continue;
            }
            // An obscured argument of another type than a wide string was never written
            // (the proxy refuses it), so it is not looked for either.
            if (!IsObscured(kind)) {
                parameters[i].Type->Read(request, method.ArgumentMeta[i], values[i]);
            } else if (parameters[i].Type->WideString) {
                Serialization::ReadObscuredMember(request, method.ArgumentMeta[i],
                                                  *static_cast<std::u16string*>(values[i]));
            }
        }
    } catch (const Common::Error& error) {
        result = error;
    }
    if (result.Succeeded()) {
        try {
            result = invoke(implementation, values.Pointers());
        } catch (const Common::Error& error) {
            result = error;
        }
    }
    Serialization::WriteScope element(reply, method.ReplyElement);
    reply.Write(ResultMeta(), result);
    if (result.Succeeded()) {
        for (std::size_t i = 0; i < count; ++i) {
            if (parameters[i].ReadBack && IsReadBack(method.ArgumentKinds[i])) {
                parameters[i].Type->Write(reply, method.ArgumentMeta[i], values[i]);
            }
        }
    }
}

}  // namespace Binding::Detail
