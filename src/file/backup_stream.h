#pragma once

// The machinery under BackupFile and RestoreFile: the progress and error context of one
// operation, the backup stream as an input file, the chunker, and the entry points over a
// given platform source, so that tests can run them against a fake.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/file/backup_stream.h>

#include "file/file_errors.h"
#include "platform/backup_source.h"

namespace File {

inline constexpr FileErrorCode kAlternateStreamUnsupported{0x40024, 521};
inline constexpr FileErrorCode kBackupFailed{0x40019, 522};
inline constexpr FileErrorCode kFileChanged{0x40026, 526};
inline constexpr FileErrorCode kRecoverFailed{0x4001a, 558};
inline constexpr FileErrorCode kSecurityWriteFailed{0x40023, 559};

// Hints of WrapError: which part of the file an error is about.
inline constexpr std::uint64_t kHintData = 1;
inline constexpr std::uint64_t kHintEncrypted = 3;

// Blocks of the backup stream and of plain data.
inline constexpr std::uint64_t kBackupBlock = 65536;

// Times of the times chunk: milliseconds since 1970 from and to 100 ns units since 1601;
// 0 stays 0 both ways, and so does the image of a null local time.
std::int64_t FileTimeToMilliseconds(std::uint64_t fileTime);
std::uint64_t MillisecondsToFileTime(std::int64_t milliseconds);

// The context of one backup or restore: the user's callback, progress, and the record of
// the path that errors carry.
class BackupContext final : public ChunkNTBackupStreamCallback {
public:
    enum direction : int { restoring = 0, backing_up = 1 };

    BackupContext(backup_user_callback* user, std::u16string path, direction way,
                  std::shared_ptr<SubstToken> impersonation)
        : user_(user), path_(std::move(path)), direction_(way),
          impersonation_(std::move(impersonation)) {}

    // False when the user has canceled; otherwise counts `bytes` and tells the user.
    bool Continue(std::uint64_t bytes) override;
    // The direction's record (0x40019 or 0x4001a) with the path and `hints`, over `cause`.
    Common::Error WrapError(const Common::ErrorOrigin& origin, const Common::Error& cause,
                            std::uint64_t hints) const;

    backup_user_callback* User() const noexcept { return user_; }
    const std::u16string& Path() const noexcept { return path_; }
    const std::shared_ptr<SubstToken>& Impersonation() const noexcept { return impersonation_; }
    std::uint64_t Total() const noexcept { return total_; }

private:
    backup_user_callback* user_;
    std::uint64_t total_ = 0;
    std::u16string path_;
    direction direction_;
    std::shared_ptr<SubstToken> impersonation_;
};

// Asks the user about `error` and tells whether to try again. An answer of abort turns
// `error` into 0x4000f "Canceled." over the former error.
bool IsRepeatPossible(backup_user_callback* callback, Common::Error& error,
                      const std::u16string& path);

// True when `error` or one of its causes has `code`.
bool ChainHas(const Common::Error& error, std::uint32_t code);

// The backup stream of an open handle as a sequential input with relative seeks forward
// within the current stream. Errors are recorded wrapped as data errors of the context.
class NTBackupStream final : public ri_file {
public:
    NTBackupStream(Platform::BackupSource& source, Platform::FileHandle handle,
                   bool processSecurity, BackupContext& context)
        : source_(source), handle_(handle), security_(processSecurity), context_(context) {}
    ~NTBackupStream() override;

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override;
    std::uint64_t Seek(std::uint64_t position) override;
    std::uint64_t SeekRel(std::int64_t delta) override;
    std::uint64_t SeekEnd(std::int64_t delta) override;
    bool Rewind() override;
    std::uint64_t Size() override;

    std::uint64_t Position() const noexcept { return position_; }

private:
    Platform::BackupSource& source_;
    Platform::FileHandle handle_;
    bool security_;
    bool delivered_ = false;
    BackupContext& context_;
    std::uint64_t position_ = 0;
};

// ChunkNTBackupStream that also tells how far the consumer has got: the input position
// after the last block delivered (or stream stepped over), where a repeat resumes.
Common::Error ChunkStream(file_backup_stream& consumer, ri_file& input, std::uint32_t options,
                          ChunkNTBackupStreamCallback* callback, std::uint64_t resume,
                          std::uint64_t& delivered);

// Turns a privilege on for the calling thread: 0x40014 "Access to the file is denied." with
// the failed step as function, and the system's code beneath.
Common::Error EnablePrivilege(Platform::BackupSource& source, const char* name);

Common::Error BackupFile(Platform::BackupSource& source, const std::u16string& path,
                         file_backup_writer& writer,
                         const std::shared_ptr<SubstToken>& impersonation);
Common::Error RestoreFile(Platform::BackupSource& source, const std::u16string& path,
                          file_restore_source& chunks,
                          const std::shared_ptr<SubstToken>& impersonation);

// Runs the once-per-process first use of the raw form of encrypted files.
void WarmUpEncryptedRaw(Platform::BackupSource& source);

}  // namespace File
