#pragma once

// What the directory objects ask of the operating system: descriptors of directories, the
// raw entry records of a directory read a block at a time, the status of an entry, and the
// changes made relative to a directory. Names are the system's bytes, never converted here.
// Tests put a fake in place of the system to reach the failure paths.

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

struct EntryStatus {
    std::uint64_t Device = 0;
    std::uint64_t Inode = 0;
    std::uint32_t Mode = 0;  // type and permission bits as in st_mode
    std::uint64_t Links = 0;
    std::uint32_t Owner = 0;
    std::uint32_t Group = 0;
    std::uint64_t RawDevice = 0;
    std::uint64_t Size = 0;
    std::uint64_t Allocated = 0;  // bytes of storage the entry takes
    std::int64_t AccessNs = 0;    // nanoseconds since 1970
    std::int64_t WriteNs = 0;
    std::int64_t ChangeNs = 0;
    std::int64_t BirthNs = 0;  // 0 when the file system does not keep it
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
    virtual SystemError OpenFile(DirHandle at, const std::string& name, FileAccess access,
                                 FileDisposition disposition, bool followLinks,
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
