// Rebuilding a file from its chunks: the attributes first, then whatever chunks arrive, in
// their order, and the times last. Security that cannot be written is negotiated with the
// user, and a target that cannot be opened is left alone when it already holds what the
// backup holds.

#include <algorithm>
#include <cstring>
#include <vector>

#include <tessel_link/common/assert.h>

#include "file/backup_handle.h"
#include "file/backup_stream.h"
#include "file/system_error.h"

namespace File {

namespace {

constexpr std::uint32_t kSecureWriteAccess = 0xC10C0000u;
constexpr std::uint32_t kSecureWriteAccessUnc = 0xC00C0000u;
constexpr std::uint32_t kReadWrite = Platform::kGenericRead | Platform::kGenericWrite;

bool IsUncPath(const std::u16string& path) {
    return path.compare(0, 8, u"\\\\?\\UNC\\") == 0;
}

std::uint32_t LittleU32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}

std::int64_t LittleI64(const unsigned char* p) {
    return static_cast<std::int64_t>(std::uint64_t(LittleU32(p)) |
                                     std::uint64_t(LittleU32(p + 4)) << 32);
}

Common::Error Canceled(const char* origin, const Common::Error& cause = Common::Error()) {
    Common::Error error = MakeFileError(TL_ORIGIN(origin), kCanceled);
    if (!cause.Empty()) {
        error.AddCause(cause);
    }
    return error;
}

// Asks the user about an error that an answer can get past: 0 abort, 1 retry, 2 ignore.
int Ask(BackupContext& context, const Common::Error& error) {
    backup_user_callback* user = context.User();
    return user == nullptr ? -1 : user->OnError(error, context.Path());
}

// Whether security that could not be written may be written anyway (1), left out (2), or
// the restore stops (0).
int AskForSecurityWriting(Platform::BackupSource& source, BackupContext& context,
                          const Common::Error& error) {
    backup_user_callback* user = context.User();
    if (user == nullptr) {
        return answer_ignore;
    }
    Common::Error asked = MakeFileError(TL_ORIGIN("AskForSecurityWriting"), kSecurityWriteFailed);
    asked.AddCause(error);
    for (const char* privilege : {"SeRestorePrivilege", "SeSecurityPrivilege"}) {
        if (EnablePrivilege(source, privilege).Failed()) {
            return user->OnError(asked, context.Path());
        }
    }
    return user->OnError(asked, context.Path());
}

// The comparator's reading side: the backup stream of the existing target, block by block,
// compared with the bytes of the source chunk.
class BackupStreamsComparator final : public file_backup_stream {
public:
    explicit BackupStreamsComparator(i_file& chunk) : chunk_(chunk) {}

    bool Write(std::unique_ptr<raw_data> block) override {
        if (block->size == 0) {
            return true;
        }
        buffer_.resize(std::max<std::size_t>(buffer_.size(), block->size));
        std::uint64_t got = 0;
        std::uint64_t total = 0;
        while (total < block->size && chunk_.Read(buffer_.data() + total, block->size - total, got) &&
               got != 0) {
            total += got;
        }
        if (total != block->size ||
            std::memcmp(buffer_.data(), block->buffer.get() + block->offset, total) != 0) {
            equal_ = false;
            SetError(MakeFileError(TL_ORIGIN("BackupStreamsComparator::Write"), kCanceled));
            return false;
        }
        return true;
    }

