// The numeric fallback of enumeration values: a value without a name travels as its decimal
// number, with a log entry and an assertion on each side.

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/codec.h>

namespace Serialization::Detail {

namespace {
constexpr std::uint32_t kInvalidEnumValue = 0x9c0008;
}

std::string EnumFallbackWrite(std::int64_t value) {
    // The text is the prefix alone: the value has no name to append.
    Common::TraceError(3, Common::Error(TL_ORIGIN("Serialization::WriteEnum"), kInvalidEnumValue,
                                        u"Invalid enum value: "));
    TL_ASSERT_TEXT(false, "!\"Unknown value of enum!\"");
    return std::to_string(value);
}

namespace {

// A stream extraction into I: the value it leaves, failed or not (0 for no number, the limit
// of I for a number beyond it).
template <class I>
std::int64_t Extract(const std::string& text) {
    std::istringstream in(text);
    I value = 0;
    in >> value;
    return static_cast<std::int64_t>(value);
}

// Streams read characters, not numbers, into one-byte integers: a wider extraction clamped
// to the byte's limits gives what a numeric extraction would.
template <class I>
std::int64_t ExtractByte(const std::string& text) {
    const std::int64_t wide = Extract<std::int32_t>(text);
    return std::clamp<std::int64_t>(wide, std::numeric_limits<I>::min(),
                                    std::numeric_limits<I>::max());
}

}  // namespace

std::int64_t EnumFallbackRead(const std::string& text, std::size_t width, bool isSigned) {
    Common::Error invalid(TL_ORIGIN("Serialization::ReadEnum"), kInvalidEnumValue,
                          u"Invalid enum value: " + Common::WidenLatin1(text));
    Common::Error logged(TL_ORIGIN("Serialization::ReadEnum"), kInvalidEnumValue,
                         u"SERIALIZER_ERROR_INVALID_ENUM_VALUE");
    logged.AddCause(invalid);
    Common::TraceError(3, logged);
    TL_ASSERT_TEXT(false, "!\"Unknown value of enum!\"");
    switch (width) {
    case 1:
        return isSigned ? ExtractByte<std::int8_t>(text) : ExtractByte<std::uint8_t>(text);
    case 2:
        return isSigned ? Extract<std::int16_t>(text) : Extract<std::uint16_t>(text);
    case 4:
        return isSigned ? Extract<std::int32_t>(text) : Extract<std::uint32_t>(text);
    default:
        return isSigned ? Extract<std::int64_t>(text)
                        : static_cast<std::int64_t>(Extract<std::uint64_t>(text));
    }
}

}  // namespace Serialization::Detail
