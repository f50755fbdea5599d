#pragma once

// The working directory object: a directory of the system held open by a descriptor, with
// its path. Every name given to it is resolved relative to the descriptor (or taken as it
// stands when absolute), so the object keeps its directory when the path above it changes.
// The object with an empty path is the root above the mount points. A directory can be
// watched for changes (through the process's notification service) and serves the change
// journal's commands for its volume.
//
// Operations run whether or not an earlier one failed; a failure replaces the recorded
// error, so that the error read after a failed call is that call's.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/file/dir_object.h>
#include <tessel_link/file/system_dir.h>

#include "file/dir_watch.h"
#include "file/file_errors.h"
#include "file/token_scoped_dir_io.h"
#include "platform/dir_io.h"

namespace File {

class nt_dir final : public rio_dir, public dir_watch, public nocache_dir {
public:
    // Takes over `handle`, opened for `path` (ending in '/'); the root has kAtCurrent and an
    // empty path. With a `token`, the directory and everything opened or listed from it act
    // as that user.
    nt_dir(SharedDirIo io, Platform::DirHandle handle, std::u16string path,
           std::shared_ptr<SubstToken> token = nullptr);
    nt_dir(Platform::DirIo& io, Platform::DirHandle handle, std::u16string path)
        : nt_dir(Unowned(io), handle, std::move(path)) {}
    ~nt_dir() override;

    // Opens the directory at `path`, as `token`'s user when there is one; an empty path
    // gives the root.
    static std::unique_ptr<nt_dir> Open(SharedDirIo io, const std::u16string& path,
                                        const std::shared_ptr<SubstToken>& token,
                                        Common::Error& error);
    static std::unique_ptr<nt_dir> Open(Platform::DirIo& io, const std::u16string& path,
                                        Common::Error& error) {
        return Open(Unowned(io), path, nullptr, error);
    }

    // From now on the directory acts as `token`'s user (itself with a null token), and so
    // does everything opened from it afterwards.
    void SetToken(std::shared_ptr<SubstToken> token);
    const std::shared_ptr<SubstToken>& Token() const noexcept { return token_; }

    bool IsRoot() const noexcept { return path_.empty(); }
    const std::u16string& Path() const noexcept { return path_; }
    Platform::DirHandle Handle() const noexcept { return handle_; }

    rio_file* OpenI(const file_identifier& id) override;
    rio_file* OpenI(iterator& position) override;
    rio_file* OpenI(const char16_t* name, std::uint32_t flags) override;
    rio_dir* OpenDir(const file_identifier& id) override;
    rio_dir* OpenDir(iterator& position) override;
    rio_dir* OpenDir(const char16_t* name) override;
    rio_dir* OpenPath(const char16_t*& path) override;
    i_dir* OpenSpecialDir(std::uint32_t selector) override;
    iterator* GetIterator(const file_identifier& id) override;
    iterator* GetIterator(const char16_t* name) override;
    iterator* GetIterator() override;
    iterator* GetSelfIterator() override;
    file_identifier* GetIdentifier() override;
    int Compare(i_dir& other) override;
    int Compare(const file_identifier& a, const file_identifier& b) override;
    std::uint32_t GetDriveType() override;
    bool GetDriveSize(std::uint64_t& total, std::uint64_t& free, std::uint64_t& available) override;
    bool IsPathSeparator(char16_t c) override { return c == u'/'; }
    char16_t GetPathSeparator() override { return u'/'; }
    bool EnableNotification(dir_notification* callback) override;
    void ContinueNotification() override;

    o_dir* OpenDirO(const file_identifier& id) override;
    bool Remove(const char16_t* name) override;
    bool Rename(const char16_t* from, const char16_t* to) override;
    bool CreateHardLink(const char16_t* existing, const char16_t* link) override;
    bool CreateSymLink(const char16_t* target, const char16_t* link) override;
    bool CreateDir(const char16_t* name, std::uint32_t flags) override;
    bool RemoveDir(const char16_t* name) override;
    bool SetUnixPermissions(const char16_t* name, std::uint32_t mode) override;
    bool SetUnixOwner(const char16_t* name, std::uint32_t user, std::uint32_t group) override;
    // `kind` holds the type bits of st_mode (S_IFCHR and the others) with the permissions.
    bool CreateDeviceNode(const char16_t* name, std::uint32_t kind, std::uint32_t major,
                          std::uint32_t minor) override;
    rio_file* OpenO(const file_identifier& id) override;
    rio_file* OpenO(i_dir::iterator& position) override;
    rio_file* OpenO(const char16_t* name, std::uint32_t flags) override;
    rio_file* OpenRIO(const file_identifier& id) override;
    rio_file* OpenRIO(iterator& position) override;
    rio_file* OpenRIO(const char16_t* name, std::uint32_t flags) override;
    rio_file* CreateRIO(const char16_t* name, std::uint32_t flags) override;

    bool IOCTL(ioctl_command& command) override;

    rio_file* OpenNoCache(const char16_t* name, open_mode mode) override;
    rio_file* OpenNoCache(const file_identifier& id, open_mode mode) override;

private:
    // Where a name leads: the directory to resolve it against, the name as the system
    // takes it, and the path for messages.
    struct Target {
        Platform::DirHandle At = Platform::kAtCurrent;
        std::string Name;
        std::u16string Path;
    };

    // False (with 0x40007 recorded) for a null name.
    bool Resolve(const char16_t* name, const char* function, Target& target);
    bool Resolve(const file_identifier& id, const char* function, Target& target);
    bool Resolve(iterator& position, const char* function, Target& target);
    bool Fail(const char* function, const char* call, const std::u16string& path,
              const Platform::SystemError& failure, FileErrorCode fallback);

    rio_file* OpenNoCacheAt(const Target& target, open_mode mode);
    rio_file* OpenFileAt(const Target& target, Platform::FileAccess access,
                         Platform::FileDisposition disposition, bool followLinks,
                         const char* function, FileErrorCode fallback);
    rio_dir* OpenDirAt(const Target& target, const char* function);
    iterator* IteratorAt(const Target& target, bool pattern);
    // The mount that holds this directory, or nothing with the reason recorded.
    bool FindOwnMount(struct MountPoint& mount, const char* function);

    // The system's directories as the process sees them, and as the directory sees them:
    // through the token's scope when it has one.
    SharedDirIo base_;
    std::shared_ptr<SubstToken> token_;
    SharedDirIo io_;
    Platform::DirHandle handle_;
    std::u16string path_;
};

// The root above the mount points, through `io`.
std::unique_ptr<nt_dir> CreateRootDir(Platform::DirIo& io);
std::unique_ptr<nt_dir> CreateRootDir(SharedDirIo io, std::shared_ptr<SubstToken> token);

}  // namespace File