    bool Equal() const noexcept { return equal_; }

private:
    i_file& chunk_;
    std::vector<unsigned char> buffer_;
    bool equal_ = true;
};

// The loop without chunking that feeds the comparator.
Common::Error DoBackupRead(Platform::BackupSource& source, Platform::FileHandle handle,
                           file_backup_stream& stream, BackupContext& context, bool security) {
    Common::Error result;
    for (;;) {
        std::unique_ptr<raw_data> block = stream.Create(kBackupBlock);
        if (!block) {
            result = MakeFileError(TL_ORIGIN("DoBackupRead"), kOutOfMemory);
            break;
        }
        std::size_t got = 0;
        const Platform::SystemError failure =
            source.BackupRead(handle, block->buffer.get(), kBackupBlock, got, security);
        if (failure.Failed() && failure.Windows != Platform::kErrorNotSupported) {
            result = context.WrapError(
                TL_ORIGIN("DoBackupRead"),
                MakeSystemError(TL_ORIGIN("DoBackupRead"), "BackupRead", context.Path().c_str(),
                                failure, kReadFailed),
                kHintData);
            break;
        }
        if (!context.Continue(got)) {
            result = Canceled("DoBackupRead");
            break;
        }
        block->size = got;
        if (!stream.Write(std::move(block))) {
            result = context.WrapError(TL_ORIGIN("DoBackupRead"), stream.GetError(), kHintData);
            break;
        }
        if (got < kBackupBlock) {
            break;
        }
    }
    (void)source.BackupEnd(handle);  // releasing a read context leaves nothing to report
    return result;
}

// A backup stream read without its security streams.
class WithoutSecurity final : public i_file {
public:
    explicit WithoutSecurity(i_file& in) : in_(in) {}

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = 0;
        auto* out = static_cast<unsigned char*>(buffer);
        while (read < count) {
            if (left_ == 0 && sent_ == got_) {
                if (!NextHeader()) {
                    return !Failed();
                }
                continue;
            }
            if (sent_ < got_) {
                const std::size_t take =
                    static_cast<std::size_t>(std::min<std::uint64_t>(count - read, got_ - sent_));
                std::memcpy(out + read, header_ + sent_, take);
                sent_ += take;
                read += take;
                continue;
            }
            std::uint64_t got = 0;
            if (dropping_) {
                unsigned char scratch[4096];
                if (!in_.Read(scratch, std::min<std::uint64_t>(left_, sizeof scratch), got)) {
                    SetError(in_.GetError());
                    return false;
                }
            } else if (!in_.Read(out + read, std::min(count - read, left_), got)) {
                SetError(in_.GetError());
                return false;
            } else {
                read += got;
            }
            if (got == 0) {
                left_ = 0;  // the source ends early: what is left compares as missing
                return true;
            }
            left_ -= got;
        }
        return true;
    }

private:
    bool NextHeader() {
        got_ = 0;
        sent_ = 0;
        while (got_ < sizeof header_) {
            std::uint64_t got = 0;
            if (!in_.Read(header_ + got_, sizeof header_ - got_, got)) {
                SetError(in_.GetError());
                return false;
            }
            if (got == 0) {
                break;
            }
            got_ += static_cast<std::size_t>(got);
        }
        if (got_ < sizeof header_) {
            left_ = 0;
            dropping_ = false;
            return got_ != 0;
        }
        const std::uint64_t size =
            std::uint64_t(LittleU32(header_ + 8)) | std::uint64_t(LittleU32(header_ + 12)) << 32;
        left_ = size + LittleU32(header_ + 16);
        dropping_ = LittleU32(header_) == Platform::kStreamSecurity;
        if (dropping_) {
            sent_ = got_;
        }
        return true;
    }

    i_file& in_;
    unsigned char header_[Platform::kStreamHeaderSize] = {};
    std::size_t got_ = 0;
    std::size_t sent_ = 0;
    std::uint64_t left_ = 0;
    bool dropping_ = false;
};

class Restorer {
public:
    Restorer(Platform::BackupSource& source, const std::u16string& path,
             file_restore_source& chunks, const std::shared_ptr<SubstToken>& impersonation)
        : source_(source), path_(path), chunks_(chunks), options_(chunks.Options()),
          context_(chunks.Callback(), path, BackupContext::restoring, impersonation),
          handle_(source, impersonation) {}

