#pragma once

// Building a tree from a stream of value events.

#include <cstdint>
#include <vector>

#include <tessel_link/por/construction.h>

namespace Por::Util {

// The receiving side of a stream of events: values, the opening of arrays, composites,
// properties and traits, and End, which closes the innermost open unit.
class TL_API UnitBuilder {
public:
    virtual ~UnitBuilder() = default;
    virtual void AddNil() = 0;  // a nil value
    virtual void AddBoolean(bool value) = 0;  // a boolean value
    virtual void AddByte(std::uint8_t value) = 0;  // a byte value
    virtual void AddSbyte(std::int8_t value) = 0;  // a signed byte value
    virtual void AddWord(std::uint16_t value) = 0;  // an unsigned 16-bit value
    virtual void AddSword(std::int16_t value) = 0;  // a signed 16-bit value
    virtual void AddDword(std::uint32_t value) = 0;  // an unsigned 32-bit value
    virtual void AddSdword(std::int32_t value) = 0;  // a signed 32-bit value
    virtual void AddQword(std::uint64_t value) = 0;  // an unsigned 64-bit value
    virtual void AddSqword(std::int64_t value) = 0;  // a signed 64-bit value
    virtual void AddDouble(double value) = 0;  // a double value
    virtual void AddBlob(const ByteVector& value) = 0;  // a blob value
    virtual void AddGuid(const Common::Guid& value) = 0;  // a GUID value
    virtual void AddString(const WideString& value) = 0;  // a string value
    virtual void AddError(const Common::Error& value) = 0;  // an error value
    virtual void BeginArray() = 0;  // opens an array
    virtual void BeginComposite() = 0;  // opens a composite
    virtual void BeginProperty(const UnitName& name) = 0;  // opens the property `name`
    virtual void BeginTrait(const UnitName& name) = 0;  // opens the trait `name`
    virtual void End() = 0;  // closes the innermost open unit
    // Moves the last finished unit out; null when there is none (or it was taken).
    virtual void TakeUnit(UnitPtr& unit) = 0;
};

// A UnitBuilder that makes units with a factory. It keeps a stack of frames, one for each
// open unit; the outermost frame (Root) receives one unit, and its End finishes that unit
// and opens a fresh Root, so that one accumulator can build one tree after another.
//
// A value event goes to the innermost frame:
// 1. a frame without a unit takes the value as its unit;
// 2. a frame whose unit is nil has the nil replaced by the value;
// 3. on the Root frame, a further value is dropped unless the root is an array;
// 4. in a property that the unit already had (a name mentioned twice), a scalar or complex
//    value is assigned to the present unit (raising the assignment failures for another
//    kind); BeginArray and BeginComposite there continue the present array or composite;
// 5. otherwise the value is a new element of the frame's array.
// A property of a unit that is still being built is a new property and is added to it at
// End; a trait is added to its unit at End.
class TL_API UnitAccumulator final : public UnitBuilder {
public:
    // What an open frame stands for.
    enum class FrameKind : std::uint8_t {
        Root = 0,
        NewProperty = 1,
        ExistingProperty = 2,
        ExistingArray = 3,
        Trait = 4,
        Element = 5,
    };

    explicit UnitAccumulator(Construction::UnitFactory& factory);  // builds with `factory`
    ~UnitAccumulator() override;

    void AddNil() override;
    void AddBoolean(bool value) override;
    void AddByte(std::uint8_t value) override;
    void AddSbyte(std::int8_t value) override;
    void AddWord(std::uint16_t value) override;
    void AddSword(std::int16_t value) override;
    void AddDword(std::uint32_t value) override;
    void AddSdword(std::int32_t value) override;
    void AddQword(std::uint64_t value) override;
    void AddSqword(std::int64_t value) override;
    void AddDouble(double value) override;
    void AddBlob(const ByteVector& value) override;
    void AddGuid(const Common::Guid& value) override;
    void AddString(const WideString& value) override;
    void AddString(WideString&& value);  // the same, taking the text over
    void AddError(const Common::Error& value) override;
    void BeginArray() override;
    void BeginComposite() override;
    void BeginProperty(const UnitName& name) override;
    void BeginTrait(const UnitName& name) override;
    // Attaching a property or trait to a frame that has no unit yet raises "POR: Null units
    // are forbidden.".
    void End() override;
    void TakeUnit(UnitPtr& unit) override;

    // Number of open frames, the Root frame included.
    std::size_t Depth() const noexcept { return frames_.size(); }
    // The kind of the innermost frame.
    FrameKind TopKind() const noexcept { return frames_.back().kind; }

private:
    struct Frame {
        UnitName name;
        FrameKind kind;
        UnitPtr owned;                       // set when the frame's unit is its own
        Construction::Unit* unit = nullptr;  // owned.get(), or a unit of the tree
        std::uint64_t counter = 0;
        std::uint8_t type = UnknownType;  // the type index of `unit`, once known
    };

    void AddValue(UnitPtr value, unsigned type);
    unsigned TypeOf(Frame& frame);
    Frame& Top() { return frames_.back(); }

    Construction::UnitFactory& factory_;
    bool inMemory_;  // the factory makes the in-memory units, which may be made directly
    std::vector<Frame> frames_;
    UnitPtr finished_;
};

}  // namespace Por::Util
