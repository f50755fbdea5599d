#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/facade/entry_points.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/print.h>

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

int PorRecord(const std::string& name, bool blob) {
    CreatorTable table;
    CheckInXIDLTypes(&table);
    const Core::XidlTypeCreator creator = table.Find(name);
    if (!creator) {
        return Fail("no checked-in type is named " + name);
    }
    Por::UnitPtr unit;
    try {
        creator(unit);
        if (blob) {
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

CliRun Setup(CliOptions& cli) {
    auto name = std::make_shared<std::string>();
    auto blob = std::make_shared<bool>(false);
    cli.AddOption("TYPE", *name, "the type's full name").Required();
    cli.AddFlag("--blob", *blob, "write the tree's binary form");
    return [name, blob] { return PorRecord(*name, *blob); };
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
