#include <cstdio>

#include <tessel_link/xidl/catalogue.h>

#include "command.h"

namespace tessel_cli {
namespace {

int Run() {
    for (const Serialization::Xidl::TypeInfo* type : Serialization::Xidl::CheckedInTypes()) {
        std::printf("%s\n", type->FullName);
    }
    return 0;
}

CliRun Setup(CliOptions&) {
    return [] { return Run(); };
}

const CliCommandRegistration kTypes(
    {"types", "", "Print the names of the types that hosts can make by name.",
     "One full name a line, in the order in which the library registers them with a host.",
     Setup});

}  // namespace
}  // namespace tessel_cli
