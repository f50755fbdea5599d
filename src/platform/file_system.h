#pragma once

// What the file layer asks of the operating system, and nothing more. Each platform has one
// implementation; tests put a fake in its place to reach the failure paths.

#include <cstddef>
#include <cstdint>
#include <string>

namespace Platform {

// The outcome of one system call. `Windows` is the Windows error code that names the reason
// (0 when the platform's code has no counterpart); `Native` is the platform's own code when
// it has codes of its own (errno on POSIX; 0 on Windows). Both 0 means success.
struct SystemError {
    std::uint32_t Windows = 0;
    int Native = 0;
    bool Failed() const noexcept { return Windows != 0 || Native != 0; }
};

using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoHandle = -1;

enum class FileAccess { Read, ReadWrite };

enum class FileDisposition {
    OpenExisting,  // fails when the file is missing
    CreateAlways,  // creates, or truncates what is there
    OpenAlways,    // opens, or creates when missing
    CreateNew,     // fails when the file exists
};

enum class SeekOrigin { Begin, Current, End };

enum class LockKind { Shared, Exclusive };

class FileSystem {
public:
    virtual ~FileSystem() = default;

    virtual SystemError Open(const std::u16string& path, FileAccess access,
                             FileDisposition disposition, FileHandle& handle) = 0;
    virtual SystemError Close(FileHandle handle) = 0;
    // Transfers up to `count` bytes; fewer only at the end of the file.
    virtual SystemError Read(FileHandle handle, void* buffer, std::size_t count,
                             std::size_t& read) = 0;
    virtual SystemError Write(FileHandle handle, const void* buffer, std::size_t count,
                              std::size_t& written) = 0;
    virtual SystemError Seek(FileHandle handle, std::int64_t offset, SeekOrigin origin,
                             std::uint64_t& position) = 0;
    // Sets the length of the file.
    virtual SystemError Resize(FileHandle handle, std::uint64_t length) = 0;
    // Pushes written data to the medium.
    virtual SystemError Sync(FileHandle handle) = 0;
    // Byte-range locks that fail at once rather than wait.
    virtual SystemError Lock(FileHandle handle, std::uint64_t offset, std::uint64_t length,
                             LockKind kind) = 0;
    virtual SystemError Unlock(FileHandle handle, std::uint64_t offset, std::uint64_t length) = 0;
};

// The implementation of this platform, for the life of the process.
FileSystem& SystemFileSystem();

}  // namespace Platform
