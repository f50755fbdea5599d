#pragma once

#include <functional>
#include <string>
#include <vector>

#include "options.h"

namespace tessel_cli {

// A subcommand of the tool, in a cmd_*.cpp of its own that registers it through a static
// CliCommandRegistration. The parser reads its options and positionals and gives its --help:
// `setup` registers them through CliOptions (the usage line and description are set
// already) and returns what runs once the words were understood; its result is the exit
// status. A word the parser does not understand is a usage error (status 2).
using CliRun = std::function<int()>;
using CliSetup = CliRun (*)(CliOptions& cli);

struct CliCommand {
    std::string name;     // words of the subcommand
    std::string usage;    // the argument synopsis for the usage line
    std::string summary;  // one line for the list of commands, and the help's description
    std::string help;     // the text after the options in --help
    CliSetup setup;
};

void RegisterCliCommand(CliCommand command);

// Parses WORDS, the words after the command's name, with the options its setup registered,
// and runs it: --help prints the help and returns 0, words it does not take are a usage error.
int RunCliCommand(const CliCommand& command, std::vector<std::string> words);

struct CliCommandRegistration {
    explicit CliCommandRegistration(CliCommand command) { RegisterCliCommand(std::move(command)); }
};

// Prints "tessel: MESSAGE" on standard error and returns 1; a usage error returns 2.
int Fail(const std::string& message);
int UsageError(const std::string& message);

// A decimal number of at most 64 bits, without sign, for the values of options that the
// command checks itself, so as to say what it expected.
bool ParseDecimal(const std::string& text, unsigned long long& value);

}  // namespace tessel_cli
