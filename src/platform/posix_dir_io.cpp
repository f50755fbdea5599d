// Directories of Linux: *at calls relative to directory descriptors, so that a directory
// object keeps reaching its own directory whatever happens to the path above it, and the
// raw getdents64 records, so that one call reads a whole block of entries.

#include <fcntl.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/dir_io.h"
#include "platform/posix_errors.h"
#include "platform/posix_status.h"

namespace Platform {

namespace {

int At(DirHandle at) {
    return at == kAtCurrent ? AT_FDCWD : at;
}

// A name with a zero byte inside can't reach the system intact.
bool Bad(const std::string& name) {
    return name.find('\0') != std::string::npos;
}

class PosixDirIo final : public DirIo {
public:
    SystemError OpenDir(DirHandle at, const std::string& name, DirHandle& dir) override {
        dir = kNoDir;
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        int fd;
        do {
            fd = ::openat(At(at), name.empty() ? "." : name.c_str(),
                          O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            return LastError();
        }
        dir = fd;
        return {};
    }

    SystemError OpenFile(DirHandle at, const std::string& name, FileAccess access,
                         FileDisposition disposition, bool followLinks, bool unbuffered,
                         FileHandle& file) override {
        file = kNoHandle;
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        int flags = OpenFlags(access, disposition);
        if (!followLinks) {
            flags |= O_NOFOLLOW;
        }
        if (unbuffered) {
            flags |= O_DIRECT;
        }
        int fd;
        do {
            fd = ::openat(At(at), name.c_str(), flags, 0666);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            return LastError();
        }
        return TakeFileDescriptor(fd, file);
    }

    SystemError CloseDir(DirHandle dir) override {
        return ::close(dir) == 0 || errno == EINTR ? SystemError{} : LastError();
    }

    SystemError ReadEntries(DirHandle dir, void* buffer, std::size_t size,
                            std::size_t& got) override {
        got = 0;
        long n;
        do {
            n = ::syscall(SYS_getdents64, dir, buffer, size);
        } while (n < 0 && errno == EINTR);
        if (n < 0) {
            return LastError();
        }
        got = static_cast<std::size_t>(n);
        return {};
    }

    SystemError Status(DirHandle at, const char* name, bool followLinks,
                       EntryStatus& status) override {
        return SystemStatus(at, name, followLinks, status);
    }

    SystemError ReadLink(DirHandle at, const std::string& name, std::string& target) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        std::vector<char> buffer(256);
        for (;;) {
            const ssize_t n = ::readlinkat(At(at), name.c_str(), buffer.data(), buffer.size());
            if (n < 0) {
                return LastError();
            }
            if (static_cast<std::size_t>(n) < buffer.size()) {
                target.assign(buffer.data(), static_cast<std::size_t>(n));
                return {};
            }
            buffer.resize(buffer.size() * 4);  // the target may have been cut: ask again
        }
    }

    SystemError MakeDir(DirHandle at, const std::string& name, std::uint32_t mode) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        return ::mkdirat(At(at), name.c_str(), mode) == 0 ? SystemError{} : LastError();
    }

    SystemError Unlink(DirHandle at, const std::string& name, bool directory) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        return ::unlinkat(At(at), name.c_str(), directory ? AT_REMOVEDIR : 0) == 0
                   ? SystemError{}
                   : LastError();
    }

    SystemError Rename(DirHandle fromAt, const std::string& from, DirHandle toAt,
                       const std::string& to) override {
        if (Bad(from) || Bad(to)) {
            return FromErrno(EINVAL);
        }
        return ::renameat(At(fromAt), from.c_str(), At(toAt), to.c_str()) == 0 ? SystemError{}
                                                                                : LastError();
    }

    SystemError Link(DirHandle fromAt, const std::string& from, DirHandle toAt,
                     const std::string& to) override {
        if (Bad(from) || Bad(to)) {
            return FromErrno(EINVAL);
        }
        return ::linkat(At(fromAt), from.c_str(), At(toAt), to.c_str(), 0) == 0 ? SystemError{}
                                                                                 : LastError();
    }

