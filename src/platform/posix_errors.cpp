#include "platform/posix_errors.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace Platform {

std::uint32_t WindowsErrorFromErrno(int errnum) noexcept {
    switch (errnum) {
        case EPERM:
        case EACCES:
        case EISDIR:
            return 5;  // access denied
        case ENOENT:
            return 2;  // file not found
        case ENOTDIR:
            return 3;  // path not found
        case EBADF:
            return 6;  // invalid handle
        case ENOMEM:
            return 8;  // not enough memory
        case EROFS:
            return 19;  // write protected
        case ENXIO:
        case ENODEV:
            return 21;  // device not ready
        case ETXTBSY:
        case EBUSY:
            return 32;  // sharing violation
        case EAGAIN:
        case EDEADLK:
            return 33;  // lock violation
        case ENOSPC:
        case EDQUOT:
            return 112;  // disk full
        case ENAMETOOLONG:
            return 206;  // name too long
        case EINVAL:
            return 87;  // invalid parameter
        case EEXIST:
            return 183;  // already exists
        case ENOSYS:
        case EOPNOTSUPP:
            return 50;  // not supported
        case ESPIPE:
            return 1;  // invalid function: the handle cannot seek
        case ECANCELED:
            return 1223;  // canceled
        case ENETDOWN:
        case ENETUNREACH:
        case EHOSTUNREACH:
            return 1231;  // network unreachable
        case ENOTCONN:
        case ECONNRESET:
        case ECONNABORTED:
            return 1232;
        case EIO:
            return 1117;  // I/O device error
        case EFBIG:
            return 223;  // file too large
        case EMFILE:
        case ENFILE:
            return 4;  // too many open files
        default:
            return 0;
    }
}

SystemError TakeFileDescriptor(int fd, FileHandle& handle) noexcept {
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
        ::close(fd);
        return FromErrno(EISDIR);
    }
    handle = fd;
    return {};
}

SystemError SetCompressionFlag(int fd, bool on) noexcept {
    constexpr long kBtrfsMagic = 0x9123683e;
    struct statfs volume {};
    if (::fstatfs(fd, &volume) != 0) {
        return LastError();
    }
    if (static_cast<long>(volume.f_type) != kBtrfsMagic) {
        return FromErrno(EOPNOTSUPP);
    }
    int flags = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
        return LastError();
    }
    flags = on ? (flags | FS_COMPR_FL) : (flags & ~FS_COMPR_FL);
    return ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0 ? SystemError{} : LastError();
}

}  // namespace Platform
