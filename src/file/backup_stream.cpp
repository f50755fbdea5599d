#include "file/backup_stream.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/messages.h>

#include "file/system_error.h"

namespace File {

namespace {

constexpr std::int64_t kEpochDifferenceMs = 11644473600000;

// The image of a null local time in 100 ns units: the start of 1980 in the local zone.
std::uint64_t NullLocalTimeImage() {
    static const std::uint64_t image = [] {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        // Minutes to add to local time to get UTC, with daylight saving as it stands.
        const std::int64_t biasMinutes = -static_cast<std::int64_t>(local.tm_gmtoff) / 60;
        return static_cast<std::uint64_t>((biasMinutes * 60000 + 0x6cc68f547000) * 1000);
    }();
    return image;
}

Common::Error WithCause(Common::Error head, const Common::Error& cause) {
    if (!cause.Empty()) {
        head.AddCause(cause);
    }
    return head;
}

Common::Error Corrupted(const char* origin) {
    return MakeFileError(TL_ORIGIN(origin), kCorrupted);
}

Common::Error ReadError(const char* origin, const Common::Error& cause) {
    return WithCause(MakeFileError(TL_ORIGIN(origin), kReadFailed), cause);
}

struct StreamHeader {
    std::uint32_t Id = 0;
    std::uint32_t Attributes = 0;
    std::uint64_t Size = 0;
    std::uint32_t NameSize = 0;
};

std::uint32_t LittleU32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}

// The chunker's walk over one input.
class Chunker {
public:
    Chunker(file_backup_stream& consumer, ri_file& input, std::uint32_t options,
            ChunkNTBackupStreamCallback* callback, std::uint64_t resume)
        : consumer_(consumer), input_(input), options_(options), callback_(callback),
          resume_(resume) {}

    Common::Error Run() {
        for (;;) {
            unsigned char bytes[Platform::kStreamHeaderSize];
            bool end = false;
            Common::Error error = ReadStreamHeader(bytes, end);
            if (error.Failed() || end) {
                return error;
            }
            StreamHeader header;
            header.Id = LittleU32(bytes);
            header.Attributes = LittleU32(bytes + 4);
            header.Size = std::uint64_t(LittleU32(bytes + 8)) | std::uint64_t(LittleU32(bytes + 12)) << 32;
            header.NameSize = LittleU32(bytes + 16);
            const bool valid = header.Id >= Platform::kStreamData &&
                               header.Id <= Platform::kStreamSparseBlock;
            TL_ASSERT_TEXT(valid,
                           "header.StreamId >= BACKUP_DATA && header.StreamId <= BACKUP_SPARSE_BLOCK");
            // A sparse block's body begins with its 8-byte offset.
            if (!valid || (header.Id == Platform::kStreamSparseBlock && header.Size < 8)) {
                return Corrupted("ChunkNTBackupStream");
            }
            const bool data =
                header.Id == Platform::kStreamData || header.Id == Platform::kStreamSparseBlock;
            const bool dropped = (options_ & (data ? backup_skip_data : backup_data_only)) != 0;
            error = dropped ? SkipStream(header) : ReadStreamData(bytes, header);
            if (error.Failed()) {
                return error;
            }
        }
    }

    std::uint64_t Delivered() const noexcept { return delivered_; }

private:
    Common::Error ReadStreamHeader(unsigned char* bytes, bool& end) {
        std::uint64_t got = 0;
        std::uint64_t total = 0;
        // A header may come in pieces; only the end of the input stops it short.
        do {
            if (!input_.Read(bytes + total, Platform::kStreamHeaderSize - total, got) ||
                input_.Failed()) {
                return ReadError("ChunkNTBackupStream::ReadStreamHeader", input_.GetError());
            }
            total += got;
            position_ += got;
        } while (got != 0 && total < Platform::kStreamHeaderSize);
        if (total == 0) {
            end = true;
            return Common::ErrorSuccess;
        }
        return total == Platform::kStreamHeaderSize
                   ? Common::ErrorSuccess
                   : Corrupted("ChunkNTBackupStream::ReadStreamHeader");
    }

