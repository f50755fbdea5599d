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
    const std::string result = Common::Utf16ToUtf8(Serialization::Unobscure(text));
    std::printf("%s\n", result.c_str());
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto text = std::make_shared<std::string>();
    cli.AddOption("TEXT", *text, "the text").Required();
    return [text] { return Run(*text); };
}

const CliCommandRegistration kUnobscure(
    {"unobscure", "TEXT", "Print the clear text of an obscured TEXT.",
     "TEXT is an obscured text as packets carry it. The clear text is printed in UTF-8; a "
     "TEXT\nthat cannot be unobscured prints an empty line.",
     Setup});

}  // namespace
}  // namespace tessel_cli
