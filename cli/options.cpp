// The one unit of the tool that compiles the argument parser: CLI11 is header-only and its
// classes are emitted in every unit that includes it, so the subcommands reach it through
// CliOptions instead.

#include "options.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "command.h"

namespace tessel_cli {

CliOption& CliOption::Required() {
    option_->required();
    return *this;
}

CliOption& CliOption::Expected(int count) {
    option_->expected(count);
    return *this;
}

CliOption& CliOption::TypeName(const std::string& name) {
    option_->type_name(name);
    return *this;
}

CliOption& CliOption::ShowDefault() {
    option_->capture_default_str();
    return *this;
}

CliOption& CliOption::Range(int min, int max) {
    option_->check(CLI::Range(min, max));
    return *this;
}

CliOption& CliOption::Range(unsigned min, unsigned max) {
    option_->check(CLI::Range(min, max));
    return *this;
}

CliOption CliOptions::AddOption(const std::string& name, std::string& value, const std::string& description) {
    return CliOption(app_.add_option(name, value, description));
}

CliOption CliOptions::AddOption(const std::string& name, std::uint32_t& value, const std::string& description) {
    return CliOption(app_.add_option(name, value, description));
}

CliOption CliOptions::AddOption(const std::string& name, std::uint64_t& value, const std::string& description) {
    return CliOption(app_.add_option(name, value, description));
}

CliOption CliOptions::AddOption(const std::string& name, std::vector<std::string>& values,
                                const std::string& description) {
    return CliOption(app_.add_option(name, values, description));
}

void CliOptions::AddFlag(const std::string& name, bool& value, const std::string& description) {
    app_.add_flag(name, value, description);
}

bool CliOptions::Given(const std::string& name) const {
    return app_.count(name) != 0;
}

namespace {

// CLI11's help with the tool's usage line: "usage: tessel NAME SYNOPSIS".
class UsageFormatter : public CLI::Formatter {
public:
    explicit UsageFormatter(std::string line) : line_(std::move(line)) {}
    std::string make_usage(const CLI::App*, std::string) const override { return line_ + "\n"; }

private:
    std::string line_;
};

}  // namespace

int RunCliCommand(const CliCommand& command, std::vector<std::string> words) {
    CLI::App app(command.summary, "tessel " + command.name);
    app.formatter(std::make_shared<UsageFormatter>("usage: tessel " + command.name + " " + command.usage));
    app.footer(command.help);
    CliOptions options(app);
    const CliRun run = command.setup(options);
    // CLI11 takes the words last first.
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::CallForHelp&) {
        std::printf("%s", app.help().c_str());
        return 0;
    } catch (const CLI::ParseError& error) {
        return UsageError(error.what());
    }
    return run();
}

}  // namespace tessel_cli
