#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/print.h>

#include "command.h"
#include "por_support.h"

namespace tessel_cli {
namespace {

int PorDump(const std::string& name) {
    std::vector<unsigned char> bytes;
    if (!ReadAllBytes(name, bytes)) {
        return Fail("cannot read " + name);
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

CliRun Setup(CliOptions& cli) {
    auto file = std::make_shared<std::string>();
    cli.AddOption("FILE", *file, "the file, or - for standard input").Required();
    return [file] { return PorDump(*file); };
}

const CliCommandRegistration kPorDump(
    {"por dump", "FILE|-", "Read a unit tree in its binary form and print it.",
     "FILE is read whole; - reads standard input. The tree is printed one unit a line, the\n"
     "root under the name \"Root\", traits in brackets before the elements or properties.\n"
     "An empty input is no tree and prints nothing. A corrupt input prints the error's\n"
     "text on standard error and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
