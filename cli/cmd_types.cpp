#include <cstdio>

#include <tessel_link/xidl/catalogue.h>

#include "cli_positionals.h"
#include "command.h"

namespace tessel_cli {
namespace {

int Run(const Arguments& args) {
    if (!args.positional.empty()) {
        return UsageError("types takes no arguments");
    }
    for (const Serialization::Xidl::TypeInfo* type : Serialization::Xidl::CheckedInTypes()) {
        std::printf("%s\n", type->FullName);
    }
    return 0;
}

const CliCommandRegistration kTypes(
    {"types", "", "Print the names of the types that hosts can make by name.",
     "One full name a line, in the order in which the library registers them with a host.",
     &PositionalsOnly<&Run>});

}  // namespace
}  // namespace tessel_cli
