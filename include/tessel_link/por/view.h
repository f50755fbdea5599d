#pragma once

// The read layer of the unit model. A unit holds one value of one of seventeen kinds and a
// set of traits; composites hold named properties and arrays hold ordered units, each of
// which is a unit again. Everything here is an interface: the algorithms of the model are
// written against these classes only.

#include <cstdint>
#include <memory>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>
#include <tessel_link/por/fwd.h>
#include <tessel_link/por/item_processor.h>
#include <tessel_link/por/kinds.h>
#include <tessel_link/por/unit_name.h>

namespace Por::View {

using Por::ItemProcessor;
using Por::IteratorState;

// Dispatch on the value kind: Unit::Accept calls the one slot that fits.
class TL_API UnitReader {
public:
    virtual ~UnitReader() = default;

#define TL_POR_SLOT(Kind, Value, Index)  \
    using Kind##Arg = const Value&;      \
    virtual void On##Kind(const Value& value) = 0;
    TL_POR_FOR_EACH_KIND(TL_POR_SLOT)
#undef TL_POR_SLOT
};

using Visitor = UnitReader;  // the dispatcher by value kind of this layer

// A unit: one value of one kind, read through a UnitReader, and its traits.
class TL_API Unit : private Common::NonCopyable {
public:
    virtual ~Unit() = default;
    // Calls the visitor's slot for the unit's kind.
    virtual void Accept(UnitReader& visitor) const = 0;
    // Never null; empty when the unit has no traits.
    virtual const Traits& GetTraits() const = 0;
};

// The value of a nil unit: it carries nothing.
class TL_API NilValue : private Common::NonCopyable {
public:
    virtual ~NilValue() = default;
};

// A value held by copy (numbers, flags, GUIDs, times).
template <class T>
class TL_API ScalarValue : private Common::NonCopyable {
public:
    virtual ~ScalarValue() = default;
    virtual T Get() const = 0;  // the value
};

// A value held by reference (strings, blobs).
template <class T>
class TL_API ComplexValue : private Common::NonCopyable {
public:
    virtual ~ComplexValue() = default;
    virtual const T& Get() const = 0;  // the value
};

// An ordered sequence of units.
class TL_API ArrayValue : private Common::NonCopyable {
public:
    virtual ~ArrayValue() = default;
    virtual bool IsEmpty() const = 0;  // no elements
    virtual std::uint64_t Size() const = 0;  // the number of elements
    // The first and last element. The array must not be empty: that is not checked.
    virtual void Front(ItemProcessor<const Unit>& processor) const = 0;
    virtual void Back(ItemProcessor<const Unit>& processor) const = 0;  // the last element
    // Raises "POR: Out of range." for index >= Size().
    virtual void At(std::uint64_t index, ItemProcessor<const Unit>& processor) const = 0;
    // In order; true when the processor stopped the walk.
    virtual bool ForEach(ItemProcessor<const Unit>& processor) const = 0;
};

// A named unit of a composite.
class TL_API Property : private Common::NonCopyable {
public:
    virtual ~Property() = default;
    virtual const UnitName& GetName() const = 0;  // the property's name
    virtual const Unit& GetUnit() const = 0;  // the property's unit
};

// A record-like value: named properties, one per name.
class TL_API CompositeValue : private Common::NonCopyable {
public:
    virtual ~CompositeValue() = default;
    // In name order; true when the processor stopped the walk.
    virtual bool ForEach(ItemProcessor<const Property>& processor) const = 0;
    // Calls the processor for the property of that name; false when there is none.
    virtual bool Find(const UnitName& name, ItemProcessor<const Property>& processor) const = 0;
    // An iterator over the properties, in name order.
    virtual std::shared_ptr<IteratorState<const Property>> GetIterator() const = 0;
};

// An annotation of a unit: a name and a unit. Traits are read-only once made.
class TL_API Trait : private Common::NonCopyable {
public:
    virtual ~Trait() = default;
    virtual const UnitName& GetName() const = 0;  // the trait's name
    virtual const Unit& GetUnit() const = 0;  // the trait's unit
};

// The traits of one unit, ordered by name and then by unit.
class TL_API Traits : private Common::NonCopyable {
public:
    virtual ~Traits() = default;
    // Only the traits of that name; true when the processor stopped the walk.
    virtual bool ForEachByName(const UnitName& name, ItemProcessor<const Trait>& processor) const = 0;
    // Every trait, in order; true when the processor stopped the walk.
    virtual bool ForEach(ItemProcessor<const Trait>& processor) const = 0;
};

}  // namespace Por::View
