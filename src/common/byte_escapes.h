#pragma once

// Text that must come back byte for byte, such as the names a file system hands out: bytes
// that are not UTF-8 travel in UTF-16 as the lone surrogates U+DC80 to U+DCFF.

#include <string>
#include <string_view>

namespace Common::Detail {

// UTF-8 to UTF-16, each byte outside a well-formed sequence as U+DC00 plus its value.
void WidenBytesEscapingNonUtf8(std::string_view bytes, std::u16string& out);

// Back: those surrogates become their bytes again, everything else UTF-8 (other lone
// surrogates in their three-byte form).
std::string NarrowToBytesWithEscapes(std::u16string_view text);

}  // namespace Common::Detail
