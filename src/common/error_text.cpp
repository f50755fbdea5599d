// Reading an error as a host does: its parameters by name, its text with the placeholders
// filled in, and the whole chain as one printable text.

#include <tessel_link/common/error.h>

#include <cinttypes>
#include <cstdlib>
#include <optional>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <tessel_link/common/unicode.h>

#include "common/error_record.h"

namespace Common {

namespace {

// A narrow string as UTF-8: as it is when it already is UTF-8, else byte by byte.
std::string NarrowAsUtf8(const char* text) {
    std::u16string wide;
    if (Utf8ToUtf16(text, wide)) {
        return text;
    }
    return Utf16ToUtf8(WidenLatin1(text));
}

std::u16string ParameterWide(const ErrorParameter& p) {
    switch (p.Kind) {
    case ErrorParameter::Type::Wide:
        return p.Wide != nullptr ? std::u16string(p.Wide) : std::u16string();
    case ErrorParameter::Type::Ansi: {
        if (p.Ansi == nullptr) {
            return {};
        }
        std::u16string wide;
        return Utf8ToUtf16(p.Ansi, wide) ? wide : WidenLatin1(p.Ansi);
    }
    case ErrorParameter::Type::Number:
        break;
    }
    const std::string digits = std::to_string(p.Number);
    return std::u16string(digits.begin(), digits.end());
}

std::string Trim(const std::string& s) {
    const std::size_t first = s.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return {};
    }
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// The end of the placeholder that opens at `open` (the index of its "{"), braces nested;
// npos when it is not closed.
std::size_t PlaceholderEnd(std::u16string_view text, std::size_t open) {
    int depth = 0;
    for (std::size_t i = open; i < text.size(); ++i) {
        if (text[i] == u'{') {
            ++depth;
        } else if (text[i] == u'}' && --depth == 0) {
            return i;
        }
    }
    return std::u16string_view::npos;
}

// Expands the placeholders of one record's text. The parameters are looked up by name in a
// table made once, so that a text with many placeholders costs time in proportion to its
// length, however many parameters the record has.
class Expander {
public:
    explicit Expander(const Error& record) : parameters_(record.Parameters()) {
        for (std::size_t i = 0; i < parameters_.size(); ++i) {
            byName_.emplace(parameters_[i].Name, i);  // the first of a repeated name wins
        }
    }

    std::u16string Expand(std::u16string_view text, int depth = 0) {
        std::u16string out;
        std::size_t pos = 0;
        while (pos < text.size()) {
            const std::size_t open = text.find(u'{', pos);
            if (open == std::u16string_view::npos) {
                break;
            }
            const std::size_t close = PlaceholderEnd(text, open);
            if (close == std::u16string_view::npos) {
                break;
            }
            out.append(text.substr(pos, open - pos));
            const std::u16string_view inner = text.substr(open + 1, close - open - 1);
            std::u16string replaced;
            if (depth < 4 && Replace(inner, depth, replaced)) {
                out += replaced;
            } else {
                out.append(text.substr(open, close - open + 1));
            }
            pos = close + 1;
        }
        out.append(text.substr(pos));
        return out;
    }

    // The parameters, and whether a placeholder used each, so that ToString lists only the
    // others.
    const std::vector<ErrorParameter>& Parameters() const { return parameters_; }
    bool Used(std::size_t index) const { return used_.count(index) != 0; }

private:
    bool Replace(std::u16string_view inner, int depth, std::u16string& out) {
        const std::size_t comma = inner.find(u',');
        const std::string name = Trim(Utf16ToUtf8(inner.substr(0, comma)));
        const auto entry = byName_.find(name);
        if (entry == byName_.end()) {
            return false;
        }
        used_.insert(entry->second);
        const ErrorParameter* p = &parameters_[entry->second];
        if (comma == std::u16string_view::npos) {
            out = ParameterWide(*p);
            return true;
        }
        // "{name, choice, 1#text|2#other}": the text of the highest limit not above the
        // number. Any other style shows the plain value.
        std::u16string_view rest = inner.substr(comma + 1);
        const std::size_t second = rest.find(u',');
        const std::string style = Trim(Utf16ToUtf8(rest.substr(0, second)));
        if (style != "choice" || second == std::u16string_view::npos ||
            p->Kind != ErrorParameter::Type::Number) {
            out = ParameterWide(*p);
            return true;
        }
        rest = rest.substr(second + 1);
        std::u16string_view chosen;
        bool found = false;
        std::size_t start = 0;
        while (start <= rest.size()) {
            // Options are split at '|' outside nested placeholders.
            std::size_t end = start;
            int nesting = 0;
            for (; end < rest.size(); ++end) {
                if (rest[end] == u'{') {
                    ++nesting;
                } else if (rest[end] == u'}') {
                    --nesting;
                } else if (rest[end] == u'|' && nesting == 0) {
                    break;
                }
            }
            const std::u16string_view option = rest.substr(start, end - start);
            const std::size_t hash = option.find(u'#');
            if (hash != std::u16string_view::npos) {
                const std::string limitText = Trim(Utf16ToUtf8(option.substr(0, hash)));
                char* parsedEnd = nullptr;
                const double limit = std::strtod(limitText.c_str(), &parsedEnd);
                if (parsedEnd != limitText.c_str() &&
                    static_cast<double>(p->Number) >= limit) {
                    chosen = option.substr(hash + 1);
                    found = true;
                }
            }
            start = end + 1;
        }
        out = found ? Expand(chosen, depth + 1) : std::u16string();
        return true;
    }

