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
