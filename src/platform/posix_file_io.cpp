// Open files of Linux: one read or write per transfer, the allocation map from SEEK_DATA and
// SEEK_HOLE, physical positions from FIEMAP, holes punched with fallocate, and the geometry
// of the block device from sysfs.

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>

#include <tessel_link/file/system_dir.h>

#include "platform/file_io.h"
#include "platform/file_time.h"
#include "platform/posix_errors.h"

namespace Platform {

namespace {

// A transfer that the kernel could not get memory for is the "no system resources" answer
// that the retry rules halve the piece on.
SystemError TransferError(int errnum) {
    if (errnum == ENOMEM || errnum == ENOBUFS) {
        return SystemError{kErrorNoSystemResources, errnum};
    }
    return FromErrno(errnum);
}

int Descriptor(FileHandle handle) {
    return static_cast<int>(handle);
}

bool ReadNumber(const std::string& path, std::uint32_t& value) {
    std::FILE* f = std::fopen(path.c_str(), "re");
    if (f == nullptr) {
        return false;
    }
    unsigned long number = 0;
    const bool ok = std::fscanf(f, "%lu", &number) == 1 && number != 0 && number <= UINT32_MAX;
    std::fclose(f);
    if (ok) {
        value = static_cast<std::uint32_t>(number);
    }
    return ok;
}

// The sector sizes of the block device `device`; a partition takes them from its disk.
bool DeviceSectors(dev_t device, std::uint32_t& logical, std::uint32_t& physical) {
    const std::string base =
        "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
    for (const char* queue : {"/queue/", "/../queue/"}) {
        if (ReadNumber(base + queue + "logical_block_size", logical)) {
            if (!ReadNumber(base + queue + "physical_block_size", physical)) {
                physical = logical;
            }
            return true;
        }
    }
    return false;
}

class PosixFileIo final : public FileIo {
public:
    SystemError Open(const std::u16string& path, FileAccess access, FileDisposition disposition,
                     bool unbuffered, FileHandle& handle) override {
        handle = kNoHandle;
        int flags = OpenFlags(access, disposition);
        if (unbuffered) {
            flags |= O_DIRECT;
        }
        const std::string name = File::WideNameToNative(path);
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
        return TakeFileDescriptor(fd, handle);
    }

    SystemError Close(FileHandle handle) override {
        return ::close(Descriptor(handle)) == 0 || errno == EINTR ? SystemError{} : LastError();
    }

    SystemError Read(FileHandle handle, void* buffer, std::size_t count,
                     std::size_t& read) override {
        read = 0;
        const std::size_t piece = std::min<std::size_t>(count, SSIZE_MAX);
        ssize_t got;
        do {
            got = ::read(Descriptor(handle), buffer, piece);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            return TransferError(errno);
        }
        read = static_cast<std::size_t>(got);
        return {};
    }

    SystemError Write(FileHandle handle, const void* buffer, std::size_t count,
                      std::size_t& written) override {
        written = 0;
        const std::size_t piece = std::min<std::size_t>(count, SSIZE_MAX);
        ssize_t put;
        do {
            put = ::write(Descriptor(handle), buffer, piece);
        } while (put < 0 && errno == EINTR);
        if (put < 0) {
            // The system file writes only through descriptors it opened: one that refuses
            // writes was opened for reading, which Windows answers as access denied.
            return errno == EBADF ? SystemError{5, EBADF} : TransferError(errno);
        }
        written = static_cast<std::size_t>(put);
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

    SystemError AllocatedRanges(FileHandle handle, std::uint64_t start, std::uint64_t length,
                                AllocatedRange* ranges, std::size_t capacity,
                                std::size_t& count) override {
        count = 0;
        const int fd = Descriptor(handle);
        struct stat info {};
        if (::fstat(fd, &info) != 0) {
            return LastError();
        }
        if (start > static_cast<std::uint64_t>(INT64_MAX)) {
            return FromErrno(EINVAL);
        }
        const std::uint64_t size = static_cast<std::uint64_t>(info.st_size);
        std::uint64_t end = size;
        if (start >= size) {
            end = start;
        } else if (length < size - start) {
            end = start + length;
        }
        // SEEK_DATA and SEEK_HOLE move the file's position: it is put back afterwards.
        const off_t saved = ::lseek(fd, 0, SEEK_CUR);
        if (saved < 0) {
            return LastError();
        }
        SystemError result;
        std::uint64_t at = start;
        while (at < end) {
            off_t data = ::lseek(fd, static_cast<off_t>(at), SEEK_DATA);
            if (data < 0) {
                if (errno == ENXIO) {
                    break;  // only a hole is left
                }
                if (errno != EINVAL) {
                    result = LastError();
                    break;
                }
                data = static_cast<off_t>(at);  // no hole support: all of it is data
            }
            if (static_cast<std::uint64_t>(data) >= end) {
                break;
            }
            off_t hole = ::lseek(fd, data, SEEK_HOLE);
            if (hole < 0) {
                if (errno != EINVAL) {
                    result = LastError();
                    break;
                }
                hole = static_cast<off_t>(end);
            }
            if (count == capacity) {
                result = SystemError{kErrorMoreData, 0};
                break;
            }
            const std::uint64_t stop =
                std::min<std::uint64_t>(static_cast<std::uint64_t>(hole), end);
            ranges[count++] = {static_cast<std::uint64_t>(data),
                               stop - static_cast<std::uint64_t>(data)};
            at = stop;
        }
        ::lseek(fd, saved, SEEK_SET);
        return result;
    }

    SystemError PhysicalOffset(FileHandle handle, std::uint64_t logical,
                               std::uint64_t& physical) override {
        physical = ~std::uint64_t{0};
        // The request with room for one extent behind it.
        alignas(struct fiemap) unsigned char
            space[sizeof(struct fiemap) + sizeof(struct fiemap_extent)] = {};
        auto* map = reinterpret_cast<struct fiemap*>(space);
        map->fm_start = logical;
        map->fm_length = 1;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = 1;
        if (::ioctl(Descriptor(handle), FS_IOC_FIEMAP, map) != 0) {
            return LastError();
        }
        const struct fiemap_extent& extent = map->fm_extents[0];
        if (map->fm_mapped_extents == 0 || extent.fe_logical > logical) {
            return {};  // a hole
        }
        physical = extent.fe_physical + (logical - extent.fe_logical);
        return {};
    }

    SystemError SetSparse(FileHandle handle, bool) override {
        // Every Linux file may have holes; there is no flag to set. The handle must be good.
        struct stat info {};
        return ::fstat(Descriptor(handle), &info) == 0 ? SystemError{} : LastError();
    }

    SystemError ZeroRange(FileHandle handle, std::uint64_t offset, std::uint64_t length) override {
        if (offset > static_cast<std::uint64_t>(INT64_MAX) ||
            length > static_cast<std::uint64_t>(INT64_MAX) - offset) {
            return FromErrno(EINVAL);
        }
        if (length == 0) {
            return {};
        }
        const int fd = Descriptor(handle);
        if (::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                        static_cast<off_t>(length)) == 0) {
            return {};
        }
        if (errno != EOPNOTSUPP) {
            return LastError();
        }
        // A file system without holes can still zero the range in place.
        return ::fallocate(fd, FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE,
                           static_cast<off_t>(offset), static_cast<off_t>(length)) == 0
                   ? SystemError{}
                   : LastError();
    }

