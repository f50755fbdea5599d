#include <cstdio>
#include <string>

#include "cli_positionals.h"
#include "command.h"
#include <tessel_link/facade/catalogue.h>
#include "json_text.h"

namespace tessel_cli {
namespace {

using Core::Catalogue::Component;
using Core::Catalogue::Method;
using Core::Catalogue::Parameter;

const char* KindMark(std::uint32_t kind) {
    switch (kind) {
        case 1: return ", in";
        case 2: return ", out";
        case 3: return ", in out";
        case 4: return ", obscured";
        default: return "";
    }
}

void PrintText() {
    for (const Component& component : Core::Catalogue::Components()) {
        std::printf("%u %s, version %u, %zu methods\n", component.ID, component.Interface,
                    component.Version, component.MethodCount);
        for (const Method& method : component.Methods()) {
            std::string params;
            for (const Parameter& param : method.Parameters()) {
                params += params.empty() ? "" : "; ";
                params += std::string(param.Name) + ": " + param.Type + KindMark(param.Kind);
            }
            std::printf("  %2u %s (since %u): %s\n", method.Number, method.Name, method.Since,
                        params.empty() ? "none" : params.c_str());
        }
    }
}

// One component a line, so that a difference shows where it is.
void PrintJson() {
    std::printf("[\n");
    bool firstComponent = true;
    for (const Component& component : Core::Catalogue::Components()) {
        std::string line = firstComponent ? "" : ",\n";
        firstComponent = false;
        line += "{\"id\": " + std::to_string(component.ID) +
                ", \"interface\": " + JsonString(component.Interface) +
                ", \"version\": " + std::to_string(component.Version) + ", \"methods\": [";
        bool firstMethod = true;
        for (const Method& method : component.Methods()) {
            line += firstMethod ? "" : ", ";
            firstMethod = false;
            line += "{\"number\": " + std::to_string(method.Number) +
                    ", \"name\": " + JsonString(method.Name) +
                    ", \"since\": " + std::to_string(method.Since) + ", \"params\": [";
            bool firstParam = true;
            for (const Parameter& param : method.Parameters()) {
                line += firstParam ? "" : ", ";
                firstParam = false;
                line += "{\"name\": " + JsonString(param.Name) + ", \"type\": " +
                        JsonString(param.Type) + ", \"kind\": " + std::to_string(param.Kind) + "}";
            }
            line += "]}";
        }
        line += "]}";
        std::fputs(line.c_str(), stdout);
    }
    std::printf("\n]\n");
}

int Run(const Arguments& args) {
    if (!args.positional.empty()) {
        return UsageError("catalogue takes no arguments");
    }
    if (args.Has("--json")) {
        PrintJson();
    } else {
        PrintText();
    }
    return 0;
}

CliRun Setup(CLI::App& app) {
    return FlagsAndWords<&Run>(app, {"--json"});
}

const CliCommandRegistration kCatalogue(
    {"catalogue", "[--json]", "Print the remote components and their methods.",
     "Components by ascending ID, each with its interface name and version, and its methods in\n"
     "the order of the interface: number, name, the version that introduced it, and its\n"
     "parameters with their types as the interface declares them and their kinds (1 in, 2 out,\n"
     "3 in out, 4 obscured). --json prints the same as a JSON array.",
     Setup});

}  // namespace
}  // namespace tessel_cli
