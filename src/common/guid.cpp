#include <tessel_link/common/guid.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <tessel_link/common/assert.h>
#include "common/guid_text.h"
#include "common/random.h"

namespace Common {

namespace {
constexpr const char kGuidFormat[] = "%08X-%04hX-%04hX-%02hhX%02hhX-%02hhX%02hhX%02hhX%02hhX%02hhX%02hhX";

// The value of each hex digit, -1 for every other byte.
constexpr auto kHexDigits = [] {
    std::array<std::int8_t, 256> table{};
    for (int c = 0; c < 256; ++c) {
        table[c] = c >= '0' && c <= '9' ? static_cast<std::int8_t>(c - '0')
                   : c >= 'a' && c <= 'f' ? static_cast<std::int8_t>(c - 'a' + 10)
                   : c >= 'A' && c <= 'F' ? static_cast<std::int8_t>(c - 'A' + 10)
                                          : std::int8_t{-1};
    }
    return table;
}();

int HexDigit(char c) {
    return kHexDigits[static_cast<unsigned char>(c)];
}
// The value of `count` hex digits at `text`; false where one is no hex digit.
template <class T>
bool HexField(const char* text, int count, T& value) {
    std::uint32_t result = 0;
    for (int i = 0; i < count; ++i) {
        const int digit = HexDigit(text[i]);
        if (digit < 0) {
            return false;
        }
        result = (result << 4) | static_cast<std::uint32_t>(digit);
    }
    value = static_cast<T>(result);
    return true;
}

// The form every writer produces, 8-4-4-4-12 hex digits, read without the scanf machinery:
// packets carry many GUIDs. It gives what the scanf format gives for the same text; any
// other text goes to the scanf format.
bool ParseCanonical(const char* text, Guid& g) {
    for (int dash : {8, 13, 18, 23}) {
        if (text[dash] != '-') {
            return false;
        }
    }
    Guid parsed;
    if (!HexField(text, 8, parsed.Data1) || !HexField(text + 9, 4, parsed.Data2) ||
        !HexField(text + 14, 4, parsed.Data3)) {
        return false;
    }
    static constexpr int kTail[8] = {19, 21, 24, 26, 28, 30, 32, 34};
    for (int i = 0; i < 8; ++i) {
        if (!HexField(text + kTail[i], 2, parsed.Data4[i])) {
            return false;
        }
    }
    g = parsed;
    return true;
}
}  // namespace

std::string ToString(const Guid& g) {
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
                  g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

bool FromString(const char* text, Guid& g) {
    if (text == nullptr) {
        TL_ASSERT(text != nullptr);
        return false;
    }
    if (std::memchr(text, '\0', 36) == nullptr && ParseCanonical(text, g)) {
        return true;
    }
    unsigned data1 = 0;
    Guid parsed;
    const int fields = std::sscanf(text, kGuidFormat, &data1, &parsed.Data2, &parsed.Data3,
                                   &parsed.Data4[0], &parsed.Data4[1], &parsed.Data4[2],
                                   &parsed.Data4[3], &parsed.Data4[4], &parsed.Data4[5],
                                   &parsed.Data4[6], &parsed.Data4[7]);
    if (fields != 11) {
        return false;
    }
    parsed.Data1 = data1;
    g = parsed;
    return true;
}

bool Detail::ParseCanonicalGuid(std::u16string_view text, Guid& g) {
    // By the low bytes of the units. A unit whose low byte is NUL, which would end the
    // narrowed text, is neither a digit nor a dash: such a text is refused here and left to
    // FromString, as is any text shorter than the form.
    if (text.size() < 36) {
        return false;
    }
    for (const std::size_t dash : {8, 13, 18, 23}) {
        if ((text[dash] & 0xff) != '-') {
            return false;
        }
    }
    static constexpr std::uint8_t kDigitAt[32] = {0,  1,  2,  3,  4,  5,  6,  7,  9,  10, 11,
                                                  12, 14, 15, 16, 17, 19, 20, 21, 22, 24, 25,
                                                  26, 27, 28, 29, 30, 31, 32, 33, 34, 35};
    // Every digit is looked up without a branch; a byte that is none leaves its -1 in `bad`.
    int bad = 0;
    std::uint64_t head = 0;  // the first sixteen digits: Data1, Data2, Data3
    for (int k = 0; k < 16; ++k) {
        const int digit = kHexDigits[text[kDigitAt[k]] & 0xff];
        bad |= digit;
        head = (head << 4) | static_cast<std::uint64_t>(digit & 15);
    }
    std::uint64_t tail = 0;  // the last sixteen: Data4, first byte highest
    for (int k = 16; k < 32; ++k) {
        const int digit = kHexDigits[text[kDigitAt[k]] & 0xff];
        bad |= digit;
        tail = (tail << 4) | static_cast<std::uint64_t>(digit & 15);
    }
    if (bad < 0) {
        return false;
    }
    g.Data1 = static_cast<std::uint32_t>(head >> 32);
    g.Data2 = static_cast<std::uint16_t>(head >> 16);
    g.Data3 = static_cast<std::uint16_t>(head);
    for (int i = 0; i < 8; ++i) {
        g.Data4[i] = static_cast<std::uint8_t>(tail >> (56 - 8 * i));
    }
    return true;
}

bool Create(Guid& g, int reserved) {
    if (reserved != 0) {
        TL_ASSERT(false);
        return false;
    }
    unsigned char bytes[16];
    GetRandomBytes(bytes, sizeof bytes, false);
    std::memcpy(&g.Data1, bytes, 4);
    std::memcpy(&g.Data2, bytes + 4, 2);
    std::memcpy(&g.Data3, bytes + 6, 2);
    std::memcpy(g.Data4, bytes + 8, 8);
    g.Data4[0] = static_cast<std::uint8_t>((g.Data4[0] % 64) | 128);
    g.Data3 = static_cast<std::uint16_t>((g.Data3 % 4096) | 0x4000);
    return true;
}

}  // namespace Common
