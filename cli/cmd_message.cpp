#include <cstdio>
#include <string>

#include <tessel_link/common/messages.h>
#include <tessel_link/common/unicode.h>

#include "cli_positionals.h"
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

int Run(const Arguments& args) {
    unsigned long row = 0;
    if (args.positional.size() != 1 || !ParseRow(args.positional[0], row)) {
        return UsageError("message takes one ROW number");
    }
    const char16_t* text =
        row < Common::kMessageRowCount ? Common::GetMessageRow(static_cast<std::uint32_t>(row)) : nullptr;
    if (text == nullptr) {
        return Fail("row " + args.positional[0] + " is out of range (0 to " +
                    std::to_string(Common::kMessageRowCount - 1) + ")");
    }
    if (*text == 0) {
        return Fail("row " + args.positional[0] + " has no text");
    }
    std::printf("%s\n", Common::Utf16ToUtf8(text).c_str());
    return 0;
}

const CliCommandRegistration kMessage(
    {"message", "ROW", "Print the text of one row of the message table.",
     "ROW is the row number (the message identifier is 8 + 4 * ROW). The text is printed\n"
     "as UTF-8 with its line breaks and placeholders as they stand. Exit status 1 for a row\n"
     "without text or out of range.",
     &PositionalsOnly<&Run>});

}  // namespace
}  // namespace tessel_cli
