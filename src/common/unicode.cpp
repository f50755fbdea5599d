#include <tessel_link/common/unicode.h>

#include <cstdint>
#include <cstring>

#include "common/byte_escapes.h"
#include "common/utf8_into.h"

namespace Common {

namespace {

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xc0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xe0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3f)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
    } else {
        out.push_back(static_cast<char>(0xf0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3f)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3f)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
    }
}

void AppendUtf16(std::u16string& out, char32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
    } else {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xd800 | (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xdc00 | (cp & 0x3ff)));
    }
}

// Decodes one sequence at text[i]; returns the code point and advances i, or returns
// char32_t(-1) for a malformed sequence and advances i past its first byte.
char32_t DecodeUtf8(std::string_view text, std::size_t& i) {
    const auto b0 = static_cast<unsigned char>(text[i]);
    if (b0 < 0x80) {
        ++i;
        return b0;
    }
    int extra;
    char32_t cp;
    char32_t min;
    if ((b0 & 0xe0) == 0xc0) {
        extra = 1, cp = b0 & 0x1f, min = 0x80;
    } else if ((b0 & 0xf0) == 0xe0) {
        extra = 2, cp = b0 & 0x0f, min = 0x800;
    } else if ((b0 & 0xf8) == 0xf0) {
        extra = 3, cp = b0 & 0x07, min = 0x10000;
    } else {
        ++i;
        return static_cast<char32_t>(-1);
    }
    if (text.size() - i <= static_cast<std::size_t>(extra)) {
        ++i;
        return static_cast<char32_t>(-1);
    }
    for (int k = 1; k <= extra; ++k) {
        const auto b = static_cast<unsigned char>(text[i + k]);
        if ((b & 0xc0) != 0x80) {
            ++i;
            return static_cast<char32_t>(-1);
        }
        cp = (cp << 6) | (b & 0x3f);
    }
    if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) {
        ++i;
        return static_cast<char32_t>(-1);
    }
    i += extra + 1;
    return cp;
}

}  // namespace

std::string Utf16ToUtf8(std::u16string_view text) {
    // Written through a pointer into room for the longest form (three bytes a unit), then
    // cut to size: a push_back per byte costs more than the conversion itself.
    std::string out(text.size() * 3, '\0');
    char* o = out.data();
    const std::size_t n = text.size();
    for (std::size_t i = 0; i < n; ++i) {
        char32_t cp = text[i];
        if (cp < 0x80) {
            *o++ = static_cast<char>(cp);
            continue;
        }
        if (cp >= 0xd800 && cp <= 0xdbff && i + 1 < n && text[i + 1] >= 0xdc00 &&
            text[i + 1] <= 0xdfff) {
            cp = 0x10000 + ((cp - 0xd800) << 10) + (text[i + 1] - 0xdc00);
            ++i;
        } else if (cp >= 0xd800 && cp <= 0xdfff) {
            cp = 0xfffd;
        }
        if (cp < 0x800) {
            *o++ = static_cast<char>(0xc0 | (cp >> 6));
            *o++ = static_cast<char>(0x80 | (cp & 0x3f));
        } else if (cp < 0x10000) {
            *o++ = static_cast<char>(0xe0 | (cp >> 12));
            *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            *o++ = static_cast<char>(0x80 | (cp & 0x3f));
        } else {
            // Two units made these four bytes: still within the room of six.
            *o++ = static_cast<char>(0xf0 | (cp >> 18));
            *o++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
            *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            *o++ = static_cast<char>(0x80 | (cp & 0x3f));
        }
    }
    out.resize(static_cast<std::size_t>(o - out.data()));
    return out;
}

