#include <cstdio>

#include <tessel_link/common/guid.h>

#include "command.h"

namespace tessel_cli {
namespace {

int GuidNew() {
    Common::Guid guid;
    if (!Common::Create(guid)) {
        return Fail("cannot create a GUID");
    }
    std::printf("%s\n", Common::ToString(guid).c_str());
    return 0;
}

CliRun Setup(CliOptions&) {
    return [] { return GuidNew(); };
}

const CliCommandRegistration kGuidNew({"guid new", "", "Print a new random (version 4) GUID.",
                                    "The GUID is printed in upper case without braces.",
                                    Setup});

}  // namespace
}  // namespace tessel_cli
