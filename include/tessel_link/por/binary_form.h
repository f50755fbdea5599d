#pragma once

// The compact byte form of a unit tree. A unit is "U", its value, its traits and "E"; a value
// is a tag byte (the type index) with its payload, or "A" followed by the element units, or
// "C" followed by the properties; a property is "P", its name and its unit, a trait "T", its
// name and its unit. Names are written as string values. Numbers are little-endian; strings
// are UTF-16 units with a 32-bit byte count; blobs and errors (in their serialized form) have
// a 32-bit byte count. There is no header: equal trees give equal bytes.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <tessel_link/por/unit_accumulator.h>
#include <tessel_link/por/unit_walker.h>

namespace Por::Util {

// Where written bytes go.
class TL_API BinaryDataConsumer {
public:
    virtual ~BinaryDataConsumer() = default;
    virtual void Consume(const unsigned char* bytes, std::size_t count) = 0;  // takes `count` bytes
};

// Appends to a byte vector.
class TL_API BlobWriter final : public BinaryDataConsumer {
public:
    explicit BlobWriter(std::vector<unsigned char>& bytes) : bytes_(bytes) {}  // appends to `bytes`
    void Consume(const unsigned char* bytes, std::size_t count) override {
        bytes_.insert(bytes_.end(), bytes, bytes + count);
    }

private:
    std::vector<unsigned char>& bytes_;
};

// Writes the events of a walk as the binary form.
class TL_API BinaryDataProvider final : public UnitWalker {
public:
    // Writes to `consumer`.
    explicit BinaryDataProvider(BinaryDataConsumer& consumer) : consumer_(consumer) {}

    void BeginUnit() override;
    void EndUnit() override;
    void BeginProperty(const UnitName& name) override;
    void BeginTrait(const UnitName& name) override;
    void OnNil() override;
    void OnError(const Common::Error& value) override;
    void OnString(const WideString& value) override;
    void OnGuid(const Common::Guid& value) override;
    void OnBlob(const ByteVector& value) override;
    void OnDouble(double value) override;
    void OnSqword(std::int64_t value) override;
    void OnQword(std::uint64_t value) override;
    void OnSdword(std::int32_t value) override;
    void OnDword(std::uint32_t value) override;
    void OnSword(std::int16_t value) override;
    void OnWord(std::uint16_t value) override;
    void OnSbyte(std::int8_t value) override;
    void OnByte(std::uint8_t value) override;
    void OnBoolean(bool value) override;
    void BeginArray() override;
    void BeginComposite() override;

private:
    void Tag(unsigned char tag) { consumer_.Consume(&tag, 1); }
    void Name(const UnitName& name);
    void Text(const char16_t* units, std::size_t count);
    void Sized(unsigned char tag, const unsigned char* bytes, std::size_t count);
    template <class T>
    void Fixed(unsigned char tag, T value);

    BinaryDataConsumer& consumer_;
};

// Forwards the events of a walk to a builder: EndUnit ends the open unit, BeginUnit is
// implied by the value that follows it.
class TL_API UnitBuildingWalker final : public UnitWalker {
public:
    // Forwards to `builder`.
    explicit UnitBuildingWalker(UnitBuilder& builder) : builder_(builder) {}

    void BeginUnit() override {}
    void EndUnit() override { builder_.End(); }
    void BeginProperty(const UnitName& name) override { builder_.BeginProperty(name); }
    void BeginTrait(const UnitName& name) override { builder_.BeginTrait(name); }
    void OnNil() override { builder_.AddNil(); }
    void OnError(const Common::Error& value) override { builder_.AddError(value); }
    void OnString(const WideString& value) override { builder_.AddString(value); }
    void OnGuid(const Common::Guid& value) override { builder_.AddGuid(value); }
    void OnBlob(const ByteVector& value) override { builder_.AddBlob(value); }
    void OnDouble(double value) override { builder_.AddDouble(value); }
    void OnSqword(std::int64_t value) override { builder_.AddSqword(value); }
    void OnQword(std::uint64_t value) override { builder_.AddQword(value); }
    void OnSdword(std::int32_t value) override { builder_.AddSdword(value); }
    void OnDword(std::uint32_t value) override { builder_.AddDword(value); }
    void OnSword(std::int16_t value) override { builder_.AddSword(value); }
    void OnWord(std::uint16_t value) override { builder_.AddWord(value); }
    void OnSbyte(std::int8_t value) override { builder_.AddSbyte(value); }
    void OnByte(std::uint8_t value) override { builder_.AddByte(value); }
    void OnBoolean(bool value) override { builder_.AddBoolean(value); }
    void BeginArray() override { builder_.BeginArray(); }
    void BeginComposite() override { builder_.BeginComposite(); }

private:
    UnitBuilder& builder_;
};

// Turns bytes of the binary form back into the events of a walk. The bytes are checked as
// they are read: a tag where none belongs, a count that runs past the end, a name that is
// not a string, a tree deeper than kMaxTreeDepth, bytes behind the root unit and a blob that
// ends inside a unit all raise "POR: Unit object '{0}' is corrupted at position '{1}'."
// (0xfa0021) with the blob in hexadecimal and the position just behind the offending byte
// (the blob's size when it ended too early). Events already sent stay sent.
class TL_API BlobWalkingRoute {
public:
    // A route over `size` bytes at `data`.
    BlobWalkingRoute(const unsigned char* data, std::size_t size) : data_(data), size_(size) {}

    // An empty route sends BeginUnit alone.
    void Follow(UnitWalker& walker);

    // How far the route has read.
    std::size_t Position() const noexcept { return pos_; }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

// The corruption error for `size` bytes at `data`, failing at `position`.
TL_API Common::Error MakeCorruptedBlobError(const unsigned char* data, std::size_t size,
                                            std::size_t position);

// Appends the binary form of the tree to `bytes`. A unit more than kMaxTreeDepth levels
// deep raises "POR: Out of range.".
TL_API void WriteBlob(const View::Unit& unit, std::vector<unsigned char>& bytes);

// The tree of a binary form, made with `factory`; an empty blob gives null. Every failure,
// also one that `factory` raises while the tree is built, is raised as the corruption error,
// with the original failure as its cause. A property named twice keeps its later value, as
// when a composite is given the same name again.
TL_API UnitPtr ReadBlob(const unsigned char* data, std::size_t size,
                        Construction::UnitFactory& factory);
inline UnitPtr ReadBlob(const std::vector<unsigned char>& bytes,
                        Construction::UnitFactory& factory) {
    return ReadBlob(bytes.data(), bytes.size(), factory);
}

}  // namespace Por::Util
