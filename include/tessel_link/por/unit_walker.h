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
    virtual void BeginUnit() = 0;
    virtual void EndUnit() = 0;
    virtual void BeginProperty(const UnitName& name) = 0;
    virtual void BeginTrait(const UnitName& name) = 0;
    virtual void OnNil() = 0;
    virtual void OnError(const Common::Error& value) = 0;
    virtual void OnString(const WideString& value) = 0;
    virtual void OnGuid(const Common::Guid& value) = 0;
    virtual void OnBlob(const ByteVector& value) = 0;
    virtual void OnDouble(double value) = 0;
    virtual void OnSqword(std::int64_t value) = 0;
    virtual void OnQword(std::uint64_t value) = 0;
    virtual void OnSdword(std::int32_t value) = 0;
    virtual void OnDword(std::uint32_t value) = 0;
    virtual void OnSword(std::int16_t value) = 0;
    virtual void OnWord(std::uint16_t value) = 0;
    virtual void OnSbyte(std::int8_t value) = 0;
    virtual void OnByte(std::uint8_t value) = 0;
    virtual void OnBoolean(bool value) = 0;
    virtual void BeginArray() = 0;
    virtual void BeginComposite() = 0;
};

// The two things a walk can do at a unit: send its value (with the elements or properties
// when `recursive`) and send its traits.
class TL_API TraitValueCrossroad {
public:
    virtual ~TraitValueCrossroad() = default;
    virtual void WalkValue(bool recursive) = 0;
    virtual void WalkTraits() = 0;
};

// Decides at each unit what the walk does, and in which order.
class TL_API TraitValueGuide {
public:
    virtual ~TraitValueGuide() = default;
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
