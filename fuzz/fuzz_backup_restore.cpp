// Takes the input as a file of backup chunk records and restores it, as `tessel restore`
// would but without its checks up front, into a scratch directory: stream headers, sparse
// runs, extended attributes, security bodies (owner, mode, ACLs) and reparse bodies (links,
// devices, pipes, sockets) all come from the input. The first byte picks the restore options.
// The scratch directory lives in /dev/shm where it can, which is mounted without devices,
// so that a device node a restore makes there cannot be opened.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <tessel_link/common/assert.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/memory_file.h>

#include "file/backup_chunk_file.h"

namespace {

std::string g_scratch;

std::string MakeScratch() {
    for (const char* base : {"/dev/shm", "/tmp"}) {
        std::string pattern = std::string(base) + "/fuzz_restore.XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) {
            return pattern;
        }
    }
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // A broken stream id is reported as an assertion and refused; the report is noise here.
    Common::SetAssertionPolicy(Common::AssertionsOff);
    g_scratch = MakeScratch();
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(g_scratch, ignored);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::uint32_t options = data[0] & 0x07;
    File::buf_ifile<std::uint8_t> file(data + 1, size - 1);
    std::vector<File::chunk_record> records;
    if (File::ScanChunkRecords(file, size - 1, records).Succeeded()) {
        const std::string target = g_scratch + "/t";
        File::chunk_file_source source(file, std::move(records), options, nullptr);
        (void)File::RestoreFile(File::NativeNameToWide(target), source, nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(target, ignored);
    }
    return 0;
}
