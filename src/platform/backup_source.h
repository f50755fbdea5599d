#pragma once

// What a file backup asks of the operating system: a file or directory presented as the
// backup stream format (a sequence of 20-byte stream headers, each followed by its name and
// its body), a writer that rebuilds a file from that sequence, and the calls around them:
// attributes, opens, times, privileges and the raw form of encrypted files. Handles, access
// masks, open flags and error codes are those of the stream format's home system, so that
// the rules above this seam read the same on every platform. Tests put a fake in its place.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace Platform {

// Attribute bits of the attribute word.
inline constexpr std::uint32_t kBackupAttrReadOnly = 0x1;
inline constexpr std::uint32_t kBackupAttrHidden = 0x2;
inline constexpr std::uint32_t kBackupAttrSystem = 0x4;
inline constexpr std::uint32_t kBackupAttrDirectory = 0x10;
inline constexpr std::uint32_t kBackupAttrNormal = 0x80;
inline constexpr std::uint32_t kBackupAttrSparse = 0x200;
inline constexpr std::uint32_t kBackupAttrReparsePoint = 0x400;
inline constexpr std::uint32_t kBackupAttrCompressed = 0x800;
inline constexpr std::uint32_t kBackupAttrEncrypted = 0x4000;

// Access rights of Open.
inline constexpr std::uint32_t kGenericRead = 0x80000000u;
inline constexpr std::uint32_t kGenericWrite = 0x40000000u;
inline constexpr std::uint32_t kWriteDac = 0x40000u;
inline constexpr std::uint32_t kWriteOwner = 0x80000u;
inline constexpr std::uint32_t kAccessSystemSecurity = 0x1000000u;
inline constexpr std::uint32_t kFileWriteAttributes = 0x100u;

// Flags of Open.
inline constexpr std::uint32_t kFlagBackupSemantics = 0x2000000u;
inline constexpr std::uint32_t kFlagOpenReparsePoint = 0x200000u;

// Stream ids of the stream headers.
inline constexpr std::uint32_t kStreamData = 1;
inline constexpr std::uint32_t kStreamEaData = 2;
inline constexpr std::uint32_t kStreamSecurity = 3;
inline constexpr std::uint32_t kStreamAlternateData = 4;
inline constexpr std::uint32_t kStreamLink = 5;
inline constexpr std::uint32_t kStreamPropertyData = 6;
inline constexpr std::uint32_t kStreamObjectId = 7;
inline constexpr std::uint32_t kStreamReparseData = 8;
inline constexpr std::uint32_t kStreamSparseBlock = 9;

// The size of a stream header.
inline constexpr std::size_t kStreamHeaderSize = 20;

// The reparse tag of a symbolic link whose target is kept as the system's bytes; the body of
// a reparse stream is: tag (u32), length of what follows (u16), reserved (u16), version 2
// (u32), then the target.
inline constexpr std::uint32_t kReparseTagLinuxSymlink = 0xa000001du;
// The tags of the other entries without data, kept as reparse data whose body is empty or, for
// a device, its major and minor numbers (u32 each).
inline constexpr std::uint32_t kReparseTagLinuxSocket = 0x80000023u;
inline constexpr std::uint32_t kReparseTagLinuxFifo = 0x80000024u;
inline constexpr std::uint32_t kReparseTagLinuxCharDevice = 0x80000025u;
inline constexpr std::uint32_t kReparseTagLinuxBlockDevice = 0x80000026u;
// The tag of a deduplicated file, whose real data is read through the reparse point.
inline constexpr std::uint32_t kReparseTagDedup = 0x80000013u;

// Error codes that the rules above the seam tell apart.
inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorPathNotFound = 3;
inline constexpr std::uint32_t kErrorBackupAccessDenied = 5;
inline constexpr std::uint32_t kErrorNotSupported = 50;
inline constexpr std::uint32_t kErrorInvalidParameter = 87;
inline constexpr std::uint32_t kErrorDiskFull = 112;
inline constexpr std::uint32_t kErrorAlreadyExists = 183;
inline constexpr std::uint32_t kErrorNoToken = 1008;
inline constexpr std::uint32_t kErrorNotAllAssigned = 1300;
inline constexpr std::uint32_t kErrorInvalidOwner = 1307;
inline constexpr std::uint32_t kErrorNoSuchPrivilege = 1313;
inline constexpr std::uint32_t kErrorPrivilegeNotHeld = 1314;
inline constexpr std::uint32_t kErrorNotAReparsePoint = 4390;

