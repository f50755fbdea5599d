// The numeric fallback of enumeration values: a value without a name travels as its decimal
// number, with a log entry and an assertion on each side.

#include <sstream>
#include <string>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/codec.h>

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

std::int64_t EnumFallbackRead(const std::string& text) {
    Common::Error invalid(TL_ORIGIN("Serialization::ReadEnum"), kInvalidEnumValue,
                          u"Invalid enum value: " + Common::WidenLatin1(text));
    Common::Error logged(TL_ORIGIN("Serialization::ReadEnum"), kInvalidEnumValue,
                         u"SERIALIZER_ERROR_INVALID_ENUM_VALUE");
    logged.AddCause(invalid);
    Common::TraceError(3, logged);
    TL_ASSERT_TEXT(false, "!\"Unknown value of enum!\"");
    std::istringstream in(text);
    std::int64_t value = 0;
    in >> value;
    return in.fail() ? 0 : value;
}

}  // namespace Serialization::Detail
