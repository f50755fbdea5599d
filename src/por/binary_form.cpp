#include <tessel_link/por/binary_form.h>

#include <bit>
#include <cstring>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/errors.h>

#include "por/por_errors.h"

namespace Por::Util {

namespace {

// The structural tags, in the one literal that holds them all.
constexpr char kTags[] = "TPUECA";
constexpr unsigned char kTrait = kTags[0];
constexpr unsigned char kProperty = kTags[1];
constexpr unsigned char kUnit = kTags[2];
constexpr unsigned char kEnd = kTags[3];
constexpr unsigned char kComposite = kTags[4];
constexpr unsigned char kArray = kTags[5];

template <class T>
void StoreLittleEndian(unsigned char* out, T value) {
    using Bits = std::conditional_t<
        sizeof(T) == 8, std::uint64_t,
        std::conditional_t<sizeof(T) == 4, std::uint32_t,
                           std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint8_t>>>;
    Bits bits = std::bit_cast<Bits>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        out[i] = static_cast<unsigned char>(bits >> (8 * i));
    }
}

template <class T>
T LoadLittleEndian(const unsigned char* in) {
    using Bits = std::conditional_t<
        sizeof(T) == 8, std::uint64_t,
        std::conditional_t<sizeof(T) == 4, std::uint32_t,
                           std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint8_t>>>;
    Bits bits = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bits = static_cast<Bits>(bits | (static_cast<Bits>(in[i]) << (8 * i)));
    }
    return std::bit_cast<T>(bits);
}

}  // namespace

// --- writing -------------------------------------------------------------------------------

void BinaryDataProvider::BeginUnit() {
    Tag(kUnit);
}
void BinaryDataProvider::EndUnit() {
    Tag(kEnd);
}
void BinaryDataProvider::BeginArray() {
    Tag(kArray);
}
void BinaryDataProvider::BeginComposite() {
    Tag(kComposite);
}

void BinaryDataProvider::BeginProperty(const UnitName& name) {
    Tag(kProperty);
    Name(name);
}

void BinaryDataProvider::BeginTrait(const UnitName& name) {
    Tag(kTrait);
    Name(name);
}

void BinaryDataProvider::Name(const UnitName& name) {
    const std::u16string wide = Common::Utf8ToUtf16Lenient(name.Text());
    Text(wide.data(), wide.size());
}

void BinaryDataProvider::Text(const char16_t* units, std::size_t count) {
    unsigned char head[5];
    head[0] = StringType;
    StoreLittleEndian(head + 1, static_cast<std::uint32_t>(count * 2));
    consumer_.Consume(head, sizeof head);
    unsigned char chunk[256];
    while (count > 0) {
        const std::size_t n = count < sizeof chunk / 2 ? count : sizeof chunk / 2;
        for (std::size_t i = 0; i < n; ++i) {
            StoreLittleEndian(chunk + 2 * i, static_cast<std::uint16_t>(units[i]));
        }
        consumer_.Consume(chunk, 2 * n);
        units += n;
        count -= n;
    }
}

void BinaryDataProvider::Sized(unsigned char tag, const unsigned char* bytes, std::size_t count) {
    unsigned char head[5];
    head[0] = tag;
    StoreLittleEndian(head + 1, static_cast<std::uint32_t>(count));
    consumer_.Consume(head, sizeof head);
    if (count != 0) {
        consumer_.Consume(bytes, count);
    }
}

template <class T>
void BinaryDataProvider::Fixed(unsigned char tag, T value) {
    unsigned char bytes[1 + sizeof(T)];
    bytes[0] = tag;
    StoreLittleEndian(bytes + 1, value);
    consumer_.Consume(bytes, sizeof bytes);
}

void BinaryDataProvider::OnNil() {
    Tag(NilType);
}

void BinaryDataProvider::OnError(const Common::Error& value) {
    const std::vector<unsigned char> bytes = value.Serialize();
    Sized(ErrorType, bytes.data(), bytes.size());
}

void BinaryDataProvider::OnString(const WideString& value) {
    Text(value.data(), value.size());
}

