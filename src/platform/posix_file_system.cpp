// The file system of POSIX platforms: plain descriptors, with open file description locks
// where the kernel has them so that a lock belongs to the open file and not the process.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>

#include <tessel_link/common/unicode.h>

#include "platform/file_system.h"
#include "platform/posix_errors.h"

namespace Platform {

namespace {

SystemError FromErrno(int errnum) {
    return SystemError{WindowsErrorFromErrno(errnum), errnum};
}

SystemError LastError() {
    return FromErrno(errno);
}

int Descriptor(FileHandle handle) {
    return static_cast<int>(handle);
}

class PosixFileSystem final : public FileSystem {
public:
    SystemError Open(const std::u16string& path, FileAccess access, FileDisposition disposition,
                     FileHandle& handle) override {
        handle = kNoHandle;
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
        const std::string name = Common::Utf16ToUtf8(path);
        if (name.find('\0') != std::string::npos) {
            return FromErrno(EINVAL);
        }
        int fd;
        do {
            fd = ::open(name.c_str(), flags, 0666);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            return LastError();
        }
        // A directory opens for reading on POSIX; as a file it is refused, as elsewhere.
        struct stat info {};
        if (::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
            ::close(fd);
            return FromErrno(EISDIR);
        }
        handle = fd;
        return {};
    }

    SystemError Close(FileHandle handle) override {
        // The descriptor is gone after close whatever it returns; EINTR is not retried.
        return ::close(Descriptor(handle)) == 0 || errno == EINTR ? SystemError{} : LastError();
    }

    SystemError Read(FileHandle handle, void* buffer, std::size_t count,
                     std::size_t& read) override {
        read = 0;
        auto* to = static_cast<char*>(buffer);
        while (read < count) {
            const std::size_t piece = std::min<std::size_t>(count - read, SSIZE_MAX);
            const ssize_t got = ::read(Descriptor(handle), to + read, piece);
            if (got < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return LastError();
            }
            if (got == 0) {
                break;
            }
            read += static_cast<std::size_t>(got);
        }
        return {};
    }

    SystemError Write(FileHandle handle, const void* buffer, std::size_t count,
                      std::size_t& written) override {
        written = 0;
        const auto* from = static_cast<const char*>(buffer);
        while (written < count) {
            const std::size_t piece = std::min<std::size_t>(count - written, SSIZE_MAX);
            const ssize_t put = ::write(Descriptor(handle), from + written, piece);
            if (put < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return LastError();
            }
            written += static_cast<std::size_t>(put);
        }
        return {};
    }

    SystemError Seek(FileHandle handle, std::int64_t offset, SeekOrigin origin,
                     std::uint64_t& position) override {
        const int whence = origin == SeekOrigin::Begin     ? SEEK_SET
                           : origin == SeekOrigin::Current ? SEEK_CUR
                                                           : SEEK_END;
        const off_t result = ::lseek(Descriptor(handle), static_cast<off_t>(offset), whence);
        if (result < 0) {
            return LastError();
        }
        position = static_cast<std::uint64_t>(result);
        return {};
    }

    SystemError Resize(FileHandle handle, std::uint64_t length) override {
        if (length > static_cast<std::uint64_t>(INT64_MAX)) {
            return FromErrno(EFBIG);
        }
        int result;
        do {
            result = ::ftruncate(Descriptor(handle), static_cast<off_t>(length));
        } while (result != 0 && errno == EINTR);
        return result == 0 ? SystemError{} : LastError();
    }

    SystemError Sync(FileHandle handle) override {
        return ::fsync(Descriptor(handle)) == 0 ? SystemError{} : LastError();
    }

    SystemError Lock(FileHandle handle, std::uint64_t offset, std::uint64_t length,
                     LockKind kind) override {
        return SetLock(handle, offset, length, kind == LockKind::Shared ? F_RDLCK : F_WRLCK);
    }

    SystemError Unlock(FileHandle handle, std::uint64_t offset, std::uint64_t length) override {
        return SetLock(handle, offset, length, F_UNLCK);
    }

private:
    static SystemError SetLock(FileHandle handle, std::uint64_t offset, std::uint64_t length,
                               short type) {
        if (offset > static_cast<std::uint64_t>(INT64_MAX) ||
            length > static_cast<std::uint64_t>(INT64_MAX)) {
            return FromErrno(EINVAL);
        }
        struct flock lock {};
        lock.l_type = type;
        lock.l_whence = SEEK_SET;
        lock.l_start = static_cast<off_t>(offset);
        lock.l_len = static_cast<off_t>(length);
#ifdef F_OFD_SETLK
        const int command = F_OFD_SETLK;
#else
        const int command = F_SETLK;
#endif
        if (::fcntl(Descriptor(handle), command, &lock) != 0) {
            // A lock held by someone else shows as EACCES on some systems.
            return FromErrno(errno == EACCES ? EAGAIN : errno);
        }
        return {};
    }
};

}  // namespace

FileSystem& SystemFileSystem() {
    static PosixFileSystem instance;
    return instance;
}

}  // namespace Platform
