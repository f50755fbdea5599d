#include "file/roots.h"

#include <algorithm>

#include <tessel_link/file/system_dir.h>

#include "file/file_errors.h"
#include "file/system_error.h"

namespace File {

namespace {

// Mount table fields escape blanks, tabs, newlines and backslashes as three octal digits.
std::string Unescape(std::string_view field) {
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const auto digit = [&](std::size_t k) { return field[k] >= '0' && field[k] <= '7'; };
        if (field[i] == '\\' && i + 3 < field.size() && digit(i + 1) && digit(i + 2) &&
            digit(i + 3)) {
            out.push_back(static_cast<char>(((field[i + 1] - '0') << 6) |
                                            ((field[i + 2] - '0') << 3) | (field[i + 3] - '0')));
            i += 3;
            continue;
        }
        out.push_back(field[i]);
    }
    return out;
}

std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && line[i] == ' ') {
            ++i;
        }
        const std::size_t start = i;
        while (i < line.size() && line[i] != ' ') {
            ++i;
        }
        if (i > start) {
            fields.push_back(line.substr(start, i - start));
        }
    }
    return fields;
}

bool ParseNumber(std::string_view text, std::uint32_t& value) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return true;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

std::vector<MountPoint> ParseMountTable(std::string_view text) {
    std::vector<MountPoint> mounts;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        // id parent major:minor root mount-point options [optional fields...] - type source
        const std::vector<std::string_view> f = Fields(line);
        if (f.size() < 9) {
            continue;
        }
        std::size_t dash = 6;
        while (dash < f.size() && f[dash] != "-") {
            ++dash;
        }
        if (dash + 2 >= f.size()) {
            continue;
        }
        MountPoint mount;
        const std::size_t colon = f[2].find(':');
        if (colon == std::string_view::npos || !ParseNumber(f[2].substr(0, colon), mount.Major) ||
            !ParseNumber(f[2].substr(colon + 1), mount.Minor)) {
            continue;
        }
        mount.Path = Unescape(f[4]);
        if (mount.Path.empty() || mount.Path[0] != '/') {
            continue;
        }
        mount.Type = Unescape(f[dash + 1]);
        mount.Source = Unescape(f[dash + 2]);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}

std::uint32_t DriveClassOf(const MountPoint& mount) noexcept {
    const std::string_view type = mount.Type;
    static constexpr std::string_view kRemote[] = {"nfs",  "nfs4",      "cifs",  "smb3",  "smbfs",
                                                   "9p",   "ceph",      "afs",   "coda",  "ncpfs",
                                                   "glusterfs", "lustre", "davfs", "sshfs"};
    static constexpr std::string_view kFixed[] = {"ext2",  "ext3", "ext4", "xfs",  "btrfs",
                                                  "zfs",   "f2fs", "jfs",  "reiserfs", "bcachefs",
                                                  "overlay", "ntfs", "ntfs3", "hfsplus", "nilfs2"};
    static constexpr std::string_view kRemovable[] = {"vfat", "msdos", "exfat", "fuseblk"};
    if (std::find(std::begin(kRemote), std::end(kRemote), type) != std::end(kRemote) ||
        StartsWith(type, "fuse.sshfs") || StartsWith(type, "fuse.rclone")) {
        return drive_remote;
    }
    if (type == "tmpfs" || type == "ramfs") {
        return drive_ramdisk;
    }
    if (type == "iso9660" || type == "udf") {
        return drive_optical;
    }
    if (std::find(std::begin(kRemovable), std::end(kRemovable), type) != std::end(kRemovable)) {
        // FAT file systems are fixed on the boot partition, removable where media go.
        const std::string_view path = mount.Path;
        return StartsWith(path, "/media/") || StartsWith(path, "/run/media/") ||
                       StartsWith(path, "/mnt/")
                   ? drive_removable
                   : drive_fixed;
    }
    if (std::find(std::begin(kFixed), std::end(kFixed), type) != std::end(kFixed)) {
        return drive_fixed;
    }
    return drive_unknown;
}

