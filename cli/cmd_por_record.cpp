#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <tessel_link/facade/entry_points.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/print.h>

#include "cli_positionals.h"
#include "command.h"
#include "por_support.h"

namespace tessel_cli {
namespace {

// Learns the creators the way a host does: through the library's check-in.
class CreatorTable : public Core::XidlTypeRegistrar {
public:
    bool RegisterType(const std::string& typeName, Core::XidlTypeCreator creator) override {
        creators_.emplace(typeName, creator);
        return true;
    }
    Core::XidlTypeCreator Find(const std::string& name) const {
        const auto it = creators_.find(name);
        return it == creators_.end() ? nullptr : it->second;
    }

private:
    std::map<std::string, Core::XidlTypeCreator> creators_;
};

int PorRecord(const Arguments& args) {
    if (args.positional.size() != 1) {
        return UsageError("por record takes one TYPE");
    }
    CreatorTable table;
    CheckInXIDLTypes(&table);
    const Core::XidlTypeCreator creator = table.Find(args.positional[0]);
    if (!creator) {
        return Fail("no checked-in type is named " + args.positional[0]);
    }
    Por::UnitPtr unit;
    try {
        creator(unit);
        if (args.Has("--blob")) {
            std::vector<unsigned char> bytes;
            Por::Util::WriteBlob(*unit, bytes);
            std::fwrite(bytes.data(), 1, bytes.size(), stdout);
            return std::fflush(stdout) == 0 ? 0 : Fail("cannot write standard output");
        }
    } catch (const Common::Error& error) {
        return Fail(FilledText(error));
    }
    Por::Util::Print(*unit, "", std::cout);
    return 0;
}

CliRun Setup(CLI::App& app) {
    return FlagsAndWords<&PorRecord>(app, {"--blob"});
}

const CliCommandRegistration kPorRecord(
    {"por record", "TYPE [--blob]", "Print the unit tree of a default record of TYPE.",
     "TYPE is a full name as hosts learn it, such as ArchiveManagement::SliceInfo. The tree is\n"
     "the one the type's creator makes: the default record under \"Root\" with its version\n"
     "and type traits, printed as por dump prints. --blob writes the tree's binary form to\n"
     "standard output instead.",
     Setup});

}  // namespace
}  // namespace tessel_cli
