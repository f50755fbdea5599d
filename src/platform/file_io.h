#pragma once

// The system calls behind an open file of the operating system: one transfer per call, so
// that the file object sees every short count and every failure and can apply its retry
// rules, and the controls that a backup needs (allocated ranges, holes, times, geometry).
// Each platform has one implementation; tests put a fake in its place.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace Platform {

// One allocated (data-holding) range of a file, in bytes.
struct AllocatedRange {
    std::uint64_t Offset = 0;
    std::uint64_t Length = 0;
};

// The geometry of the medium under a file.
struct SectorSizes {
    std::uint32_t Logical = 0;          // the unit of addressing, and of unbuffered transfers
    std::uint32_t Physical = 0;         // the unit the device writes at once
    std::uint32_t FileSystemBlock = 0;  // the allocation unit of the file system
};

// File times in 100 ns units since 1601-01-01 UTC; 0 leaves a time as it is.
struct FileTimes {
    std::uint64_t Creation = 0;
    std::uint64_t Access = 0;
    std::uint64_t Write = 0;
};

// Windows codes that the retry rules of the file layer look for.
inline constexpr std::uint32_t kErrorAccessDenied = 5;
inline constexpr std::uint32_t kErrorLockViolation = 33;
inline constexpr std::uint32_t kErrorMoreData = 234;
inline constexpr std::uint32_t kErrorIoDevice = 1117;
inline constexpr std::uint32_t kErrorNoSystemResources = 1450;
inline constexpr std::uint32_t kErrorWorkingSetQuota = 1453;

class FileIo {
public:
    virtual ~FileIo() = default;

    // `unbuffered` bypasses the cache: transfers must then respect the medium's alignment.
    virtual SystemError Open(const std::u16string& path, FileAccess access,
                             FileDisposition disposition, bool unbuffered, FileHandle& handle) = 0;
    virtual SystemError Close(FileHandle handle) = 0;

    // One transfer of up to `count` bytes. A read that gives 0 bytes is at the end.
    virtual SystemError Read(FileHandle handle, void* buffer, std::size_t count,
                             std::size_t& read) = 0;
    virtual SystemError Write(FileHandle handle, const void* buffer, std::size_t count,
                              std::size_t& written) = 0;

    virtual SystemError Seek(FileHandle handle, std::int64_t offset, SeekOrigin origin,
                             std::uint64_t& position) = 0;
    virtual SystemError Resize(FileHandle handle, std::uint64_t length) = 0;
    virtual SystemError Sync(FileHandle handle) = 0;
    // Byte-range locks that fail at once rather than wait.
    virtual SystemError Lock(FileHandle handle, std::uint64_t offset, std::uint64_t length,
                             LockKind kind) = 0;
    virtual SystemError Unlock(FileHandle handle, std::uint64_t offset, std::uint64_t length) = 0;

    // The allocated ranges that meet [start, start + length), clipped to it, in order. Fills
    // at most `capacity` of them into `ranges` and sets `count`; when there are more, the
    // answer is kErrorMoreData with the first `capacity` filled.
    virtual SystemError AllocatedRanges(FileHandle handle, std::uint64_t start,
                                        std::uint64_t length, AllocatedRange* ranges,
                                        std::size_t capacity, std::size_t& count) = 0;
    // The byte on the device that holds the file's byte `logical`; all ones in a hole.
    virtual SystemError PhysicalOffset(FileHandle handle, std::uint64_t logical,
                                       std::uint64_t& physical) = 0;
    // Marks the file as one that may have holes.
    virtual SystemError SetSparse(FileHandle handle, bool sparse) = 0;
    // Makes [offset, offset + length) read as zeroes, freeing its blocks where it can; the
    // length of the file stays.
    virtual SystemError ZeroRange(FileHandle handle, std::uint64_t offset,
                                  std::uint64_t length) = 0;
    virtual SystemError SetTimes(FileHandle handle, const FileTimes& times) = 0;
    virtual SystemError GetSectorSizes(FileHandle handle, SectorSizes& sizes) = 0;
    // Turns the file system's compression of the file on or off.
    virtual SystemError SetCompression(FileHandle handle, bool compressed) = 0;
    // Lets the process keep more memory resident, for unbuffered transfers that pin pages.
    virtual SystemError GrowWorkingSet() = 0;
};

// The implementation of this platform, for the life of the process.
FileIo& SystemFileIo();

}  // namespace Platform
