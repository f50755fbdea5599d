// tessel backup: one file or directory as a file of chunk records, and the listing of such
// a file.

#include <unistd.h>
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

int List(const std::string& path) {
    Common::Error error;
    auto file = File::OpenSystemFile(File::NativeNameToWide(path), File::open_mode::read, error);
    if (!file) {
        return FailWithChain(error);
    }
    const std::uint64_t size = file->Size();
    std::vector<File::chunk_record> records;
    error = File::ScanChunkRecords(*file, size, records);
    if (error.Failed()) {
        return FailWithChain(error);
    }
    for (const File::chunk_record& record : records) {
        std::printf("chunk %" PRIu32 " %" PRIu64 "\n", record.Type, record.Length);
        if (record.Type != File::chunk_stream) {
            continue;
        }
        auto chunk = File::OpenChunkWindow(*file, record.Offset, record.Length);
        std::vector<File::stream_header_entry> headers;
        error = File::ListStreamHeaders(*chunk, record.Length, headers);
        for (const File::stream_header_entry& h : headers) {
            std::printf("  stream %" PRIu32 " 0x%08" PRIx32 " %" PRIu64 " %s\n", h.Id,
                        h.Attributes, h.Size, PlainName(h.Name).c_str());
        }
        if (error.Failed()) {
            std::fflush(stdout);
            return FailWithChain(error);
        }
    }
    return 0;
}

int Backup(std::uint32_t options, const std::vector<std::string>& words) {
    if (words.size() != 2) {
        return UsageError("backup takes PATH and OUT");
    }
    const std::string& out = words[1];
    Common::Error error;
    auto file = File::OpenSystemFile(File::NativeNameToWide(out), File::open_mode::create, error);
    if (!file) {
        return FailWithChain(error);
    }
    File::chunk_file_writer writer(*file, options, nullptr);
    error = File::BackupFile(File::NativeNameToWide(words[0]), writer, nullptr);
    if (error.Succeeded()) {
        file->Flush();
        error = file->GetError();
    }
    file.reset();
    if (error.Failed()) {
        ::unlink(out.c_str());  // no half-written backup is left behind
        return FailWithChain(error);
    }
    return 0;
}

CliRun SetupBackup(CliOptions& cli) {
    struct Given {
        std::uint32_t options = 0;
        bool list = false;
        std::vector<std::string> words;
    };
    auto given = std::make_shared<Given>();
    cli.AddOption("--options", given->options, "the sum of the option bits").TypeName("N");
    cli.AddFlag("--list", given->list, "list the chunks of OUT");
    cli.AddOption("words", given->words, "PATH OUT, or OUT with --list");
    return [given, &cli] {
        if (given->list) {
            if (given->words.size() != 1 || cli.Given("--options")) {
                return UsageError("--list takes one chunk file");
            }
            return List(given->words[0]);
        }
        return Backup(given->options, given->words);
    };
}

const CliCommandRegistration kBackup(
    {"backup", "[--options N] PATH OUT | --list OUT",
     "Back a file or directory up into a file of chunks, or list such a file.",
     "Writes the chunks of the file or directory PATH (not of what a directory holds) to OUT\n"
     "as records: chunk type (u32, little-endian), length (u64, little-endian), the bytes.\n"
     "Chunk types: 1 attributes, 2 backup stream, 3 raw encrypted data, 4 plain data,\n"
     "5 times. --options N is the sum of: 1 no security, 2 encrypted files decrypted,\n"
     "4 no data streams, 8 data streams only, 16 follow symbolic links.\n"
     "With --list, prints one line per chunk, \"chunk TYPE LENGTH\", and inside a chunk of\n"
     "type 2 one line per stream header, \"  stream ID ATTRIBUTES SIZE NAME\".\n"
     "A failure prints the error with its causes, removes OUT and exits with status 1; a\n"
     "damaged chunk file is refused the same way.",
     &SetupBackup});

}  // namespace
}  // namespace tessel_cli
