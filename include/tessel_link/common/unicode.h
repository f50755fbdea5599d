#pragma once

// Conversions between UTF-16 (the wire's text), UTF-8 and the system's narrow strings.

#include <cstddef>
#include <string>
#include <string_view>

#include <tessel_link/export.h>

namespace Common {

// UTF-16 to UTF-8. A lone surrogate becomes U+FFFD, so that the result is always valid.
TL_API std::string Utf16ToUtf8(std::u16string_view text);

// Strict UTF-8 to UTF-16: false (and `out` unspecified) for overlong forms, surrogates,
// values above U+10FFFF, and truncated or stray continuation bytes.
TL_API bool Utf8ToUtf16(std::string_view text, std::u16string& out);

// UTF-8 to UTF-16 that replaces every malformed sequence with U+FFFD.
TL_API std::u16string Utf8ToUtf16Lenient(std::string_view text);

// Each byte widened to one UTF-16 unit (Latin-1).
TL_API std::u16string WidenLatin1(std::string_view text);

// Length of a zero-terminated UTF-16 string.
inline std::size_t WideLength(const char16_t* text) {
    return std::char_traits<char16_t>::length(text);
}

}  // namespace Common
