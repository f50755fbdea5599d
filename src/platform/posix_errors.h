#pragma once

#include <fcntl.h>
#include <cerrno>
#include <cstdint>

#include "platform/file_system.h"

namespace Platform {

// The Windows error code that names the same reason as a POSIX errno value, or 0 when there
// is none. The file layer translates Windows codes, so this is where the two meet.
std::uint32_t WindowsErrorFromErrno(int errnum) noexcept;

// The outcome of a failed call that left `errnum`, in both forms.
inline SystemError FromErrno(int errnum) noexcept {
    return SystemError{WindowsErrorFromErrno(errnum), errnum};
}

// The outcome of the call that just failed.
inline SystemError LastError() noexcept {
    return FromErrno(errno);
}

// The open(2) flags of a file opened with `access` and `disposition`, close-on-exec.
inline int OpenFlags(FileAccess access, FileDisposition disposition) noexcept {
    int flags = O_CLOEXEC | (access == FileAccess::Read ? O_RDONLY : O_RDWR);
    switch (disposition) {
        case FileDisposition::OpenExisting:
            break;
        case FileDisposition::CreateAlways:
            flags |= O_CREAT | O_TRUNC;
            break;
        case FileDisposition::OpenAlways:
            flags |= O_CREAT;
            break;
        case FileDisposition::CreateNew:
            flags |= O_CREAT | O_EXCL;
            break;
    }
    return flags;
}

// Hands out a descriptor that open(2) gave for a file. A directory opens for reading on
// POSIX; as a file it is refused (EISDIR) and closed, as elsewhere.
SystemError TakeFileDescriptor(int fd, FileHandle& handle) noexcept;

// Turns compression of the open file `fd` on or off. Only btrfs compresses what carries the
// flag; other file systems keep the flag and compress nothing, so they answer EOPNOTSUPP.
SystemError SetCompressionFlag(int fd, bool on) noexcept;

}  // namespace Platform