    Common::Error Run();

private:
    template <typename Call>
    Platform::SystemError Scoped(Call&& call) {
        return handle_.Scoped(std::forward<Call>(call));
    }
    Common::Error OpenForStream(i_file& chunk, bool& skip);
    Common::Error OpenPlain();
    Common::Error StartCompression();
    Common::Error DoBackupWrite(i_file& chunk);
    Common::Error WriteEncrypted(i_file& chunk);
    Common::Error FillFileFrom(i_file& chunk);
    Common::Error SetTimes();
    bool TargetIsIdentical(i_file& chunk);

    Platform::BackupSource& source_;
    std::u16string path_;
    file_restore_source& chunks_;
    std::uint32_t options_;
    BackupContext context_;
    BackupHandle handle_;
    std::uint32_t attributes_ = 0;
    // What the target was before the restore began, 0 when there was none.
    std::uint32_t existingAttributes_ = 0;
    Platform::FileDisposition disposition_ = Platform::FileDisposition::CreateAlways;
    std::uint32_t flags_ = 0;
    bool security_ = true;
    bool securityLost_ = false;
    bool haveTimes_ = false;
    std::int64_t creation_ = 0;
    std::int64_t lastWrite_ = 0;
};

Common::Error Restorer::Run() {
    (void)EnablePrivilege(source_, "SeRestorePrivilege");  // a restore without it still
    (void)EnablePrivilege(source_, "SeSecurityPrivilege");  // writes what the user may
    WarmUpEncryptedRaw(source_);
    security_ = (options_ & backup_no_security) == 0;

    Platform::BackupFileInfo existing;
    bool exists = false;
    {
        Common::Error entered;
        TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
        if (entered.Failed()) {
            return entered;
        }
        exists = !source_.GetAttributes(path_, existing).Failed();
        existingAttributes_ = exists ? existing.Attributes : 0;
        if (exists && (existing.Attributes & Platform::kBackupAttrReadOnly) != 0) {
            const Platform::SystemError failure = source_.SetAttributes(
                path_, existing.Attributes & ~Platform::kBackupAttrReadOnly);
            if (failure.Failed() && (existing.Attributes & Platform::kBackupAttrDirectory) == 0) {
                return MakeFixedSystemError(TL_ORIGIN("RestoreFileImpl"), "SetFileAttributesW",
                                            path_.c_str(), failure, kRecoverFailed);
            }
        }
    }
    flags_ = (options_ & backup_skip_data) != 0 ? 0 : Platform::kFlagOpenReparsePoint;

    std::uint32_t type = 0;
    std::unique_ptr<i_file> chunk = chunks_.NextChunk(type);
    if (!chunk) {
        return chunks_.GetError();
    }
    unsigned char word[4];
    if (!chunk->ReadExact(word, sizeof word)) {
        return chunk->GetError();
    }
    attributes_ = LittleU32(word);
    if (!context_.Continue(4)) {
        return Canceled("RestoreFileImpl");
    }
    const bool directory = (attributes_ & Platform::kBackupAttrDirectory) != 0;
    if (directory) {
        const Platform::SystemError failure = Scoped([&] { return source_.CreateDirectory(path_); });
        if (failure.Windows == Platform::kErrorAlreadyExists) {
            if ((attributes_ & Platform::kBackupAttrEncrypted) == 0 && exists &&
                (existing.Attributes & Platform::kBackupAttrEncrypted) != 0) {
                (void)Scoped([&] { return source_.Decrypt(path_); });
            }
        } else if (failure.Failed()) {
            return MakeFixedSystemError(TL_ORIGIN("RestoreFileImpl"), "CreateDirectoryW",
                                        path_.c_str(), failure, kRecoverFailed);
        }
        disposition_ = Platform::FileDisposition::OpenExisting;
    }

    for (chunk = chunks_.NextChunk(type); chunk; chunk = chunks_.NextChunk(type)) {
        Common::Error error;
        switch (type) {
            case chunk_stream: {
                bool skip = false;
                if (!handle_.Valid()) {
                    error = OpenForStream(*chunk, skip);
                    if (error.Failed() || skip) {
                        break;
                    }
                }
                error = StartCompression();
                if (error.Succeeded()) {
                    error = DoBackupWrite(*chunk);
                }
                break;
            }
            case chunk_efs_raw:
                handle_.Close();
                error = WriteEncrypted(*chunk);
                break;
            case chunk_plain_data:
                if (!handle_.Valid()) {
                    error = OpenPlain();
                    if (error.Succeeded()) {
                        error = StartCompression();
                    }
                }
                if (error.Succeeded()) {
                    error = FillFileFrom(*chunk);
                }
                break;
            case chunk_times:
                if ((options_ & backup_decrypted) == 0) {
                    unsigned char times[16];
                    if (!chunk->ReadExact(times, sizeof times)) {
                        error = chunk->GetError();
                        break;
                    }
                    if (!context_.Continue(16)) {
                        error = Canceled("RestoreFileImpl");
                        break;
                    }
                    creation_ = LittleI64(times);
                    lastWrite_ = LittleI64(times + 8);
                    haveTimes_ = true;
                }
                break;
            case chunk_open_6:
            case chunk_open_7:
                if (!directory && !handle_.Valid()) {
                    error = OpenPlain();
                }
                break;
            default:
                break;
        }
        if (error.Failed()) {
            return error;
        }
    }
    if (chunks_.GetError().Failed()) {
        return chunks_.GetError();
    }
    return haveTimes_ ? SetTimes() : Common::ErrorSuccess;
}

