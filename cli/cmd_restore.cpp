// tessel restore: a file or directory rebuilt from a file of chunk records.

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/system_file.h>

#include "command.h"
#include "error_chain.h"
#include "file/backup_chunk_file.h"

namespace tessel_cli {
namespace {

// Checks the whole file before the target is touched: the records, the stream headers of
// every backup stream, and the size of every fixed-size chunk.
Common::Error Check(File::ri_file& file, const std::vector<File::chunk_record>& records) {
    for (const File::chunk_record& record : records) {
        if (record.Type == File::chunk_times && record.Length != 16) {
            Common::Error error(TL_ORIGIN("tessel restore"), 0x4000d);
            return error.AddCause(Common::Error(TL_ORIGIN("tessel restore"), 0x4000d,
                                                "the times chunk is not 16 bytes long"));
        }
        if (record.Type == File::chunk_stream) {
            auto chunk = File::OpenChunkWindow(file, record.Offset, record.Length);
            std::vector<File::stream_header_entry> headers;
            if (Common::Error e = File::ListStreamHeaders(*chunk, record.Length, headers);
                e.Failed()) {
                return e;
            }
        }
    }
    return Common::ErrorSuccess;
}

int Restore(std::uint32_t options, const std::vector<std::string>& words) {
    if (words.size() != 2) {
        return UsageError("restore takes OUT and PATH");
    }
    Common::Error error;
    auto file = File::OpenSystemFile(File::NativeNameToWide(words[0]),
                                     File::open_mode::read, error);
    if (!file) {
        return FailWithChain(error);
    }
    std::vector<File::chunk_record> records;
    error = File::ScanChunkRecords(*file, file->Size(), records);
    if (error.Succeeded()) {
        error = Check(*file, records);
    }
    if (error.Failed()) {
        return FailWithChain(error);
    }
    File::chunk_file_source source(*file, std::move(records), options, nullptr);
    error = File::RestoreFile(File::NativeNameToWide(words[1]), source, nullptr);
    if (error.Failed()) {
        return FailWithChain(error);
    }
    return 0;
}

CliRun SetupRestore(CliOptions& cli) {
    struct Given {
        std::uint32_t options = 0;
        std::vector<std::string> words;
    };
    auto given = std::make_shared<Given>();
    cli.AddOption("--options", given->options, "the sum of the option bits").TypeName("N");
    cli.AddOption("words", given->words, "OUT PATH");
    return [given] { return Restore(given->options, given->words); };
}

const CliCommandRegistration kRestore(
    {"restore", "[--options N] OUT PATH", "Rebuild a file or directory from a file of chunks.",
     "Reads the chunk records that tessel backup wrote to OUT and rebuilds the file or\n"
     "directory PATH from them: data, holes, extended attributes, owner, mode, ACLs, a\n"
     "symbolic link's target and the last write time. --options N is the sum of: 1 leave\n"
     "security as it is, 2 leave times as they are, 4 follow symbolic links.\n"
     "The whole file is checked first: a damaged one (a short record, a length past the end,\n"
     "an unknown chunk type, a broken stream header) is refused before PATH is touched.\n"
     "A failure prints the error with its causes and exits with status 1.",
     &SetupRestore});

}  // namespace
}  // namespace tessel_cli
