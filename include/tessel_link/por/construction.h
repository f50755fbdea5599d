#pragma once

// The build layer of the unit model: besides reading and changing, new units, properties
// and traits may be added. Every class derives from its namesake in Por::Modification.

#include <cstdint>
#include <memory>

#include <tessel_link/por/modification.h>

namespace Por::Construction {

using Por::ItemProcessor;
using Por::IteratorState;

// Dispatch on the value kind for units under construction.
class TL_API UnitBuilder {
public:
    virtual ~UnitBuilder() = default;

#define TL_POR_SLOT(Kind, Value, Index) \
    using Kind##Arg = Value&;           \
    virtual void On##Kind(Value& value) = 0;
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT
};

using Visitor = UnitBuilder;  // the dispatcher by value kind of this layer

// A unit under construction: its traits may grow.
class TL_API Unit : public Modification::Unit {
public:
    using Modification::Unit::Accept;
    using Modification::Unit::GetTraits;
    virtual void Accept(UnitBuilder& visitor) = 0;  // dispatches on the value kind
    virtual Traits& GetTraits() = 0;  // the unit's traits, which may grow
};

// The value of a nil unit.
class TL_API NilValue : public Modification::NilValue {};

// A value held by copy.
template <class T>
class TL_API ScalarValue : public Modification::ScalarValue<T> {};

// A value held by reference.
template <class T>
class TL_API ComplexValue : public Modification::ComplexValue<T> {};

// An array that takes new units over.
class TL_API ArrayValue : public Modification::ArrayValue {
public:
    using Modification::ArrayValue::At;
    using Modification::ArrayValue::Back;
    using Modification::ArrayValue::ForEach;
    using Modification::ArrayValue::Front;

    virtual void Back(ItemProcessor<Unit>& processor) = 0;  // hands the last element to `processor`
    // Hands the first element to `processor`.
    virtual void Front(ItemProcessor<Unit>& processor) = 0;
    // Hands the element at `index` to `processor`.
    virtual void At(std::uint64_t index, ItemProcessor<Unit>& processor) = 0;
    // Hands every element to `processor` until it stops.
    virtual bool ForEach(ItemProcessor<Unit>& processor) = 0;
    // Take over the unit. Insert accepts index == Size().
    virtual void Insert(std::uint64_t index, UnitPtr unit) = 0;
    virtual void PushBack(UnitPtr unit) = 0;  // takes over the unit as the last element
    virtual void PushFront(UnitPtr unit) = 0;  // takes over the unit as the first element
};

// A property whose unit may be built on.
class TL_API Property : public Modification::Property {
public:
    using Modification::Property::GetUnit;
    Unit& GetUnit() override = 0;  // the property's unit, to build on
};

// A composite whose properties may be set and removed.
class TL_API CompositeValue : public Modification::CompositeValue {
public:
    using Modification::CompositeValue::Find;
    using Modification::CompositeValue::ForEach;
    using Modification::CompositeValue::GetIterator;

    // Hands every property to `processor` until it stops.
    virtual bool ForEach(ItemProcessor<Property>& processor) = 0;
    // Hands the property of that name to `processor`; false when there is none.
    virtual bool Find(const UnitName& name, ItemProcessor<Property>& processor) = 0;
    // An iterator over the properties.
    virtual std::shared_ptr<IteratorState<Property>> GetIterator() = 0;
    // Stores the property; one of the same name is replaced.
    virtual void Set(PropertyPtr property) = 0;
    // Destroys the property of that name; a missing name is no error.
    virtual void Remove(const UnitName& name) = 0;
};

// Traits that may be added.
class TL_API Traits : public Modification::Traits {
public:
    // Takes over the trait. A trait equal to one present (same name, same unit by the unit
    // ordering) is dropped.
    virtual void Add(TraitPtr trait) = 0;
};

// Makes units. Every operation returns a new unit without traits.
class TL_API UnitFactory : private Common::NonCopyable {
public:
    virtual ~UnitFactory() = default;
    virtual UnitPtr CreateNil() = 0;  // a nil unit
#define TL_POR_CREATE(Kind, Type, Index) virtual UnitPtr Create##Kind(Type value) = 0;
    TL_POR_FOR_EACH_SCALAR(TL_POR_CREATE)
#undef TL_POR_CREATE
#define TL_POR_CREATE(Kind, Type, Index) virtual UnitPtr Create##Kind(const Type& value) = 0;
    TL_POR_FOR_EACH_COMPLEX(TL_POR_CREATE)
#undef TL_POR_CREATE
    virtual UnitPtr CreateArray() = 0;  // an empty array unit
    virtual UnitPtr CreateComposite() = 0;  // an empty composite unit
    // Wrap the unit, which must not be null.
    virtual TraitPtr CreateTrait(const UnitName& name, UnitPtr unit) = 0;
    // A property of `unit` named `name`.
    virtual PropertyPtr CreateProperty(const UnitName& name, UnitPtr unit) = 0;
};

}  // namespace Por::Construction
