#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "command.h"
#include "json_calls.h"

namespace tessel_cli {
namespace {

// The record of that name, with its namespace or, when that is unambiguous, without it.
const JsonRecord* FindRecord(const std::string& name, bool& ambiguous) {
    const JsonRecord* found = nullptr;
    ambiguous = false;
    for (const JsonRecord& record : JsonRecords()) {
        if (name == record.Name) {
            ambiguous = false;
            return &record;
        }
        const std::size_t length = std::strlen(record.Name);
        if (length > name.size() + 2 && record.Name + (length - name.size()) == name &&
            record.Name[length - name.size() - 1] == ':') {
            ambiguous = ambiguous || found != nullptr;
            found = &record;
        }
    }
    return ambiguous ? nullptr : found;
}

int Describe(const std::string& name) {
    bool ambiguous = false;
    const JsonRecord* record = FindRecord(name, ambiguous);
    if (record == nullptr) {
        return Fail(ambiguous ? name + " names more than one record; add its namespace"
                              : "no record is known as " + name);
    }
    JsonWriter writer;
    record->Describe(writer);
    std::printf("%s\n", writer.Result()["value"].dump(2).c_str());
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto name = std::make_shared<std::string>();
    cli.AddOption("TYPE", *name, "the record's name").Required();
    return [name] { return Describe(*name); };
}

const CliCommandRegistration kDescribe(
    {"describe", "TYPE",
     "Print a record's JSON shape with its default values.",
     "TYPE is a record's name, with its namespace (ArchiveManagement::ArchiveSettings) or\n"
     "without it when that is unambiguous. The shape is what `tessel call` takes and prints for\n"
     "the record: see `tessel call --help` for the rule.",
     Setup});

}  // namespace
}  // namespace tessel_cli
