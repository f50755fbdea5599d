#include <cstdio>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/obscurer.h>

#include "cli_positionals.h"
#include "command.h"

namespace tessel_cli {
namespace {

int Run(const Arguments& args) {
    if (args.positional.size() != 1) {
        return UsageError("unobscure takes one TEXT");
    }
    std::u16string text;
    if (!Common::Utf8ToUtf16(args.positional[0], text)) {
        return Fail("TEXT is not valid UTF-8");
    }
    const std::string result = Common::Utf16ToUtf8(Serialization::Unobscure(text));
    std::printf("%s\n", result.c_str());
    return 0;
}

const CliCommandRegistration kUnobscure(
    {"unobscure", "TEXT", "Print the clear text of an obscured TEXT.",
     "TEXT is an obscured text as packets carry it. The clear text is printed in UTF-8; a "
     "TEXT\nthat cannot be unobscured prints an empty line.",
     &PositionalsOnly<&Run>});

}  // namespace
}  // namespace tessel_cli