    // Reads and drops the name, and the offset of a sparse block, a piece at a time: the
    // sizes come from the stream and are not trusted with an allocation.
    Common::Error ReadStreamName(const StreamHeader& header) {
        const std::uint64_t count =
            std::uint64_t(header.NameSize) + (header.Id == Platform::kStreamSparseBlock ? 8 : 0);
        unsigned char piece[1024];
        std::uint64_t total = 0;
        while (total < count) {
            std::uint64_t got = 0;
            if (!input_.Read(piece, std::min<std::uint64_t>(count - total, sizeof piece), got) ||
                input_.Failed()) {
                return ReadError("ChunkNTBackupStream::ReadStreamName", input_.GetError());
            }
            if (got == 0) {
                return Corrupted("ChunkNTBackupStream::ReadStreamName");
            }
            total += got;
            position_ += got;
        }
        return Common::ErrorSuccess;
    }

    Common::Error Skip(std::uint64_t count, const char* origin) {
        if (count == 0) {
            return Common::ErrorSuccess;
        }
        // A size that no seek forward can cover (a signed seek would go backwards, and the
        // stream would be read again and again) is a corrupted stream.
        if (count > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return MakeFileError(TL_ORIGIN(origin), kCorrupted);
        }
        const std::uint64_t from = input_.SeekRel(0);
        const std::uint64_t to = input_.SeekRel(static_cast<std::int64_t>(count));
        if (input_.Failed() || to < from || to - from != count) {
            return WithCause(MakeFileError(TL_ORIGIN(origin), kSeekFailed), input_.GetError());
        }
        position_ += count;
        return Common::ErrorSuccess;
    }

    // A stream that the options leave out: stepped over whole.
    Common::Error SkipStream(const StreamHeader& header) {
        Common::Error error = ReadStreamName(header);
        if (error.Failed()) {
            return error;
        }
        const std::uint64_t body =
            header.Size - (header.Id == Platform::kStreamSparseBlock ? 8 : 0);
        error = Skip(body, "ChunkNTBackupStream::SkipStreamData");
        if (error.Succeeded()) {
            delivered_ = std::max(delivered_, position_);
        }
        return error;
    }

    Common::Error ReadStreamData(const unsigned char* bytes, const StreamHeader& header) {
        if (position_ > resume_) {
            std::unique_ptr<raw_data> block = consumer_.Create(Platform::kStreamHeaderSize);
            if (!block) {
                return MakeFileError(TL_ORIGIN("ChunkNTBackupStream::ReadStreamData"),
                                     kOutOfMemory);
            }
            std::memcpy(block->buffer.get() + block->offset, bytes, Platform::kStreamHeaderSize);
            block->size = Platform::kStreamHeaderSize;
            if (Common::Error e = Deliver(std::move(block)); e.Failed()) {
                return e;
            }
        }
        // A header not sent again was sent by an earlier run.
        delivered_ = std::max(delivered_, position_);
        std::uint64_t left = std::uint64_t(header.NameSize) + header.Size;
        if (left < header.Size) {
            return Corrupted("ChunkNTBackupStream::ReadStreamData");
        }
        bool nameDropped = false;
        while (left != 0) {
            if (position_ < resume_) {
                if (!nameDropped) {
                    nameDropped = true;
                    const std::uint64_t before = position_;
                    if (Common::Error e = ReadStreamName(header); e.Failed()) {
                        return e;
                    }
                    left -= position_ - before;
                    continue;
                }
                const std::uint64_t step = std::min(left, resume_ - position_);
                if (Common::Error e = Skip(step, "ChunkNTBackupStream::ReadStreamData");
                    e.Failed()) {
                    return e;
                }
                left -= step;
                continue;
            }
            std::unique_ptr<raw_data> block = consumer_.Create(kBackupBlock);
            if (!block) {
                return MakeFileError(TL_ORIGIN("ChunkNTBackupStream::ReadStreamData"),
                                     kOutOfMemory);
            }
            const std::uint64_t count = std::min<std::uint64_t>(block->capacity, left);
            std::uint64_t got = 0;
            input_.Read(block->buffer.get() + block->offset, count, got);
            const bool broke = input_.Failed() || got < count;
            block->size = got;
            position_ += got;
            left -= got;
            // What arrived before a read broke is delivered, so that a repeat resumes at the
            // very byte where it broke.
            if (got != 0) {
                if (Common::Error e = Deliver(std::move(block)); e.Failed()) {
                    return e;
                }
            }
            if (broke) {
                return ReadError("ChunkNTBackupStream::ReadStreamData",
                                 input_.Failed() ? input_.GetError()
                                                 : MakeFileError(TL_ORIGIN("i_file::Read"),
                                                                 kEndOfFile));
            }
        }
        delivered_ = std::max(delivered_, position_);
        return Common::ErrorSuccess;
    }

