#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/facade/catalogue.h>

#include "command.h"
#include "json_out.h"

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
    JsonOut components = JsonOut::array();
    for (const Component& component : Core::Catalogue::Components()) {
        JsonOut methods = JsonOut::array();
        for (const Method& method : component.Methods()) {
            JsonOut params = JsonOut::array();
            for (const Parameter& param : method.Parameters()) {
                params.push_back({{"name", param.Name}, {"type", param.Type}, {"kind", param.Kind}});
            }
            methods.push_back({{"number", method.Number},
                               {"name", method.Name},
                               {"since", method.Since},
                               {"params", std::move(params)}});
        }
        components.push_back({{"id", component.ID},
                              {"interface", component.Interface},
                              {"version", component.Version},
                              {"methods", std::move(methods)}});
    }
    std::fputs(JsonLines(components).c_str(), stdout);
}

CliRun Setup(CliOptions& cli) {
    auto json = std::make_shared<bool>(false);
    cli.AddFlag("--json", *json, "print a JSON array");
    return [json] {
        if (*json) {
            PrintJson();
        } else {
            PrintText();
        }
        return 0;
    };
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
