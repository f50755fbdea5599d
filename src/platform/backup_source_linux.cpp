// Linux files as backup streams. A file becomes, in this order: its data (one data stream, or
// for a file with holes one sparse block per data run found with SEEK_DATA and SEEK_HOLE and
// a last empty block at the file's length), the target of a symbolic link as reparse data
// (before the attributes, which belong to the link once it is made), or for a device, pipe or
// socket its kind and device numbers as reparse data of a tag of its own, one named stream
// per extended attribute, and owner, group, mode and POSIX ACLs as the security stream.
// Writing the same sequence rebuilds the file: holes stay holes, a special file is made with
// mknod, and the security comes last so that a restrictive mode cannot stand in the way of
// the rest.

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_dir.h>

#include "common/thread_cache.h"
#include "platform/backup_source.h"
#include "platform/file_time.h"
#include "platform/posix_errors.h"

namespace Platform {

namespace {

// 100 ns units from 1601-01-01 to 1970-01-01.
// Bodies kept in memory while they are written (names of streams, attributes, security, link
// targets) are never larger than this; a larger one is a damaged stream.
constexpr std::uint64_t kLargestKeptBody = 16u << 20;
constexpr std::uint32_t kSecurityVersion = 1;
constexpr const char kAclAccess[] = "system.posix_acl_access";
constexpr const char kAclDefault[] = "system.posix_acl_default";
// Stream attribute bits of a header.
constexpr std::uint32_t kStreamContainsSecurity = 2;
constexpr std::uint32_t kStreamSparseAttribute = 8;

std::uint64_t FileTime(const statx_timestamp& t) {
    if (t.tv_sec == 0 && t.tv_nsec == 0) {
        return 0;
    }
    return FileTimeFromUnix(t.tv_sec, t.tv_nsec);
}

void PutU16(unsigned char* p, std::uint16_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}
void PutU32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}
void PutU64(unsigned char* p, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}
std::uint16_t GetU16(const unsigned char* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
std::uint32_t GetU32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}
std::uint64_t GetU64(const unsigned char* p) {
    return std::uint64_t(GetU32(p)) | std::uint64_t(GetU32(p + 4)) << 32;
}

void AppendU32(std::vector<unsigned char>& out, std::uint32_t v) {
    unsigned char b[4];
    PutU32(b, v);
    out.insert(out.end(), b, b + 4);
}

// Devices, pipes and sockets: entries without data that the reparse stream describes.
bool IsSpecial(mode_t mode) {
    return S_ISCHR(mode) || S_ISBLK(mode) || S_ISFIFO(mode) || S_ISSOCK(mode);
}

// The reparse tag of an entry, 0 for a file or directory.
std::uint32_t TagOf(mode_t mode) {
    if (S_ISLNK(mode)) {
        return kReparseTagLinuxSymlink;
    }
    if (S_ISCHR(mode)) {
        return kReparseTagLinuxCharDevice;
    }
    if (S_ISBLK(mode)) {
        return kReparseTagLinuxBlockDevice;
    }
    if (S_ISFIFO(mode)) {
        return kReparseTagLinuxFifo;
    }
    if (S_ISSOCK(mode)) {
        return kReparseTagLinuxSocket;
    }
    return 0;
}

std::uint32_t AttributesOf(const struct statx& st) {
    std::uint32_t attributes = 0;
    if (S_ISDIR(st.stx_mode)) {
        attributes |= kBackupAttrDirectory;
    } else if (S_ISLNK(st.stx_mode) || IsSpecial(st.stx_mode)) {
        attributes |= kBackupAttrReparsePoint;
    } else if (S_ISREG(st.stx_mode) && st.stx_blocks * 512 < st.stx_size) {
        attributes |= kBackupAttrSparse;
    }
    if ((st.stx_mode & 0222) == 0 && !S_ISLNK(st.stx_mode)) {
        attributes |= kBackupAttrReadOnly;
    }
    return attributes == 0 ? kBackupAttrNormal : attributes;
}

void FillInfo(const struct statx& st, BackupFileInfo& info) {
    info.Attributes = AttributesOf(st);
    info.Size = S_ISREG(st.stx_mode) ? st.stx_size : 0;
    info.CreationTime = (st.stx_mask & STATX_BTIME) != 0 ? FileTime(st.stx_btime) : 0;
    info.WriteTime = FileTime(st.stx_mtime);
}

// One stream of a file being read: header, name, and a body that is either kept in memory
// or a range of the file, after an optional prefix (the offset of a sparse block).
struct Segment {
    unsigned char Header[kStreamHeaderSize] = {};
    std::vector<unsigned char> Name;
    std::vector<unsigned char> Prefix;
    std::vector<unsigned char> Memory;
    bool FromFile = false;
    std::uint64_t FileOffset = 0;
    std::uint64_t FileLength = 0;

    std::uint64_t BodySize() const {
        return Prefix.size() + (FromFile ? FileLength : Memory.size());
    }
    std::uint64_t Total() const { return kStreamHeaderSize + Name.size() + BodySize(); }
};

Segment MakeSegment(std::uint32_t id, std::uint32_t attributes, std::vector<unsigned char> name,
                    std::uint64_t size) {
    Segment s;
    PutU32(s.Header, id);
    PutU32(s.Header + 4, attributes);
    PutU64(s.Header + 8, size);
    PutU32(s.Header + 16, static_cast<std::uint32_t>(name.size()));
    s.Name = std::move(name);
    return s;
}

std::vector<unsigned char> WideBytes(const std::string& native) {
    const std::u16string wide = File::NativeNameToWide(native);
    std::vector<unsigned char> out(wide.size() * 2);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        PutU16(&out[2 * i], wide[i]);
    }
    return out;
}