const MountPoint* FindMount(const std::vector<MountPoint>& mounts, std::uint64_t device,
                            std::string_view path) noexcept {
    const MountPoint* best = nullptr;
    const std::uint32_t major = static_cast<std::uint32_t>(((device >> 32) & 0xfffff000u) |
                                                           ((device >> 8) & 0x00000fffu));
    const std::uint32_t minor =
        static_cast<std::uint32_t>(((device >> 12) & 0xffffff00u) | (device & 0x000000ffu));
    for (const MountPoint& m : mounts) {
        if (m.Major != major || m.Minor != minor) {
            continue;
        }
        // The mount point with a trailing '/' must begin the path; the deepest one wins, and
        // of equal ones the later, which hides the earlier.
        const std::string point = m.Path == "/" ? m.Path : m.Path + "/";
        const bool above = StartsWith(path, point) || path.empty();
        if (above && (best == nullptr || m.Path.size() >= best->Path.size())) {
            best = &m;
        }
    }
    if (best == nullptr) {
        // A path that doesn't lead through the mount (a bind mount, a relative path): the last
        // mount of the device still names its file system.
        for (const MountPoint& m : mounts) {
            if (m.Major == major && m.Minor == minor) {
                best = &m;
            }
        }
    }
    return best;
}

mount_iterator::mount_iterator(Platform::DirIo& io) {
    std::string text;
    const Platform::SystemError failure = io.ReadMountTable(text);
    if (failure.Failed()) {
        RecordError(MakeSystemError(TL_ORIGIN("nt_dir::mount_iterator"), "mountinfo",
                                    u"/proc/self/mountinfo", failure, kReadFailed));
        return;
    }
    std::vector<MountPoint> all = ParseMountTable(text);
    // A path mounted over keeps only its last mount, the one that is seen.
    for (auto it = all.rbegin(); it != all.rend(); ++it) {
        const bool seen = std::any_of(mounts_.begin(), mounts_.end(),
                                      [&](const MountPoint& m) { return m.Path == it->Path; });
        if (!seen) {
            mounts_.push_back(std::move(*it));
        }
    }
    std::sort(mounts_.begin(), mounts_.end(),
              [](const MountPoint& a, const MountPoint& b) { return a.Path < b.Path; });
    Enter();
}

void mount_iterator::Enter() {
    if (index_ >= mounts_.size()) {
        RecordError(MakeFileError(TL_ORIGIN("nt_dir::mount_iterator::Next"), kEndOfFile));
        return;
    }
    name_ = NativeNameToWide(mounts_[index_].Path);
}

bool mount_iterator::Find(std::u16string_view path) {
    if (Failed()) {
        return false;
    }
    const std::string native = WideNameToNative(path);
    for (std::size_t i = 0; i < mounts_.size(); ++i) {
        if (mounts_[i].Path == native) {
            index_ = i;
            Enter();
            return true;
        }
    }
    index_ = mounts_.size();
    RecordError(MakeFileError(TL_ORIGIN("nt_dir::mount_iterator::Find"), kEndOfFile));
    return false;
}

bool mount_iterator::Next() {
    if (Failed()) {
        return false;
    }
    ++index_;
    Enter();
    return !Failed();
}

const MountPoint* mount_iterator::Current() const noexcept {
    return Failed() || index_ >= mounts_.size() ? nullptr : &mounts_[index_];
}

file_identifier* mount_iterator::GetIdentifier() {
    const MountPoint* m = Current();
    if (m == nullptr) {
        return nullptr;
    }
    return new the_identifier(name_, m->Path.c_str(), m->Path.size() + 1);
}

const char16_t* mount_iterator::GetName() {
    return Current() != nullptr ? name_.c_str() : nullptr;
}

const char16_t* mount_iterator::GetFullPath() {
    return GetName();
}

std::uint32_t mount_iterator::GetAttributes() {
    return Current() != nullptr ? kAttributeDirectory : 0;
}

std::uint32_t mount_iterator::GetType() {
    const MountPoint* m = Current();
    return m != nullptr ? DriveClassOf(*m) : drive_unknown;
}

std::uint64_t mount_iterator::GetInodeId() {
    RecordNotSupported(TL_ORIGIN("nt_dir::mount_iterator::InodeId"));
    return 0;
}

bool root_iterator::Next() {
    RecordError(MakeFileError(TL_ORIGIN("nt_dir::root_iterator::Next"), kEndOfFile));
    return false;
}

}  // namespace File
