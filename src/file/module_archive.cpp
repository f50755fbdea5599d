#include "file/module_archive.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include <tessel_link/file/system_file.h>
#include <tessel_link/file/zip_archive.h>

#include "platform/module_file.h"

namespace File {

namespace {

// Members are read in pieces of this size, so that a damaged size field cannot make the
// reader allocate more than the data that actually arrives.
constexpr std::uint64_t kReadPiece = std::uint64_t{1} << 20;

std::unique_ptr<rio_file> OpenForReading(const std::u16string& path) {
    Common::Error error;
    return OpenSystemFile(path, open_mode::read, error);
}

std::unique_ptr<si_dir> OpenArchive(std::unique_ptr<rio_file> file) {
    Common::Error error;
    return OpenZipArchive(std::move(file), error);
}

// What the process has found: the archive, or null for none. Published once.
struct ModuleArchive {
    std::unique_ptr<si_dir> Archive;
};

std::atomic<ModuleArchive*> g_moduleArchive{nullptr};

void ReleaseModuleArchive() {
    delete g_moduleArchive.exchange(nullptr, std::memory_order_acq_rel);
}

}  // namespace

std::u16string DataArchivePath(std::u16string_view modulePath) {
    // A shared object's version numbers after ".so" (libtessel_link.so.0, .so.0.1.0) are
    // not its extension: every name the library is loaded by finds the same archive.
    std::size_t versioned = modulePath.size();
    while (versioned > 0) {
        std::size_t digits = versioned;
        while (digits > 0 && modulePath[digits - 1] >= u'0' && modulePath[digits - 1] <= u'9') {
            --digits;
        }
        if (digits == versioned || digits == 0 || modulePath[digits - 1] != u'.') {
            break;
        }
        versioned = digits - 1;
    }
    if (versioned != modulePath.size() && versioned >= 3 &&
        modulePath.substr(versioned - 3, 3) == u".so") {
        modulePath = modulePath.substr(0, versioned);
    }
    std::size_t end = modulePath.size();
    for (std::size_t i = modulePath.size(); i-- > 1;) {
        if (modulePath[i] == u'/') {
            break;
        }
        if (modulePath[i] == u'.') {
            end = i;
            break;
        }
    }
    std::u16string path(modulePath.substr(0, end));
    path += u".dat";
    return path;
}

std::unique_ptr<si_dir> OpenDataArchive(const std::u16string& modulePath) {
    if (modulePath.empty()) {
        return nullptr;
    }
    // Only a data file that can't be opened sends the search on to the module itself: one
    // that opens but is no archive means no archive, rather than another table than the
    // one installed beside the library.
    std::unique_ptr<rio_file> file = OpenForReading(DataArchivePath(modulePath));
    if (!file) {
        file = OpenForReading(modulePath);
        if (!file) {
            return nullptr;
        }
    }
    return OpenArchive(std::move(file));
}

si_dir* GetModuleArchive() {
    ModuleArchive* found = g_moduleArchive.load(std::memory_order_acquire);
    if (found == nullptr) {
        auto* mine = new (std::nothrow) ModuleArchive{OpenDataArchive(Platform::ModuleFilePath())};
        if (mine == nullptr) {
            return nullptr;
        }
        // Threads that race here each open the archive; the first to publish wins, and the
        // others drop their own and use the winner's.
        if (g_moduleArchive.compare_exchange_strong(found, mine, std::memory_order_acq_rel)) {
            found = mine;
            std::atexit(ReleaseModuleArchive);
        } else {
            delete mine;
        }
    }
    return found->Archive.get();
}

bool ReadMember(si_dir& archive, const char16_t* name, std::vector<unsigned char>& block) {
    block.clear();
    const std::unique_ptr<si_file> member(archive.OpenI(name, 0));
    if (!member || member->Failed()) {
        return false;
    }
    const std::uint64_t size = member->Size();
    try {
        while (block.size() < size) {
            const std::uint64_t piece = std::min<std::uint64_t>(size - block.size(), kReadPiece);
            const std::size_t at = block.size();
            block.resize(at + static_cast<std::size_t>(piece));
            if (!member->ReadExact(block.data() + at, piece)) {
                block.clear();
                return false;
            }
        }
    } catch (const std::bad_alloc&) {
        block.clear();
        return false;
    }
    // The read after the last byte is the one that compares the checksum.
    unsigned char probe = 0;
    std::uint64_t extra = 0;
    if (!member->Read(&probe, 1, extra) || extra != 0) {
        block.clear();
        return false;
    }
    return true;
}

}  // namespace File
