#pragma once

#include <string>
#include <vector>

namespace tessel_cli {

// The arguments of one subcommand: the words after its name, with options split out.
struct Arguments {
    std::vector<std::string> positional;
    std::vector<std::string> options;  // "--json", "--members", ...
    std::vector<std::string> words;    // all of them in their order, for options with values

    bool Has(const std::string& option) const;
};

using Handler = int (*)(const Arguments& args);

struct Command {
    std::string name;     // words of the subcommand, such as "error decode"
    std::string usage;    // the argument synopsis, such as "HEX [--json]"
    std::string summary;  // one line for the list of commands
    std::string help;     // the full text of --help, after the usage line
    Handler run;
};

// Adds a subcommand to the tool. Used through a static CommandRegistration in the file that
// implements it, so that every subcommand lives in one file of its own.
void RegisterCommand(Command command);

struct CommandRegistration {
    explicit CommandRegistration(Command command) { RegisterCommand(std::move(command)); }
};

// Prints "tessel: MESSAGE" on standard error and returns 1; a usage error returns 2.
int Fail(const std::string& message);
int UsageError(const std::string& message);

}  // namespace tessel_cli
