#pragma once

// Directories of the operating system: opening one by path, the root above the mount points,
// the classes of their entries, and the IOCTL commands that they understand.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/file/dir_object.h>
#include <tessel_link/file/file_object.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/file/token_substitution.h>
#include <tessel_link/file/usn_journal.h>

namespace File {

// The classes that GetType gives for entries of a directory. The entries of the root are
// mount points, whose class is their drive class (drive_fixed and the others).
enum entry_type : std::uint32_t {
    entry_file = 0,
    entry_dir = 1,
    entry_link = 2,   // a symbolic link, whatever it points at
    entry_other = 3,  // devices, pipes, sockets
};

// Selectors of OpenSpecialDir.
enum special_dir : std::uint32_t {
    special_top = 0,        // the root above the mount points
    special_temporary = 1,  // $TMPDIR, else /tmp
    special_current = 2,    // the working directory of the process
    special_home = 3,       // $HOME, else the user database's home of the real user
};

// DOS attribute bits that directory entries report.
inline constexpr std::uint32_t kAttributeReadOnly = 0x1;
inline constexpr std::uint32_t kAttributeHidden = 0x2;
inline constexpr std::uint32_t kAttributeDirectory = 0x10;
inline constexpr std::uint32_t kAttributeNormal = 0x80;  // only when no other bit is set
inline constexpr std::uint32_t kAttributeSparse = 0x200;
inline constexpr std::uint32_t kAttributeReparsePoint = 0x400;

// Opens the directory at `path`, which names it as the system does (on Linux absolute or
// relative to the working directory; an empty path is the root above the mount points).
// Null with `error` set on failure.
TL_API std::unique_ptr<rio_dir> OpenSystemDir(const std::u16string& path, Common::Error& error);
// The same as `token`'s user: the directory is opened in a scope of the token, and the
// directory, its iterators and everything opened from it carry the token and run each system
// call in such a scope. A null token is the process's own access.
TL_API std::unique_ptr<rio_dir> OpenSystemDir(const std::u16string& path,
                                              const std::shared_ptr<SubstToken>& token,
                                              Common::Error& error);

// The root above the mount points: its iterator lists the mount points in ascending order
// of their paths, each with its drive class as its type. Names given to it are paths.
TL_API std::unique_ptr<rio_dir> CreateRootDir();

// Names of the system as wide strings and back, without loss: bytes that are not UTF-8
// become the lone surrogates U+DC80 to U+DCFF, which turn back into the same bytes.
TL_API std::u16string NativeNameToWide(std::string_view name);
TL_API std::string WideNameToNative(std::u16string_view name);  // the inverse of NativeNameToWide

// Sets the times of an entry of the directory; a time below 0 leaves that time as it is.
// Times are milliseconds since 1970. Creation times cannot be set here and are ignored.
struct set_entry_times_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("STME");  // the command's code
    set_entry_times_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // the entry's name
    std::int64_t Creation = -1;  // ignored
    std::int64_t Access = -1;  // below 0: unchanged
    std::int64_t Write = -1;  // below 0: unchanged
};

// Turns compression of a file on or off, on file systems that have it.
struct entry_compression_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("CMPR");  // the command's code
    entry_compression_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // the entry's name
    bool On = true;  // false turns it off
};

// The file system of the directory's volume: its type name, the statvfs flags and the
// longest name it takes.
struct file_system_info_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("GFST");  // the command's code
    file_system_info_command() { Code = kCode; }
    std::u16string Name;  // the type name ("ext4")
    std::uint64_t Flags = 0;  // the statvfs flags
    std::uint64_t MaxNameLength = 0;  // the longest name it takes
};

// Reads the target of a symbolic link into a buffer of the caller; `Returned` is its length
// in bytes, as the system stores it.
struct reparse_point_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("REPP");  // the command's code
    reparse_point_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // the link's name
    void* Buffer = nullptr;  // the caller's buffer
    std::size_t Size = 0;  // its size in bytes
    std::size_t Returned = 0;  // the target's length in bytes
};

// Opens a file for a backup read: for reading, without following a final symbolic link.
struct open_backup_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("OFBS");  // the command's code
    open_backup_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // the file's name
    bool Shared = false;  // open shared with writers
    std::unique_ptr<rio_file> File;  // the file, on success
};

// Makes the directory act for a user from now on: the directory and everything opened or
// listed from it afterwards run their system calls with that user's file access. `User` is
// "DOMAIN\\name" or "name"; a `Password`, when not null, is checked. `Interactive` asks for an
// interactive logon (the account must be open for use now). A failed logon leaves the
// directory as it was, with the logon's error recorded.
struct logon_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("SPWD");  // the command's code
    logon_command() { Code = kCode; }
    const char16_t* Password = nullptr;  // the password to check; null for none
    const char16_t* User = nullptr;  // the user to act for
    bool Interactive = false;  // ask for an interactive logon
};

// Hands out the token that the directory acts as (null for the process's own access), so
// that a caller can act as the same user elsewhere.
struct token_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("GWST");  // the command's code
    token_command() { Code = kCode; }
    std::shared_ptr<SubstToken> Token;  // the token, on success; null for the process's own
};

// The part of a system directory that opens its files past the system's cache, for transfers
// that must reach the medium without passing through (or pushing out) what the cache holds.
// Such a file follows the rules of OpenSystemFileNoCache. Failures are recorded on the
// directory, as for its other opens.
class TL_API nocache_dir : public virtual file_object {
public:
    // Opens the file `name` of the directory past the cache; null on failure.
    virtual rio_file* OpenNoCache(const char16_t* name, open_mode mode) = 0;
    // Opens the entry of `id` (from one of the directory's iterators) past the cache.
    virtual rio_file* OpenNoCache(const file_identifier& id, open_mode mode) = 0;
};

// Hands out the directory's nocache_dir part, which lives as long as the directory.
struct nocache_dir_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("NCDR");  // the command's code
    nocache_dir_command() { Code = kCode; }
    nocache_dir* Dir = nullptr;  // the directory's part, on success
};

// Commands without a subject on this platform yet: they answer 0x4000e.
inline constexpr std::uint32_t kBackupCommand = CommandCode("BKUP");
inline constexpr std::uint32_t kRestoreCommand = CommandCode("RSTR");
inline constexpr std::uint32_t kSecurityRequestCommand = CommandCode("SRSQ");
inline constexpr std::uint32_t kPendingRenameCommand = CommandCode("PDRN");
inline constexpr std::uint32_t kShortNameCommand = CommandCode("SSFN");
inline constexpr std::uint32_t kEncryptCommand = CommandCode("CRPT");
inline constexpr std::uint32_t kSystemPropertyCommand = CommandCode("GSYP");

}  // namespace File