    std::vector<ErrorParameter> parameters_;
    std::unordered_map<std::string, std::size_t> byName_;
    std::unordered_set<std::size_t> used_;
};

void AppendHex(std::string& out, std::uint64_t value, int width) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "0x%0*" PRIX64, width, value);
    out += buffer;
}

// One record's line of ToString, without the line feed.
void AppendRecord(std::string& out, const Error& record) {
    AppendHex(out, record.Code(), 8);
    Expander expander(record);
    const std::u16string text = expander.Expand(record.Text());
    if (!text.empty()) {
        out += ' ';
        out += Utf16ToUtf8(text);
    }
    std::string extra;
    for (std::size_t i = 0; i < expander.Parameters().size(); ++i) {
        const ErrorParameter& p = expander.Parameters()[i];
        // "$module" and the like describe the build, not the failure.
        if (p.Name.empty() || p.Name[0] == '$' || expander.Used(i)) {
            continue;
        }
        extra += extra.empty() ? "{" : ", ";
        extra += p.Name;
        extra += '=';
        if (p.Kind == ErrorParameter::Type::Number) {
            extra += std::to_string(p.Number);
            if (p.Number > 9) {
                extra += " (";
                AppendHex(extra, p.Number, 1);
                extra += ')';
            }
        } else {
            extra += '"';
            extra += p.ValueText();
            extra += '"';
        }
    }
    if (!extra.empty()) {
        out += ' ';
        out += extra;
        out += '}';
    }
    const ErrorOrigin origin = record.Origin();
    if (origin.File != nullptr || origin.Func != nullptr || origin.Line != 0) {
        out += " [at ";
        out += origin.File != nullptr ? NarrowAsUtf8(origin.File) : "?";
        out += ':';
        out += std::to_string(origin.Line);
        if (origin.Func != nullptr) {
            out += " in ";
            out += NarrowAsUtf8(origin.Func);
        }
        out += ']';
    }
}

}  // namespace

std::string ErrorParameter::ValueText() const {
    switch (Kind) {
    case Type::Number:
        return std::to_string(Number);
    case Type::Ansi:
        return Ansi != nullptr ? NarrowAsUtf8(Ansi) : std::string();
    case Type::Wide:
        return Wide != nullptr ? Utf16ToUtf8(Wide) : std::string();
    }
    return {};
}

Error ErrorChain::Iterator::operator*() const noexcept {
    return Adopt(AddRef(const_cast<ErrorRecord*>(record_)));
}

ErrorChain::Iterator& ErrorChain::Iterator::operator++() noexcept {
    if (record_ != nullptr) {
        record_ = record_->Cause;
    }
    return *this;
}

std::size_t Error::Depth() const noexcept {
    std::size_t depth = 0;
    for (const ErrorRecord* r = head_; r != nullptr; r = r->Cause) {
        ++depth;
    }
    return depth;
}

std::vector<std::string> Error::ParameterNames() const {
    std::vector<std::string> names;
    const std::string_view list = GetNames();
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t end = list.find(',', start);
        if (end == std::string_view::npos) {
            end = list.size();
        }
        if (end > start) {
            names.emplace_back(list.substr(start, end - start));
        }
        start = end + 1;
    }
    return names;
}

namespace {

// The parameter of that name, typed as the serialized form types it: narrow, else wide, else
// a number.
ErrorParameter ReadParameter(const Error& record, std::string name) {
    ErrorParameter p;
    p.Name = std::move(name);
    if (const char* a = record.GetAnsi(p.Name.c_str())) {
        p.Kind = ErrorParameter::Type::Ansi;
        p.Ansi = a;
    } else if (const char16_t* w = record.GetWide(p.Name.c_str())) {
        p.Kind = ErrorParameter::Type::Wide;
        p.Wide = w;
    } else {
        p.Number = record.GetNumber(p.Name.c_str());
    }
    return p;
}

}  // namespace

std::optional<ErrorParameter> Error::Parameter(std::string_view name) const {
    for (std::string& candidate : ParameterNames()) {
        if (candidate == name) {
            return ReadParameter(*this, std::move(candidate));
        }
    }
    return std::nullopt;
}

std::vector<ErrorParameter> Error::Parameters() const {
    std::vector<ErrorParameter> parameters;
    for (std::string& name : ParameterNames()) {
        parameters.push_back(ReadParameter(*this, std::move(name)));
    }
    return parameters;
}

std::u16string Error::FormattedText() const {
    return Expander(*this).Expand(Text());
}

std::string Error::ToString() const {
    if (Empty()) {
        return "success";
    }
    std::string out;
    bool first = true;
    for (const Error& record : Chain()) {
        if (!first) {
            out += "\n  caused by ";
        }
        first = false;
        AppendRecord(out, record);
    }
    return out;
}

std::ostream& operator<<(std::ostream& out, const Error& error) {
    return out << error.ToString();
}

}  // namespace Common
