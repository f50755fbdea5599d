#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/print.h>

#include "cli_positionals.h"
#include "command.h"
#include "por_support.h"

namespace tessel_cli {
namespace {

int PorDump(const Arguments& args) {
    if (args.positional.size() != 1) {
        return UsageError("por dump takes one FILE (or - for standard input)");
    }
    std::vector<unsigned char> bytes;
    if (!ReadAllBytes(args.positional[0], bytes)) {
        return Fail("cannot read " + args.positional[0]);
    }
    Por::UnitPtr unit;
    try {
        unit = Por::Util::ReadBlob(bytes, Por::Construction::GetProcessUnitFactory());
    } catch (const Common::Error& error) {
        return Fail(FilledText(error));
    }
    if (unit) {
        Por::Util::Print(*unit, "", std::cout);
    }
    return 0;
}

const CliCommandRegistration kPorDump(
    {"por dump", "FILE|-", "Read a unit tree in its binary form and print it.",
     "FILE is read whole; - reads standard input. The tree is printed one unit a line, the\n"
     "root under the name \"Root\", traits in brackets before the elements or properties.\n"
     "An empty input is no tree and prints nothing. A corrupt input prints the error's\n"
     "text on standard error and exits with status 1.",
     &PositionalsOnly<&PorDump>});

}  // namespace
}  // namespace tessel_cli