// What the attribute query tells of a file. Times are in 100 ns units since 1601-01-01 UTC,
// 0 where the file system keeps none.
struct BackupFileInfo {
    std::uint32_t Attributes = 0;
    std::uint64_t Size = 0;
    std::uint64_t CreationTime = 0;
    std::uint64_t WriteTime = 0;
};

// The raw form of an encrypted file, read or written a block at a time through a callback.
using EncryptedContext = void*;
class EncryptedRawCallback {
public:
    virtual ~EncryptedRawCallback() = default;
    // Reading: one block of the raw form. Writing: fills up to `size` bytes and sets `size`
    // to what it gave, 0 at the end. A result other than 0 stops the transfer with it.
    virtual std::uint32_t Transfer(unsigned char* data, std::uint32_t& size) = 0;
};

class BackupSource {
public:
    virtual ~BackupSource() = default;

    // The attributes, size and times of `path`, without following a final link.
    virtual SystemError GetAttributes(const std::u16string& path, BackupFileInfo& info) = 0;
    virtual SystemError SetAttributes(const std::u16string& path, std::uint32_t attributes) = 0;
    // Opens `path` with an access mask and flags as above. `attributes` are those a file gets
    // when the open creates it: a reparse point is created by the reparse stream written
    // to it, a directory is never created here. When reading they are what the caller last
    // saw of the file (0 if nothing): a reparse point is then opened without touching what it
    // stands for, so that opening a device cannot act on the device.
    virtual SystemError Open(const std::u16string& path, std::uint32_t access,
                             FileDisposition disposition, std::uint32_t flags,
                             std::uint32_t attributes, FileHandle& handle) = 0;
    virtual SystemError Close(FileHandle handle) = 0;
    // The attributes of an open file.
    virtual SystemError HandleInfo(FileHandle handle, BackupFileInfo& info) = 0;
    // The tag of the reparse point that `handle` stands on.
    virtual SystemError ReparseTag(FileHandle handle, std::uint32_t& tag) = 0;

    // The next bytes of the file's backup stream. Reading at its end gives 0 bytes.
    virtual SystemError BackupRead(FileHandle handle, void* buffer, std::size_t count,
                                   std::size_t& read, bool processSecurity) = 0;
    // Steps forward over up to `count` bytes of the current stream's body; `moved` is short
    // when the stream ends first.
    virtual SystemError BackupSeek(FileHandle handle, std::uint64_t count,
                                   std::uint64_t& moved) = 0;
    // Rebuilds the file from the next bytes of a backup stream.
    virtual SystemError BackupWrite(FileHandle handle, const void* buffer, std::size_t count,
                                    std::size_t& written, bool processSecurity) = 0;
    // Ends the read or write context of `handle`; a write context applies what it kept
    // back. The next BackupRead starts the stream over.
    virtual SystemError BackupEnd(FileHandle handle) = 0;

    // Plain transfers of the file's data.
    virtual SystemError ReadFile(FileHandle handle, void* buffer, std::size_t count,
                                 std::size_t& read) = 0;
    virtual SystemError WriteFile(FileHandle handle, const void* buffer, std::size_t count,
                                  std::size_t& written) = 0;

    // Times as in BackupFileInfo; 0 leaves a time as it is.
    virtual SystemError GetTimes(FileHandle handle, std::uint64_t& creation,
                                 std::uint64_t& write) = 0;
    virtual SystemError SetTimes(FileHandle handle, std::uint64_t creation,
                                 std::uint64_t write) = 0;
    virtual SystemError SetCompression(FileHandle handle, bool on) = 0;

    virtual SystemError CreateDirectory(const std::u16string& path) = 0;
    virtual SystemError Decrypt(const std::u16string& path) = 0;

    virtual SystemError OpenEncryptedRaw(const std::u16string& path, std::uint32_t flags,
                                         EncryptedContext& context) = 0;
    virtual SystemError ReadEncryptedRaw(EncryptedContext context,
                                         EncryptedRawCallback& callback) = 0;
    virtual SystemError WriteEncryptedRaw(EncryptedContext context,
                                          EncryptedRawCallback& callback) = 0;
    virtual void CloseEncryptedRaw(EncryptedContext context) = 0;

    // Makes sure that the calling thread holds the privilege `name` ("SeBackupPrivilege",
    // "SeRestorePrivilege", "SeSecurityPrivilege"). `function` names the step that failed.
    virtual SystemError EnablePrivilege(const char* name, const char*& function) = 0;
};

// The implementation of this platform, for the life of the process.
BackupSource& SystemBackupSource();

}  // namespace Platform
