#include "json_out.h"

#include <cstdio>

#include <tessel_link/common/unicode.h>

namespace tessel_cli {
namespace {

// The three bytes ED A0..BF 80..BF: a surrogate code point, which strict UTF-8 refuses.
bool SurrogateAt(const std::string& text, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    return i + 2 < text.size() && byte(i) == 0xed && byte(i + 1) >= 0xa0 && byte(i + 1) <= 0xbf &&
           byte(i + 2) >= 0x80 && byte(i + 2) <= 0xbf;
}

void AppendString(std::string& out, const std::string& text, bool ascii) {
    out.push_back('"');
    std::size_t start = 0;
    const auto flush = [&](std::size_t end) {
        if (end > start) {
            const std::string run = JsonOut(text.substr(start, end - start))
                                        .dump(-1, ' ', ascii, JsonOut::error_handler_t::replace);
            out.append(run, 1, run.size() - 2);
        }
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!SurrogateAt(text, i)) {
            continue;
        }
        flush(i);
        const unsigned unit = 0xd000u | ((static_cast<unsigned char>(text[i + 1]) & 0x3fu) << 6) |
                              (static_cast<unsigned char>(text[i + 2]) & 0x3fu);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", unit);
        out += escape;
        i += 2;
        start = i + 1;
    }
    flush(text.size());
    out.push_back('"');
}

void Append(std::string& out, const JsonOut& value, bool ascii = false) {
    if (value.is_object()) {
        out.push_back('{');
        bool first = true;
        for (const auto& [key, member] : value.items()) {
            out += first ? "" : ", ";
            first = false;
            AppendString(out, key, ascii);
            out += ": ";
            Append(out, member, ascii);
        }
        out.push_back('}');
    } else if (value.is_array()) {
        out.push_back('[');
        bool first = true;
        for (const JsonOut& element : value) {
            out += first ? "" : ", ";
            first = false;
            Append(out, element, ascii);
        }
        out.push_back(']');
    } else if (value.is_string()) {
        AppendString(out, value.get_ref<const std::string&>(), ascii);
    } else {
        out += value.dump();
    }
}

}  // namespace

std::string JsonLine(const JsonOut& value, JsonText text) {
    std::string out;
    Append(out, value, text == JsonText::ascii);
    return out;
}

std::string JsonLines(const JsonOut& array) {
    if (array.empty()) {
        return "[]\n";
    }
    std::string out = "[";
    bool first = true;
    for (const JsonOut& element : array) {
        out += first ? "\n  " : ",\n  ";
        first = false;
        Append(out, element);
    }
    return out + "\n]\n";
}

std::string JsonName(std::u16string_view name) {
    std::string out;
    std::size_t start = 0;
    const auto flush = [&](std::size_t end) {
        out += Common::Utf16ToUtf8(name.substr(start, end - start));
    };
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char16_t c = name[i];
        if (c < 0xd800 || c > 0xdfff) {
            continue;
        }
        if (c <= 0xdbff && i + 1 < name.size() && name[i + 1] >= 0xdc00 && name[i + 1] <= 0xdfff) {
            ++i;  // a pair: a character like any other
            continue;
        }
        flush(i);
        out.push_back(static_cast<char>(0xed));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3f)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3f)));
        start = i + 1;
    }
    flush(name.size());
    return out;
}

}  // namespace tessel_cli