std::string NativeName(const std::vector<unsigned char>& bytes) {
    std::u16string wide(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < wide.size(); ++i) {
        wide[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    }
    return File::WideNameToNative(wide);
}

// The system's name of `path`. A backup or restore asks for the attributes of a file and
// then opens it, so the last name converted on the thread is kept.
struct LastPath {
    std::u16string Wide;
    std::string Native;
};

std::string NativePath(const std::u16string& path) {
    LastPath* last = Common::ThreadCache<LastPath>::Get();
    if (last == nullptr) {
        return File::WideNameToNative(path);
    }
    if (last->Wide != path || last->Native.empty()) {
        last->Native = File::WideNameToNative(path);
        last->Wide = path;
    }
    return last->Native;
}

// What is being written: the stream in progress and what is kept of it.
struct WriteState {
    unsigned char Header[kStreamHeaderSize] = {};
    std::size_t HeaderGot = 0;
    std::uint32_t Id = 0;
    std::uint64_t NameSize = 0;
    std::uint64_t Size = 0;
    std::vector<unsigned char> Name;
    std::uint64_t BodyGot = 0;
    std::vector<unsigned char> Kept;
    unsigned char Offset[8] = {};
    std::uint64_t SparseOffset = 0;
    bool Active = false;
    // A stream whose effect failed: the next write tries it again first.
    bool PendingFinish = false;
};

struct Node {
    int Fd = -1;
    std::string Path;
    bool Link = false;      // stands on a symbolic link or another entry without data
    bool Special = false;   // stands on a device, pipe or socket (Link is set too)
    bool Dir = false;
    bool Deferred = false;  // a restore target that the reparse stream is yet to create
    bool Reading = false;
    // The status taken when the node was opened, for its first read.
    bool HaveStatus = false;
    struct statx Status {};
    std::vector<Segment> Segments;
    std::size_t Current = 0;
    std::uint64_t Offset = 0;
    WriteState Write;

    ~Node() {
        if (Fd >= 0) {
            ::close(Fd);
        }
    }
};

Node* NodeOf(FileHandle handle) {
    return reinterpret_cast<Node*>(handle);
}

SystemError StatPath(const std::string& path, bool follow, struct statx& st) {
    const int flags = AT_STATX_SYNC_AS_STAT | (follow ? 0 : AT_SYMLINK_NOFOLLOW);
    if (::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &st) != 0) {
        return LastError();
    }
    return {};
}

SystemError StatNode(const Node& node, struct statx& st) {
    if (node.Fd >= 0) {  // also an O_PATH descriptor of a link, which it describes
        if (::statx(node.Fd, "", AT_EMPTY_PATH | AT_STATX_SYNC_AS_STAT,
                    STATX_BASIC_STATS | STATX_BTIME, &st) != 0) {
            return LastError();
        }
        return {};
    }
    return StatPath(node.Path, false, st);
}

// The extended attributes of a node other than its ACLs, sorted by name, and which of the
// two ACLs it has, so that a file without them is not asked for them.
SystemError ListAttributes(const Node& node, std::vector<std::string>& names, bool& accessAcl,
                           bool& defaultAcl) {
    names.clear();
    accessAcl = false;
    defaultAcl = false;
    char small[1024];
    std::vector<char> large;
    char* data = small;
    std::size_t size = sizeof small;
    std::size_t length = 0;
    for (;;) {
        const ssize_t got = node.Link ? ::llistxattr(node.Path.c_str(), data, size)
                                      : ::flistxattr(node.Fd, data, size);
        if (got >= 0) {
            length = static_cast<std::size_t>(got);
            break;
        }
        if (errno == ENOTSUP) {
            return {};
        }
        if (errno != ERANGE) {
            return LastError();
        }
        large.resize(size * 4);
        data = large.data();
        size = large.size();
    }
    for (std::size_t at = 0; at < length;) {
        const char* name = data + at;
        const std::size_t n = ::strnlen(name, length - at);
        at += n + 1;
        if (n == 0) {
            continue;
        }
        if (std::strcmp(name, kAclAccess) == 0) {
            accessAcl = true;
        } else if (std::strcmp(name, kAclDefault) == 0) {
            defaultAcl = true;
        } else {
            names.emplace_back(name, n);
        }
    }
    std::sort(names.begin(), names.end());
    return {};
}

// The value of one attribute; `missing` when the node has none of that name.
SystemError ReadAttribute(const Node& node, const char* name, std::vector<unsigned char>& value,
                          bool& missing) {
    missing = false;
    value.resize(256);
    for (;;) {
        const ssize_t got = node.Link
                                ? ::lgetxattr(node.Path.c_str(), name, value.data(), value.size())
                                : ::fgetxattr(node.Fd, name, value.data(), value.size());
        if (got >= 0) {
            value.resize(static_cast<std::size_t>(got));
            return {};
        }
        if (errno == ENODATA || errno == ENOTSUP) {
            missing = true;
            value.clear();
            return {};
        }
        if (errno != ERANGE) {
            return LastError();
        }
        const ssize_t need = node.Link ? ::lgetxattr(node.Path.c_str(), name, nullptr, 0)
                                       : ::fgetxattr(node.Fd, name, nullptr, 0);
        if (need < 0) {
            return LastError();
        }
        value.resize(static_cast<std::size_t>(need) + 1);
    }
}