Common::Error Restorer::OpenForStream(i_file& chunk, bool& skip) {
    skip = false;
    Common::Error failed;
    if (!security_) {
        handle_.Init(path_, path_, kReadWrite, disposition_, flags_ | Platform::kFlagBackupSemantics,
                     attributes_);
        failed = handle_.GetError();
    } else {
        const std::uint32_t access = IsUncPath(path_) ? kSecureWriteAccessUnc : kSecureWriteAccess;
        if (handle_.Init(path_, path_, access, disposition_,
                         flags_ | Platform::kFlagBackupSemantics, attributes_)) {
            return Common::ErrorSuccess;
        }
        failed = handle_.GetError();
        if (handle_.Init(path_, path_, kReadWrite, disposition_,
                         flags_ | Platform::kFlagBackupSemantics, attributes_)) {
            switch (AskForSecurityWriting(source_, context_, failed)) {
                case answer_abort:
                    handle_.Close();
                    return Canceled("RestoreFileImpl", failed);
                case answer_retry:
                    return Common::ErrorSuccess;
                case answer_ignore:
                    security_ = false;
                    securityLost_ = true;
                    return Common::ErrorSuccess;
                default:
                    TL_ASSERT_TEXT(false, "false");
                    handle_.Close();
                    return Canceled("RestoreFileImpl", failed);
            }
        }
    }
    if (handle_.Valid()) {
        return Common::ErrorSuccess;
    }
    if (TargetIsIdentical(chunk)) {
        skip = true;
        return Common::ErrorSuccess;
    }
    return context_.WrapError(TL_ORIGIN("RestoreFileImpl"), failed, kHintData);
}

