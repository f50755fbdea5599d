#pragma once

// Byte classes, strict UTF-8 decoding and position counting shared by the two text readers:
// the streaming lexer and the reader of documents held whole in memory.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Xml::Detail {

// Byte classes.
inline constexpr std::uint8_t kRun = 1;        // part of a text run: 0x21-0x7f without '<' and '&'
inline constexpr std::uint8_t kWhite = 2;      // tab, line feed, carriage return, blank
inline constexpr std::uint8_t kNameStart = 4;  // A-Z a-z _ :
inline constexpr std::uint8_t kNameChar = 8;   // name starts, digits, '-' and '.'
inline constexpr std::uint8_t kHigh = 16;      // 0x80 and up: the lead or tail of a sequence

constexpr std::array<std::uint8_t, 256> MakeByteClasses() {
    std::array<std::uint8_t, 256> c{};
    for (int b = 0x21; b < 0x80; ++b) {
        c[b] |= kRun;
    }
    c['<'] &= ~kRun;
    c['&'] &= ~kRun;
    for (int b : {9, 10, 13, 32}) {
        c[b] |= kWhite;
    }
    for (int b = 'A'; b <= 'Z'; ++b) {
        c[b] |= kNameStart | kNameChar;
        c[b + 32] |= kNameStart | kNameChar;
    }
    c['_'] |= kNameStart | kNameChar;
    c[':'] |= kNameStart | kNameChar;
    for (int b = '0'; b <= '9'; ++b) {
        c[b] |= kNameChar;
    }
    c['-'] |= kNameChar;
    c['.'] |= kNameChar;
    for (int b = 0x80; b < 0x100; ++b) {
        c[b] |= kHigh;
    }
    return c;
}

inline constexpr std::array<std::uint8_t, 256> kByteClass = MakeByteClasses();

inline bool Is(unsigned char b, std::uint8_t cls) {
    return (kByteClass[b] & cls) != 0;
}

inline bool IsContinuation(unsigned char b) {
    return (b & 0xc0) == 0x80;
}

// Decodes one multi-byte sequence at `p` (lead byte >= 0x80) under the strict rules: no
// overlong forms, no surrogates, nothing above U+10FFFF, and neither U+FFFE nor U+FFFF.
// Returns the bytes used, or 0 when the sequence is invalid. `p` may be read up to four
// bytes ahead.
inline int DecodeSequence(const unsigned char* p, char32_t& cp) {
    const unsigned char b0 = p[0];
    if (b0 >= 0xc2 && b0 <= 0xdf) {
        if (!IsContinuation(p[1])) {
            return 0;
        }
        cp = (char32_t(b0 & 0x1f) << 6) | (p[1] & 0x3f);
        return 2;
    }
    if (b0 >= 0xe0 && b0 <= 0xef) {
        const unsigned char b1 = p[1];
        const unsigned char low = b0 == 0xe0 ? 0xa0 : 0x80;
        const unsigned char high = b0 == 0xed ? 0x9f : 0xbf;
        if (b1 < low || b1 > high || !IsContinuation(p[2])) {
            return 0;
        }
        cp = (char32_t(b0 & 0x0f) << 12) | (char32_t(b1 & 0x3f) << 6) | (p[2] & 0x3f);
        if (cp >= 0xfffe) {
            return 0;
        }
        return 3;
    }
    if (b0 >= 0xf0 && b0 <= 0xf4) {
        const unsigned char b1 = p[1];
        const unsigned char low = b0 == 0xf0 ? 0x90 : 0x80;
        const unsigned char high = b0 == 0xf4 ? 0x8f : 0xbf;
        if (b1 < low || b1 > high || !IsContinuation(p[2]) || !IsContinuation(p[3])) {
            return 0;
        }
        cp = (char32_t(b0 & 0x07) << 18) | (char32_t(b1 & 0x3f) << 12) |
             (char32_t(p[2] & 0x3f) << 6) | (p[3] & 0x3f);
        return 4;
    }
    return 0;  // a stray continuation byte, C0, C1 or F5 to FF
}

inline int SequenceLength(unsigned char lead) {
    return lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
}

inline char16_t* PutCodePoint(char16_t* out, char32_t cp) {
    if (cp < 0x10000) {
        *out++ = static_cast<char16_t>(cp);
    } else {
        cp -= 0x10000;
        *out++ = static_cast<char16_t>(0xd800 | (cp >> 10));
        *out++ = static_cast<char16_t>(0xdc00 | (cp & 0x3ff));
    }
    return out;
}

