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
        return UsageError("obscure takes one TEXT");
    }
    std::u16string text;
    if (!Common::Utf8ToUtf16(args.positional[0], text)) {
        return Fail("TEXT is not valid UTF-8");
    }
    const std::string result = Common::Utf16ToUtf8(Serialization::Obscure(text));
    std::printf("%s\n", result.c_str());
    return 0;
}

const CliCommandRegistration kObscure(
    {"obscure", "TEXT", "Print the obscured form of TEXT, as secrets travel in packets.",
     "TEXT is taken as UTF-8. The result is the base64 text of the default obscurer; the\nsame "
     "TEXT always gives the same result.",
     &PositionalsOnly<&Run>});

}  // namespace
}  // namespace tessel_cli
