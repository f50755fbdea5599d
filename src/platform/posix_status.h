#pragma once

// The status of a directory entry asked of Linux, in line where it is asked. A walk asks
// for the status of every entry, so the directory iterator makes this call in its own frame
// when it talks to the system directly, rather than through the seam's virtual call.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>

#include "platform/dir_io.h"
#include "platform/posix_errors.h"

namespace Platform {

// fstatat; 0 or -errno.
inline int StatusCall(int at, const char* name, struct stat* s, int flags) noexcept {
    return ::fstatat(at, name, s, flags) == 0 ? 0 : -errno;
}

// DirIo::Status of the system (see there).
inline SystemError SystemStatus(DirHandle at, const char* name, bool followLinks,
                                EntryStatus& status) noexcept {
    int flags = followLinks ? 0 : AT_SYMLINK_NOFOLLOW;
    if (name[0] == '\0') {
        flags |= AT_EMPTY_PATH;
    }
    const int result = StatusCall(at == kAtCurrent ? AT_FDCWD : at, name, &status.Raw, flags);
    if (result != 0) {
        return FromErrno(-result);
    }
    return {};
}

}  // namespace Platform
