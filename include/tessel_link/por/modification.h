#pragma once

// The write layer of the unit model: values and the content of existing arrays and
// composites may change; no new property can be added. Every class derives from its
// namesake in Por::View.

#include <cstdint>

#include <tessel_link/por/view.h>

namespace Por::Modification {

using Por::ItemProcessor;

// Dispatch on the value kind with values that may change: Unit::Accept calls the one slot
// that fits.
class TL_API UnitModifier {
public:
    virtual ~UnitModifier() = default;

#define TL_POR_SLOT(Kind, Value, Index) \
    using Kind##Arg = Value&;           \
    virtual void On##Kind(Value& value) = 0;
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT
};

using Visitor = UnitModifier;  // the dispatcher by value kind of this layer

// A unit whose value may change.
class TL_API Unit : public View::Unit {
public:
    using View::Unit::Accept;
    virtual void Accept(UnitModifier& visitor) = 0;  // dispatches on the value kind
};

// The value of a nil unit.
class TL_API NilValue : public View::NilValue {};

// A value held by copy that may be set.
template <class T>
class TL_API ScalarValue : public View::ScalarValue<T> {
public:
    virtual void Set(T value) = 0;  // replaces the value
};

// A value held by reference that may be set.
template <class T>
class TL_API ComplexValue : public View::ComplexValue<T> {
public:
    // Setting a value onto itself changes nothing.
    virtual void Set(const T& value) = 0;
};

// An array whose elements may change, be removed, or be added as copies.
class TL_API ArrayValue : public View::ArrayValue {
public:
    using View::ArrayValue::At;
    using View::ArrayValue::Back;
    using View::ArrayValue::ForEach;
    using View::ArrayValue::Front;

    virtual void Back(ItemProcessor<Unit>& processor) = 0;  // hands the last element to `processor`
    // Hands the first element to `processor`.
    virtual void Front(ItemProcessor<Unit>& processor) = 0;
    // Hands the element at `index` to `processor`.
    virtual void At(std::uint64_t index, ItemProcessor<Unit>& processor) = 0;
    // Hands every element to `processor` until it stops.
    virtual bool ForEach(ItemProcessor<Unit>& processor) = 0;
    virtual void Clear() = 0;  // removes every element
    // The Copy operations store a deep copy of the unit handed in, made of in-memory units,
    // and destroy the original. InsertCopy accepts index == Size().
    virtual void InsertCopy(std::uint64_t index, UnitPtr unit) = 0;
    virtual void RemoveAt(std::uint64_t index) = 0;  // removes the element at `index`
    virtual void PushBackCopy(UnitPtr unit) = 0;  // stores a copy as the last element
    virtual void PushFrontCopy(UnitPtr unit) = 0;  // stores a copy as the first element
    // Do nothing on an empty array.
    virtual void PopBack() = 0;
    virtual void PopFront() = 0;  // removes the first element
};

// A property whose unit may change.
class TL_API Property : public View::Property {
public:
    using View::Property::GetUnit;
    virtual Unit& GetUnit() = 0;  // the property's unit, to change
};

// A composite whose properties may change; none can be added.
class TL_API CompositeValue : public View::CompositeValue {
public:
    using View::CompositeValue::Find;
    using View::CompositeValue::ForEach;

    // Hands every property to `processor` until it stops.
    virtual bool ForEach(ItemProcessor<Property>& processor) = 0;
    // Hands the property of that name to `processor`; false when there is none.
    virtual bool Find(const UnitName& name, ItemProcessor<Property>& processor) = 0;
};

// Traits that may be removed by name.
class TL_API Traits : public View::Traits {
public:
    // Removes every trait of the name; returns how many there were.
    virtual std::uint32_t Remove(const UnitName& name) = 0;
};

}  // namespace Por::Modification
