#include <cstdio>
#include <string>

#include <tessel_link/common/messages.h>
#include <tessel_link/common/unicode.h>

#include "command.h"

namespace tessel_cli {
namespace {

// One line per row, so a line break in a text is written \n and a backslash \\.
std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\\') {
            out += "\\\\";
        } else {
            out.push_back(c);
        }
    }
    return out;
}

int Run() {
    for (std::uint32_t row = 0; row < Common::kMessageRowCount; ++row) {
        const char16_t* text = Common::GetMessageRow(row);
        if (text != nullptr && *text != 0) {
            std::printf("%u\t%s\n", row, Escaped(Common::Utf16ToUtf8(text)).c_str());
        }
    }
    return 0;
}

CliRun Setup(CliOptions&) {
    return [] { return Run(); };
}

const CliCommandRegistration kMessages(
    {"messages", "", "Print every row of the message table that has text.",
     "Each line is ROW<TAB>TEXT, with a line break in a text written as \\n and a\n"
     "backslash as \\\\.",
     Setup});

}  // namespace
}  // namespace tessel_cli
