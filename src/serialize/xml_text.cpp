#include "serialize/xml_text.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace Serialization::XmlText {

namespace {

// Collects output bytes in a local buffer and appends them to the string in blocks, which is
// much cheaper than growing the string byte by byte.
class Sink {
public:
    explicit Sink(std::string& out) : out_(out) {}
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink() { Flush(); }

    void Put(char c) {
        if (used_ == sizeof(buffer_)) {
            Flush();
        }
        buffer_[used_++] = c;
    }
    void Put(const char* text, std::size_t size) {
        if (used_ + size > sizeof(buffer_)) {
            Flush();
            if (size > sizeof(buffer_)) {
                out_.append(text, size);
                return;
            }
        }
        std::memcpy(buffer_ + used_, text, size);
        used_ += size;
    }
    template <std::size_t N>
    void PutLiteral(const char (&text)[N]) {
        Put(text, N - 1);
    }

    void PutUtf8(char32_t c) {
        if (c < 0x80) {
            Put(static_cast<char>(c));
        } else if (c < 0x800) {
            char bytes[2] = {static_cast<char>(0xC0 | (c >> 6)),
                             static_cast<char>(0x80 | (c & 0x3F))};
            Put(bytes, 2);
        } else if (c < 0x10000) {
            char bytes[3] = {static_cast<char>(0xE0 | (c >> 12)),
                             static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
                             static_cast<char>(0x80 | (c & 0x3F))};
            Put(bytes, 3);
        } else {
            char bytes[4] = {
                static_cast<char>(0xF0 | (c >> 18)), static_cast<char>(0x80 | ((c >> 12) & 0x3F)),
                static_cast<char>(0x80 | ((c >> 6) & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
            Put(bytes, 4);
        }
    }

    // "&#N;" in decimal.
    void PutReference(char32_t c) {
        char bytes[16] = {'&', '#'};
        char* end =
            std::to_chars(bytes + 2, bytes + sizeof(bytes), static_cast<std::uint32_t>(c)).ptr;
        *end++ = ';';
        Put(bytes, static_cast<std::size_t>(end - bytes));
    }

    void Flush() {
        out_.append(buffer_, used_);
        used_ = 0;
    }

private:
    std::string& out_;
    std::size_t used_ = 0;
    char buffer_[512];
};

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
void WriteCData(Sink& sink, std::basic_string_view<Char> text) {
    sink.PutLiteral("<![CDATA[");
    for (CodePoints<Char> points(text); !points.Done();) {
        const char32_t c = points.Next();
        if (c == '\n') {
            sink.PutLiteral("\r\n");
        } else {
            sink.PutUtf8(c);
        }
    }
    sink.PutLiteral("]]>");
}

template <class Char>
void WriteEscaped(Sink& sink, std::basic_string_view<Char> text, bool attribute) {
    bool afterSpace = true;
    for (CodePoints<Char> points(text); !points.Done();) {
        const char32_t c = points.Next();
        if (c > ' ' && c < 0x80 && c != '<' && c != '&' && !(attribute && c == '"')) {
            sink.Put(static_cast<char>(c));
            afterSpace = false;
            continue;
        }
        switch (c) {
            case ' ':
                if (!afterSpace && !points.Done()) {
                    sink.Put(' ');
                    afterSpace = true;
                    continue;
                }
                sink.PutLiteral("&#32;");
                break;
            case '<':
                sink.PutLiteral("&lt;");
                break;
            case '&':
                sink.PutLiteral("&amp;");
                break;
            case '"':
                sink.PutLiteral("&quot;");
                break;
            default:
                if (c < ' ' || IsSurrogate(c) || c == 0xFFFE || c == 0xFFFF) {
                    sink.PutReference(c);
                } else {
                    sink.PutUtf8(c);
                }
                break;
        }
        afterSpace = false;
    }
}

template <class Char>
void Append(std::string& out, std::basic_string_view<Char> text, bool attribute) {
    Sink sink(out);
    if (!attribute && TakesCData(text)) {
        WriteCData(sink, text);
    } else {
        WriteEscaped(sink, text, attribute);
    }
}

}  // namespace

void AppendEscaped(std::string& out, std::string_view latin1, bool attribute) {
    Append(out, latin1, attribute);
}

void AppendEscaped(std::string& out, std::u16string_view utf16, bool attribute) {
    Append(out, utf16, attribute);
}

}  // namespace Serialization::XmlText
