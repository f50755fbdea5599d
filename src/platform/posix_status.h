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

inline std::int64_t StatusNanoseconds(const struct timespec& t) noexcept {
    return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// DirIo::Status of the system (see there).
inline SystemError SystemStatus(DirHandle at, const char* name, bool followLinks,
                                EntryStatus& status) noexcept {
    struct stat s;  // not zeroed: a call that succeeds fills it, and zeroing costs a copy
    int flags = followLinks ? 0 : AT_SYMLINK_NOFOLLOW;
    if (name[0] == '\0') {
        flags |= AT_EMPTY_PATH;
    }
    const int result = StatusCall(at == kAtCurrent ? AT_FDCWD : at, name, &s, flags);
    if (result != 0) {
        return FromErrno(-result);
    }
    status.Device = s.st_dev;
    status.Inode = s.st_ino;
    status.Mode = s.st_mode;
    status.Links = s.st_nlink;
    status.Owner = s.st_uid;
    status.Group = s.st_gid;
    status.RawDevice = s.st_rdev;
    status.Size = static_cast<std::uint64_t>(s.st_size);
    status.Allocated = static_cast<std::uint64_t>(s.st_blocks) * 512;
    status.AccessNs = StatusNanoseconds(s.st_atim);
    status.WriteNs = StatusNanoseconds(s.st_mtim);
    status.ChangeNs = StatusNanoseconds(s.st_ctim);
    status.BirthNs = 0;
    return {};
}

}  // namespace Platform
