#pragma once

// What the directory objects ask of the operating system: descriptors of directories, the
// raw entry records of a directory read a block at a time, the status of an entry, and the
// changes made relative to a directory. Names are the system's bytes, never converted here.
// Tests put a fake in place of the system to reach the failure paths.

#include <sys/stat.h>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace Platform {

// A descriptor of an open directory. kAtCurrent stands for the current directory where a
// call takes a directory to resolve a relative name against.
using DirHandle = int;
inline constexpr DirHandle kNoDir = -1;
inline constexpr DirHandle kAtCurrent = -100;

// The layout of one record of a block of entries, as the kernel writes it: 8 bytes of
// inode, 8 of position, 2 of record length, 1 of type, then the name ending in a zero byte.
// Records are 8-byte aligned.
struct DirRecordLayout {
    static constexpr std::size_t kInode = 0;
    static constexpr std::size_t kLength = 16;
    static constexpr std::size_t kType = 18;
    static constexpr std::size_t kName = 19;
};

// The entry types of a record; kTypeUnknown asks for a status call.
enum DirEntryType : unsigned char {
    kTypeUnknown = 0,
    kTypeFifo = 1,
    kTypeChar = 2,
    kTypeDir = 4,
    kTypeBlock = 6,
    kTypeFile = 8,
    kTypeLink = 10,
    kTypeSocket = 12,
};

// The status of an entry in the system's own form: the status call writes it in place, and
// the accessors convert only the fields that are asked for. A walk that reads two or three
// fields of every entry so neither copies nor converts the rest.
struct EntryStatus {
    struct stat Raw;  // not zeroed: a call that succeeds fills it

    std::uint64_t Device() const noexcept { return Raw.st_dev; }
    std::uint64_t Inode() const noexcept { return Raw.st_ino; }
    std::uint32_t Mode() const noexcept { return Raw.st_mode; }  // type and permission bits
    std::uint64_t Links() const noexcept { return Raw.st_nlink; }
    std::uint32_t Owner() const noexcept { return Raw.st_uid; }
    std::uint32_t Group() const noexcept { return Raw.st_gid; }
    std::uint64_t RawDevice() const noexcept { return Raw.st_rdev; }
    std::uint64_t Size() const noexcept { return static_cast<std::uint64_t>(Raw.st_size); }
    // Bytes of storage the entry takes.
    std::uint64_t Allocated() const noexcept {
        return static_cast<std::uint64_t>(Raw.st_blocks) * 512;
    }
    // Milliseconds since 1970, rounded towards the past so that times before 1970 stay
    // ordered (the nanoseconds of a time are never negative).
    std::int64_t AccessMs() const noexcept { return Milliseconds(Raw.st_atim); }
    std::int64_t WriteMs() const noexcept { return Milliseconds(Raw.st_mtim); }
    std::int64_t ChangeMs() const noexcept { return Milliseconds(Raw.st_ctim); }
    // The status call of this system does not give the time of birth.
    std::int64_t BirthMs() const noexcept { return 0; }

    static std::int64_t Milliseconds(const struct timespec& t) noexcept {
        return static_cast<std::int64_t>(t.tv_sec) * 1000 +
               static_cast<std::int64_t>(static_cast<std::uint64_t>(t.tv_nsec) / 1000000);
    }
};

struct VolumeSpace {
    std::uint64_t Total = 0;
    std::uint64_t Free = 0;
    std::uint64_t Available = 0;  // free to an unprivileged caller
    std::uint64_t Flags = 0;      // ST_RDONLY and the others of statvfs
    std::uint64_t NameMax = 0;
};

enum class SpecialPlace { Temporary, Current, Home };

class DirIo {
public:
    virtual ~DirIo() = default;

    virtual SystemError OpenDir(DirHandle at, const std::string& name, DirHandle& dir) = 0;
    // `unbuffered` opens past the system's cache (O_DIRECT), as FileIo::Open does.
    virtual SystemError OpenFile(DirHandle at, const std::string& name, FileAccess access,
                                 FileDisposition disposition, bool followLinks, bool unbuffered,
                                 FileHandle& file) = 0;
    virtual SystemError CloseDir(DirHandle dir) = 0;
    // Reads the next block of entry records into `buffer`; `got` 0 is the end.
    virtual SystemError ReadEntries(DirHandle dir, void* buffer, std::size_t size,
                                    std::size_t& got) = 0;
    // The status of `name` (or of `at` itself when `name` is empty). The name is a C string,
    // so that names straight from a block of entries need no copy.
    virtual SystemError Status(DirHandle at, const char* name, bool followLinks,
                               EntryStatus& status) = 0;
    virtual SystemError ReadLink(DirHandle at, const std::string& name, std::string& target) = 0;
    virtual SystemError MakeDir(DirHandle at, const std::string& name, std::uint32_t mode) = 0;
    virtual SystemError Unlink(DirHandle at, const std::string& name, bool directory) = 0;
    virtual SystemError Rename(DirHandle fromAt, const std::string& from, DirHandle toAt,
                               const std::string& to) = 0;
    virtual SystemError Link(DirHandle fromAt, const std::string& from, DirHandle toAt,
                             const std::string& to) = 0;
    virtual SystemError SymLink(const std::string& target, DirHandle at,
                                const std::string& link) = 0;
    virtual SystemError SetMode(DirHandle at, const std::string& name, std::uint32_t mode) = 0;
    virtual SystemError SetOwner(DirHandle at, const std::string& name, std::uint32_t user,
                                 std::uint32_t group) = 0;
    virtual SystemError MakeNode(DirHandle at, const std::string& name, std::uint32_t mode,
                                 std::uint64_t device) = 0;
    // Times in nanoseconds since 1970; a negative time leaves that time as it is.
    virtual SystemError SetTimes(DirHandle at, const std::string& name, std::int64_t accessNs,
                                 std::int64_t writeNs) = 0;
    // Turns compression of one file on or off, where the file system has it.
    virtual SystemError SetCompression(DirHandle at, const std::string& name, bool on) = 0;
    virtual SystemError Space(DirHandle dir, VolumeSpace& space) = 0;
    // The text of the mount table of this process.
    virtual SystemError ReadMountTable(std::string& text) = 0;
    // The path of a well-known place.
    virtual SystemError PlacePath(SpecialPlace place, std::string& path) = 0;
};

// The implementation of this platform, for the life of the process.
DirIo& SystemDirIo();

}  // namespace Platform