    Common::Error Deliver(std::unique_ptr<raw_data> block) {
        const std::uint64_t count = block->size;
        if (!consumer_.Write(std::move(block))) {
            return WithCause(MakeFileError(TL_ORIGIN("ChunkNTBackupStream"), kWriteFailed),
                             consumer_.GetError());
        }
        delivered_ = std::max(delivered_, position_);
        if (callback_ != nullptr && !callback_->Continue(count)) {
            return MakeFileError(TL_ORIGIN("ChunkNTBackupStream"), kCanceled);
        }
        return Common::ErrorSuccess;
    }

    file_backup_stream& consumer_;
    ri_file& input_;
    std::uint32_t options_;
    ChunkNTBackupStreamCallback* callback_;
    std::uint64_t resume_;
    std::uint64_t position_ = 0;
    std::uint64_t delivered_ = 0;
};

}  // namespace

std::int64_t FileTimeToMilliseconds(std::uint64_t fileTime) {
    if (fileTime == 0 || fileTime == NullLocalTimeImage()) {
        return 0;
    }
    return static_cast<std::int64_t>(fileTime / 10000) - kEpochDifferenceMs;
}

std::uint64_t MillisecondsToFileTime(std::int64_t milliseconds) {
    // A times chunk may carry any value: one before 1601 is no time, one past the year
    // 30828 is held at the end.
    constexpr std::int64_t kLast = std::int64_t(UINT64_MAX / 10000) - kEpochDifferenceMs;
    if (milliseconds == 0 || milliseconds < -kEpochDifferenceMs) {
        return 0;
    }
    if (milliseconds > kLast) {
        return UINT64_MAX;
    }
    return static_cast<std::uint64_t>(milliseconds + kEpochDifferenceMs) * 10000;
}

file_backup_raw_data_factory::~file_backup_raw_data_factory() = default;

std::unique_ptr<raw_data> file_backup_raw_data_factory::Create(std::uint64_t capacity) {
    auto block = std::unique_ptr<raw_data>(new (std::nothrow) raw_data);
    if (!block) {
        return nullptr;
    }
    block->buffer.reset(new (std::nothrow) unsigned char[capacity == 0 ? 1 : capacity]);
    if (!block->buffer) {
        return nullptr;
    }
    block->capacity = capacity;
    return block;
}

backup_user_callback::~backup_user_callback() = default;
file_backup_writer::~file_backup_writer() = default;
file_restore_source::~file_restore_source() = default;
ChunkNTBackupStreamCallback::~ChunkNTBackupStreamCallback() = default;

bool BackupContext::Continue(std::uint64_t bytes) {
    if (user_ == nullptr) {
        return true;
    }
    if (user_->IsCanceled()) {
        return false;
    }
    total_ += bytes;
    user_->SetPosition(total_);
    return true;
}

Common::Error BackupContext::WrapError(const Common::ErrorOrigin& origin,
                                       const Common::Error& cause, std::uint64_t hints) const {
    const FileErrorCode code = direction_ == backing_up ? kBackupFailed : kRecoverFailed;
    return WithCause(Common::Error::WithPathAndHints(origin, code.Code, path_.c_str(), hints),
                     cause);
}

bool IsRepeatPossible(backup_user_callback* callback, Common::Error& error,
                      const std::u16string& path) {
    if (callback == nullptr || error.Succeeded()) {
        return false;
    }
    const int answer = callback->OnError(error, path);
    if (answer == answer_retry) {
        return true;
    }
    if (answer == answer_abort) {
        error = WithCause(MakeFileError(TL_ORIGIN("IsRepeatPossible"), kCanceled), error);
    }
    return false;
}

bool ChainHas(const Common::Error& error, std::uint32_t code) {
    for (const Common::Error& record : error.Chain()) {
        if (record.Code() == code) {
            return true;
        }
    }
    return false;
}

// The backup stream as an input -------------------------------------------------------------

NTBackupStream::~NTBackupStream() {
    Common::Error entered;
    TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
    (void)source_.BackupEnd(handle_);  // releasing the context cannot fail in a way that matters
}

