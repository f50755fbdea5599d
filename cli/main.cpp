// The tessel tool: a window into the library for users and for checks.

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <sstream>

#include <tessel_link/common/assert.h>
#include <tessel_link/version.h>

#include "command.h"

namespace tessel_cli {

namespace {

std::vector<CliCommand>& CliCommands() {
    static std::vector<CliCommand> commands;
    return commands;
}

std::vector<std::string> SplitWords(const std::string& name) {
    std::istringstream in(name);
    std::vector<std::string> words;
    for (std::string w; in >> w;) {
        words.push_back(w);
    }
    return words;
}

void PrintUsage(std::FILE* out) {
    std::fprintf(out, "usage: tessel COMMAND [ARGS] [--help]\n       tessel --version\n\ncommands:\n");
    std::vector<std::pair<std::string, std::string>> sorted;
    for (const CliCommand& c : CliCommands()) {
        sorted.emplace_back(c.name, c.summary);
    }
    std::sort(sorted.begin(), sorted.end());
    for (const auto& [name, summary] : sorted) {
        std::fprintf(out, "  %-22s %s\n", name.c_str(), summary.c_str());
    }
}

}  // namespace

void RegisterCliCommand(CliCommand command) {
    CliCommands().push_back(std::move(command));
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "tessel: %s\n", message.c_str());
    return 1;
}

int UsageError(const std::string& message) {
    std::fprintf(stderr, "tessel: %s (see --help)\n", message.c_str());
    return 2;
}

bool ParseDecimal(const std::string& text, unsigned long long& value) {
    if (text.empty() || text.size() > 20) {
        return false;
    }
    unsigned long long v = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        const unsigned digit = static_cast<unsigned>(c - '0');
        if (v > (~0ull - digit) / 10) {
            return false;
        }
        v = v * 10 + digit;
    }
    value = v;
    return true;
}

int Main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        PrintUsage(words.empty() ? stderr : stdout);
        return words.empty() ? 2 : 0;
    }
    if (words[0] == "--version") {
        std::printf("tessel %s\n", TESSEL_LINK_VERSION_STRING);
        return 0;
    }
    // The longest registered name that the leading words spell.
    const CliCommand* best = nullptr;
    std::size_t bestLength = 0;
    for (const CliCommand& c : CliCommands()) {
        const std::vector<std::string> name = SplitWords(c.name);
        if (name.size() <= words.size() && name.size() > bestLength &&
            std::equal(name.begin(), name.end(), words.begin())) {
            best = &c;
            bestLength = name.size();
        }
    }
    if (best == nullptr) {
        std::fprintf(stderr, "tessel: unknown command '%s'\n\n", words[0].c_str());
        PrintUsage(stderr);
        return 2;
    }
    return RunCliCommand(*best, std::vector<std::string>(words.begin() + static_cast<std::ptrdiff_t>(bestLength), words.end()));
}

}  // namespace tessel_cli

int main(int argc, char** argv) {
    // The tool reports a failed internal check on standard error and goes on, unless the
    // user set CORVANE_SAFE_ASSERT.
    Common::SetAssertionDefault(Common::AssertToLog);
    return tessel_cli::Main(argc, argv);
}
