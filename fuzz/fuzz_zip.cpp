// Opens an archive held in memory and reads every entry to its end, by iterator, by
// identifier and by name, as a user of the directory would.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <tessel_link/file/memory_file.h>

#include "file/module_archive.h"
#include "file/zip_file.h"

namespace {

// Deflated entries may claim up to 4 GiB; a run reads no more than this of each.
constexpr std::uint64_t kMostPerEntry = 1 << 20;

void ReadToEnd(File::si_file& entry) {
    static unsigned char buffer[65536];
    std::uint64_t total = 0;
    std::uint64_t read = 0;
    while (total < kMostPerEntry && entry.Read(buffer, sizeof buffer, read) && read != 0) {
        total += read;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Common::Error error;
    auto archive = File::zip_file_impl::Open(
        std::make_unique<File::buf_ifile<std::uint8_t>>(data, size), error);
    if (!archive) {
        return 0;
    }
    int entries = 0;
    for (auto it = archive->Entries(); it && !it->Failed() && entries < 64; it->Next(), ++entries) {
        if (std::unique_ptr<File::si_file> entry{archive->OpenI(*it)}) {
            ReadToEnd(*entry);
        }
        const std::unique_ptr<File::file_identifier> id{it->GetIdentifier()};
        if (std::unique_ptr<File::i_dir::iterator> again{archive->GetIterator(*id)}) {
            archive->Compare(*id, *std::unique_ptr<File::file_identifier>{again->GetIdentifier()});
        }
        // By name: the lookup may find an earlier entry of the same name, or none when the
        // name holds a backslash.
        const char16_t* name = it->GetName();
        if (std::unique_ptr<File::si_file> entry{archive->OpenI(name, 0)}) {
            if (entry->Size() <= kMostPerEntry) {
                std::vector<unsigned char> block;
                File::ReadMember(*archive, name, block);
            } else {
                ReadToEnd(*entry);
            }
        }
    }
    return 0;
}
