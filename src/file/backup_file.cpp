// Backing one file up: the attributes chunk once, the backup stream re-chunked, the raw or
// plain form of an encrypted file, and the times, with the repeat rule around them.

#include <algorithm>
#include <cstring>

#include <tessel_link/common/messages.h>

#include "file/backup_handle.h"
#include "file/backup_stream.h"
#include "file/system_error.h"

namespace File {

namespace {

bool EndsWithVolumeName(const std::u16string& path) {
    if (!path.empty() && path.back() == u':') {
        return true;
    }
    static constexpr char16_t kGlobalRoot[] = u"\\\\?\\GLOBALROOT\\Device\\";
    constexpr std::size_t kGlobalRootLength = 22;
    if (path.size() > kGlobalRootLength) {
        bool same = true;
        for (std::size_t i = 0; i < kGlobalRootLength && same; ++i) {
            char16_t a = path[i];
            char16_t b = kGlobalRoot[i];
            if (a >= u'a' && a <= u'z') a = static_cast<char16_t>(a - 32);
            if (b >= u'a' && b <= u'z') b = static_cast<char16_t>(b - 32);
            same = a == b;
        }
        if (same && path.find(u'\\', kGlobalRootLength) == std::u16string::npos) {
            return true;
        }
    }
    return path.size() > 4 && path.compare(0, 4, u"\\\\?\\") == 0 &&
           path.find(u'\\', 4) == std::u16string::npos;
}

void PutU32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

void PutI64(unsigned char* p, std::int64_t value) {
    const auto v = static_cast<std::uint64_t>(value);
    for (int i = 0; i < 8; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

Common::Error Canceled(const char* origin, const Common::Error& cause = Common::Error()) {
    Common::Error error = MakeFileError(TL_ORIGIN(origin), kCanceled);
    if (!cause.Empty()) {
        error.AddCause(cause);
    }
    return error;
}

// Writes `bytes` to `stream` as one block.
Common::Error WriteBlock(file_backup_stream& stream, const void* bytes, std::size_t count,
                         const char* origin) {
    std::unique_ptr<raw_data> block = stream.Create(count);
    if (!block) {
        return MakeFileError(TL_ORIGIN(origin), kOutOfMemory);
    }
    std::memcpy(block->buffer.get() + block->offset, bytes, count);
    block->size = count;
    if (!stream.Write(std::move(block))) {
        Common::Error error = MakeFileError(TL_ORIGIN(origin), kWriteFailed);
        if (!stream.GetError().Empty()) {
            error.AddCause(stream.GetError());
        }
        return error;
    }
    return Common::ErrorSuccess;
}

Common::Error StreamNotCreated(file_backup_writer& writer, const char* origin) {
    Common::Error error = MakeFileError(TL_ORIGIN(origin), kWriteFailed);
    if (!writer.GetError().Empty()) {
        error.AddCause(writer.GetError());
    }
    return error;
}

// The raw form of an encrypted file, block by block into a chunk.
class EncryptedExport final : public Platform::EncryptedRawCallback {
public:
    EncryptedExport(file_backup_stream& chunk, BackupContext& context)
        : chunk_(chunk), context_(context) {}

    std::uint32_t Transfer(unsigned char* data, std::uint32_t& size) override {
        if (WriteBlock(chunk_, data, size, "EncryptedFileReader::ReadFrom").Failed()) {
            return kFailure;
        }
        if (!context_.Continue(size)) {
            canceled_ = true;
            return kFailure;
        }
        return 0;
    }

    bool Canceled() const noexcept { return canceled_; }
    static constexpr std::uint32_t kFailure = 0x80004005u;

private:
    file_backup_stream& chunk_;
    BackupContext& context_;
    bool canceled_ = false;
};

class RepeatingBackuper {
public:
    RepeatingBackuper(Platform::BackupSource& source, file_backup_writer& writer,
                      BackupContext& context, std::u16string openPath)
        : source_(source), writer_(writer), context_(context), path_(std::move(openPath)) {}

    void PerformBackup();

    Common::Error& Error() noexcept { return error_; }
    bool TakeNoRepeat() noexcept {
        const bool was = noRepeat_;
        noRepeat_ = false;
        return was;
    }

private:
    std::uint32_t Options() const { return writer_.Options(); }
    void Stop(Common::Error error, bool noRepeat) {
        error_ = std::move(error);
        noRepeat_ = noRepeat_ || noRepeat;
    }
    Common::Error CheckFileChanges(std::uint32_t attributes, std::uint64_t size,
                                   std::uint64_t lastWrite);
    Common::Error BackupEFS(std::uint32_t attributes);
    Common::Error WriteFileTimesChunk();

    Platform::BackupSource& source_;
    file_backup_writer& writer_;
    BackupContext& context_;
    std::u16string path_;
    Common::Error error_;
    std::unique_ptr<file_backup_stream> stream_;
    // The snapshot of the file taken at the first attempt.
    std::uint32_t attributes_ = 0xffffffffu;
    std::uint64_t size_ = 0;
    std::uint64_t lastWrite_ = 0;
    std::uint64_t creation_ = 0;
    std::uint64_t resume_ = 0;
    bool efsDone_ = false;
    bool streamDone_ = false;
    bool noRepeat_ = false;
    bool attributesWritten_ = false;
};

Common::Error RepeatingBackuper::CheckFileChanges(std::uint32_t attributes, std::uint64_t size,
                                                  std::uint64_t lastWrite) {
    const auto changed = [] {
        return MakeFileError(TL_ORIGIN("RepeatingBackuper::CheckFileChanges"), kFileChanged);
    };
    if (attributes_ == 0xffffffffu) {
        attributes_ = attributes;
    } else if (attributes_ != attributes) {
        return changed();
    }
    if (size_ == 0) {
        size_ = size;
    } else if (size_ != size) {
        return changed();
    }
    if (lastWrite_ == 0) {
        lastWrite_ = lastWrite;
    } else if (lastWrite_ != lastWrite) {
        return changed();
    }
    return Common::ErrorSuccess;
}

void RepeatingBackuper::PerformBackup() {
    if (error_.Failed()) {
        return;
    }
    const std::uint32_t options = Options();
    Platform::BackupFileInfo info;
    {
        Common::Error entered;
        TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
        if (entered.Failed()) {
            Stop(entered, false);
            return;
        }
        const Platform::SystemError failure = source_.GetAttributes(path_, info);
        if (failure.Failed()) {
            Stop(MakeFixedSystemError(TL_ORIGIN("RepeatingBackuper::PerformBackup"),
                                      "GetFileAttributesExW", context_.Path().c_str(), failure,
                                      kReadFailed),
                 false);
            return;
        }
    }
    std::uint32_t attributes = info.Attributes;
    const bool directory = (attributes & Platform::kBackupAttrDirectory) != 0;
    if ((options & backup_data_only) != 0 && directory) {
        return;
    }
    const bool encrypted = (attributes & Platform::kBackupAttrEncrypted) != 0;
    const bool openedEncrypted = encrypted && (options & backup_decrypted) != 0;

    BackupHandle handle(source_, context_.Impersonation());
    if (!encrypted || openedEncrypted) {
        std::uint32_t flags = Platform::kFlagBackupSemantics;
        if ((options & backup_follow_reparse) == 0) {
            flags |= Platform::kFlagOpenReparsePoint;
        }
        handle.Init(path_, context_.Path(), Platform::kGenericRead,
                    Platform::FileDisposition::OpenExisting, flags, attributes);
        if (handle.Valid() && (attributes & Platform::kBackupAttrReparsePoint) != 0 &&
            (flags & Platform::kFlagOpenReparsePoint) != 0) {
            std::uint32_t tag = 0;
            const Platform::SystemError failure = handle.ReparseTag(tag);
            if (failure.Failed()) {
                Stop(MakeFixedSystemError(TL_ORIGIN("IsNtfsDeduplicatedFile"),
                                          "FSCTL_GET_REPARSE_POINT", context_.Path().c_str(),
                                          failure, kReadFailed),
                     false);
                return;
            }
            if (tag == Platform::kReparseTagDedup) {
                // Only the real data of a deduplicated file is of use.
                handle.Init(path_, context_.Path(), Platform::kGenericRead,
                            Platform::FileDisposition::OpenExisting,
                            Platform::kFlagBackupSemantics, 0);
            }
        }
        if (!handle.Valid()) {
            if (openedEncrypted && ChainHas(handle.GetError(), kAccessDenied.Code)) {
                handle.Forget();  // the raw form is read instead
            } else {
                Stop(handle.GetError(), false);
                return;
            }
        }
        if (handle.Valid() && (options & backup_follow_reparse) != 0 &&
            (attributes & Platform::kBackupAttrReparsePoint) != 0) {
            Platform::BackupFileInfo own;
            const Platform::SystemError failure = handle.Info(own);
            if (failure.Failed()) {
                Stop(MakeFixedSystemError(TL_ORIGIN("RepeatingBackuper::PerformBackup"),
                                          "GetFileInformationByHandle", context_.Path().c_str(),
                                          failure, kReadFailed),
                     false);
                return;
            }
            attributes = own.Attributes & ~std::uint32_t{6};
        }
    }

    if (!attributesWritten_) {
        std::unique_ptr<file_backup_stream> chunk = writer_.CreateStream(chunk_attributes);
        if (!chunk) {
            Stop(StreamNotCreated(writer_, "RepeatingBackuper::PerformBackup"), true);
            return;
        }
        unsigned char word[4];
        PutU32(word, attributes);
        if (Common::Error e = WriteBlock(*chunk, word, 4, "RepeatingBackuper::PerformBackup");
            e.Failed()) {
            Stop(e, true);
            return;
        }
        chunk.reset();
        if (!context_.Continue(4)) {
            Stop(Canceled("RepeatingBackuper::PerformBackup"), true);
            return;
        }
        attributesWritten_ = true;
    }

    if (Common::Error e = CheckFileChanges(attributes, info.Size, info.WriteTime); e.Failed()) {
        Stop(e, true);
        return;
    }
    creation_ = info.CreationTime;

    bool handled = false;
    if (handle.Valid() && !streamDone_) {
        if (!stream_) {
            stream_ = writer_.CreateStream(chunk_stream);
            if (!stream_) {
                Stop(StreamNotCreated(writer_, "RepeatingBackuper::PerformBackup"), true);
                return;
            }
        }
        std::uint64_t delivered = 0;
        Common::Error error;
        {
            NTBackupStream input(source_, handle.Handle(), (options & backup_no_security) == 0,
                                 context_);
            error = ChunkStream(*stream_, input, options & (backup_skip_data | backup_data_only),
                                &context_, resume_, delivered);
        }
        if (error.Failed()) {
            resume_ = std::max(resume_, delivered);
            // The archive side failing, or the user stopping, cannot be cured by a repeat.
            const bool fatal = ChainHas(error, kWriteFailed.Code) && !ChainHas(error, kReadFailed.Code);
            Stop(error, fatal || error.Code() == kCanceled.Code);
            return;
        }
        resume_ = 0;
        handle.Close();
        handled = true;
    }
    if (stream_) {
        stream_.reset();
    }
    streamDone_ = true;

    if ((options & backup_data_only) == 0) {
        if (!efsDone_ && !handled) {
            if (Common::Error e = BackupEFS(attributes); e.Failed()) {
                Stop(e, true);
                return;
            }
            efsDone_ = true;
        }
        error_ = WriteFileTimesChunk();
        noRepeat_ = noRepeat_ || error_.Failed();
    } else if (!handled) {
        error_ = MakeFileError(TL_ORIGIN("RepeatingBackuper::PerformBackup"), kReadFailed);
    } else {
        error_ = Common::ErrorSuccess;
    }
}

Common::Error RepeatingBackuper::BackupEFS(std::uint32_t attributes) {
    const std::uint32_t options = Options();
    const bool encrypted = (attributes & Platform::kBackupAttrEncrypted) != 0;
    const bool directory = (attributes & Platform::kBackupAttrDirectory) != 0;
    if (encrypted && (options & backup_decrypted) == 0) {
        std::unique_ptr<file_backup_stream> chunk = writer_.CreateStream(chunk_efs_raw);
        if (!chunk) {
            return StreamNotCreated(writer_, "EncryptedFileReader::ReadFrom");
        }
        Common::Error entered;
        TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
        if (entered.Failed()) {
            return entered;
        }
        Platform::EncryptedContext raw = nullptr;
        Platform::SystemError failure = source_.OpenEncryptedRaw(path_, directory ? 2 : 0, raw);
        if (failure.Failed()) {
            return context_.WrapError(
                TL_ORIGIN("EncryptedFileReader::ReadFrom"),
                MakeSystemError(TL_ORIGIN("EncryptedFileReader::ReadFrom"),
                                "OpenEncryptedFileRawW", context_.Path().c_str(), failure,
                                kOpenFailed),
                kHintEncrypted);
        }
        EncryptedExport exporter(*chunk, context_);
        failure = source_.ReadEncryptedRaw(raw, exporter);
        source_.CloseEncryptedRaw(raw);
        if (!failure.Failed()) {
            return Common::ErrorSuccess;
        }
        if (chunk->Failed()) {
            return context_.WrapError(TL_ORIGIN("EncryptedFileReader::ReadFrom"),
                                      chunk->GetError(), kHintEncrypted);
        }
        if (exporter.Canceled()) {
            return Canceled("EncryptedFileReader::ReadFrom");
        }
        return context_.WrapError(
            TL_ORIGIN("EncryptedFileReader::ReadFrom"),
            MakeSystemError(TL_ORIGIN("EncryptedFileReader::ReadFrom"), "ReadEncryptedFileRaw",
                            context_.Path().c_str(), failure, kReadFailed),
            kHintEncrypted);
    }
    if (encrypted && !directory) {
        BackupHandle handle(source_, context_.Impersonation());
        handle.Init(path_, context_.Path(), Platform::kGenericRead,
                    Platform::FileDisposition::OpenExisting, Platform::kFlagOpenReparsePoint, 0);
        if (!handle.Valid()) {
            return handle.GetError();
        }
        std::unique_ptr<file_backup_stream> chunk = writer_.CreateStream(chunk_plain_data);
        if (!chunk) {
            return StreamNotCreated(writer_, "SaveFileTo");
        }
        for (;;) {
            std::unique_ptr<raw_data> block = chunk->Create(kBackupBlock);
            if (!block) {
                return MakeFileError(TL_ORIGIN("SaveFileTo"), kOutOfMemory);
            }
            std::size_t got = 0;
            const Platform::SystemError failure = handle.ReadFile(
                block->buffer.get() + block->offset, static_cast<std::size_t>(block->capacity), got);
            if (failure.Failed()) {
                return MakeSystemError(TL_ORIGIN("SaveFileTo"), "ReadFile",
                                       context_.Path().c_str(), failure, kReadFailed);
            }
            if (got == 0) {
                return Common::ErrorSuccess;
            }
            if (!context_.Continue(got)) {
                return Canceled("SaveFileTo");
            }
            block->size = got;
            if (!chunk->Write(std::move(block))) {
                Common::Error error = MakeFileError(TL_ORIGIN("SaveFileTo"), kWriteFailed);
                return error.AddCause(chunk->GetError());
            }
        }
    }
    return Common::ErrorSuccess;
}

Common::Error RepeatingBackuper::WriteFileTimesChunk() {
    std::unique_ptr<file_backup_stream> chunk = writer_.CreateStream(chunk_times);
    if (!chunk) {
        return StreamNotCreated(writer_, "WriteFileTimesChunk");
    }
    unsigned char times[16];
    PutI64(times, FileTimeToMilliseconds(creation_));
    PutI64(times + 8, FileTimeToMilliseconds(lastWrite_));
    if (Common::Error e = WriteBlock(*chunk, times, sizeof times, "WriteFileTimesChunk");
        e.Failed()) {
        return e;
    }
    chunk.reset();
    if (!context_.Continue(16)) {
        return Canceled("WriteFileTimesChunk");
    }
    return Common::ErrorSuccess;
}

}  // namespace

Common::Error BackupFile(Platform::BackupSource& source, const std::u16string& path,
                         file_backup_writer& writer,
                         const std::shared_ptr<SubstToken>& impersonation) {
    static bool privilegeEnabled = false;  // a race repeats harmless work
    if (!privilegeEnabled) {
        // Without the privilege the backup still reads what the user may read.
        privilegeEnabled = EnablePrivilege(source, "SeBackupPrivilege").Succeeded();
    }
    WarmUpEncryptedRaw(source);

    std::u16string named = path;
    std::u16string opened = path;
    if (EndsWithVolumeName(path)) {
        named += u"\\\\";
        opened += u"\\";
    }
    BackupContext context(writer.Callback(), named, BackupContext::backing_up, impersonation);
    RepeatingBackuper backuper(source, writer, context, opened);
    for (;;) {
        backuper.PerformBackup();
        Common::Error& error = backuper.Error();
        if (error.Succeeded()) {
            return Common::ErrorSuccess;
        }
        if (backuper.TakeNoRepeat()) {
            return error;
        }
        if (!IsRepeatPossible(writer.Callback(), error, context.Path())) {
            return error;
        }
        error = Common::ErrorSuccess;
    }
}

Common::Error BackupFile(const std::u16string& path, file_backup_writer& writer,
                         const std::shared_ptr<SubstToken>& impersonation) {
    return BackupFile(Platform::SystemBackupSource(), path, writer, impersonation);
}

}  // namespace File
