#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/common/messages.h>
#include <tessel_link/common/unicode.h>

#include "command.h"

namespace tessel_cli {
namespace {

// A row number in decimal, nothing else.
bool ParseRow(const std::string& text, unsigned long& row) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    row = std::stoul(text);
    return true;
}

int Run(const std::string& word) {
    unsigned long row = 0;
    if (!ParseRow(word, row)) {
        return UsageError("message takes one ROW number");
    }
    const char16_t* text =
        row < Common::kMessageRowCount ? Common::GetMessageRow(static_cast<std::uint32_t>(row)) : nullptr;
    if (text == nullptr) {
        return Fail("row " + word + " is out of range (0 to " +
                    std::to_string(Common::kMessageRowCount - 1) + ")");
    }
    if (*text == 0) {
        return Fail("row " + word + " has no text");
    }
    std::printf("%s\n", Common::Utf16ToUtf8(text).c_str());
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto row = std::make_shared<std::string>();
    cli.AddOption("ROW", *row, "the row number").Required();
    return [row] { return Run(*row); };
}

const CliCommandRegistration kMessage(
    {"message", "ROW", "Print the text of one row of the message table.",
     "ROW is the row number (the message identifier is 8 + 4 * ROW). The text is printed\n"
     "as UTF-8 with its line breaks and placeholders as they stand. Exit status 1 for a row\n"
     "without text or out of range.",
     Setup});

}  // namespace
}  // namespace tessel_cli
