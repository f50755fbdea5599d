#include "serialize/xml_text.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Serialization::XmlText {

namespace {

template <std::size_t N>
inline char* PutLiteral(char* out, const char (&text)[N]) {
    std::memcpy(out, text, N - 1);
    return out + N - 1;
}

inline char* PutUtf8(char* out, char32_t c) {
    if (c < 0x80) {
        *out++ = static_cast<char>(c);
    } else if (c < 0x800) {
        *out++ = static_cast<char>(0xC0 | (c >> 6));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (c >> 12));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (c >> 18));
        *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

// "&#N;" in decimal; N is below 65536, so at most eight bytes.
inline char* PutReference(char* out, char32_t c) {
    *out++ = '&';
    *out++ = '#';
    out = std::to_chars(out, out + 5, static_cast<std::uint32_t>(c)).ptr;
    *out++ = ';';
    return out;
}

constexpr bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// Code points that a CDATA section can carry as they are.
constexpr bool FitsCData(char32_t c) {
    if (c < 32) {
        return c == '\t' || c == '\n';
    }
    return !IsSurrogate(c) && c != 0xFFFE && c != 0xFFFF;
}

// Steps through the code points of a text: bytes as Latin-1, or UTF-16 units with pairs
// joined.
template <class Char>
class CodePoints {
public:
    explicit CodePoints(std::basic_string_view<Char> text)
        : p_(text.data()), end_(text.data() + text.size()) {}
    bool Done() const { return p_ == end_; }
    char32_t Next() {
        if constexpr (sizeof(Char) == 1) {
            return static_cast<unsigned char>(*p_++);
        } else {
            const char32_t unit = static_cast<char16_t>(*p_++);
            if (unit >= 0xD800 && unit <= 0xDBFF && p_ != end_ && *p_ >= 0xDC00 && *p_ <= 0xDFFF) {
                const char32_t low = static_cast<char16_t>(*p_++);
                return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            }
            return unit;
        }
    }

private:
    const Char* p_;
    const Char* end_;
};

template <class Char>
bool TakesCData(std::basic_string_view<Char> text) {
    constexpr Char kEnd[] = {Char(']'), Char(']'), Char('>')};
    if (text.find(Char('\n')) == text.npos ||
        text.find(std::basic_string_view<Char>(kEnd, 3)) != text.npos) {
        return false;
    }
    for (CodePoints<Char> points(text); !points.Done();) {
        if (!FitsCData(points.Next())) {
            return false;
        }
    }
    return true;
}

template <class Char>
char* WriteCData(char* out, std::basic_string_view<Char> text) {
    out = PutLiteral(out, "<![CDATA[");
    for (CodePoints<Char> points(text); !points.Done();) {
        const char32_t c = points.Next();
        if (c == '\n') {
            out = PutLiteral(out, "\r\n");
        } else {
            out = PutUtf8(out, c);
        }
    }
    return PutLiteral(out, "]]>");
}

// Characters below 128 that stand for themselves in element content: printable ASCII
// except the blank, "<" and "&".
struct PlainTable {
    bool Plain[128];
    constexpr PlainTable() : Plain() {
        for (int c = 33; c < 127; ++c) {
            Plain[c] = c != '<' && c != '&';
        }
    }
};
constexpr PlainTable kPlain;

template <class Char>
char* WriteCharacters(char* out, std::basic_string_view<Char> text, bool attribute) {
    using Unit = std::conditional_t<sizeof(Char) == 1, unsigned char, char16_t>;
    const Unit* p = reinterpret_cast<const Unit*>(text.data());
    const Unit* const end = p + text.size();
    bool afterSpace = true;
    while (p != end) {
        // Runs of plain characters, the bulk of most texts.
        if (*p < 128 && kPlain.Plain[*p] && !(attribute && *p == '"')) {
            do {
                *out++ = static_cast<char>(*p++);
            } while (p != end && *p < 128 && kPlain.Plain[*p] && !(attribute && *p == '"'));
            afterSpace = false;
            continue;
        }
        char32_t c = *p++;
        if constexpr (sizeof(Char) == 2) {
            if (c >= 0xD800 && c <= 0xDBFF && p != end && *p >= 0xDC00 && *p <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (*p++ - 0xDC00);
            }
        }
        switch (c) {
            case ' ':
                if (!afterSpace && p != end) {
                    *out++ = ' ';
                    afterSpace = true;
                    continue;
                }
                out = PutLiteral(out, "&#32;");
                break;
            case '<':
                out = PutLiteral(out, "&lt;");
                break;
            case '&':
                out = PutLiteral(out, "&amp;");
                break;
            case '"':
                out = PutLiteral(out, "&quot;");
                break;
            default:
                if (c < ' ' || IsSurrogate(c) || c == 0xFFFE || c == 0xFFFF) {
                    out = PutReference(out, c);
                } else {
                    out = PutUtf8(out, c);
                }
                break;
        }
        afterSpace = false;
    }
    return out;
}

template <class Char>
char* Write(char* out, std::basic_string_view<Char> text, bool attribute) {
    if (!attribute && TakesCData(text)) {
        return WriteCData(out, text);
    }
    return WriteCharacters(out, text, attribute);
}

template <class Char>
void Append(std::string& out, std::basic_string_view<Char> text, bool attribute) {
    const std::size_t start = out.size();
    out.resize(start + MaxEscapedSize(text.size()));
    char* end = Write(out.data() + start, text, attribute);
    out.resize(static_cast<std::size_t>(end - out.data()));
}

}  // namespace

char* WriteEscaped(char* out, std::string_view latin1, bool attribute) {
    return Write(out, latin1, attribute);
}

char* WriteEscaped(char* out, std::u16string_view utf16, bool attribute) {
    return Write(out, utf16, attribute);
}

void AppendEscaped(std::string& out, std::string_view latin1, bool attribute) {
    Append(out, latin1, attribute);
}

void AppendEscaped(std::string& out, std::u16string_view utf16, bool attribute) {
    Append(out, utf16, attribute);
}

}  // namespace Serialization::XmlText