// The data of a regular file: one data stream, or its runs as sparse blocks when it has holes.
SystemError AddData(const Node& node, std::uint64_t size, std::uint64_t allocated,
                    std::vector<Segment>& out) {
    if (size == 0) {
        return {};
    }
    // A file with storage for all its bytes has no holes to look for.
    const off_t hole = allocated >= size ? off_t(size) : ::lseek(node.Fd, 0, SEEK_HOLE);
    if (hole < 0 || std::uint64_t(hole) >= size) {
        Segment s = MakeSegment(kStreamData, 0, {}, size);
        s.FromFile = true;
        s.FileLength = size;
        out.push_back(std::move(s));
        return {};
    }
    std::uint64_t at = 0;
    while (at < size) {
        const off_t data = ::lseek(node.Fd, off_t(at), SEEK_DATA);
        if (data < 0) {
            if (errno == ENXIO) {
                break;  // only a hole is left
            }
            return LastError();
        }
        off_t end = ::lseek(node.Fd, data, SEEK_HOLE);
        if (end < 0) {
            return LastError();
        }
        end = std::min<off_t>(end, off_t(size));
        if (std::uint64_t(data) >= size) {
            break;
        }
        const std::uint64_t length = std::uint64_t(end - data);
        Segment s = MakeSegment(kStreamSparseBlock, kStreamSparseAttribute, {}, length + 8);
        s.Prefix.resize(8);
        PutU64(s.Prefix.data(), std::uint64_t(data));
        s.FromFile = true;
        s.FileOffset = std::uint64_t(data);
        s.FileLength = length;
        out.push_back(std::move(s));
        at = std::uint64_t(end);
    }
    // The length of the file, which may end in a hole.
    Segment last = MakeSegment(kStreamSparseBlock, kStreamSparseAttribute, {}, 8);
    last.Prefix.resize(8);
    PutU64(last.Prefix.data(), size);
    out.push_back(std::move(last));
    return {};
}

SystemError BuildSegments(Node& node, bool processSecurity) {
    node.Segments.clear();
    struct statx st {};
    if (node.HaveStatus) {
        st = node.Status;
        node.HaveStatus = false;
    } else if (const SystemError failure = StatNode(node, st); failure.Failed()) {
        return failure;
    }
    if (!node.Link && S_ISREG(st.stx_mode)) {
        if (const SystemError failure = AddData(node, st.stx_size, st.stx_blocks * 512, node.Segments);
            failure.Failed()) {
            return failure;
        }
    }
    if (S_ISLNK(st.stx_mode)) {
        std::string target(st.stx_size + 1, '\0');
        const ssize_t got = ::readlink(node.Path.c_str(), target.data(), target.size());
        if (got < 0) {
            return LastError();
        }
        target.resize(static_cast<std::size_t>(got));
        std::vector<unsigned char> body(12 + target.size());
        PutU32(body.data(), kReparseTagLinuxSymlink);
        PutU16(body.data() + 4, static_cast<std::uint16_t>(4 + target.size()));
        PutU32(body.data() + 8, 2);
        std::memcpy(body.data() + 12, target.data(), target.size());
        Segment s = MakeSegment(kStreamReparseData, 0, {}, body.size());
        s.Memory = std::move(body);
        node.Segments.push_back(std::move(s));
    } else if (IsSpecial(st.stx_mode)) {
        const bool device = S_ISCHR(st.stx_mode) || S_ISBLK(st.stx_mode);
        std::vector<unsigned char> body(device ? 16 : 8);
        PutU32(body.data(), TagOf(st.stx_mode));
        PutU16(body.data() + 4, static_cast<std::uint16_t>(body.size() - 8));
        if (device) {
            PutU32(body.data() + 8, st.stx_rdev_major);
            PutU32(body.data() + 12, st.stx_rdev_minor);
        }
        Segment s = MakeSegment(kStreamReparseData, 0, {}, body.size());
        s.Memory = std::move(body);
        node.Segments.push_back(std::move(s));
    }
    std::vector<std::string> names;
    bool accessAcl = false;
    bool defaultAcl = false;
    if (const SystemError failure = ListAttributes(node, names, accessAcl, defaultAcl);
        failure.Failed()) {
        return failure;
    }
    for (const std::string& name : names) {
        std::vector<unsigned char> value;
        bool missing = false;
        if (const SystemError failure = ReadAttribute(node, name.c_str(), value, missing);
            failure.Failed()) {
            return failure;
        }
        if (missing) {
            continue;  // gone since it was listed
        }
        Segment s = MakeSegment(kStreamAlternateData, 0, WideBytes(name), value.size());
        s.Memory = std::move(value);
        node.Segments.push_back(std::move(s));
    }
    if (processSecurity) {
        std::vector<unsigned char> body;
        AppendU32(body, kSecurityVersion);
        AppendU32(body, st.stx_uid);
        AppendU32(body, st.stx_gid);
        AppendU32(body, st.stx_mode & 07777);
        for (const char* acl : {kAclAccess, kAclDefault}) {
            std::vector<unsigned char> value;
            bool missing = true;
            // Only what the list named is read: only directories have a default ACL, and
            // links have none at all.
            if (acl == kAclAccess ? accessAcl : defaultAcl && S_ISDIR(st.stx_mode)) {
                if (const SystemError failure = ReadAttribute(node, acl, value, missing);
                    failure.Failed()) {
                    return failure;
                }
            }
            AppendU32(body, static_cast<std::uint32_t>(value.size()));
            body.insert(body.end(), value.begin(), value.end());
        }
        Segment s = MakeSegment(kStreamSecurity, kStreamContainsSecurity, {}, body.size());
        s.Memory = std::move(body);
        node.Segments.push_back(std::move(s));
    }
    node.Current = 0;
    node.Offset = 0;
    node.Reading = true;
    return {};
}

