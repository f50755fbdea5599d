#include <cstdio>

#include <tessel_link/common/guid.h>

#include "cli_positionals.h"
#include "command.h"

namespace tessel_cli {
namespace {

int GuidNew(const Arguments& args) {
    if (!args.positional.empty()) {
        return UsageError("guid new takes no arguments");
    }
    Common::Guid guid;
    if (!Common::Create(guid)) {
        return Fail("cannot create a GUID");
    }
    std::printf("%s\n", Common::ToString(guid).c_str());
    return 0;
}

const CliCommandRegistration kGuidNew({"guid new", "", "Print a new random (version 4) GUID.",
                                    "The GUID is printed in upper case without braces.",
                                    &PositionalsOnly<&GuidNew>});

}  // namespace
}  // namespace tessel_cli