bool Restorer::TargetIsIdentical(i_file& chunk) {
    BackupHandle existing(source_, context_.Impersonation());
    if (!existing.Init(path_, path_, Platform::kGenericRead, Platform::FileDisposition::OpenExisting,
                       flags_ | Platform::kFlagBackupSemantics, existingAttributes_)) {
        return false;
    }
    const auto compare = [&](i_file& source, bool security) {
        BackupStreamsComparator comparator(source);
        Common::Error error;
        {
            Common::Error entered;
            TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
            if (entered.Failed()) {
                return false;
            }
            error = DoBackupRead(source_, existing.Handle(), comparator, context_, security);
        }
        // A difference stops the read as a cancel: it is no error.
        if (!comparator.Equal() || error.Failed()) {
            return false;
        }
        // The source must end where the existing stream ended.
        unsigned char extra = 0;
        std::uint64_t got = 0;
        return source.Read(&extra, 1, got) && got == 0;
    };
    if (compare(chunk, security_)) {
        return true;
    }
    // The security may be all that differs (or all that cannot be read): once more without
    // it on either side, when the chunk can be read again.
    auto* again = dynamic_cast<ri_file*>(&chunk);
    if (!security_ || again == nullptr) {
        return false;
    }
    again->ClearError();
    if (again->Seek(0) != 0 || again->Failed()) {
        return false;
    }
    WithoutSecurity filtered(*again);
    return compare(filtered, false);
}

Common::Error Restorer::OpenPlain() {
    if (!handle_.Init(path_, path_, kReadWrite, disposition_, flags_, attributes_)) {
        return context_.WrapError(TL_ORIGIN("RestoreFileImpl"), handle_.GetError(), kHintData);
    }
    return Common::ErrorSuccess;
}

Common::Error Restorer::StartCompression() {
    const bool on = (attributes_ & Platform::kBackupAttrCompressed) != 0;
    const Platform::SystemError failure =
        Scoped([&] { return source_.SetCompression(handle_.Handle(), on); });
    switch (failure.Windows) {
        case 0:
        case 1:
        case 5:
        case 50:
        case 1717:
            if (failure.Windows != 0 || !failure.Failed()) {
                return Common::ErrorSuccess;
            }
            [[fallthrough]];
        default:
            return MakeFixedSystemError(TL_ORIGIN("StartCompression"), "FSCTL_SET_COMPRESSION",
                                        path_.c_str(), failure, kRecoverFailed);
    }
}

Common::Error Restorer::DoBackupWrite(i_file& chunk) {
    // Not cleared first: every byte used is read into it.
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(kBackupBlock);
    Common::Error error;
    bool stop = false;
    while (!stop) {
        std::uint64_t count = 0;
        if (!chunk.Read(buffer.get(), kBackupBlock, count) &&
            chunk.GetError().Code() != kEndOfFile.Code) {
            error = context_.WrapError(TL_ORIGIN("DoBackupWrite"), chunk.GetError(), kHintData);
            break;
        }
        std::size_t done = 0;
        bool skipped = false;
        while (error.Succeeded() && !skipped) {
            std::size_t written = 0;
            const Platform::SystemError failure = Scoped([&] {
                return source_.BackupWrite(handle_.Handle(), buffer.get() + done,
                                           static_cast<std::size_t>(count) - done, written,
                                           security_);
            });
            done += written;
            if (!failure.Failed()) {
                break;
            }
            const Common::Error system = MakeSystemError(
                TL_ORIGIN("DoBackupWrite"), "BackupWrite", path_.c_str(), failure, kWriteFailed);
            const std::uint32_t code = failure.Windows;
            if ((code == Platform::kErrorBackupAccessDenied ||
                 code == Platform::kErrorInvalidOwner) &&
                security_ && !IsUncPath(path_)) {
                const int answer = AskForSecurityWriting(source_, context_, system);
                if (answer == answer_abort) {
                    error = Canceled("DoBackupWrite", system);
                } else if (answer == answer_ignore) {
                    security_ = false;
                    securityLost_ = true;
                }
                continue;
            }
            if (code == Platform::kErrorPathNotFound) {
                Common::Error asked =
                    MakeFileError(TL_ORIGIN("ProcessAlternateStreamError"), kAlternateStreamUnsupported);
                asked.AddCause(system);
                const int answer = Ask(context_, asked);
                if (answer == answer_retry) {
                    continue;
                }
                if (answer == answer_ignore) {
                    skipped = true;
                    break;
                }
                error = answer == answer_abort ? Canceled("DoBackupWrite", asked)
                                               : context_.WrapError(TL_ORIGIN("DoBackupWrite"),
                                                                    asked, kHintData);
                break;
            }
            if (code == Platform::kErrorDiskFull) {
                const int answer = Ask(context_, system);
                if (answer == answer_retry) {
                    continue;
                }
                error = answer == answer_abort ? Canceled("DoBackupWrite", system)
                                               : context_.WrapError(TL_ORIGIN("DoBackupWrite"),
                                                                    system, kHintData);
                break;
            }
            if (code == Platform::kErrorNotAReparsePoint && IsUncPath(path_)) {
                skipped = true;
                break;
            }
            error = context_.WrapError(TL_ORIGIN("DoBackupWrite"), system, kHintData);
        }
        if (error.Failed() || skipped) {
            break;
        }
        if (!context_.Continue(count)) {
            error = Canceled("DoBackupWrite");
            break;
        }
        stop = count < kBackupBlock;
    }
    const Platform::SystemError ended =
        Scoped([&] { return source_.BackupEnd(handle_.Handle()); });
    if (ended.Failed() && error.Succeeded()) {
        error = context_.WrapError(TL_ORIGIN("DoBackupWrite"),
                                   MakeSystemError(TL_ORIGIN("DoBackupWrite"), "BackupWrite",
                                                   path_.c_str(), ended, kWriteFailed),
                                   kHintData);
    }
    return error;
}