void BinaryDataProvider::OnGuid(const Common::Guid& value) {
    unsigned char bytes[17];
    bytes[0] = GuidType;
    StoreLittleEndian(bytes + 1, value.Data1);
    StoreLittleEndian(bytes + 5, value.Data2);
    StoreLittleEndian(bytes + 7, value.Data3);
    std::memcpy(bytes + 9, value.Data4, 8);
    consumer_.Consume(bytes, sizeof bytes);
}

void BinaryDataProvider::OnBlob(const ByteVector& value) {
    Sized(BlobType, value.data(), value.size());
}

void BinaryDataProvider::OnDouble(double value) {
    Fixed(DoubleType, value);
}
void BinaryDataProvider::OnSqword(std::int64_t value) {
    Fixed(SqwordType, value);
}
void BinaryDataProvider::OnQword(std::uint64_t value) {
    Fixed(QwordType, value);
}
void BinaryDataProvider::OnSdword(std::int32_t value) {
    Fixed(SdwordType, value);
}
void BinaryDataProvider::OnDword(std::uint32_t value) {
    Fixed(DwordType, value);
}
void BinaryDataProvider::OnSword(std::int16_t value) {
    Fixed(SwordType, value);
}
void BinaryDataProvider::OnWord(std::uint16_t value) {
    Fixed(WordType, value);
}
void BinaryDataProvider::OnSbyte(std::int8_t value) {
    Fixed(SbyteType, value);
}
void BinaryDataProvider::OnByte(std::uint8_t value) {
    Fixed(ByteType, value);
}
void BinaryDataProvider::OnBoolean(bool value) {
    Fixed(BooleanType, static_cast<std::uint8_t>(value ? 1 : 0));
}

void WriteBlob(const View::Unit& unit, std::vector<unsigned char>& bytes) {
    BlobWriter writer(bytes);
    BinaryDataProvider provider(writer);
    WalkValueFirstGuide guide;
    WalkHierarchy(unit, guide, provider);
}

// --- reading -------------------------------------------------------------------------------

Common::Error MakeCorruptedBlobError(const unsigned char* data, std::size_t size,
                                     std::size_t position) {
    static constexpr char16_t kDigits[] = u"0123456789abcdef";
    std::u16string dump;
    dump.resize(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        dump[2 * i] = kDigits[data[i] >> 4];
        dump[2 * i + 1] = kDigits[data[i] & 0x0f];
    }
    const std::string where = std::to_string(position);
    return Por::Detail::MakeRowErrorWithArguments(
        TL_ORIGIN("Por::Util::BlobWalkingRoute::Follow"), kErrorCorruptedBlob,
        Por::Detail::kRowCorruptedBlob, {dump, std::u16string(where.begin(), where.end())});
}

namespace {

// What a unit of the stream expects next.
enum class Phase : std::uint8_t {
    Value,       // its value
    Elements,    // element units, traits or its end
    Properties,  // properties, traits or its end
    Traits,      // traits or its end
};

class RouteReader {
public:
    RouteReader(const unsigned char* data, std::size_t size, std::size_t& pos)
        : data_(data), size_(size), pos_(pos) {}

    [[noreturn]] void Corrupted(std::size_t position) const {
        throw MakeCorruptedBlobError(data_, size_, position);
    }

    bool AtEnd() const { return pos_ >= size_; }

    unsigned char Byte() {
        if (pos_ >= size_) {
            Corrupted(size_);
        }
        return data_[pos_++];
    }

    // `count` bytes, all inside the blob.
    const unsigned char* Take(std::size_t count) {
        if (count > size_ - pos_) {
            Corrupted(size_);
        }
        const unsigned char* at = data_ + pos_;
        pos_ += count;
        return at;
    }

    template <class T>
    T Number() {
        return LoadLittleEndian<T>(Take(sizeof(T)));
    }

    std::uint32_t Count() { return Number<std::uint32_t>(); }

    // The UTF-16 units of a string payload (the tag has been read).
    std::u16string Units() {
        const std::uint32_t bytes = Count();
        if (bytes % 2 != 0) {
            Corrupted(pos_);
        }
        const unsigned char* at = Take(bytes);
        std::u16string text(bytes / 2, u'\0');
        for (std::size_t i = 0; i < text.size(); ++i) {
            text[i] = static_cast<char16_t>(at[2 * i] | (at[2 * i + 1] << 8));
        }
        return text;
    }