namespace {

// Decodes `text` into `out`, which has room for text.size() units: no sequence yields more
// units than it has bytes. Runs of ASCII go eight bytes at a time. A malformed sequence
// becomes U+FFFD when `lenient`, else ends the decoding with null.
char16_t* DecodeInto(std::string_view text, char16_t* out, bool lenient) {
    const std::size_t n = text.size();
    const char* p = text.data();
    std::size_t i = 0;
    while (i < n) {
        while (n - i >= 8) {
            std::uint64_t word;
            std::memcpy(&word, p + i, sizeof word);
            if ((word & 0x8080808080808080ull) != 0) {
                break;
            }
            for (int k = 0; k < 8; ++k) {
                out[k] = static_cast<unsigned char>(p[i + k]);
            }
            out += 8;
            i += 8;
        }
        if (i == n) {
            break;
        }
        if (static_cast<unsigned char>(p[i]) < 0x80) {
            *out++ = static_cast<unsigned char>(p[i++]);
            continue;
        }
        char32_t cp = DecodeUtf8(text, i);
        if (cp == static_cast<char32_t>(-1)) {
            if (!lenient) {
                return nullptr;
            }
            cp = 0xfffd;
        }
        if (cp < 0x10000) {
            *out++ = static_cast<char16_t>(cp);
        } else {
            cp -= 0x10000;
            *out++ = static_cast<char16_t>(0xd800 | (cp >> 10));
            *out++ = static_cast<char16_t>(0xdc00 | (cp & 0x3ff));
        }
    }
    return out;
}

}  // namespace

bool Utf8ToUtf16(std::string_view text, std::u16string& out) {
    out.resize(text.size());
    char16_t* end = DecodeInto(text, out.data(), false);
    if (end == nullptr) {
        out.clear();
        return false;
    }
    out.resize(static_cast<std::size_t>(end - out.data()));
    return true;
}

std::u16string Utf8ToUtf16Lenient(std::string_view text) {
    std::u16string out;
    Detail::Utf8ToUtf16LenientInto(text, out);
    return out;
}

void Detail::Utf8ToUtf16LenientInto(std::string_view text, std::u16string& out) {
    out.resize(text.size());
    out.resize(static_cast<std::size_t>(DecodeInto(text, out.data(), true) - out.data()));
}

char16_t* Detail::Utf8ToUtf16LenientTo(std::string_view text, char16_t* out) {
    return DecodeInto(text, out, true);
}

std::u16string WidenLatin1(std::string_view text) {
    std::u16string out(text.size(), u'\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        out[i] = static_cast<unsigned char>(text[i]);
    }
    return out;
}

namespace Detail {

void WidenBytesEscapingNonUtf8(std::string_view bytes, std::u16string& out) {
    // Most names are ASCII: widened unit by unit until the first byte that is not.
    out.resize(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size() && static_cast<unsigned char>(bytes[i]) < 0x80) {
        out[i] = static_cast<char16_t>(bytes[i]);
        ++i;
    }
    out.resize(i);
    while (i < bytes.size()) {
        const std::size_t at = i;
        const char32_t cp = DecodeUtf8(bytes, i);
        if (cp == static_cast<char32_t>(-1)) {
            // A byte that is not UTF-8: the lone surrogate that stands for it.
            out.push_back(static_cast<char16_t>(0xdc00 + static_cast<unsigned char>(bytes[at])));
            i = at + 1;
        } else {
            AppendUtf16(out, cp);
        }
    }
}

std::string NarrowToBytesWithEscapes(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c >= 0xd800 && c <= 0xdbff && i + 1 < text.size() && text[i + 1] >= 0xdc00 &&
                   text[i + 1] <= 0xdfff) {
            AppendUtf8(out, 0x10000 + ((static_cast<char32_t>(c) - 0xd800) << 10) +
                                (text[i + 1] - 0xdc00));
            ++i;
        } else if (c >= 0xdc80 && c <= 0xdcff) {
            out.push_back(static_cast<char>(c - 0xdc00));  // the byte it stands for
        } else {
            AppendUtf8(out, c);  // other lone surrogates keep their three-byte form
        }
    }
    return out;
}

}  // namespace Detail

}  // namespace Common
