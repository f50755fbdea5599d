#pragma once

// Standard base64 (alphabet A-Z a-z 0-9 + /, "=" padding), as packets carry binary values
// and obscured secrets.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Serialization::Base64 {

// Length of the encoded form of `size` bytes: (size + 2) / 3 * 4.
constexpr std::size_t EncodedSize(std::size_t size) {
    return (size + 2) / 3 * 4;
}

// Writes exactly EncodedSize(size) characters to `out`, in one line.
void Encode(const unsigned char* data, std::size_t size, char* out);

// Appends the encoded form of the bytes to `out`.
void Append(std::string& out, const unsigned char* data, std::size_t size);

// Decodes text whose padding is required. Tab, line feed, carriage return and blank are
// skipped anywhere; a code outside the alphabet (any code at or above 128 included), a group
// left incomplete at the end, or anything but white space behind the padding fails. On
// success `out` holds the bytes (none for a text of white space only) and true is returned;
// on failure false, and `out` is unspecified.
bool Decode(std::string_view text, std::vector<unsigned char>& out);
// The same over UTF-16 code units.
bool Decode(std::u16string_view text, std::vector<unsigned char>& out);

}  // namespace Serialization::Base64
