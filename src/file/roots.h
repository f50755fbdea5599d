#pragma once

// The top of the tree: the mount points of the system stand where drives stand elsewhere,
// each with the drive class of its file system.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <tessel_link/file/dir_object.h>

#include "platform/dir_io.h"

namespace File {

struct MountPoint {
    std::string Path;  // where it is mounted, unescaped
    std::string Type;  // the file system type, such as "ext4" or "nfs4"
    std::string Source;
    std::uint32_t Major = 0;
    std::uint32_t Minor = 0;
};

// The mounts of a mount table in the form of /proc/self/mountinfo, in table order. Lines
// that don't have the fields of a mount are passed over.
std::vector<MountPoint> ParseMountTable(std::string_view text);

// The drive class of a mount, from its file system type and source.
std::uint32_t DriveClassOf(const MountPoint& mount) noexcept;

// The mount that holds a file of device `device` at `path` (a path ending in '/'): the
// deepest mount point above the path with that device; null when none is.
const MountPoint* FindMount(const std::vector<MountPoint>& mounts, std::uint64_t device,
                            std::string_view path) noexcept;

// The entries of the root: the mount points in ascending order of their paths, each once.
class mount_iterator final : public i_dir::iterator {
public:
    // Reads the mount table; a failure records 0x40001, an empty table the end.
    explicit mount_iterator(Platform::DirIo& io);

    // Stands on the mount at `path`; records 0x40002 when there is none.
    bool Find(std::u16string_view path);

    bool Next() override;
    file_identifier* GetIdentifier() override;
    const char16_t* GetName() override;
    std::uint32_t GetAttributes() override;
    const char16_t* GetFullPath() override;
    std::uint32_t GetType() override;
    std::uint64_t GetInodeId() override;  // records 0x4000e

    const MountPoint* Current() const noexcept;

private:
    void Enter();

    std::vector<MountPoint> mounts_;
    std::size_t index_ = 0;
    std::u16string name_;
};

// What an empty path lists of its own: nothing. It lets the root be treated as a directory.
class root_iterator final : public i_dir::iterator {
public:
    bool Next() override;
    file_identifier* GetIdentifier() override { return nullptr; }
    const char16_t* GetName() override { return nullptr; }
    std::uint32_t GetAttributes() override { return 0; }
    std::uint32_t GetType() override { return drive_unknown; }
};

}  // namespace File
