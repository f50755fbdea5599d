#pragma once

// A tree as a stream of events, and the walk that produces it.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/por/view.h>

namespace Por::Util {

// The events of a tree. A unit is BeginUnit, its value, its traits and EndUnit. A value is a
// scalar or complex event, or BeginArray followed by the element units, or BeginComposite
// followed by BeginProperty and the property's unit for each property. BeginProperty and
// BeginTrait have no closing event of their own: the EndUnit of the nested unit closes them.
class TL_API UnitWalker {
public:
    virtual ~UnitWalker() = default;
    virtual void BeginUnit() = 0;  // a unit starts
    virtual void EndUnit() = 0;  // the unit ends
    virtual void BeginProperty(const UnitName& name) = 0;  // the property `name` follows, as a unit
    virtual void BeginTrait(const UnitName& name) = 0;  // the trait `name` follows, as a unit
    virtual void OnNil() = 0;  // a nil value
    virtual void OnError(const Common::Error& value) = 0;  // an error value
    virtual void OnString(const WideString& value) = 0;  // a string value
    virtual void OnGuid(const Common::Guid& value) = 0;  // a GUID value
    virtual void OnBlob(const ByteVector& value) = 0;  // a blob value
    virtual void OnDouble(double value) = 0;  // a double value
    virtual void OnSqword(std::int64_t value) = 0;  // a signed 64-bit value
    virtual void OnQword(std::uint64_t value) = 0;  // an unsigned 64-bit value
    virtual void OnSdword(std::int32_t value) = 0;  // a signed 32-bit value
    virtual void OnDword(std::uint32_t value) = 0;  // an unsigned 32-bit value
    virtual void OnSword(std::int16_t value) = 0;  // a signed 16-bit value
    virtual void OnWord(std::uint16_t value) = 0;  // an unsigned 16-bit value
    virtual void OnSbyte(std::int8_t value) = 0;  // a signed byte value
    virtual void OnByte(std::uint8_t value) = 0;  // a byte value
    virtual void OnBoolean(bool value) = 0;  // a boolean value
    virtual void BeginArray() = 0;  // an array follows: its element units
    virtual void BeginComposite() = 0;  // a composite follows: its properties
};

// The two things a walk can do at a unit: send its value (with the elements or properties
// when `recursive`) and send its traits.
class TL_API TraitValueCrossroad {
public:
    virtual ~TraitValueCrossroad() = default;
    virtual void WalkValue(bool recursive) = 0;  // sends the value
    virtual void WalkTraits() = 0;  // sends the traits
};

// Decides at each unit what the walk does, and in which order.
class TL_API TraitValueGuide {
public:
    virtual ~TraitValueGuide() = default;
    // Calls the crossroad in the order it wants.
    virtual void Choose(TraitValueCrossroad& crossroad) = 0;
};

// The whole value first, then the traits: the order of the binary unit form.
class TL_API WalkValueFirstGuide final : public TraitValueGuide {
public:
    void Choose(TraitValueCrossroad& crossroad) override {
        crossroad.WalkValue(true);
        crossroad.WalkTraits();
    }
};

// BeginUnit, the guide's choice, EndUnit, and the same for every nested unit the guide walks
// into. A unit more than kMaxTreeDepth levels below `unit` raises "POR: Out of range.".
TL_API void WalkHierarchy(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker);

}  // namespace Por::Util
