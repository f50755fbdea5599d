#pragma once

// Ready-made visitor bases and the adaptor that turns one overloaded handler into a visitor.

#include <tessel_link/impl/por/visitor_bases.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/errors.h>

namespace Por {

// The type index of a value interface of any layer: ValueKind<View::ArrayValue>::Index == 15.
template <class Value>
struct ValueKind;

#define TL_POR_VALUE_KIND(Kind, Value, Idx)              \
    template <>                                            \
    struct ValueKind<View::Value> {                        \
        static constexpr unsigned Index = (Idx);         \
    };                                                     \
    template <>                                            \
    struct ValueKind<Modification::Value> {                \
        static constexpr unsigned Index = (Idx);         \
    };                                                     \
    template <>                                            \
    struct ValueKind<Construction::Value> {                \
        static constexpr unsigned Index = (Idx);         \
    };
TL_POR_FOR_EACH_KIND(TL_POR_VALUE_KIND)
#undef TL_POR_VALUE_KIND

template <class Value>
// The type index of a value interface, whatever its const and reference qualifiers.
inline constexpr unsigned ValueKindOf = ValueKind<std::remove_cvref_t<Value>>::Index;

// Visits a unit with a handler: handler(value) is called with the value interface.
template <class Handler>
void VisitValue(const View::Unit& unit, Handler&& handler) {
    Detail::UnitVisitorAdaptor<std::remove_reference_t<Handler>, View::UnitReader> v(handler);
    unit.Accept(v);
}
template <class Handler>
void VisitValue(Modification::Unit& unit, Handler&& handler) {
    Detail::UnitVisitorAdaptor<std::remove_reference_t<Handler>, Modification::UnitModifier> v(
        handler);
    unit.Accept(v);
}
template <class Handler>
void VisitValue(Construction::Unit& unit, Handler&& handler) {
    Detail::UnitVisitorAdaptor<std::remove_reference_t<Handler>, Construction::UnitBuilder> v(
        handler);
    unit.Accept(v);
}

namespace View {
using NullVisitor = Detail::BasicNullVisitor<UnitReader>;  // skips every kind
// Raises the type mismatch for every kind.
using TypeMismatchThrowingVisitor = Detail::BasicTypeMismatchThrowingVisitor<UnitReader>;

// Walks the elements of an array unit; any other kind raises the type mismatch.
class TL_API ForEachArrayElementVisitor : public TypeMismatchThrowingVisitor {
public:
    // Hands every element to `processor`.
    explicit ForEachArrayElementVisitor(ItemProcessor<const Unit>& processor)
        : TypeMismatchThrowingVisitor(ArrayType), processor_(processor) {}
    // Walks the elements.
    void OnArray(const ArrayValue& value) override { stopped_ = value.ForEach(processor_); }
    bool Stopped() const { return stopped_; }  // whether the processor stopped the walk

private:
    ItemProcessor<const Unit>& processor_;
    bool stopped_ = false;
};
}  // namespace View

namespace Modification {
using NullVisitor = Detail::BasicNullVisitor<UnitModifier>;  // skips every kind
// Raises the type mismatch for every kind.
using TypeMismatchThrowingVisitor = Detail::BasicTypeMismatchThrowingVisitor<UnitModifier>;
}  // namespace Modification

namespace Construction {
using NullVisitor = Detail::BasicNullVisitor<UnitBuilder>;  // skips every kind
// Raises the type mismatch for every kind.
using TypeMismatchThrowingVisitor = Detail::BasicTypeMismatchThrowingVisitor<UnitBuilder>;

// Bases for visitors that need one kind: every other kind raises the type mismatch.
class TL_API CompositeVisitor : public TypeMismatchThrowingVisitor {
public:
    CompositeVisitor() : TypeMismatchThrowingVisitor(CompositeType) {}
    void OnComposite(CompositeValue& value) override = 0;  // the composite met
};

// The base of visitors that need an array: every other kind raises the type mismatch.
class TL_API ArrayVisitor : public TypeMismatchThrowingVisitor {
public:
    ArrayVisitor() : TypeMismatchThrowingVisitor(ArrayType) {}
    void OnArray(ArrayValue& value) override = 0;  // the array met
};
}  // namespace Construction

}  // namespace Por
