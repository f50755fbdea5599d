#include "file/system_file.h"

#include <limits>

#include "file/system_error.h"

namespace File {

namespace {

// One system call moves at most this much, so that counts fit every platform's types.
constexpr std::uint64_t kLargestTransfer = std::uint64_t{1} << 30;

}  // namespace

system_file::~system_file() {
    files_.Close(handle_);
}

bool system_file::Fail(const char* function, const char* call, const Platform::SystemError& failure,
                       FileErrorCode fallback) {
    RecordError(MakeSystemError(TL_ORIGIN(function), call, path_.c_str(), failure, fallback));
    return false;
}

bool system_file::Read(void* buffer, std::uint64_t count, std::uint64_t& read) {
    read = 0;
    if (Failed()) {
        return false;
    }
    auto* to = static_cast<unsigned char*>(buffer);
    while (read < count) {
        const std::size_t piece =
            static_cast<std::size_t>(std::min(count - read, kLargestTransfer));
        std::size_t got = 0;
        const Platform::SystemError failure = files_.Read(handle_, to + read, piece, got);
        read += got;
        position_ += got;
        if (failure.Failed()) {
            return Fail("system_file::Read", "read", failure, kReadFailed);
        }
        if (got < piece) {
            break;  // the end of the file
        }
    }
    return true;
}

bool system_file::Write(const void* buffer, std::uint64_t count, std::uint64_t& written) {
    written = 0;
    if (Failed()) {
        return false;
    }
    const auto* from = static_cast<const unsigned char*>(buffer);
    while (written < count) {
        const std::size_t piece =
            static_cast<std::size_t>(std::min(count - written, kLargestTransfer));
        std::size_t put = 0;
        const Platform::SystemError failure = files_.Write(handle_, from + written, piece, put);
        written += put;
        position_ += put;
        if (failure.Failed()) {
            return Fail("system_file::Write", "write", failure, kWriteFailed);
        }
    }
    return true;
}

bool system_file::Flush() {
    if (Failed()) {
        return false;
    }
    const Platform::SystemError failure = files_.Sync(handle_);
    return failure.Failed() ? Fail("system_file::Flush", "fsync", failure, kWriteFailed) : true;
}

std::uint64_t system_file::Move(std::int64_t offset, Platform::SeekOrigin origin,
                                const char* function) {
    if (Failed()) {
        return position_;
    }
    std::uint64_t position = 0;
    const Platform::SystemError failure = files_.Seek(handle_, offset, origin, position);
    if (failure.Failed()) {
        Fail(function, "lseek", failure, kSeekFailed);
        return position_;
    }
    position_ = position;
    return position_;
}

std::uint64_t system_file::Seek(std::uint64_t position) {
    if (position > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        if (!Failed()) {
            Fail("system_file::Seek", "lseek", Platform::SystemError{131, 0}, kSeekFailed);
        }
        return position_;
    }
    return Move(static_cast<std::int64_t>(position), Platform::SeekOrigin::Begin,
                "system_file::Seek");
}

std::uint64_t system_file::SeekRel(std::int64_t delta) {
    return Move(delta, Platform::SeekOrigin::Current, "system_file::SeekRel");
}

std::uint64_t system_file::SeekEnd(std::int64_t delta) {
    return Move(delta, Platform::SeekOrigin::End, "system_file::SeekEnd");
}

bool system_file::Truncate() {
    if (Failed()) {
        return false;
    }
    const Platform::SystemError failure = files_.Resize(handle_, position_);
    return failure.Failed() ? Fail("system_file::Truncate", "ftruncate", failure, kWriteFailed)
                            : true;
}

bool system_file::LockShared(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const Platform::SystemError failure =
        files_.Lock(handle_, offset, length, Platform::LockKind::Shared);
    return failure.Failed() ? Fail("system_file::LockShared", "fcntl", failure, kLockFailed) : true;
}

bool system_file::LockExclusive(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const Platform::SystemError failure =
        files_.Lock(handle_, offset, length, Platform::LockKind::Exclusive);
    return failure.Failed() ? Fail("system_file::LockExclusive", "fcntl", failure, kLockFailed)
                            : true;
}

bool system_file::Unlock(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const Platform::SystemError failure = files_.Unlock(handle_, offset, length);
    return failure.Failed() ? Fail("system_file::Unlock", "fcntl", failure, kLockFailed) : true;
}

std::unique_ptr<rio_file> OpenFile(Platform::FileSystem& files, const std::u16string& path,
                                   open_mode mode, Common::Error& error) {
    using Platform::FileAccess;
    using Platform::FileDisposition;
    FileAccess access = FileAccess::ReadWrite;
    FileDisposition disposition = FileDisposition::OpenExisting;
    FileErrorCode fallback = kOpenFailed;
    switch (mode) {
        case open_mode::read:
            access = FileAccess::Read;
            break;
        case open_mode::read_write:
            break;
        case open_mode::create:
            disposition = FileDisposition::CreateAlways;
            fallback = kCreateFailed;
            break;
        case open_mode::open_or_create:
            disposition = FileDisposition::OpenAlways;
            fallback = kCreateFailed;
            break;
        case open_mode::create_new:
            disposition = FileDisposition::CreateNew;
            fallback = kCreateFailed;
            break;
    }
    Platform::FileHandle handle = Platform::kNoHandle;
    const Platform::SystemError failure = files.Open(path, access, disposition, handle);
    if (failure.Failed()) {
        error = MakeSystemError(TL_ORIGIN("File::OpenSystemFile"), "open", path.c_str(), failure,
                                fallback);
        return nullptr;
    }
    error = Common::ErrorSuccess;
    return std::make_unique<system_file>(files, handle, path);
}

std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                         Common::Error& error) {
    return OpenFile(Platform::SystemFileSystem(), path, mode, error);
}

}  // namespace File
