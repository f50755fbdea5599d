#include "file/nt_dir.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <tessel_link/common/messages.h>
#include <tessel_link/file/usn_journal.h>

#include "common/byte_escapes.h"
#include "file/backup_stream.h"
#include "file/change_notification.h"
#include "file/dir_iterator.h"
#include "file/roots.h"
#include "file/system_error.h"
#include "file/system_file.h"

namespace File {

// Names ----------------------------------------------------------------------------------

std::u16string NativeNameToWide(std::string_view name) {
    std::u16string out;
    WidenNativeName(name, out);
    return out;
}

void WidenNativeName(std::string_view name, std::u16string& out) {
    Common::Detail::WidenBytesEscapingNonUtf8(name, out);
}

std::string WideNameToNative(std::u16string_view name) {
    return Common::Detail::NarrowToBytesWithEscapes(name);
}

// The directory ----------------------------------------------------------------------------

namespace {

bool HasWildcards(std::u16string_view name) {
    return name.find_first_of(u"*?") != std::u16string_view::npos;
}

std::u16string WithSlash(std::u16string path) {
    if (path.empty() || path.back() != u'/') {
        path.push_back(u'/');
    }
    return path;
}

// The name of the last component of a directory path ending in '/'.
std::u16string LeafOf(const std::u16string& path) {
    if (path == u"/") {
        return path;
    }
    const std::size_t end = path.size() - 1;
    const std::size_t slash = path.rfind(u'/', end - 1);
    return slash == std::u16string::npos ? path.substr(0, end)
                                         : path.substr(slash + 1, end - slash - 1);
}

}  // namespace

nt_dir::nt_dir(SharedDirIo io, Platform::DirHandle handle, std::u16string path,
               std::shared_ptr<SubstToken> token)
    : dir_watch(SystemNotifications()),
      base_(std::move(io)),
      token_(std::move(token)),
      io_(ActingAs(base_, token_)),
      handle_(handle),
      path_(std::move(path)) {}

void nt_dir::SetToken(std::shared_ptr<SubstToken> token) {
    token_ = std::move(token);
    io_ = ActingAs(base_, token_);
}

nt_dir::~nt_dir() {
    // The watch ends before the members go, so that no callback meets a half-destroyed object.
    if (NotificationToken() != 0) {
        (void)EnableWatch(*this, path_, nullptr);
    }
    if (handle_ >= 0) {
        io_->CloseDir(handle_);
    }
}

bool nt_dir::EnableNotification(dir_notification* callback) {
    const Common::Error error = EnableWatch(*this, path_, callback);
    if (error.Failed()) {
        SetError(error);
        return false;
    }
    if (callback == nullptr) {
        ClearError();
    }
    return true;
}

void nt_dir::ContinueNotification() {
    ContinueWatch();
}

std::unique_ptr<nt_dir> nt_dir::Open(SharedDirIo io, const std::u16string& path,
                                     const std::shared_ptr<SubstToken>& token,
                                     Common::Error& error) {
    if (path.empty()) {
        error = Common::ErrorSuccess;
        return CreateRootDir(std::move(io), token);
    }
    Platform::DirHandle handle = Platform::kNoDir;
    const Platform::SystemError failure =
        ActingAs(io, token)->OpenDir(Platform::kAtCurrent, WideNameToNative(path), handle);
    if (failure.Failed()) {
        error = MakeSystemError(TL_ORIGIN("nt_dir::OpenDir"), "openat", path.c_str(), failure,
                                kOpenFailed);
        return nullptr;
    }
    error = Common::ErrorSuccess;
    return std::make_unique<nt_dir>(std::move(io), handle, WithSlash(path), token);
}

std::unique_ptr<nt_dir> CreateRootDir(Platform::DirIo& io) {
    return CreateRootDir(Unowned(io), nullptr);
}

std::unique_ptr<nt_dir> CreateRootDir(SharedDirIo io, std::shared_ptr<SubstToken> token) {
    return std::make_unique<nt_dir>(std::move(io), Platform::kAtCurrent, std::u16string(),
                                    std::move(token));
}

bool nt_dir::Fail(const char* function, const char* call, const std::u16string& path,
                  const Platform::SystemError& failure, FileErrorCode fallback) {
    SetError(MakeSystemError(TL_ORIGIN(function), call, path.c_str(), failure, fallback));
    return false;
}

bool nt_dir::Resolve(const char16_t* name, const char* function, Target& target) {
    if (name == nullptr) {
        SetError(MakeFileError(TL_ORIGIN(function), kOpenFailed));
        return false;
    }
    const std::u16string_view text(name);
    target.Name = WideNameToNative(text);
    if (!text.empty() && text[0] == u'/') {
        target.At = Platform::kAtCurrent;
        target.Path = std::u16string(text);
    } else {
        target.At = handle_;
        target.Path = path_ + std::u16string(text);
    }
    return true;
}

bool nt_dir::Resolve(const file_identifier& id, const char* function, Target& target) {
    const auto* known = dynamic_cast<const the_identifier*>(&id);
    if (known == nullptr) {
        SetError(MakeFileError(TL_ORIGIN(function), kOpenFailed));
        return false;
    }
    const std::u16string name(known->Name());
    if (!Resolve(name.c_str(), function, target)) {
        return false;
    }
    // The identifiers of this directory's entries carry the system's bytes of the name.
    if (known->BlobSize() != 0 && name.find(u'/') == std::u16string::npos) {
        target.Name.assign(reinterpret_cast<const char*>(known->Blob()), known->BlobSize());
        if (!target.Name.empty() && target.Name.back() == '\0') {
            target.Name.pop_back();
        }
    }
    return true;
}

bool nt_dir::Resolve(iterator& position, const char* function, Target& target) {
    if (auto* ours = dynamic_cast<nt_dir_iterator*>(&position)) {
        if (ours->Failed() || !ours->HasEntry() || ours->Directory() == Platform::kNoDir) {
            SetError(MakeFileError(TL_ORIGIN(function), kOpenFailed));
            return false;
        }
        target.At = ours->Directory();
        target.Name = std::string(ours->NativeName());
        if (target.Name.empty()) {
            target.Name.push_back('.');  // the iterator that stands on its directory
        }
        target.Path = ours->GetFullPath();
        return true;
    }
    return Resolve(position.GetName(), function, target);
}

rio_file* nt_dir::OpenFileAt(const Target& target, Platform::FileAccess access,
                             Platform::FileDisposition disposition, bool followLinks,
                             const char* function, FileErrorCode fallback) {
    Platform::FileHandle file = Platform::kNoHandle;
    const Platform::SystemError failure =
        io_->OpenFile(target.At, target.Name, access, disposition, followLinks, false, file);
    if (failure.Failed()) {
        Fail(function, "openat", target.Path, failure, fallback);
        return nullptr;
    }
    return new system_file(Platform::SystemFileIo(), file, target.Path, token_);
}

rio_dir* nt_dir::OpenDirAt(const Target& target, const char* function) {
    Platform::DirHandle handle = Platform::kNoDir;
    const Platform::SystemError failure = io_->OpenDir(target.At, target.Name, handle);
    if (failure.Failed()) {
        Fail(function, "openat", target.Path, failure, kOpenFailed);
        return nullptr;
    }
    std::u16string path = target.Path;
    if (target.Name == "." && target.At == handle_) {
        path = path_;
    }
    if (path.empty()) {
        path = u"./";
    }
    return new nt_dir(base_, handle, WithSlash(std::move(path)), token_);
}

// Opens ------------------------------------------------------------------------------------

rio_file* nt_dir::OpenNoCacheAt(const Target& target, open_mode mode) {
    const OpenRule rule = RuleOf(mode);
    Platform::FileHandle file = Platform::kNoHandle;
    const Platform::SystemError failure =
        io_->OpenFile(target.At, target.Name, rule.Access, rule.Disposition, true, true, file);
    if (failure.Failed()) {
        Fail("nt_dir::OpenNoCache", "openat", target.Path, failure, rule.Fallback);
        return nullptr;
    }
    return MakeNoCacheFile(Platform::SystemFileIo(), file, target.Path, token_).release();
}

rio_file* nt_dir::OpenNoCache(const char16_t* name, open_mode mode) {
    Target t;
    return Resolve(name, "nt_dir::OpenNoCache", t) ? OpenNoCacheAt(t, mode) : nullptr;
}

rio_file* nt_dir::OpenNoCache(const file_identifier& id, open_mode mode) {
    Target t;
    return Resolve(id, "nt_dir::OpenNoCache", t) ? OpenNoCacheAt(t, mode) : nullptr;
}

rio_file* nt_dir::OpenI(const file_identifier& id) {
    Target t;
    return Resolve(id, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::Read, Platform::FileDisposition::OpenExisting,
                            true, "nt_dir::OpenFile", kOpenFailed)
               : nullptr;
}

rio_file* nt_dir::OpenI(iterator& position) {
    Target t;
    return Resolve(position, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::Read, Platform::FileDisposition::OpenExisting,
                            true, "nt_dir::OpenFile", kOpenFailed)
               : nullptr;
}

rio_file* nt_dir::OpenI(const char16_t* name, std::uint32_t) {
    Target t;
    return Resolve(name, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::Read, Platform::FileDisposition::OpenExisting,
                            true, "nt_dir::OpenFile", kOpenFailed)
               : nullptr;
}

rio_file* nt_dir::OpenO(const file_identifier& id) {
    Target t;
    return Resolve(id, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::ReadWrite,
                            Platform::FileDisposition::OpenExisting, true, "nt_dir::OpenFile",
                            kOpenFailed)
               : nullptr;
}

rio_file* nt_dir::OpenO(i_dir::iterator& position) {
    Target t;
    return Resolve(position, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::ReadWrite,
                            Platform::FileDisposition::OpenExisting, true, "nt_dir::OpenFile",
                            kOpenFailed)
               : nullptr;
}

rio_file* nt_dir::OpenO(const char16_t* name, std::uint32_t) {
    Target t;
    return Resolve(name, "nt_dir::OpenFile", t)
               ? OpenFileAt(t, Platform::FileAccess::ReadWrite,
                            Platform::FileDisposition::CreateAlways, true, "nt_dir::OpenFile",
                            kCreateFailed)
               : nullptr;
}

rio_file* nt_dir::OpenRIO(const file_identifier& id) {
    return OpenO(id);
}

rio_file* nt_dir::OpenRIO(iterator& position) {
    return OpenO(position);
}

rio_file* nt_dir::OpenRIO(const char16_t* name, std::uint32_t flags) {
    return OpenO(name, flags);  // "create always", as every open by name for writing
}

rio_file* nt_dir::CreateRIO(const char16_t* name, std::uint32_t flags) {
    return OpenO(name, flags);
}

rio_dir* nt_dir::OpenDir(const file_identifier& id) {
    Target t;
    return Resolve(id, "nt_dir::OpenDir", t) ? OpenDirAt(t, "nt_dir::OpenDir") : nullptr;
}

rio_dir* nt_dir::OpenDir(iterator& position) {
    Target t;
    return Resolve(position, "nt_dir::OpenDir", t) ? OpenDirAt(t, "nt_dir::OpenDir") : nullptr;
}

rio_dir* nt_dir::OpenDir(const char16_t* name) {
    Target t;
    if (!Resolve(name, "nt_dir::OpenDir", t)) {
        return nullptr;
    }
    if (t.Name.empty()) {
        t.Name.push_back('.');
    }
    return OpenDirAt(t, "nt_dir::OpenDir");
}

o_dir* nt_dir::OpenDirO(const file_identifier& id) {
    return OpenDir(id);
}

rio_dir* nt_dir::OpenPath(const char16_t*& path) {
    if (path == nullptr) {
        SetError(MakeFileError(TL_ORIGIN("nt_dir::OpenPath"), kOpenFailed));
        return nullptr;
    }
    const std::u16string_view text(path);
    const std::size_t slash = text.rfind(u'/');
    if (slash == std::u16string_view::npos) {
        // The leaf is in this directory. The root has no descriptor of its own to open
        // again (".": the working directory): it hands out another root.
        return IsRoot() ? CreateRootDir(base_, token_).release() : OpenDir(u".");
    }
    const std::u16string directory(text.substr(0, slash == 0 ? 1 : slash));
    rio_dir* result = OpenDir(directory.c_str());
    if (result != nullptr) {
        path += slash + 1;
    }
    return result;
}

i_dir* nt_dir::OpenSpecialDir(std::uint32_t selector) {
    Platform::SpecialPlace place;
    const char* call = nullptr;
    switch (selector) {
        case special_top:
            return CreateRootDir(base_, token_).release();
        case special_temporary:
            place = Platform::SpecialPlace::Temporary;
            call = "TMPDIR";
            break;
        case special_current:
            place = Platform::SpecialPlace::Current;
            call = "getcwd";
            break;
        case special_home:
            place = Platform::SpecialPlace::Home;
            call = "getpwuid_r";
            break;
        default:
            SetError(MakeFileError(TL_ORIGIN("nt_dir::OpenSpecialDir"), kNotSupported));
            return nullptr;
    }
    std::string native;
    const Platform::SystemError failure = io_->PlacePath(place, native);
    if (failure.Failed()) {
        Fail("nt_dir::OpenSpecialDir", call, u"", failure, kOpenFailed);
        return nullptr;
    }
    const std::u16string path = NativeNameToWide(native);
    Target t;
    Resolve(path.c_str(), "nt_dir::OpenSpecialDir", t);
    t.At = Platform::kAtCurrent;
    Platform::DirHandle handle = Platform::kNoDir;
    const Platform::SystemError opened = io_->OpenDir(t.At, t.Name, handle);
    if (opened.Failed()) {
        // A place that can't be reached is an open failure, whatever the system's reason.
        Common::Error error = Common::Error::WithFunctionAndPath(
            TL_ORIGIN("nt_dir::OpenSpecialDir"), kOpenFailed.Code,
            Common::GetMessageRow(kOpenFailed.Row), "openat", path.c_str());
        error.AddCause(MakeSystemError(TL_ORIGIN("nt_dir::OpenSpecialDir"), "openat",
                                       path.c_str(), opened, kOpenFailed));
        SetError(error);
        return nullptr;
    }
    return new nt_dir(base_, handle, WithSlash(path), token_);
}

// Iterators --------------------------------------------------------------------------------

i_dir::iterator* nt_dir::IteratorAt(const Target& target, bool pattern) {
    // The directory part of the name, up to its last '/', and the leaf.
    const std::size_t slash = target.Name.rfind('/');
    std::string directory = ".";
    std::string leaf = target.Name;
    std::u16string dirPath = path_;
    if (slash != std::string::npos) {
        directory = target.Name.substr(0, slash == 0 ? 1 : slash);
        leaf = target.Name.substr(slash + 1);
        const std::u16string wide = NativeNameToWide(target.Name.substr(0, slash + 1));
        dirPath = target.At == Platform::kAtCurrent ? wide : path_ + wide;
    }
    auto* it = new nt_dir_iterator(io_);
    if (pattern) {
        it->Start(target.At, directory, dirPath, NativeNameToWide(leaf));
    } else {
        it->StartAt(target.At, directory, dirPath, leaf);
    }
    return it;
}

i_dir::iterator* nt_dir::GetIterator(const file_identifier& id) {
    Target t;
    return Resolve(id, "nt_dir::GetIterator", t) ? IteratorAt(t, false) : nullptr;
}

i_dir::iterator* nt_dir::GetIterator(const char16_t* name) {
    Target t;
    if (!Resolve(name, "nt_dir::GetIterator", t)) {
        return nullptr;
    }
    if (IsRoot()) {
        if (*name == u'\0') {
            return new root_iterator;  // the top itself, not the working directory
        }
        // At the top, the name of a mount point stands on that mount.
        auto mounts = std::make_unique<mount_iterator>(*io_);
        if (mounts->Find(name)) {
            return mounts.release();
        }
    }
    const std::u16string_view text(name);
    const std::size_t slash = text.rfind(u'/');
    const std::u16string_view leaf =
        slash == std::u16string_view::npos ? text : text.substr(slash + 1);
    return IteratorAt(t, leaf.empty() || HasWildcards(leaf));
}

i_dir::iterator* nt_dir::GetIterator() {
    if (IsRoot()) {
        return new mount_iterator(*io_);
    }
    auto* it = new nt_dir_iterator(io_);
    it->Start(handle_, ".", path_, std::u16string());
    return it;
}

i_dir::iterator* nt_dir::GetSelfIterator() {
    if (IsRoot()) {
        return new root_iterator;
    }
    // The root of a mount has no parent on its own device, or is its own parent.
    Platform::EntryStatus self, parent;
    bool volume = false;
    if (!io_->Status(handle_, "", true, self).Failed() &&
        !io_->Status(handle_, "..", true, parent).Failed()) {
        volume = self.Device() != parent.Device() || self.Inode() == parent.Inode();
    }
    auto* it = new nt_dir_iterator(io_);
    it->StartSelf(handle_, ".", path_, LeafOf(path_), volume);
    return it;
}

file_identifier* nt_dir::GetIdentifier() {
    return new the_identifier(path_, nullptr, 0);
}

int nt_dir::Compare(i_dir& other) {
    if (&other == this) {
        return 0;
    }
    const auto* dir = dynamic_cast<const nt_dir*>(&other);
    if (dir == nullptr) {
        return 2;
    }
    if (dir->path_.size() < path_.size() || dir->path_.compare(0, path_.size(), path_) != 0) {
        return 2;
    }
    return dir->path_.size() == path_.size() ? 0 : 1;
}

int nt_dir::Compare(const file_identifier& a, const file_identifier& b) {
    const auto* x = dynamic_cast<const the_identifier*>(&a);
    const auto* y = dynamic_cast<const the_identifier*>(&b);
    if (x == nullptr || y == nullptr) {
        return 1;
    }
    return x->Name() == y->Name() ? 0 : 1;
}

// Volumes ----------------------------------------------------------------------------------

bool nt_dir::FindOwnMount(MountPoint& mount, const char* function) {
    Platform::EntryStatus self;
    Platform::SystemError failure = io_->Status(handle_, "", true, self);
    if (failure.Failed()) {
        return Fail(function, "fstatat", path_, failure, kOpenFailed);
    }
    std::string table;
    failure = io_->ReadMountTable(table);
    if (failure.Failed()) {
        return Fail(function, "mountinfo", u"/proc/self/mountinfo", failure, kOpenFailed);
    }
    const std::vector<MountPoint> mounts = ParseMountTable(table);
    const MountPoint* found = FindMount(mounts, self.Device(), WideNameToNative(path_));
    if (found == nullptr) {
        return Fail(function, "mountinfo", path_, Platform::SystemError{2, 0}, kOpenFailed);
    }
    mount = *found;
    return true;
}

std::uint32_t nt_dir::GetDriveType() {
    if (IsRoot()) {
        return drive_unknown;
    }
    MountPoint mount;
    return FindOwnMount(mount, "nt_dir::GetDriveType") ? DriveClassOf(mount) : drive_unknown;
}

bool nt_dir::GetDriveSize(std::uint64_t& total, std::uint64_t& free, std::uint64_t& available) {
    total = free = available = 0;
    if (IsRoot()) {
        return i_dir::GetDriveSize(total, free, available);
    }
    Platform::VolumeSpace space;
    const Platform::SystemError failure = io_->Space(handle_, space);
    if (failure.Failed()) {
        return Fail("nt_dir::GetDriveSize", "fstatvfs", path_, failure, kReadFailed);
    }
    total = space.Total;
    free = space.Free;
    available = space.Available;
    return true;
}

// Changes ----------------------------------------------------------------------------------

bool nt_dir::Remove(const char16_t* name) {
    Target t;
    if (!Resolve(name, "nt_dir::Remove", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->Unlink(t.At, t.Name, false);
    return failure.Failed() ? Fail("nt_dir::Remove", "unlinkat", t.Path, failure, kDeleteFailed)
                            : true;
}

bool nt_dir::RemoveDir(const char16_t* name) {
    Target t;
    if (!Resolve(name, "nt_dir::RemoveDir", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->Unlink(t.At, t.Name, true);
    return failure.Failed() ? Fail("nt_dir::RemoveDir", "unlinkat", t.Path, failure, kDeleteFailed)
                            : true;
}

bool nt_dir::Rename(const char16_t* from, const char16_t* to) {
    Target a, b;
    if (!Resolve(from, "nt_dir::Rename", a) || !Resolve(to, "nt_dir::Rename", b)) {
        return false;
    }
    const Platform::SystemError failure = io_->Rename(a.At, a.Name, b.At, b.Name);
    return failure.Failed() ? Fail("nt_dir::Rename", "renameat", a.Path, failure, kRenameFailed)
                            : true;
}

bool nt_dir::CreateHardLink(const char16_t* existing, const char16_t* link) {
    Target a, b;
    if (!Resolve(existing, "nt_dir::CreateHardLink", a) ||
        !Resolve(link, "nt_dir::CreateHardLink", b)) {
        return false;
    }
    const Platform::SystemError failure = io_->Link(a.At, a.Name, b.At, b.Name);
    return failure.Failed()
               ? Fail("nt_dir::CreateHardLink", "linkat", b.Path, failure, kCreateFailed)
               : true;
}

bool nt_dir::CreateSymLink(const char16_t* target, const char16_t* link) {
    Target b;
    if (target == nullptr) {
        SetError(MakeFileError(TL_ORIGIN("nt_dir::CreateSymLink"), kCreateFailed));
        return false;
    }
    if (!Resolve(link, "nt_dir::CreateSymLink", b)) {
        return false;
    }
    // The target is stored as given: a relative one stays relative to the link.
    const Platform::SystemError failure = io_->SymLink(WideNameToNative(target), b.At, b.Name);
    return failure.Failed()
               ? Fail("nt_dir::CreateSymLink", "symlinkat", b.Path, failure, kCreateFailed)
               : true;
}

bool nt_dir::CreateDir(const char16_t* name, std::uint32_t) {
    Target t;
    if (!Resolve(name, "nt_dir::CreateDir", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->MakeDir(t.At, t.Name, 0777);
    return failure.Failed() ? Fail("nt_dir::CreateDir", "mkdirat", t.Path, failure, kCreateFailed)
                            : true;
}

bool nt_dir::SetUnixPermissions(const char16_t* name, std::uint32_t mode) {
    Target t;
    if (!Resolve(name, "nt_dir::SetUnixPermissions", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->SetMode(t.At, t.Name, mode & 07777);
    return failure.Failed()
               ? Fail("nt_dir::SetUnixPermissions", "fchmodat", t.Path, failure, kWriteFailed)
               : true;
}

bool nt_dir::SetUnixOwner(const char16_t* name, std::uint32_t user, std::uint32_t group) {
    Target t;
    if (!Resolve(name, "nt_dir::SetUnixOwner", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->SetOwner(t.At, t.Name, user, group);
    return failure.Failed()
               ? Fail("nt_dir::SetUnixOwner", "fchownat", t.Path, failure, kWriteFailed)
               : true;
}

bool nt_dir::CreateDeviceNode(const char16_t* name, std::uint32_t kind, std::uint32_t major,
                              std::uint32_t minor) {
    Target t;
    if (!Resolve(name, "nt_dir::CreateDeviceNode", t)) {
        return false;
    }
    const Platform::SystemError failure = io_->MakeNode(t.At, t.Name, kind, makedev(major, minor));
    return failure.Failed()
               ? Fail("nt_dir::CreateDeviceNode", "mknodat", t.Path, failure, kCreateFailed)
               : true;
}

// Commands ---------------------------------------------------------------------------------

bool nt_dir::IOCTL(ioctl_command& command) {
    switch (command.Code) {
        case set_entry_times_command::kCode: {
            auto& c = static_cast<set_entry_times_command&>(command);
            Target t;
            if (!Resolve(c.Name, "nt_dir::IOCTL", t)) {
                return false;
            }
            // Times in milliseconds, as nanoseconds for the system: one that doesn't fit is
            // an invalid parameter, not a time wrapped around.
            constexpr std::int64_t kLatestMs = std::numeric_limits<std::int64_t>::max() / 1000000;
            if (c.Access > kLatestMs || c.Write > kLatestMs) {
                return Fail("nt_dir::IOCTL", "utimensat", t.Path, Platform::SystemError{87, EINVAL},
                            kWriteFailed);
            }
            const auto ns = [](std::int64_t ms) { return ms < 0 ? -1 : ms * 1000000; };
            const Platform::SystemError failure =
                io_->SetTimes(t.At, t.Name, ns(c.Access), ns(c.Write));
            return failure.Failed() ? Fail("nt_dir::IOCTL", "utimensat", t.Path, failure,
                                           kWriteFailed)
                                    : true;
        }
        case entry_compression_command::kCode: {
            auto& c = static_cast<entry_compression_command&>(command);
            Target t;
            if (!Resolve(c.Name, "nt_dir::IOCTL", t)) {
                return false;
            }
            const Platform::SystemError failure = io_->SetCompression(t.At, t.Name, c.On);
            return failure.Failed() ? Fail("nt_dir::IOCTL", "FS_IOC_SETFLAGS", t.Path, failure,
                                           kWriteFailed)
                                    : true;
        }
        case file_system_info_command::kCode: {
            auto& c = static_cast<file_system_info_command&>(command);
            MountPoint mount;
            if (IsRoot()) {
                SetError(MakeFileError(TL_ORIGIN("nt_dir::IOCTL"), kOpenFailed));
                return false;
            }
            if (!FindOwnMount(mount, "nt_dir::IOCTL")) {
                return false;
            }
            Platform::VolumeSpace space;
            const Platform::SystemError failure = io_->Space(handle_, space);
            if (failure.Failed()) {
                return Fail("nt_dir::IOCTL", "fstatvfs", path_, failure, kOpenFailed);
            }
            c.Name = NativeNameToWide(mount.Type);
            c.Flags = space.Flags;
            c.MaxNameLength = space.NameMax;
            return true;
        }
        case reparse_point_command::kCode: {
            auto& c = static_cast<reparse_point_command&>(command);
            Target t;
            c.Returned = 0;
            if (!Resolve(c.Name, "nt_dir::GetReparsePointIoctl", t)) {
                return false;
            }
            // Every failure is a read failure, with the system's reason beneath it.
            const auto fail = [&](const Platform::SystemError& failure) {
                SetError(MakeFixedSystemError(TL_ORIGIN("nt_dir::GetReparsePointIoctl"),
                                              "readlinkat", t.Path.c_str(), failure, kReadFailed));
                return false;
            };
            std::string target;
            const Platform::SystemError failure = io_->ReadLink(t.At, t.Name, target);
            if (failure.Failed()) {
                return fail(failure);
            }
            c.Returned = target.size();
            if (target.size() > c.Size || (c.Buffer == nullptr && !target.empty())) {
                return fail(Platform::SystemError{122, 0});  // the caller learns the size it needs
            }
            if (!target.empty()) {
                std::memcpy(c.Buffer, target.data(), target.size());
            }
            return true;
        }
        case open_backup_command::kCode: {
            auto& c = static_cast<open_backup_command&>(command);
            Target t;
            if (!Resolve(c.Name, "nt_dir::OpenBackupFile", t)) {
                return false;
            }
            rio_file* file = OpenFileAt(t, Platform::FileAccess::Read,
                                        Platform::FileDisposition::OpenExisting, false,
                                        "nt_dir::OpenBackupFile", kOpenFailed);
            if (file == nullptr) {
                return false;
            }
            c.File.reset(file);
            ClearError();
            return true;
        }
        case usn_journal_command::kCode:
        case file_record_info_command::kCode: {
            Common::Error error;
            HandleJournalCommand(command, path_, error);
            if (error.Failed()) {
                SetError(error);
                return false;
            }
            ClearError();
            return true;
        }
        case logon_command::kCode: {
            auto& c = static_cast<logon_command&>(command);
            const std::u16string user = c.User != nullptr ? c.User : u"";
            std::shared_ptr<SubstToken> token;
            const Common::Error error =
                c.Interactive ? SubstToken::CreateInteractiveLogonToken(user, c.Password, token)
                              : SubstToken::CreateLogonToken(user, c.Password, token);
            if (error.Failed()) {
                SetError(error);
                return false;
            }
            SetToken(std::move(token));
            ClearError();
            return true;
        }
        case token_command::kCode:
            static_cast<token_command&>(command).Token = token_;
            return true;
        case kBackupCommand:
        case kRestoreCommand: {
            // An entry of this directory backed up or restored by its path, as the
            // directory's user; a null name backs the directory itself up.
            const bool backup = command.Code == kBackupCommand;
            const char16_t* name = backup ? static_cast<backup_entry_command&>(command).Name
                                          : static_cast<restore_entry_command&>(command).Name;
            const bool given = backup ? static_cast<backup_entry_command&>(command).Writer != nullptr
                                      : static_cast<restore_entry_command&>(command).Source != nullptr;
            Target t;
            if (!given) {
                SetError(MakeFileError(TL_ORIGIN("nt_dir::IOCTL"), kNotSupported));
                return false;
            }
            if (name == nullptr && backup && !IsRoot()) {
                t.Path = path_.size() > 1 && path_.back() == u'/' ? path_.substr(0, path_.size() - 1)
                                                                   : path_;
            } else if (name == nullptr || !Resolve(name, "nt_dir::IOCTL", t)) {
                SetError(MakeFileError(TL_ORIGIN("nt_dir::IOCTL"),
                                       backup ? kOpenFailed : kCreateFailed));
                return false;
            }
            const Common::Error error =
                backup ? BackupFile(t.Path, *static_cast<backup_entry_command&>(command).Writer,
                                    token_)
                       : RestoreFile(t.Path, *static_cast<restore_entry_command&>(command).Source,
                                     token_);
            if (error.Failed()) {
                SetError(error);
                return false;
            }
            ClearError();
            return true;
        }
        case nocache_dir_command::kCode:
            static_cast<nocache_dir_command&>(command).Dir = this;
            ClearError();
            return true;
        case kSecurityRequestCommand:
        case kPendingRenameCommand:
        case kShortNameCommand:
        case kEncryptCommand:
        case kSystemPropertyCommand:
            SetError(MakeFileError(TL_ORIGIN("nt_dir::IOCTL"), kNotSupported));
            return false;
        default:
            return rio_dir::IOCTL(command);
    }
}

// The public entry points ------------------------------------------------------------------

std::unique_ptr<rio_dir> OpenSystemDir(const std::u16string& path, Common::Error& error) {
    return nt_dir::Open(Platform::SystemDirIo(), path, error);
}

std::unique_ptr<rio_dir> OpenSystemDir(const std::u16string& path,
                                       const std::shared_ptr<SubstToken>& token,
                                       Common::Error& error) {
    return nt_dir::Open(Unowned(Platform::SystemDirIo()), path, token, error);
}

std::unique_ptr<rio_dir> CreateRootDir() {
    return CreateRootDir(Platform::SystemDirIo());
}

}  // namespace File
