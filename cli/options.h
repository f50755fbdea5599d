#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tessel_cli {

// One option or positional of a subcommand, as its setup registered it. Each call returns
// the option again, so that a registration reads as one chain.
class CliOption {
public:
    CliOption& Required();
    // Exactly COUNT values, no fewer and no more.
    CliOption& Expected(int count);
    // The word that stands for the value in --help.
    CliOption& TypeName(const std::string& name);
    // --help shows the value the variable held when the option was registered.
    CliOption& ShowDefault();
    // The value must lie in [MIN, MAX]; --help names the range.
    CliOption& Range(int min, int max);
    CliOption& Range(unsigned min, unsigned max);

private:
    friend class CliOptions;
    explicit CliOption(CLI::Option* option) : option_(option) {}
    CLI::Option* option_;
};

// What a subcommand's setup sees of the parser: it binds its options, flags and positionals
// to variables of its own, which hold the values once the words were parsed. A name that
// starts with '-' is an option, any other a positional. The parser itself is compiled in one
// unit only, options.cpp.
class CliOptions {
public:
    explicit CliOptions(CLI::App& app) : app_(app) {}
    CliOptions(const CliOptions&) = delete;
    CliOptions& operator=(const CliOptions&) = delete;

    CliOption AddOption(const std::string& name, std::string& value, const std::string& description);
    CliOption AddOption(const std::string& name, std::uint32_t& value, const std::string& description);
    CliOption AddOption(const std::string& name, std::uint64_t& value, const std::string& description);
    CliOption AddOption(const std::string& name, std::vector<std::string>& values, const std::string& description);
    void AddFlag(const std::string& name, bool& value, const std::string& description);

    // Whether the words named the option (after parsing).
    bool Given(const std::string& name) const;

private:
    CLI::App& app_;
};

}  // namespace tessel_cli