    SystemError SetTimes(FileHandle handle, const FileTimes& times) override {
        // Linux keeps a birth time that nothing can set: the creation time is left alone.
        struct timespec stamps[2];
        const std::uint64_t given[2] = {times.Access, times.Write};
        for (int i = 0; i < 2; ++i) {
            if (given[i] == 0) {
                stamps[i].tv_sec = 0;
                stamps[i].tv_nsec = UTIME_OMIT;
                continue;
            }
            stamps[i] = UnixTimeFromFileTime(given[i]);
        }
        return ::futimens(Descriptor(handle), stamps) == 0 ? SystemError{} : LastError();
    }

    SystemError GetSectorSizes(FileHandle handle, SectorSizes& sizes) override {
        sizes = {};
        const int fd = Descriptor(handle);
        struct stat info {};
        struct statfs volume {};
        if (::fstat(fd, &info) != 0 || ::fstatfs(fd, &volume) != 0) {
            return LastError();
        }
        sizes.FileSystemBlock = static_cast<std::uint32_t>(volume.f_bsize);
        if (!DeviceSectors(info.st_dev, sizes.Logical, sizes.Physical)) {
            return FromErrno(ENODEV);  // not on a block device: no sectors to tell
        }
        return {};
    }

    SystemError SetCompression(FileHandle handle, bool compressed) override {
        return SetCompressionFlag(Descriptor(handle), compressed);
    }

    SystemError GrowWorkingSet() override {
        // Unbuffered transfers pin their pages; the soft limit on pinned memory goes up to
        // the hard one.
        struct rlimit limit {};
        if (::getrlimit(RLIMIT_MEMLOCK, &limit) != 0) {
            return LastError();
        }
        if (limit.rlim_cur == limit.rlim_max) {
            return SystemError{kErrorWorkingSetQuota, ENOMEM};
        }
        limit.rlim_cur = limit.rlim_max;
        return ::setrlimit(RLIMIT_MEMLOCK, &limit) == 0 ? SystemError{} : LastError();
    }

private:
    static SystemError SetLock(FileHandle handle, std::uint64_t offset, std::uint64_t length,
                               short type) {
        if (offset > static_cast<std::uint64_t>(INT64_MAX) ||
            length > static_cast<std::uint64_t>(INT64_MAX)) {
            return FromErrno(EINVAL);
        }
        // A range of no bytes holds nothing and meets no other lock; to fcntl a length of 0
        // would mean "to the end of the file and beyond".
        if (length == 0) {
            return {};
        }
        struct flock lock {};
        lock.l_type = type;
        lock.l_whence = SEEK_SET;
        lock.l_start = static_cast<off_t>(offset);
        lock.l_len = static_cast<off_t>(length);
        if (::fcntl(Descriptor(handle), F_OFD_SETLK, &lock) != 0) {
            // A lock held by someone else shows as EACCES on some systems.
            return FromErrno(errno == EACCES ? EAGAIN : errno);
        }
        return {};
    }
};

}  // namespace

FileIo& SystemFileIo() {
    static PosixFileIo instance;
    return instance;
}

}  // namespace Platform