bool NTBackupStream::Read(void* buffer, std::uint64_t count, std::uint64_t& read) {
    read = 0;
    if (Failed()) {
        return false;
    }
    if (count == 0) {
        return true;
    }
    std::size_t got = 0;
    Platform::SystemError failure;
    {
        Common::Error entered;
        TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
        if (entered.Failed()) {
            SetError(context_.WrapError(TL_ORIGIN("NTBackupStream::Read"), entered, kHintData));
            return false;
        }
        failure = source_.BackupRead(handle_, buffer,
                                     static_cast<std::size_t>(std::min<std::uint64_t>(
                                         count, kBackupBlock * 1024)),
                                     got, security_);
    }
    read = got;
    position_ += got;
    // A stream that has begun and then runs into an alternate stream it cannot read gives
    // what it got.
    const bool partial = failure.Windows == Platform::kErrorNotSupported && (delivered_ || got != 0);
    if (got != 0) {
        delivered_ = true;
    }
    if (failure.Failed() && !partial) {
        SetError(context_.WrapError(
            TL_ORIGIN("NTBackupStream::Read"),
            MakeSystemError(TL_ORIGIN("NTBackupStream::Read"), "BackupRead",
                            context_.Path().c_str(), failure, kReadFailed),
            kHintData));
        return false;
    }
    return true;
}

std::uint64_t NTBackupStream::SeekRel(std::int64_t delta) {
    if (Failed() || delta == 0) {
        return position_;
    }
    if (delta < 0) {
        RecordNotSupported(TL_ORIGIN("NTBackupStream::SeekRel"));
        return position_;
    }
    std::uint64_t moved = 0;
    Platform::SystemError failure;
    {
        Common::Error entered;
        TokenSubstitutionExecutor scope(context_.Impersonation(), entered);
        if (entered.Failed()) {
            SetError(entered);
            return position_;
        }
        failure = source_.BackupSeek(handle_, static_cast<std::uint64_t>(delta), moved);
    }
    if (failure.Failed()) {
        SetError(MakeSystemError(TL_ORIGIN("NTBackupStream::SeekRel"), "BackupSeek",
                                 context_.Path().c_str(), failure, kSeekFailed));
        return position_;
    }
    position_ += moved;
    return position_;
}

std::uint64_t NTBackupStream::Seek(std::uint64_t) {
    RecordNotSupported(TL_ORIGIN("NTBackupStream::Seek"));
    return position_;
}

std::uint64_t NTBackupStream::SeekEnd(std::int64_t) {
    RecordNotSupported(TL_ORIGIN("NTBackupStream::SeekEnd"));
    return position_;
}

bool NTBackupStream::Rewind() {
    RecordNotSupported(TL_ORIGIN("NTBackupStream::Rewind"));
    return false;
}

std::uint64_t NTBackupStream::Size() {
    RecordNotSupported(TL_ORIGIN("NTBackupStream::Size"));
    return 0;
}

// The chunker ---------------------------------------------------------------------------------

Common::Error ChunkStream(file_backup_stream& consumer, ri_file& input, std::uint32_t options,
                          ChunkNTBackupStreamCallback* callback, std::uint64_t resume,
                          std::uint64_t& delivered) {
    Chunker chunker(consumer, input, options, callback, resume);
    Common::Error error = chunker.Run();
    delivered = chunker.Delivered();
    return error;
}

Common::Error ChunkNTBackupStream(file_backup_stream& consumer, ri_file& input,
                                  std::uint32_t options, ChunkNTBackupStreamCallback* callback,
                                  std::uint64_t resume) {
    std::uint64_t delivered = 0;
    return ChunkStream(consumer, input, options, callback, resume, delivered);
}

// Privileges ----------------------------------------------------------------------------------

Common::Error EnablePrivilege(Platform::BackupSource& source, const char* name) {
    const char* function = "AdjustTokenPrivileges";
    const Platform::SystemError failure = source.EnablePrivilege(name, function);
    if (!failure.Failed()) {
        return Common::ErrorSuccess;
    }
    Common::Error error = Common::Error::WithFunction(
        TL_ORIGIN("EnablePrivilege"), kAccessDenied.Code, Common::GetMessageRow(kAccessDenied.Row),
        function);
    Common::Error cause;
    cause.AddWindowsError(static_cast<int>(failure.Windows));
    return WithCause(error, cause);
}

void WarmUpEncryptedRaw(Platform::BackupSource& source) {
    static bool done = false;  // a race repeats harmless work
    if (done) {
        return;
    }
    done = true;
    Platform::EncryptedContext context = nullptr;
    if (!source.OpenEncryptedRaw(u"", 0, context).Failed()) {
        source.CloseEncryptedRaw(context);
    }
}

}  // namespace File