    SystemError SymLink(const std::string& target, DirHandle at,
                        const std::string& link) override {
        if (Bad(target) || Bad(link)) {
            return FromErrno(EINVAL);
        }
        return ::symlinkat(target.c_str(), At(at), link.c_str()) == 0 ? SystemError{}
                                                                       : LastError();
    }

    SystemError SetMode(DirHandle at, const std::string& name, std::uint32_t mode) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        return ::fchmodat(At(at), name.c_str(), mode, 0) == 0 ? SystemError{} : LastError();
    }

    SystemError SetOwner(DirHandle at, const std::string& name, std::uint32_t user,
                         std::uint32_t group) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        return ::fchownat(At(at), name.c_str(), user, group, AT_SYMLINK_NOFOLLOW) == 0
                   ? SystemError{}
                   : LastError();
    }

    SystemError MakeNode(DirHandle at, const std::string& name, std::uint32_t mode,
                         std::uint64_t device) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        return ::mknodat(At(at), name.c_str(), mode, static_cast<dev_t>(device)) == 0
                   ? SystemError{}
                   : LastError();
    }

    SystemError SetTimes(DirHandle at, const std::string& name, std::int64_t accessNs,
                         std::int64_t writeNs) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        struct timespec times[2];
        const std::int64_t values[2] = {accessNs, writeNs};
        for (int i = 0; i < 2; ++i) {
            if (values[i] < 0) {
                times[i].tv_sec = 0;
                times[i].tv_nsec = UTIME_OMIT;
            } else {
                times[i].tv_sec = static_cast<time_t>(values[i] / 1000000000);
                times[i].tv_nsec = static_cast<long>(values[i] % 1000000000);
            }
        }
        return ::utimensat(At(at), name.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? SystemError{}
                                                                                   : LastError();
    }

    SystemError SetCompression(DirHandle at, const std::string& name, bool on) override {
        if (Bad(name)) {
            return FromErrno(EINVAL);
        }
        const int fd = ::openat(At(at), name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) {
            return LastError();
        }
        const SystemError result = SetCompressionFlag(fd, on);
        ::close(fd);
        return result;
    }

    SystemError Space(DirHandle dir, VolumeSpace& space) override {
        struct statvfs v {};
        if (::fstatvfs(dir, &v) != 0) {
            return LastError();
        }
        space.Total = static_cast<std::uint64_t>(v.f_blocks) * v.f_frsize;
        space.Free = static_cast<std::uint64_t>(v.f_bfree) * v.f_frsize;
        space.Available = static_cast<std::uint64_t>(v.f_bavail) * v.f_frsize;
        space.Flags = v.f_flag;
        space.NameMax = v.f_namemax;
        return {};
    }

    SystemError ReadMountTable(std::string& text) override {
        text.clear();
        const int fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return LastError();
        }
        char buffer[8192];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                const SystemError failure = LastError();
                ::close(fd);
                return failure;
            }
            if (n == 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(fd);
        return {};
    }

    SystemError PlacePath(SpecialPlace place, std::string& path) override {
        path.clear();
        switch (place) {
            case SpecialPlace::Temporary: {
                const char* tmp = std::getenv("TMPDIR");
                path = tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp";
                return {};
            }
            case SpecialPlace::Current: {
                std::vector<char> buffer(4096);
                while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
                    if (errno != ERANGE) {
                        return LastError();
                    }
                    buffer.resize(buffer.size() * 2);
                }
                path = buffer.data();
                return {};
            }
            case SpecialPlace::Home: {
                const char* home = std::getenv("HOME");
                if (home != nullptr && home[0] == '/') {
                    path = home;
                    return {};
                }
                struct passwd entry {};
                struct passwd* found = nullptr;
                std::vector<char> buffer(16384);
                const int rc = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
                if (found == nullptr) {
                    return FromErrno(rc != 0 ? rc : ENOENT);
                }
                path = entry.pw_dir;
                return {};
            }
        }
        return FromErrno(EINVAL);
    }
};

}  // namespace

DirIo& SystemDirIo() {
    static PosixDirIo io;
    return io;
}

}  // namespace Platform