    // A name: a string value. A tree repeats a few names in every record, so the names
    // already made are kept by their bytes in the blob and shared again: a repeated name
    // costs a comparison, not a conversion and an allocation.
    // The name stays valid until the next call.
    const UnitName& Name() {
        if (Byte() != StringType) {
            Corrupted(pos_);
        }
        const std::size_t start = pos_;
        const std::uint32_t bytes = Count();
        if (bytes % 2 != 0) {
            Corrupted(pos_);
        }
        const unsigned char* at = Take(bytes);
        KnownName& known = names_[Slot(at, bytes)];
        if (known.bytes == bytes && known.at != nullptr && std::memcmp(known.at, at, bytes) == 0) {
            return known.name;
        }
        pos_ = start;
        UnitName name(Units());
        known = KnownName{at, bytes, std::move(name)};
        return known.name;
    }

    // The payload of a scalar or complex tag, sent to the walker.
    template <class Walker>
    void Value(unsigned char tag, Walker& walker) {
        switch (tag) {
            case NilType:
                walker.OnNil();
                break;
            case BooleanType:
                walker.OnBoolean(Byte() != 0);
                break;
            case ByteType:
                walker.OnByte(Number<std::uint8_t>());
                break;
            case SbyteType:
                walker.OnSbyte(Number<std::int8_t>());
                break;
            case WordType:
                walker.OnWord(Number<std::uint16_t>());
                break;
            case SwordType:
                walker.OnSword(Number<std::int16_t>());
                break;
            case DwordType:
                walker.OnDword(Number<std::uint32_t>());
                break;
            case SdwordType:
                walker.OnSdword(Number<std::int32_t>());
                break;
            case QwordType:
                walker.OnQword(Number<std::uint64_t>());
                break;
            case SqwordType:
                walker.OnSqword(Number<std::int64_t>());
                break;
            case DoubleType:
                walker.OnDouble(Number<double>());
                break;
            case BlobType: {
                const std::uint32_t count = Count();
                const unsigned char* at = Take(count);
                walker.OnBlob(ByteVector(at, at + count));
                break;
            }
            case GuidType: {
                Common::Guid guid;
                guid.Data1 = Number<std::uint32_t>();
                guid.Data2 = Number<std::uint16_t>();
                guid.Data3 = Number<std::uint16_t>();
                std::memcpy(guid.Data4, Take(8), 8);
                walker.OnGuid(guid);
                break;
            }
            case StringType:
                walker.OnString(Units());
                break;
            case ErrorType: {
                const std::uint32_t count = Count();
                const unsigned char* at = Take(count);
                walker.OnError(Common::Error::Deserialize(at, count));
                break;
            }
            default:
                Corrupted(pos_);
        }
    }

private:
    struct KnownName {
        const unsigned char* at = nullptr;  // its bytes in the blob
        std::uint32_t bytes = 0;
        UnitName name;
    };
    static constexpr std::size_t kKnownNames = 64;

    // Over every byte: the names of one tree differ in a letter or two ("Version" and
    // "Enabled" have the same length and the same first, third and second-last units).
    static std::size_t Slot(const unsigned char* at, std::uint32_t bytes) {
        std::uint32_t h = 2166136261u;
        for (std::uint32_t i = 0; i < bytes; i += 2) {
            h = (h ^ at[i]) * 16777619u;
        }
        return (h ^ (h >> 16)) % kKnownNames;
    }