// A character reference or one of the five named entities at `p`, which stands on '&'.
// Returns the bytes it takes, or 0 when it is none. `at(i)` gives byte i from `p`, reading
// on as far as the caller's input allows (0 behind its end).
template <typename At>
inline std::size_t ParseReference(const unsigned char* p, At&& at, char32_t& cp) {
    auto is = [p](const char* word, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i) {
            if (p[i] != static_cast<unsigned char>(word[i])) {
                return false;
            }
        }
        return true;
    };
    if (is("&lt;", 4)) {
        cp = '<';
        return 4;
    }
    if (is("&gt;", 4)) {
        cp = '>';
        return 4;
    }
    if (is("&amp;", 5)) {
        cp = '&';
        return 5;
    }
    if (is("&apos;", 6)) {
        cp = '\'';
        return 6;
    }
    if (is("&quot;", 6)) {
        cp = '"';
        return 6;
    }
    if (p[1] != '#') {
        return 0;
    }
    const bool hex = at(2) == 'x';
    std::size_t i = hex ? 3 : 2;
    const std::size_t firstDigit = i;
    std::uint32_t value = 0;
    for (;; ++i) {
        const unsigned char d = at(i);
        std::uint32_t digit;
        if (d >= '0' && d <= '9') {
            digit = d - '0';
        } else if (hex && d >= 'a' && d <= 'f') {
            digit = d - 'a' + 10;
        } else if (hex && d >= 'A' && d <= 'F') {
            digit = d - 'A' + 10;
        } else {
            break;
        }
        // Anything at or above 0x110000 is refused; stop growing once there.
        value = value * (hex ? 16 : 10) + digit;
        if (value > 0x110000) {
            value = 0x110000;
        }
    }
    if (i == firstDigit || at(i) != ';' || value >= 0x110000) {
        return 0;
    }
    cp = value;
    return i + 1;
}

#if defined(__SSE2__)
// A bit per byte of the sixteen at `p` that may stand in a name: letters, digits, '_', ':',
// '-' and '.'.
inline unsigned NameBytes(const unsigned char* p) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    // Folding the case maps both letter ranges onto 'A' to 'Z'; ranges are tested with
    // signed compares, which leave bytes from 0x80 up below every range.
    const __m128i upper = _mm_and_si128(v, _mm_set1_epi8(static_cast<char>(0xdf)));
    const __m128i letter = _mm_and_si128(_mm_cmpgt_epi8(upper, _mm_set1_epi8('A' - 1)),
                                         _mm_cmplt_epi8(upper, _mm_set1_epi8('Z' + 1)));
    // '-', '.' and the digits lie together apart from '/': 0x2d to 0x39.
    const __m128i digitOrDash = _mm_andnot_si128(
        _mm_cmpeq_epi8(v, _mm_set1_epi8('/')),
        _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8('-' - 1)), _mm_cmplt_epi8(v, _mm_set1_epi8('9' + 1))));
    const __m128i other = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('_')),
                                       _mm_cmpeq_epi8(v, _mm_set1_epi8(':')));
    return static_cast<unsigned>(
        _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(letter, digitOrDash), other)));
}
#endif

// Moves the line and column on over the bytes from `p` to `to`: a tab goes to the next stop
// of eight, a line feed starts the next line at column 0, any other byte is one column, so a
// multi-byte character counts per byte.
inline void CountBytes(const unsigned char* p, const unsigned char* to, std::uint32_t& line,
                       std::uint32_t& column) {
    for (; p < to; ++p) {
        const unsigned char b = *p;
        if (b == '\t') {
            column = (column | 7) + 1;
        } else if (b == '\n') {
            ++line;
            column = 0;
        } else {
            ++column;
        }
    }
}

// CountBytes for a long stretch: the line feeds are counted in bulk, and only the bytes
// behind the last of them decide the column.
void CountLongStretch(const unsigned char* p, const unsigned char* to, std::uint32_t& line,
                      std::uint32_t& column);
// Copies the `count` bytes at `from` to `to` and adds the line feeds among them to `feeds`,
// noting a tab in `tabs`: CountFeeds done in the same pass as the copy.
void CopyCountingFeeds(unsigned char* to, const unsigned char* from, std::size_t count,
                       std::uint64_t& feeds, bool& tabs);
// The two halves of CountLongStretch, for input counted piece by piece as it arrives: adds
// the line feeds from `p` to `to`, and notes whether there is a tab among them.
void CountFeeds(const unsigned char* p, const unsigned char* to, std::uint64_t& feeds,
                bool& tabs);
// Moves the position on over the bytes from `p` to `to`, of which CountFeeds found `feeds`
// line feeds and `tabs`; `tabs` may be true when only bytes elsewhere have one.
void CountFromFeeds(const unsigned char* p, const unsigned char* to, std::uint64_t feeds,
                    bool tabs, std::uint32_t& line, std::uint32_t& column);

}  // namespace Xml::Detail
