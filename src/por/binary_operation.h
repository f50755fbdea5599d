#pragma once

// Double dispatch over a pair of units: the left unit is visited, and for the kind found the
// right one is resolved; the operation is then called with both values. The operation sees
// all 289 pairs of kinds.

#include <type_traits>
#include <typeinfo>

#include <tessel_link/por/visitors.h>

#include "por/holders.h"

namespace Por::Detail {

// The in-memory holder of the values of a read interface.
template <class Value>
struct MemoryHolderOf;
template <>
struct MemoryHolderOf<View::NilValue> {
    using Type = NilValueHolder;
};
template <class T>
struct MemoryHolderOf<View::ScalarValue<T>> {
    using Type = ScalarValueHolder<T>;
};
template <class T>
struct MemoryHolderOf<View::ComplexValue<T>> {
    using Type = ComplexValueHolder<T>;
};
template <>
struct MemoryHolderOf<View::ArrayValue> {
    using Type = ArrayValueHolder;
};
template <>
struct MemoryHolderOf<View::CompositeValue> {
    using Type = CompositeValueHolder;
};

// Calls `op` with the values of two units, whatever their kinds. When the right unit is an
// in-memory unit of the left one's kind, which is what two trees being compared usually
// hold, its value is read directly instead of by a second visit. The type is told by the
// address of its type_info alone: where one type has two (copies across shared objects),
// the second visit serves and the answer is the same.
template <class Op>
void ApplyBinary(const View::Unit& left, const View::Unit& right, Op& op) {
    const std::type_info* rightType = &typeid(right);
    VisitValue(left, [&](const auto& leftValue) {
        using Left = std::remove_cvref_t<decltype(leftValue)>;
        using Holder = typename MemoryHolderOf<Left>::Type;
        if (rightType == &typeid(Object<Holder>)) {
            op(leftValue, static_cast<const Left&>(static_cast<const Object<Holder>&>(right).Value()));
        } else {
            VisitValue(right, [&](const auto& rightValue) { op(leftValue, rightValue); });
        }
    });
}

}  // namespace Por::Detail