// Creates the regular file that a deferred restore target turned out to be.
SystemError Materialize(Node& node) {
    if (!node.Deferred) {
        return {};
    }
    constexpr int kCreate = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    int fd = ::open(node.Path.c_str(), kCreate, 0666);
    if (fd < 0 && errno == EEXIST) {
        // A file in the way is emptied; a link, device, pipe or socket is replaced, never
        // opened, so that nothing is written through it.
        struct stat st {};
        if (::lstat(node.Path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
            fd = ::open(node.Path.c_str(), O_RDWR | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        } else if (::unlink(node.Path.c_str()) == 0 || errno == ENOENT) {
            fd = ::open(node.Path.c_str(), kCreate, 0666);
        }
    }
    if (fd < 0) {
        return LastError();
    }
    node.Fd = fd;
    node.Deferred = false;
    node.Link = false;
    return {};
}

SystemError WriteAll(int fd, const unsigned char* data, std::size_t count, std::uint64_t at) {
    while (count != 0) {
        const ssize_t done = ::pwrite(fd, data, count, off_t(at));
        if (done < 0) {
            if (errno == EINTR) {
                continue;
            }
            return LastError();
        }
        data += done;
        count -= static_cast<std::size_t>(done);
        at += static_cast<std::uint64_t>(done);
    }
    return {};
}

SystemError ApplySecurity(Node& node, const std::vector<unsigned char>& body) {
    if (body.size() < 24 || GetU32(body.data()) != kSecurityVersion) {
        return {kErrorInvalidParameter, EINVAL};
    }
    const std::uint32_t uid = GetU32(body.data() + 4);
    const std::uint32_t gid = GetU32(body.data() + 8);
    const std::uint32_t mode = GetU32(body.data() + 12);
    std::size_t at = 16;
    std::vector<unsigned char> acls[2];
    for (auto& acl : acls) {
        if (body.size() - at < 4) {
            return {kErrorInvalidParameter, EINVAL};
        }
        const std::uint32_t length = GetU32(body.data() + at);
        at += 4;
        if (body.size() - at < length) {
            return {kErrorInvalidParameter, EINVAL};
        }
        acl.assign(body.begin() + long(at), body.begin() + long(at + length));
        at += length;
    }
    const bool byFd = node.Fd >= 0 && !node.Link;
    const int owned = byFd ? ::fchown(node.Fd, uid, gid) : ::lchown(node.Path.c_str(), uid, gid);
    if (owned != 0) {
        return errno == EPERM ? SystemError{kErrorInvalidOwner, EPERM} : LastError();
    }
    if (!byFd && !node.Special) {
        return {};  // a link has no mode or ACL of its own
    }
    // A special file is changed through its name: opening it could act on a device.
    const int moded = byFd ? ::fchmod(node.Fd, mode)
                           : ::fchmodat(AT_FDCWD, node.Path.c_str(), mode, 0);
    if (moded != 0) {
        return LastError();
    }
    const char* names[2] = {kAclAccess, kAclDefault};
    for (int i = 0; i < 2; ++i) {
        if (i == 1 && !node.Dir) {
            continue;  // only directories have a default ACL
        }
        if (acls[i].empty()) {
            const int removed = byFd ? ::fremovexattr(node.Fd, names[i])
                                     : ::lremovexattr(node.Path.c_str(), names[i]);
            if (removed != 0 && errno != ENODATA && errno != ENOTSUP) {
                return LastError();
            }
            continue;
        }
        const int set = byFd ? ::fsetxattr(node.Fd, names[i], acls[i].data(), acls[i].size(), 0)
                             : ::lsetxattr(node.Path.c_str(), names[i], acls[i].data(),
                                           acls[i].size(), 0);
        if (set != 0) {
            return LastError();
        }
    }
    return {};
}

// The kind of entry that a reparse body describes (0 for none of ours) and, for a device,
// its number.
mode_t SpecialKind(const std::vector<unsigned char>& body, dev_t& device) {
    device = 0;
    if (body.size() < 8) {
        return 0;
    }
    mode_t kind = 0;
    switch (GetU32(body.data())) {
        case kReparseTagLinuxCharDevice:
            kind = S_IFCHR;
            break;
        case kReparseTagLinuxBlockDevice:
            kind = S_IFBLK;
            break;
        case kReparseTagLinuxFifo:
            kind = S_IFIFO;
            break;
        case kReparseTagLinuxSocket:
            kind = S_IFSOCK;
            break;
        default:
            return 0;
    }
    const std::size_t length = GetU16(body.data() + 4);
    const bool isDevice = kind == S_IFCHR || kind == S_IFBLK;
    if (length != body.size() - 8 || length != (isDevice ? 8u : 0u)) {
        return 0;
    }
    if (isDevice) {
        device = makedev(GetU32(body.data() + 8), GetU32(body.data() + 12));
    }
    return kind;
}

SystemError ApplyReparse(Node& node, const std::vector<unsigned char>& body) {
    dev_t device = 0;
    const mode_t kind = SpecialKind(body, device);
    const bool link = body.size() >= 12 && GetU32(body.data()) == kReparseTagLinuxSymlink;
    if (!link && kind == 0) {
        return {kErrorInvalidParameter, EINVAL};
    }
    if (node.Dir) {
        return {kErrorInvalidParameter, EISDIR};
    }
    // The entry is this stream's to make: when that fails, no empty file takes its place.
    node.Deferred = false;
    if (node.Fd >= 0) {
        ::close(node.Fd);
        node.Fd = -1;
    }
    if (::unlink(node.Path.c_str()) != 0 && errno != ENOENT) {
        return LastError();
    }
    if (link) {
        const std::string target(reinterpret_cast<const char*>(body.data()) + 12,
                                 body.size() - 12);
        if (::symlink(target.c_str(), node.Path.c_str()) != 0) {
            return LastError();
        }
    } else if (::mknodat(AT_FDCWD, node.Path.c_str(), kind | 0666, device) != 0) {
        // Only a device needs the capability; its absence is named as a missing privilege,
        // not as a refused access that a change of security could cure.
        return errno == EPERM ? SystemError{kErrorPrivilegeNotHeld, EPERM} : LastError();
    }
    node.Deferred = false;
    node.Link = true;
    node.Special = !link;
    return {};
}

// A stream has been written whole: what was kept of it takes effect.
SystemError FinishStream(Node& node, bool processSecurity) {
    WriteState& w = node.Write;
    switch (w.Id) {
        case kStreamSparseBlock: {
            if (const SystemError f = Materialize(node); f.Failed()) {
                return f;
            }
            const std::uint64_t end = w.SparseOffset + (w.Size - 8);
            struct stat st {};
            if (::fstat(node.Fd, &st) != 0) {
                return LastError();
            }
            if (std::uint64_t(st.st_size) < end && ::ftruncate(node.Fd, off_t(end)) != 0) {
                return LastError();
            }
            return {};
        }
        case kStreamAlternateData: {
            if (const SystemError f = Materialize(node); f.Failed()) {
                return f;
            }
            const std::string name = NativeName(w.Name);
            const int set = node.Link ? ::lsetxattr(node.Path.c_str(), name.c_str(), w.Kept.data(),
                                                    w.Kept.size(), 0)
                                      : ::fsetxattr(node.Fd, name.c_str(), w.Kept.data(),
                                                    w.Kept.size(), 0);
            if (set != 0) {
                // A file system without that kind of attribute cannot take the stream.
                return errno == ENOTSUP ? SystemError{kErrorPathNotFound, ENOTSUP} : LastError();
            }
            return {};
        }
        case kStreamSecurity:
            if (!processSecurity) {
                return {};
            }
            if (const SystemError f = Materialize(node); f.Failed()) {
                return f;
            }
            return ApplySecurity(node, w.Kept);
        case kStreamReparseData:
            return ApplyReparse(node, w.Kept);
        case kStreamData:
            return Materialize(node);
        default:
            return {};
    }
}

bool Keeps(std::uint32_t id) {
    return id == kStreamAlternateData || id == kStreamSecurity || id == kStreamReparseData;
}

// Takes `count` bytes of the body of the stream in progress.
SystemError WriteBody(Node& node, const unsigned char* data, std::size_t count) {
    WriteState& w = node.Write;
    if (w.Id == kStreamData) {
        if (node.Dir) {
            return {};
        }
        if (const SystemError f = Materialize(node); f.Failed()) {
            return f;
        }
        return WriteAll(node.Fd, data, count, w.BodyGot);
    }
    if (w.Id == kStreamSparseBlock) {
        std::size_t taken = 0;
        while (w.BodyGot + taken < 8 && taken < count) {
            w.Offset[w.BodyGot + taken] = data[taken];
            ++taken;
        }
        if (w.BodyGot + taken == 8 && w.BodyGot < 8) {
            w.SparseOffset = GetU64(w.Offset);
        }
        if (taken == count || node.Dir) {
            return {};
        }
        if (const SystemError f = Materialize(node); f.Failed()) {
            return f;
        }
        const std::uint64_t at = w.SparseOffset + (w.BodyGot + taken - 8);
        return WriteAll(node.Fd, data + taken, count - taken, at);
    }
    if (Keeps(w.Id)) {
        w.Kept.insert(w.Kept.end(), data, data + count);
    }
    return {};
}

class LinuxBackupSource final : public BackupSource {
public:
    SystemError GetAttributes(const std::u16string& path, BackupFileInfo& info) override {
        struct statx st {};
        if (const SystemError f = StatPath(NativePath(path), false, st); f.Failed()) {
            return f;
        }
        FillInfo(st, info);
        return {};
    }

    SystemError SetAttributes(const std::u16string& path, std::uint32_t attributes) override {
        const std::string native = NativePath(path);
        struct stat st {};
        if (::lstat(native.c_str(), &st) != 0) {
            return LastError();
        }
        if ((attributes & kBackupAttrReadOnly) == 0 && (st.st_mode & 0222) == 0 &&
            !S_ISLNK(st.st_mode) && ::chmod(native.c_str(), (st.st_mode & 07777) | S_IWUSR) != 0) {
            return LastError();
        }
        return {};
    }

    SystemError Open(const std::u16string& path, std::uint32_t access,
                     FileDisposition disposition, std::uint32_t flags, std::uint32_t attributes,
                     FileHandle& handle) override {
        handle = kNoHandle;
        auto node = std::make_unique<Node>();
        node->Path = NativePath(path);
        const bool follow = (flags & kFlagOpenReparsePoint) == 0;
        const bool writes = (access & kGenericWrite) != 0;
        if (!writes) {
            // Reading, or setting times: directories and links open as themselves. What the
            // caller saw as a reparse point is opened as a name only, so that a device is
            // never opened; a link followed to a file or directory is then opened again
            // through that name to read it.
            const bool nameOnly = (attributes & kBackupAttrReparsePoint) != 0;
            int fd = -1;
            if (!nameOnly) {
                fd = ::open(node->Path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY |
                                                    (follow ? 0 : O_NOFOLLOW));
            }
            if (nameOnly || (fd < 0 && (errno == ELOOP || errno == ENXIO))) {
                fd = ::open(node->Path.c_str(), O_PATH | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW));
                node->Link = true;
            }
            if (fd < 0) {
                return LastError();
            }
            node->Fd = fd;
            struct statx& st = node->Status;
            if (::statx(fd, "", AT_EMPTY_PATH | AT_STATX_SYNC_AS_STAT,
                        STATX_BASIC_STATS | STATX_BTIME, &st) != 0) {
                return LastError();
            }
            if (node->Link && (S_ISREG(st.stx_mode) || S_ISDIR(st.stx_mode))) {
                const std::string self = "/proc/self/fd/" + std::to_string(fd);
                const int data = ::open(self.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
                if (data < 0) {
                    return LastError();
                }
                ::close(fd);
                node->Fd = data;
                node->Link = false;
            }
            node->HaveStatus = true;
            node->Dir = S_ISDIR(st.stx_mode);
            node->Special = IsSpecial(st.stx_mode);
            if (!node->Link && !node->Dir && !S_ISREG(st.stx_mode)) {
                node->Link = true;  // devices and pipes: no data is read from them
            }
        } else if ((attributes & kBackupAttrDirectory) != 0) {
            const int fd = ::open(node->Path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC |
                                                          (follow ? 0 : O_NOFOLLOW));
            if (fd < 0) {
                return LastError();
            }
            node->Fd = fd;
            node->Dir = true;
        } else if (disposition == FileDisposition::CreateAlways &&
                   (attributes & kBackupAttrReparsePoint) == 0) {
            // A new file needs no look first: creating it finds out what stands in the way.
            node->Deferred = true;
            if (const SystemError f = Materialize(*node); f.Failed()) {
                return f;
            }
        } else {
            struct stat st {};
            const bool exists = ::lstat(node->Path.c_str(), &st) == 0;
            if (!exists && errno != ENOENT) {
                return LastError();
            }
            if (exists && disposition == FileDisposition::CreateNew) {
                return FromErrno(EEXIST);
            }
            if (!exists && disposition == FileDisposition::OpenExisting) {
                return FromErrno(ENOENT);
            }
            if (exists && S_ISDIR(st.st_mode)) {
                return FromErrno(EISDIR);
            }
            const bool replaces = disposition == FileDisposition::CreateAlways || !exists;
            if (replaces && (attributes & kBackupAttrReparsePoint) != 0) {
                node->Deferred = true;  // the reparse stream makes the link
            } else if (exists && !S_ISREG(st.st_mode) && !replaces) {
                // A link, device, pipe or socket that is kept is never opened for writing.
                node->Link = true;
                node->Special = IsSpecial(st.st_mode);
            } else {
                node->Deferred = true;
                if (!replaces) {
                    const int fd =
                        ::open(node->Path.c_str(), O_RDWR | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW));
                    if (fd < 0) {
                        return LastError();
                    }
                    node->Fd = fd;
                    node->Deferred = false;
                } else if (const SystemError f = Materialize(*node); f.Failed()) {
                    return f;
                }
            }
        }
        handle = reinterpret_cast<FileHandle>(node.release());
        return {};
    }

    SystemError Close(FileHandle handle) override {
        delete NodeOf(handle);
        return {};
    }

    SystemError HandleInfo(FileHandle handle, BackupFileInfo& info) override {
        struct statx st {};
        if (const SystemError f = StatNode(*NodeOf(handle), st); f.Failed()) {
            return f;
        }
        FillInfo(st, info);
        return {};
    }

    SystemError ReparseTag(FileHandle handle, std::uint32_t& tag) override {
        Node& node = *NodeOf(handle);
        struct statx st {};
        if (!node.Link || StatNode(node, st).Failed() || TagOf(st.stx_mode) == 0) {
            return {kErrorNotAReparsePoint, EINVAL};
        }
        tag = TagOf(st.stx_mode);
        return {};
    }

    SystemError BackupRead(FileHandle handle, void* buffer, std::size_t count, std::size_t& read,
                           bool processSecurity) override {
        read = 0;
        Node& node = *NodeOf(handle);
        if (!node.Reading) {
            if (const SystemError f = BuildSegments(node, processSecurity); f.Failed()) {
                return f;
            }
        }
        auto* out = static_cast<unsigned char*>(buffer);
        while (read < count && node.Current < node.Segments.size()) {
            const Segment& s = node.Segments[node.Current];
            if (node.Offset == s.Total()) {
                ++node.Current;
                node.Offset = 0;
                continue;
            }
            std::uint64_t at = node.Offset;
            const std::size_t want = count - read;
            std::size_t got = 0;
            if (at < kStreamHeaderSize) {
                got = std::min<std::size_t>(want, kStreamHeaderSize - at);
                std::memcpy(out + read, s.Header + at, got);
            } else if ((at -= kStreamHeaderSize) < s.Name.size()) {
                got = std::min<std::size_t>(want, s.Name.size() - at);
                std::memcpy(out + read, s.Name.data() + at, got);
            } else if ((at -= s.Name.size()) < s.Prefix.size()) {
                got = std::min<std::size_t>(want, s.Prefix.size() - at);
                std::memcpy(out + read, s.Prefix.data() + at, got);
            } else {
                at -= s.Prefix.size();
                if (!s.FromFile) {
                    got = std::min<std::size_t>(want, s.Memory.size() - at);
                    std::memcpy(out + read, s.Memory.data() + at, got);
                } else {
                    const std::size_t ask =
                        static_cast<std::size_t>(std::min<std::uint64_t>(want, s.FileLength - at));
                    const ssize_t done = ::pread(node.Fd, out + read, ask, off_t(s.FileOffset + at));
                    if (done < 0) {
                        if (errno == EINTR) {
                            continue;
                        }
                        return LastError();
                    }
                    if (done == 0) {
                        return {38, 0};  // the file became shorter while it was read
                    }
                    got = static_cast<std::size_t>(done);
                }
            }
            read += got;
            node.Offset += got;
        }
        return {};
    }

    SystemError BackupSeek(FileHandle handle, std::uint64_t count, std::uint64_t& moved) override {
        moved = 0;
        Node& node = *NodeOf(handle);
        if (!node.Reading || node.Current >= node.Segments.size()) {
            return {};
        }
        const Segment& s = node.Segments[node.Current];
        const std::uint64_t bodyStart = kStreamHeaderSize + s.Name.size();
        if (node.Offset < bodyStart) {
            return {};
        }
        moved = std::min<std::uint64_t>(count, s.Total() - node.Offset);
        node.Offset += moved;
        return {};
    }

    SystemError BackupWrite(FileHandle handle, const void* buffer, std::size_t count,
                            std::size_t& written, bool processSecurity) override {
        written = 0;
        Node& node = *NodeOf(handle);
        WriteState& w = node.Write;
        const auto* in = static_cast<const unsigned char*>(buffer);
        if (w.PendingFinish) {
            if (const SystemError f = FinishStream(node, processSecurity); f.Failed()) {
                return f;
            }
            w.PendingFinish = false;
        }
        while (written < count) {
            if (w.HeaderGot < kStreamHeaderSize) {
                const std::size_t take =
                    std::min<std::size_t>(count - written, kStreamHeaderSize - w.HeaderGot);
                std::memcpy(w.Header + w.HeaderGot, in + written, take);
                w.HeaderGot += take;
                written += take;
                if (w.HeaderGot < kStreamHeaderSize) {
                    break;
                }
                w.Id = GetU32(w.Header);
                w.Size = GetU64(w.Header + 8);
                w.NameSize = GetU32(w.Header + 16);
                w.Name.clear();
                w.Kept.clear();
                w.BodyGot = 0;
                w.Active = true;
                if (w.Id < kStreamData || w.Id > kStreamSparseBlock ||
                    (w.Id == kStreamSparseBlock && w.Size < 8) || w.NameSize > kLargestKeptBody ||
                    (Keeps(w.Id) && w.Size > kLargestKeptBody)) {
                    return {kErrorInvalidParameter, EINVAL};
                }
            }
            if (w.Name.size() < w.NameSize) {
                const std::size_t take = static_cast<std::size_t>(
                    std::min<std::uint64_t>(count - written, w.NameSize - w.Name.size()));
                w.Name.insert(w.Name.end(), in + written, in + written + take);
                written += take;
                if (w.Name.size() < w.NameSize) {
                    break;
                }
            }
            const std::size_t take = static_cast<std::size_t>(
                std::min<std::uint64_t>(count - written, w.Size - w.BodyGot));
            if (take != 0) {
                if (const SystemError f = WriteBody(node, in + written, take); f.Failed()) {
                    return f;
                }
                w.BodyGot += take;
                written += take;
            }
            if (w.BodyGot == w.Size) {
                w.HeaderGot = 0;
                w.Active = false;
                if (const SystemError f = FinishStream(node, processSecurity); f.Failed()) {
                    w.PendingFinish = true;
                    return f;
                }
            }
        }
        return {};
    }

    SystemError BackupEnd(FileHandle handle) override {
        Node& node = *NodeOf(handle);
        node.Reading = false;
        node.Segments.clear();
        const bool cut = node.Write.Active || node.Write.HeaderGot != 0;
        node.Write = WriteState{};
        if (cut) {
            return {kErrorInvalidParameter, EINVAL};  // the last stream was never finished
        }
        // A target that no stream has made is an empty file.
        return Materialize(node);
    }

    SystemError ReadFile(FileHandle handle, void* buffer, std::size_t count,
                         std::size_t& read) override {
        read = 0;
        for (;;) {
            const ssize_t done = ::read(NodeOf(handle)->Fd, buffer, count);
            if (done >= 0) {
                read = static_cast<std::size_t>(done);
                return {};
            }
            if (errno != EINTR) {
                return LastError();
            }
        }
    }

    SystemError WriteFile(FileHandle handle, const void* buffer, std::size_t count,
                          std::size_t& written) override {
        written = 0;
        Node& node = *NodeOf(handle);
        if (const SystemError f = Materialize(node); f.Failed()) {
            return f;
        }
        for (;;) {
            const ssize_t done = ::write(node.Fd, buffer, count);
            if (done >= 0) {
                written = static_cast<std::size_t>(done);
                return {};
            }
            if (errno != EINTR) {
                return LastError();
            }
        }
    }

    SystemError GetTimes(FileHandle handle, std::uint64_t& creation, std::uint64_t& write) override {
        struct statx st {};
        if (const SystemError f = StatNode(*NodeOf(handle), st); f.Failed()) {
            return f;
        }
        creation = (st.stx_mask & STATX_BTIME) != 0 ? FileTime(st.stx_btime) : 0;
        write = FileTime(st.stx_mtime);
        return {};
    }

    SystemError SetTimes(FileHandle handle, std::uint64_t, std::uint64_t write) override {
        // Linux keeps the birth time itself: it cannot be set, and is left as it is.
        Node& node = *NodeOf(handle);
        if (write == 0) {
            return {};
        }
        const timespec times[2] = {timespec{0, UTIME_OMIT}, UnixTimeFromFileTime(write)};
        const int set = node.Fd >= 0 && !node.Link
                            ? ::futimens(node.Fd, times)
                            : ::utimensat(AT_FDCWD, node.Path.c_str(), times, AT_SYMLINK_NOFOLLOW);
        if (set != 0) {
            return LastError();
        }
        return {};
    }

    SystemError SetCompression(FileHandle handle, bool on) override {
        Node& node = *NodeOf(handle);
        if (!on) {
            return {};  // files are created uncompressed
        }
        if (node.Fd < 0 || node.Link) {
            return {kErrorNotSupported, EOPNOTSUPP};
        }
        int flags = 0;
        if (::ioctl(node.Fd, FS_IOC_GETFLAGS, &flags) != 0) {
            return errno == ENOTTY ? SystemError{kErrorNotSupported, ENOTTY} : LastError();
        }
        flags |= FS_COMPR_FL;
        if (::ioctl(node.Fd, FS_IOC_SETFLAGS, &flags) != 0) {
            return errno == ENOTTY ? SystemError{kErrorNotSupported, ENOTTY} : LastError();
        }
        return {};
    }

    SystemError CreateDirectory(const std::u16string& path) override {
        if (::mkdir(NativePath(path).c_str(), 0777) != 0) {
            return LastError();
        }
        return {};
    }

    // Linux files have no encryption of this kind: nothing is ever encrypted, and the raw
    // form cannot be read or written.
    SystemError Decrypt(const std::u16string&) override { return {kErrorNotSupported, 0}; }
    SystemError OpenEncryptedRaw(const std::u16string&, std::uint32_t,
                                 EncryptedContext& context) override {
        context = nullptr;
        return {kErrorNotSupported, 0};
    }
    SystemError ReadEncryptedRaw(EncryptedContext, EncryptedRawCallback&) override {
        return {kErrorNotSupported, 0};
    }
    SystemError WriteEncryptedRaw(EncryptedContext, EncryptedRawCallback&) override {
        return {kErrorNotSupported, 0};
    }
    void CloseEncryptedRaw(EncryptedContext) override {}

    // A privilege is held when the thread has the capabilities that stand for it in its
    // effective set.
    SystemError EnablePrivilege(const char* name, const char*& function) override {
        std::uint64_t wanted = 0;
        const std::string n = name;
        if (n == "SeBackupPrivilege") {
            wanted = 1ull << CAP_DAC_READ_SEARCH;
        } else if (n == "SeRestorePrivilege") {
            wanted = 1ull << CAP_CHOWN;
        } else if (n == "SeSecurityPrivilege") {
            wanted = 1ull << CAP_FOWNER;
        } else {
            function = "LookupPrivilegeValue";
            return {kErrorNoSuchPrivilege, 0};
        }
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2] = {};
        if (::syscall(SYS_capget, &header, data) != 0) {
            function = "OpenThreadToken";
            return LastError();
        }
        const std::uint64_t effective =
            std::uint64_t(data[0].effective) | std::uint64_t(data[1].effective) << 32;
        if ((effective & wanted) != wanted) {
            function = "AdjustTokenPrivileges";
            return {kErrorNotAllAssigned, EPERM};
        }
        return {};
    }
};

}  // namespace

BackupSource& SystemBackupSource() {
    static LinuxBackupSource source;
    return source;
}

}  // namespace Platform