    const unsigned char* data_;
    std::size_t size_;
    std::size_t& pos_;
    KnownName names_[kKnownNames];
};

// The walk over the bytes, for any walker: the library's own tree builder is called
// directly, without a virtual call per event.
template <class Walker>
void FollowRoute(const unsigned char* data, std::size_t size, std::size_t& pos, Walker& walker) {
    pos = 0;
    walker.BeginUnit();
    if (size == 0) {
        return;
    }
    RouteReader in(data, size, pos);
    if (in.Byte() != kUnit) {
        in.Corrupted(pos);
    }
    walker.BeginUnit();
    // The phase of every open unit, the root first.
    std::vector<Phase> open{Phase::Value};
    auto enter = [&] {
        if (open.size() > kMaxTreeDepth) {
            in.Corrupted(pos);
        }
        open.push_back(Phase::Value);
    };
    // "P" and "T" are followed by the name and the "U" that opens the nested unit.
    auto nested = [&](bool property) {
        const UnitName& name = in.Name();
        if (in.Byte() != kUnit) {
            in.Corrupted(pos);
        }
        if (property) {
            walker.BeginProperty(name);
        } else {
            walker.BeginTrait(name);
        }
        enter();
    };
    while (!open.empty()) {
        const unsigned char tag = in.Byte();
        Phase& phase = open.back();
        switch (phase) {
            case Phase::Value:
                if (tag == kArray) {
                    walker.BeginArray();
                    phase = Phase::Elements;
                } else if (tag == kComposite) {
                    walker.BeginUnit();
                    walker.BeginComposite();
                    phase = Phase::Properties;
                } else if (tag <= ErrorType) {
                    in.Value(tag, walker);
                    phase = Phase::Traits;
                } else {
                    in.Corrupted(pos);
                }
                continue;
            case Phase::Elements:
                if (tag == kUnit) {
                    walker.BeginUnit();
                    enter();
                    continue;
                }
                break;
            case Phase::Properties:
                if (tag == kProperty) {
                    nested(true);
                    continue;
                }
                break;
            case Phase::Traits:
                break;
        }
        // Behind the value and its elements or properties: traits, then the end.
        if (tag == kTrait) {
            open.back() = Phase::Traits;
            nested(false);
        } else if (tag == kEnd) {
            walker.EndUnit();
            open.pop_back();
        } else {
            in.Corrupted(pos);
        }
    }
    if (!in.AtEnd()) {
        in.Corrupted(pos + 1);
    }
}

}  // namespace

void BlobWalkingRoute::Follow(UnitWalker& walker) {
    FollowRoute(data_, size_, pos_, walker);
}

namespace {

// Builds the tree of a blob: the events of UnitBuildingWalker, called without virtual calls,
// and string values handed over rather than copied.
class TreeWalker {
public:
    explicit TreeWalker(UnitAccumulator& builder) : builder_(builder) {}

    void BeginUnit() {}
    void EndUnit() { builder_.End(); }
    void BeginProperty(const UnitName& name) { builder_.BeginProperty(name); }
    void BeginTrait(const UnitName& name) { builder_.BeginTrait(name); }
    void OnNil() { builder_.AddNil(); }
    void OnError(const Common::Error& value) { builder_.AddError(value); }
    void OnString(WideString&& value) { builder_.AddString(std::move(value)); }
    void OnGuid(const Common::Guid& value) { builder_.AddGuid(value); }
    void OnBlob(const ByteVector& value) { builder_.AddBlob(value); }
    void OnDouble(double value) { builder_.AddDouble(value); }
    void OnSqword(std::int64_t value) { builder_.AddSqword(value); }
    void OnQword(std::uint64_t value) { builder_.AddQword(value); }
    void OnSdword(std::int32_t value) { builder_.AddSdword(value); }
    void OnDword(std::uint32_t value) { builder_.AddDword(value); }
    void OnSword(std::int16_t value) { builder_.AddSword(value); }
    void OnWord(std::uint16_t value) { builder_.AddWord(value); }
    void OnSbyte(std::int8_t value) { builder_.AddSbyte(value); }
    void OnByte(std::uint8_t value) { builder_.AddByte(value); }
    void OnBoolean(bool value) { builder_.AddBoolean(value); }
    void BeginArray() { builder_.BeginArray(); }
    void BeginComposite() { builder_.BeginComposite(); }

private:
    UnitAccumulator& builder_;
};

}  // namespace

UnitPtr ReadBlob(const unsigned char* data, std::size_t size, Construction::UnitFactory& factory) {
    if (size == 0) {
        return nullptr;
    }
    UnitAccumulator accumulator(factory);
    TreeWalker walker(accumulator);
    std::size_t position = 0;
    try {
        FollowRoute(data, size, position, walker);
    } catch (const Common::Error& error) {
        if (error.Code() == kErrorCorruptedBlob) {
            throw;
        }
        Common::Error corrupted = MakeCorruptedBlobError(data, size, position);
        corrupted.AddCause(error);
        throw corrupted;
    }
    UnitPtr unit;
    accumulator.TakeUnit(unit);
    return unit;
}

}  // namespace Por::Util