// The raw form of an encrypted file, taken from the chunk block by block.
class EncryptedImport final : public Platform::EncryptedRawCallback {
public:
    explicit EncryptedImport(i_file& chunk) : chunk_(chunk) {}
    std::uint32_t Transfer(unsigned char* data, std::uint32_t& size) override {
        std::uint64_t got = 0;
        if (!chunk_.Read(data, size, got)) {
            size = 0;
            return 0x80004005u;
        }
        size = static_cast<std::uint32_t>(got);
        return 0;
    }

private:
    i_file& chunk_;
};

Common::Error Restorer::WriteEncrypted(i_file& chunk) {
    const bool directory = (attributes_ & Platform::kBackupAttrDirectory) != 0;
    Platform::EncryptedContext raw = nullptr;
    Platform::SystemError failure =
        Scoped([&] { return source_.OpenEncryptedRaw(path_, directory ? 3 : 1, raw); });
    if (failure.Failed()) {
        return context_.WrapError(TL_ORIGIN("EncryptedFileWriter::WriteTo"),
                                  MakeSystemError(TL_ORIGIN("EncryptedFileWriter::WriteTo"),
                                                  "OpenEncryptedFileRawW", path_.c_str(), failure,
                                                  kOpenFailed),
                                  kHintEncrypted);
    }
    EncryptedImport importer(chunk);
    failure = Scoped([&] { return source_.WriteEncryptedRaw(raw, importer); });
    source_.CloseEncryptedRaw(raw);
    if (failure.Failed()) {
        if (chunk.Failed()) {
            return context_.WrapError(TL_ORIGIN("EncryptedFileWriter::WriteTo"), chunk.GetError(),
                                      kHintEncrypted);
        }
        return context_.WrapError(TL_ORIGIN("EncryptedFileWriter::WriteTo"),
                                  MakeSystemError(TL_ORIGIN("EncryptedFileWriter::WriteTo"),
                                                  "WriteEncryptedFileRaw", path_.c_str(), failure,
                                                  kWriteFailed),
                                  kHintEncrypted);
    }
    if (context_.User() != nullptr && context_.User()->IsCanceled()) {
        return Canceled("EncryptedFileWriter::WriteTo");
    }
    return Common::ErrorSuccess;
}

