#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/unicode.h>

#include "command.h"
#include "json_out.h"

namespace tessel_cli {
namespace {

// Hexadecimal digits with blanks anywhere; false for any other character or an odd count.
bool ParseHex(const std::string& text, std::vector<unsigned char>& bytes) {
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            continue;
        }
        int digit;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return false;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<unsigned char>(high * 16 + digit));
            high = -1;
        }
    }
    return high < 0;
}

// A narrow origin string as UTF-8: as it is when it already is UTF-8, else byte by byte.
std::string NarrowText(const char* text) {
    std::u16string wide;
    if (Common::Utf8ToUtf16(text, wide)) {
        return text;
    }
    return Common::Utf16ToUtf8(Common::WidenLatin1(text));
}

// A parameter's value as JSON: strings as strings, numbers as numbers.
JsonOut JsonValue(const Common::ErrorParameter& p) {
    return p.Kind == Common::ErrorParameter::Type::Number ? JsonOut(p.Number) : JsonOut(p.ValueText());
}

JsonOut OptionalString(const char* text) {
    return text != nullptr ? JsonOut(NarrowText(text)) : JsonOut();
}

void PrintJson(const Common::Error& error) {
    JsonOut records = JsonOut::array();
    if (!error.Empty()) {
        for (const Common::Error& r : error.Chain()) {
            const Common::ErrorOrigin origin = r.Origin();
            JsonOut params = JsonOut::array();
            for (const Common::ErrorParameter& p : r.Parameters()) {
                params.push_back(JsonOut::array({p.Name, JsonValue(p)}));
            }
            records.push_back({{"code", r.Code()},
                               {"linetag", origin.LineTag},
                               {"text", Common::Utf16ToUtf8(r.Text())},
                               {"params", std::move(params)},
                               {"file", OptionalString(origin.File)},
                               {"func", OptionalString(origin.Func)},
                               {"line", origin.Line}});
        }
    }
    std::fputs(JsonLines(records).c_str(), stdout);
}

void PrintText(const Common::Error& error) {
    if (error.Empty()) {
        std::printf("empty error (success)\n");
        return;
    }
    int depth = 0;
    for (const Common::Error& r : error.Chain()) {
        const Common::ErrorOrigin origin = r.Origin();
        std::printf("#%d code 0x%08" PRIX32 " linetag 0x%016" PRIX64 "\n", depth++, r.Code(),
                    origin.LineTag);
        const std::u16string text = r.FormattedText();
        if (!text.empty()) {
            std::printf("    text: %s\n", JsonLine(Common::Utf16ToUtf8(text)).c_str());
        }
        for (const Common::ErrorParameter& p : r.Parameters()) {
            if (p.Kind == Common::ErrorParameter::Type::Number) {
                std::printf("    %s: %s (0x%" PRIX64 ")\n", p.Name.c_str(), p.ValueText().c_str(),
                            p.Number);
            } else {
                std::printf("    %s: %s\n", p.Name.c_str(), JsonLine(JsonValue(p)).c_str());
            }
        }
        if (origin.File != nullptr || origin.Func != nullptr || origin.Line != 0) {
            std::printf("    at %s:%" PRIu32 " %s\n",
                        origin.File != nullptr ? NarrowText(origin.File).c_str() : "?", origin.Line,
                        origin.Func != nullptr ? NarrowText(origin.Func).c_str() : "");
        }
    }
}

struct DecodeOptions {
    bool json = false;
    bool summary = false;
    std::vector<std::string> hex;
};

int Run(const DecodeOptions& options) {
    std::string hex;
    if (options.hex.empty()) {
        hex.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    }
    for (const std::string& part : options.hex) {
        hex += part;
    }
    std::vector<unsigned char> bytes;
    if (!ParseHex(hex, bytes)) {
        return Fail("HEX must be pairs of hexadecimal digits (blanks are ignored)");
    }
    const Common::Error error = Common::Error::Deserialize(bytes.data(), bytes.size());
    if (options.json) {
        PrintJson(error);
    } else if (options.summary) {
        std::cout << error << '\n';
    } else {
        PrintText(error);
    }
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto options = std::make_shared<DecodeOptions>();
    cli.AddFlag("--json", options->json, "print a JSON array of the records");
    cli.AddFlag("--summary", options->summary, "print one line per record");
    cli.AddOption("HEX", options->hex, "the serialized error in hexadecimal");
    return [options] { return Run(*options); };
}

const CliCommandRegistration kErrorDecode(
    {"error decode", "HEX [--json | --summary]", "Print a serialized error, from head to deepest cause.",
     "HEX is the serialized form in hexadecimal; blanks are ignored, and without HEX it is\n"
     "read from standard input. A block that is not an error (too short, another version)\n"
     "is the empty error; a damaged tail is dropped.\n\n"
     "Without options every record is printed with its text (placeholders filled in from\n"
     "its parameters), its parameters and its origin. --summary prints the error as\n"
     "Common::Error::ToString() does: one line per record, head first.\n\n"
     "--json prints a JSON array with one object per record:\n"
     "  {\"code\": N, \"linetag\": N, \"text\": \"...\", \"params\": [[name, value], ...],\n"
     "   \"file\": \"...\" or null, \"func\": \"...\" or null, \"line\": N}\n"
     "with the parameters in the order of the record's names list.",
     Setup});

}  // namespace
}  // namespace tessel_cli
