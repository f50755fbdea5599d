#pragma once

// For a subcommand that takes positional words only: CLI11 parses the words (and refuses any
// option but --help), and the handler checks how many it got.

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "command.h"

namespace tessel_cli {

template <Handler run>
CliRun PositionalsOnly(CLI::App& app) {
    auto words = std::make_shared<std::vector<std::string>>();
    app.add_option("words", *words, "see the usage line");
    return [words] {
        Arguments args;
        args.positional = *words;
        args.words = *words;
        return run(args);
    };
}

}  // namespace tessel_cli

namespace tessel_cli {

// For a subcommand of positional words and flags without values: the handler finds the
// flags that were given with Arguments::Has.
template <Handler run>
CliRun FlagsAndWords(CLI::App& app, const std::vector<std::string>& flags) {
    auto words = std::make_shared<std::vector<std::string>>();
    auto given = std::make_shared<std::vector<std::pair<std::string, bool>>>();
    given->reserve(flags.size());
    for (const std::string& flag : flags) {
        given->emplace_back(flag, false);
    }
    for (auto& [flag, set] : *given) {
        app.add_flag(flag, set, "see the help below");
    }
    app.add_option("words", *words, "see the usage line");
    return [words, given] {
        Arguments args;
        args.positional = *words;
        for (const auto& [flag, set] : *given) {
            if (set) {
                args.options.push_back(flag);
            }
        }
        args.words = args.options;
        args.words.insert(args.words.end(), words->begin(), words->end());
        return run(args);
    };
}

}  // namespace tessel_cli
