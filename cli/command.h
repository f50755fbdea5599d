#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

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

// A subcommand whose options and positionals CLI11 parses, with CLI11's --help. `setup` adds
// them to the subcommand's app (whose usage line and description are set already) and
// returns what runs once the words were understood; its result is the exit status. A word
// CLI11 does not understand is a usage error (status 2).
using CliRun = std::function<int()>;
using CliSetup = CliRun (*)(CLI::App& app);

struct CliCommand {
    std::string name;     // words of the subcommand
    std::string usage;    // the argument synopsis for the usage line
    std::string summary;  // one line for the list of commands, and the help's description
    std::string help;     // the text after the options in --help
    CliSetup setup;
};

void RegisterCliCommand(CliCommand command);

struct CliCommandRegistration {
    explicit CliCommandRegistration(CliCommand command) { RegisterCliCommand(std::move(command)); }
};

// Prints "tessel: MESSAGE" on standard error and returns 1; a usage error returns 2.
int Fail(const std::string& message);
int UsageError(const std::string& message);

}  // namespace tessel_cli
