#pragma once

// Backing up one file or directory as an ordered sequence of typed chunks, and rebuilding it
// from them. An archiver hands BackupFile a writer that makes one stream per chunk and
// receives raw blocks of at most 64 KiB; RestoreFile takes the chunks back in the order they
// come. A file that changes while it is backed up fails rather than mixing two versions, and
// a read that breaks is resumed at the byte where it broke when the user asks for a retry.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/file/dir_object.h>
#include <tessel_link/file/file_object.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/token_substitution.h>

namespace File {

// Chunk types of a backup.
enum backup_chunk_type : std::uint32_t {
    chunk_attributes = 1,  // 4 bytes: the attribute word, little-endian; always first
    chunk_stream = 2,      // the backup stream: stream headers, names and bodies
    chunk_efs_raw = 3,     // the raw form of an encrypted file
    chunk_plain_data = 4,  // the bytes of an encrypted file, read decrypted
    chunk_times = 5,       // creation and last write time, signed 64-bit milliseconds since 1970
    chunk_open_6 = 6,      // accepted on restore: only makes sure that the target is open
    chunk_open_7 = 7,
};

// Bits of the backup options.
enum backup_option : std::uint32_t {
    backup_no_security = 1,     // leave the security stream out, and do not write it back
    backup_decrypted = 2,       // read encrypted files decrypted; on restore: skip the times
    backup_skip_data = 4,       // step over data streams; on restore: follow reparse points
    backup_data_only = 8,       // step over every other stream: directories give nothing
    backup_follow_reparse = 16, // open through reparse points
};

// Answers of backup_user_callback::OnError.
enum backup_error_answer : int { answer_abort = 0, answer_retry = 1, answer_ignore = 2 };

// One block of bytes. `offset` is the start of the data in `buffer`.
struct TL_API raw_data {
    std::unique_ptr<unsigned char[]> buffer;  // the storage
    std::uint64_t size = 0;  // bytes of data
    std::uint64_t offset = 0;  // where the data starts in `buffer`
    std::uint64_t capacity = 0;  // bytes of storage
};

// Makes the blocks that a chunk is written in, so that an archiver can hand out its own.
class TL_API file_backup_raw_data_factory {
public:
    virtual ~file_backup_raw_data_factory();
    // A block of `capacity` bytes, none in use; null when memory runs out.
    virtual std::unique_ptr<raw_data> Create(std::uint64_t capacity);
};

// One chunk of a backup as the archiver receives it. Write takes ownership of the block; a
// failure is recorded in the object. Destroying the stream closes the chunk.
class TL_API file_backup_stream : public virtual file_object, public file_backup_raw_data_factory {
public:
    // Appends `block` to the chunk; false with the failure recorded.
    virtual bool Write(std::unique_ptr<raw_data> block) = 0;
};

// What the person behind a backup or restore is asked and told.
class TL_API backup_user_callback {
public:
    virtual ~backup_user_callback();
    // Bytes handled so far.
    virtual void SetPosition(std::uint64_t total) = 0;
    // True when the person has asked to stop.
    virtual bool IsCanceled() = 0;
    // One of backup_error_answer.
    virtual int OnError(const Common::Error& error, const std::u16string& path) = 0;
};

// The archiver's side of a backup.
class TL_API file_backup_writer {
public:
    virtual ~file_backup_writer();
    // A new chunk of `type`; null (with the reason in GetError) when it cannot be made.
    virtual std::unique_ptr<file_backup_stream> CreateStream(std::uint32_t type) = 0;
    virtual Common::Error GetError() const = 0;  // why the last chunk could not be made
    virtual std::uint32_t Options() const = 0;  // the backup's option bits
    virtual backup_user_callback* Callback() const = 0;  // the person's side; may be null
};

// The archiver's side of a restore.
class TL_API file_restore_source {
public:
    virtual ~file_restore_source();
    // The next chunk and its type; null at the end, or on a failure that GetError tells.
    virtual std::unique_ptr<i_file> NextChunk(std::uint32_t& type) = 0;
    virtual Common::Error GetError() const = 0;  // why NextChunk gave null, if it failed
    virtual std::uint32_t Options() const = 0;  // the restore's option bits
    virtual backup_user_callback* Callback() const = 0;  // the person's side; may be null
};

// A sink of progress: Continue(bytes) returns false to cancel.
class TL_API ChunkNTBackupStreamCallback {
public:
    virtual ~ChunkNTBackupStreamCallback();
    // `bytes` more were delivered; false cancels.
    virtual bool Continue(std::uint64_t bytes) = 0;
};

// Backs `path` up into chunks made by `writer`, touching the file as the user of
// `impersonation` when it is not null. Failures: 0x40026 "The file has changed." when the
// file changes between two attempts, 0x4000f "Canceled." when the user stops it, and the
// failed step otherwise, wrapped in 0x40019 "Error occurred while backing up." with the path.
TL_API Common::Error BackupFile(const std::u16string& path, file_backup_writer& writer,
                                const std::shared_ptr<SubstToken>& impersonation);

// Rebuilds `path` from the chunks of `source`. Failures are 0x4001a "Error occurred while
// recovering." with the failed step beneath.
TL_API Common::Error RestoreFile(const std::u16string& path, file_restore_source& source,
                                 const std::shared_ptr<SubstToken>& impersonation);

// Reads a backup stream from `input` and hands it to `consumer`: every header as a block of
// its own, names and bodies in blocks of up to 64 KiB. Option 4 steps over data streams,
// option 8 over all others. Nothing before byte `resume` of the input is delivered again.
TL_API Common::Error ChunkNTBackupStream(file_backup_stream& consumer, ri_file& input,
                                         std::uint32_t options,
                                         ChunkNTBackupStreamCallback* callback,
                                         std::uint64_t resume);

// The directory commands that back up and restore an entry of the directory.
struct backup_entry_command : ioctl_command {
    static constexpr std::uint32_t kCode = kBackupCommand;  // the command's code
    backup_entry_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // null: the directory itself
    file_backup_writer* Writer = nullptr;  // where the chunks go
};

// Rebuilds an entry of the directory from the chunks of a source.
struct restore_entry_command : ioctl_command {
    static constexpr std::uint32_t kCode = kRestoreCommand;  // the command's code
    restore_entry_command() { Code = kCode; }
    const char16_t* Name = nullptr;  // the entry to rebuild
    file_restore_source* Source = nullptr;  // where the chunks come from
};

}  // namespace File