Common::Error Restorer::FillFileFrom(i_file& chunk) {
    // Not cleared first: every byte used is read into it.
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(kBackupBlock);
    for (;;) {
        std::uint64_t count = 0;
        if (!chunk.Read(buffer.get(), kBackupBlock, count)) {
            return context_.WrapError(TL_ORIGIN("FillFileFrom"), chunk.GetError(), kHintData);
        }
        if (count == 0) {
            return Common::ErrorSuccess;
        }
        std::size_t done = 0;
        while (done < count) {
            std::size_t written = 0;
            const Platform::SystemError failure =
                handle_.WriteFile(buffer.get() + done, static_cast<std::size_t>(count) - done, written);
            done += written;
            if (!failure.Failed()) {
                continue;
            }
            const Common::Error system = MakeSystemError(TL_ORIGIN("FillFileFrom"), "WriteFile",
                                                         path_.c_str(), failure, kWriteFailed);
            if (system.Code() == kDiskFull.Code) {
                const int answer = Ask(context_, system);
                if (answer == answer_retry) {
                    continue;
                }
                if (answer == answer_ignore) {
                    return Common::ErrorSuccess;
                }
                if (answer == answer_abort) {
                    return Canceled("FillFileFrom", system);
                }
            }
            return context_.WrapError(TL_ORIGIN("FillFileFrom"), system, kHintData);
        }
        if (!context_.Continue(count)) {
            return Canceled("FillFileFrom");
        }
    }
}

Common::Error Restorer::SetTimes() {
    const std::uint64_t creation = MillisecondsToFileTime(creation_);
    const std::uint64_t write = MillisecondsToFileTime(lastWrite_);
    BackupHandle times(source_, context_.Impersonation());
    BackupHandle* target = &handle_;
    if (!handle_.Valid()) {
        if (!times.Init(path_, path_, Platform::kFileWriteAttributes,
                        Platform::FileDisposition::OpenExisting,
                        Platform::kFlagBackupSemantics | Platform::kFlagOpenReparsePoint,
                        attributes_)) {
            // Nothing to set when the target already has the times.
            BackupHandle reader(source_, context_.Impersonation());
            if (!reader.Init(path_, path_, Platform::kGenericRead,
                             Platform::FileDisposition::OpenExisting,
                             Platform::kFlagBackupSemantics | Platform::kFlagOpenReparsePoint,
                             attributes_)) {
                return times.GetError();
            }
            std::uint64_t haveCreation = 0;
            std::uint64_t haveWrite = 0;
            const Platform::SystemError failure = reader.Scoped(
                [&] { return source_.GetTimes(reader.Handle(), haveCreation, haveWrite); });
            if (!failure.Failed() && FileTimeToMilliseconds(haveCreation) == creation_ &&
                FileTimeToMilliseconds(haveWrite) == lastWrite_) {
                return Common::ErrorSuccess;
            }
            return times.GetError();
        }
        target = &times;
    }
    const Platform::SystemError failure =
        target->Scoped([&] { return source_.SetTimes(target->Handle(), creation, write); });
    if (failure.Failed() && failure.Windows != Platform::kErrorInvalidParameter) {
        return MakeSystemError(TL_ORIGIN("RestoreFileImpl"), "SetFileTime", path_.c_str(), failure,
                               kWriteFailed);
    }
    return Common::ErrorSuccess;
}

}  // namespace

Common::Error RestoreFile(Platform::BackupSource& source, const std::u16string& path,
                          file_restore_source& chunks,
                          const std::shared_ptr<SubstToken>& impersonation) {
    Restorer restorer(source, path, chunks, impersonation);
    Common::Error error = restorer.Run();
    if (error.Failed() && error.Code() != kRecoverFailed.Code) {
        Common::Error wrapped = MakeFileError(TL_ORIGIN("RestoreFile"), kRecoverFailed);
        wrapped.AddCause(error);
        return wrapped;
    }
    return error;
}

Common::Error RestoreFile(const std::u16string& path, file_restore_source& chunks,
                          const std::shared_ptr<SubstToken>& impersonation) {
    return RestoreFile(Platform::SystemBackupSource(), path, chunks, impersonation);
}

}  // namespace File
