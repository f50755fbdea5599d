#pragma once

// Files of the system: opening them by path and the commands they take.

#include <memory>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/file/file_object.h>
#include <tessel_link/file/token_substitution.h>
#include <tessel_link/file/usn_journal.h>

namespace File {

// How OpenSystemFile opens a file.
enum class open_mode {
    read,            // an existing file, for reading
    read_write,      // an existing file, for reading and writing
    create,          // a new or emptied file, for reading and writing
    open_or_create,  // an existing file or a new one, for reading and writing
    create_new,      // a file that must not exist yet, for reading and writing
};

// Opens a file of the operating system by its path. On failure the result is null and
// `error` tells why: a file-layer code with the system's code as its cause. A file opened
// for reading refuses to be written.
TL_API std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                                Common::Error& error);

// The same file opened past the system's cache. Writes go in multiples of the medium's
// sector size (read from the block device; 4,096 bytes where there is none), and the buffers
// given to Read and Write must be aligned to it.
TL_API std::unique_ptr<rio_file> OpenSystemFileNoCache(const std::u16string& path, open_mode mode,
                                                       Common::Error& error);

// The same, as the user of `token` (when not null): the open and every later operation of
// the file run in a TokenSubstitutionExecutor scope of it.
TL_API std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                                Common::Error& error,
                                                const std::shared_ptr<SubstToken>& token);
// OpenSystemFileNoCache as the user of `token` (when not null).
TL_API std::unique_ptr<rio_file> OpenSystemFileNoCache(const std::u16string& path, open_mode mode,
                                                       Common::Error& error,
                                                       const std::shared_ptr<SubstToken>& token);

// The commands that IOCTL of a system file knows. Each fills its results only on success.

// The allocated ranges of the file that meet [Start, Start + Length), as an owned block: a
// count word followed by that many (offset, length) pairs, all 64-bit.
struct allocation_map_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("ALCM");  // the command's code
    allocation_map_command() { Code = kCode; }
    std::uint64_t Start = 0;  // where the ranges start
    std::uint64_t Length = ~std::uint64_t{0};  // how far they reach
    std::unique_ptr<std::uint64_t[]> Map;  // the block, on success

    std::uint64_t RangeCount() const noexcept { return Map ? Map[0] : 0; }  // the number of ranges
    // Where range `i` starts.
    std::uint64_t RangeOffset(std::uint64_t i) const noexcept { return Map[1 + 2 * i]; }
    // How long range `i` is.
    std::uint64_t RangeLength(std::uint64_t i) const noexcept { return Map[2 + 2 * i]; }
};

// The geometry under the file.
struct sector_sizes_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("GSEC");  // the command's code
    sector_sizes_command() { Code = kCode; }
    std::uint32_t LogicalSector = 0;  // in bytes
    std::uint32_t PhysicalSector = 0;  // in bytes
    std::uint32_t FileSystemBlock = 0;  // in bytes
};

// The byte on the device that holds the file's byte Logical; all ones in a hole.
struct physical_offset_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("RPTR");  // the command's code
    physical_offset_command() { Code = kCode; }
    std::uint64_t Logical = 0;  // the byte asked for
    std::uint64_t Physical = 0;  // its place on the device
};

// Marks the file as one that may have holes.
struct set_sparse_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("SPRS");  // the command's code
    set_sparse_command() { Code = kCode; }
    bool Sparse = true;  // false clears the mark
};

// Makes [Offset, Offset + Length) read as zeroes, freeing its blocks where it can.
struct zero_range_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("ZERO");  // the command's code
    zero_range_command() { Code = kCode; }
    std::uint64_t Offset = 0;  // where the range starts
    std::uint64_t Length = 0;  // its length
};

// Sets the times, in 100 ns units since 1601-01-01 UTC; 0 leaves a time as it is. Linux has
// no settable creation time, so that one is left alone.
struct set_times_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("STIM");  // the command's code
    set_times_command() { Code = kCode; }
    std::uint64_t CreationTime = 0;  // 0: unchanged
    std::uint64_t AccessTime = 0;  // 0: unchanged
    std::uint64_t WriteTime = 0;  // 0: unchanged
};

// Turns the file system's compression of the file on or off.
struct set_compression_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("CMPR");  // the command's code
    set_compression_command() { Code = kCode; }
    bool Compressed = true;  // false turns it off
};

}  // namespace File
