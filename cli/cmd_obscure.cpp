#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/obscurer.h>

#include "command.h"

namespace tessel_cli {
namespace {

int Run(const std::string& given) {
    std::u16string text;
    if (!Common::Utf8ToUtf16(given, text)) {
        return Fail("TEXT is not valid UTF-8");
    }
    const std::string result = Common::Utf16ToUtf8(Serialization::Obscure(text));
    std::printf("%s\n", result.c_str());
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto text = std::make_shared<std::string>();
    cli.AddOption("TEXT", *text, "the text").Required();
    return [text] { return Run(*text); };
}

const CliCommandRegistration kObscure(
    {"obscure", "TEXT", "Print the obscured form of TEXT, as secrets travel in packets.",
     "TEXT is taken as UTF-8. The result is the base64 text of the default obscurer; the\nsame "
     "TEXT always gives the same result.",
     Setup});

}  // namespace
}  // namespace tessel_cli
