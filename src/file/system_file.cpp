#include "file/system_file.h"

#include <algorithm>
#include <limits>

#include "file/system_error.h"

namespace File {

namespace {

constexpr std::uint32_t kErrorNegativeSeek = 131;

// Write failures that a smaller piece may get past: access denied (5), write protected
// (19) and disk full (39), the mask over codes below 40; invalid parameter (87), which a
// misaligned or oversized piece gives; and disk full (112).
bool RetriedOnWrite(std::uint32_t code) {
    constexpr std::uint64_t kMask = 0x8000080020ull;
    return (code < 40 && ((kMask >> code) & 1) != 0) || code == 87 || code == 112;
}

}  // namespace

system_file::~system_file() {
    io_.Close(handle_);
}

bool system_file::Fail(const char* origin, const char* function,
                       const Platform::SystemError& failure, FileErrorCode fallback) {
    RecordError(MakeSystemError(TL_ORIGIN(origin), function, path_.c_str(), failure, fallback));
    return false;
}

bool system_file::FailFixed(const char* origin, const char* function,
                            const Platform::SystemError& failure, FileErrorCode code) {
    RecordError(MakeFixedSystemError(TL_ORIGIN(origin), function, path_.c_str(), failure, code));
    return false;
}

bool system_file::Read(void* buffer, std::uint64_t count, std::uint64_t& read) {
    read = 0;
    if (Failed()) {
        return false;
    }
    if (count == 0) {
        return true;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    auto* to = static_cast<unsigned char*>(buffer);
    std::uint64_t piece = std::min(count, kLargestTransfer);
    bool lockRetried = false;
    while (read < count) {
        const std::uint64_t ask = std::min(piece, count - read);
        std::size_t got = 0;
        const Platform::SystemError failure =
            io_.Read(handle_, to + read, static_cast<std::size_t>(ask), got);
        read += got;
        position_ += got;
        if (!failure.Failed()) {
            lockRetried = false;
            if (got < ask) {
                break;  // the end of the file
            }
            continue;
        }
        if (failure.Windows == Platform::kErrorLockViolation && !lockRetried) {
            lockRetried = true;  // someone held the range a moment: once more at once
            continue;
        }
        if (failure.Windows == Platform::kErrorNoSystemResources && ask > kSmallestReadPiece) {
            piece = std::max(kSmallestReadPiece, (ask + 1) / 2);
            continue;
        }
        return Fail("system_file::Read", "ReadFile", failure, kReadFailed);
    }
    return true;
}

bool system_file::Write(const void* buffer, std::uint64_t count, std::uint64_t& written) {
    return WritePieces(buffer, count, written, 1, false, "WriteFile");
}

bool system_file::WritePieces(const void* buffer, std::uint64_t count, std::uint64_t& written,
                              std::uint64_t alignment, bool unbuffered, const char* function) {
    written = 0;
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const auto* from = static_cast<const unsigned char*>(buffer);
    std::uint64_t piece = std::min(count, kLargestTransfer);
    if (piece > alignment) {
        piece -= piece % alignment;
    }
    std::uint64_t writtenAtFailure = 0;
    bool workingSetGrown = false;
    while (written < count) {
        const std::uint64_t ask = std::min(piece, count - written);
        std::size_t put = 0;
        Platform::SystemError failure =
            io_.Write(handle_, from + written, static_cast<std::size_t>(ask), put);
        written += put;
        position_ += put;
        if (!failure.Failed() && put == 0) {
            failure = Platform::SystemError{112, 0};  // nothing taken: the medium is full
        }
        if (!failure.Failed()) {
            continue;
        }
        const std::uint32_t code = failure.Windows;
        if (unbuffered && code == Platform::kErrorWorkingSetQuota && !workingSetGrown) {
            workingSetGrown = true;
            io_.GrowWorkingSet();
            continue;
        }
        const bool retried =
            RetriedOnWrite(code) || (unbuffered && (code == Platform::kErrorIoDevice ||
                                                    code == Platform::kErrorNoSystemResources ||
                                                    code == Platform::kErrorWorkingSetQuota));
        const bool progressed = written > writtenAtFailure;
        if (retried && (progressed || ask > alignment)) {
            writtenAtFailure = written;
            piece = alignment == 1
                        ? std::max<std::uint64_t>(1, ask / 2)
                        : std::max(alignment, (ask + alignment) / 2 / alignment * alignment);
            continue;
        }
        return Fail(unbuffered ? "nocache_file::Write" : "system_file::Write", function, failure,
                    kWriteFailed);
    }
    return true;
}

bool nocache_file::Write(const void* buffer, std::uint64_t count, std::uint64_t& written) {
    return WritePieces(buffer, count, written, alignment_, true, "WriteFileNoCache");
}

bool system_file::Flush() {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure = io_.Sync(handle_);
    return failure.Failed() ? Fail("system_file::Flush", "FlushFileBuffers", failure, kWriteFailed)
                            : true;
}

std::uint64_t system_file::Move(std::int64_t offset, Platform::SeekOrigin origin,
                                const char* origin_name) {
    if (Failed()) {
        return position_;
    }
    const scope acting(*this);
    if (!acting) {
        return position_;
    }
    std::uint64_t position = 0;
    const Platform::SystemError failure = io_.Seek(handle_, offset, origin, position);
    if (failure.Failed()) {
        Fail(origin_name, "SetFilePointer", failure, kSeekFailed);
        return position_;
    }
    position_ = position;
    return position_;
}

std::uint64_t system_file::Seek(std::uint64_t position) {
    if (position > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        if (!Failed()) {
            Fail("system_file::Seek", "SetFilePointer",
                 Platform::SystemError{kErrorNegativeSeek, 0}, kSeekFailed);
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
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure = io_.Resize(handle_, position_);
    return failure.Failed() ? Fail("system_file::Truncate", "SetEndOfFile", failure, kWriteFailed)
                            : true;
}

bool system_file::LockShared(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure =
        io_.Lock(handle_, offset, length, Platform::LockKind::Shared);
    return failure.Failed() ? Fail("system_file::LockShared", "LockFileEx", failure, kLockFailed)
                            : true;
}

bool system_file::LockExclusive(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure =
        io_.Lock(handle_, offset, length, Platform::LockKind::Exclusive);
    return failure.Failed() ? Fail("system_file::LockExclusive", "LockFileEx", failure, kLockFailed)
                            : true;
}

bool system_file::Unlock(std::uint64_t offset, std::uint64_t length) {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure = io_.Unlock(handle_, offset, length);
    return failure.Failed() ? Fail("system_file::Unlock", "UnlockFileEx", failure, kLockFailed)
                            : true;
}

std::unique_ptr<std::uint64_t[]> system_file::GetAllocationMap(std::uint64_t start,
                                                               std::uint64_t length) {
    if (Failed()) {
        return nullptr;
    }
    const scope acting(*this);
    if (!acting) {
        return nullptr;
    }
    std::size_t capacity = kFirstRangeCapacity;
    for (;;) {
        // The block as the caller gets it: the count word, then the pairs.
        auto map = std::make_unique<std::uint64_t[]>(1 + 2 * capacity);
        static_assert(sizeof(Platform::AllocatedRange) == 2 * sizeof(std::uint64_t));
        std::size_t count = 0;
        const Platform::SystemError failure = io_.AllocatedRanges(
            handle_, start, length, reinterpret_cast<Platform::AllocatedRange*>(map.get() + 1),
            capacity, count);
        if (failure.Windows == Platform::kErrorMoreData) {
            capacity *= 2;
            continue;
        }
        if (failure.Failed()) {
            FailFixed("system_file::GetAllocationMap", "FSCTL_QUERY_ALLOCATED_RANGES", failure,
                      kNotSupported);
            return nullptr;
        }
        map[0] = count;
        return map;
    }
}

bool system_file::SetCompressAttributes(bool compressed) {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    const Platform::SystemError failure = io_.SetCompression(handle_, compressed);
    return failure.Failed() ? Fail("system_file::SetCompressAttributes", "FSCTL_SET_COMPRESSION",
                                   failure, kNotSupported)
                            : true;
}

bool system_file::IOCTL(ioctl_command& command) {
    if (Failed()) {
        return false;
    }
    const scope acting(*this);
    if (!acting) {
        return false;
    }
    Platform::SystemError failure;
    switch (command.Code) {
        case allocation_map_command::kCode: {
            auto& c = static_cast<allocation_map_command&>(command);
            c.Map = GetAllocationMap(c.Start, c.Length);
            return c.Map != nullptr;
        }
        case sector_sizes_command::kCode: {
            auto& c = static_cast<sector_sizes_command&>(command);
            Platform::SectorSizes sizes;
            failure = io_.GetSectorSizes(handle_, sizes);
            if (failure.Failed()) {
                return FailFixed("system_file::IOCTL", "NtQueryVolumeInformationFile", failure,
                                 kNotSupported);
            }
            c.LogicalSector = sizes.Logical;
            c.PhysicalSector = sizes.Physical;
            c.FileSystemBlock = sizes.FileSystemBlock;
            return true;
        }
        case physical_offset_command::kCode: {
            auto& c = static_cast<physical_offset_command&>(command);
            std::uint64_t physical = 0;
            failure = io_.PhysicalOffset(handle_, c.Logical, physical);
            if (failure.Failed()) {
                return FailFixed("system_file::IOCTL", "FSCTL_GET_RETRIEVAL_POINTERS", failure,
                                 kNotSupported);
            }
            c.Physical = physical;
            return true;
        }
        case set_sparse_command::kCode:
            failure = io_.SetSparse(handle_, static_cast<set_sparse_command&>(command).Sparse);
            return failure.Failed()
                       ? Fail("system_file::IOCTL", "FSCTL_SET_SPARSE", failure, kNotSupported)
                       : true;
        case zero_range_command::kCode: {
            auto& c = static_cast<zero_range_command&>(command);
            failure = io_.ZeroRange(handle_, c.Offset, c.Length);
            return failure.Failed()
                       ? Fail("system_file::IOCTL", "FSCTL_SET_ZERO_DATA", failure, kWriteFailed)
                       : true;
        }
        case set_times_command::kCode: {
            auto& c = static_cast<set_times_command&>(command);
            failure = io_.SetTimes(handle_, {c.CreationTime, c.AccessTime, c.WriteTime});
            return failure.Failed()
                       ? Fail("system_file::IOCTL", "SetFileTime", failure, kWriteFailed)
                       : true;
        }
        case set_compression_command::kCode:
            return SetCompressAttributes(static_cast<set_compression_command&>(command).Compressed);
        default:
            return file_object::IOCTL(command);
    }
}

OpenRule RuleOf(open_mode mode) {
    using Platform::FileAccess;
    using Platform::FileDisposition;
    switch (mode) {
        case open_mode::read:
            return {FileAccess::Read, FileDisposition::OpenExisting, kOpenFailed};
        case open_mode::read_write:
            return {};
        case open_mode::create:
            return {FileAccess::ReadWrite, FileDisposition::CreateAlways, kCreateFailed};
        case open_mode::open_or_create:
            return {FileAccess::ReadWrite, FileDisposition::OpenAlways, kCreateFailed};
        case open_mode::create_new:
            return {FileAccess::ReadWrite, FileDisposition::CreateNew, kCreateFailed};
    }
    return {};
}

std::unique_ptr<nocache_file> MakeNoCacheFile(Platform::FileIo& io, Platform::FileHandle handle,
                                              const std::u16string& path,
                                              const std::shared_ptr<SubstToken>& token) {
    // Where the medium tells no sector size, a page is a multiple of every sector size.
    Platform::SectorSizes sizes;
    const std::uint32_t alignment = io.GetSectorSizes(handle, sizes).Failed() || sizes.Logical == 0
                                        ? kDefaultNoCacheAlignment
                                        : sizes.Logical;
    return std::make_unique<nocache_file>(io, handle, path, alignment, token);
}

namespace {

Platform::FileHandle OpenHandle(Platform::FileIo& io, const std::u16string& path, open_mode mode,
                                bool unbuffered, const char* origin,
                                const std::shared_ptr<SubstToken>& token, Common::Error& error) {
    const OpenRule rule = RuleOf(mode);
    Platform::FileHandle handle = Platform::kNoHandle;
    TokenSubstitutionExecutor acting(token, error);
    if (error.Failed()) {
        return Platform::kNoHandle;
    }
    const Platform::SystemError failure =
        io.Open(path, rule.Access, rule.Disposition, unbuffered, handle);
    if (failure.Failed()) {
        error =
            MakeSystemError(TL_ORIGIN(origin), "CreateFileW", path.c_str(), failure, rule.Fallback);
        return Platform::kNoHandle;
    }
    error = Common::ErrorSuccess;
    return handle;
}

}  // namespace

std::unique_ptr<rio_file> OpenFile(Platform::FileIo& io, const std::u16string& path, open_mode mode,
                                   Common::Error& error, const std::shared_ptr<SubstToken>& token) {
    const Platform::FileHandle handle =
        OpenHandle(io, path, mode, false, "File::OpenSystemFile", token, error);
    if (handle == Platform::kNoHandle) {
        return nullptr;
    }
    return std::make_unique<system_file>(io, handle, path, token);
}

std::unique_ptr<rio_file> OpenNoCacheFile(Platform::FileIo& io, const std::u16string& path,
                                          open_mode mode, Common::Error& error,
                                          const std::shared_ptr<SubstToken>& token) {
    const Platform::FileHandle handle =
        OpenHandle(io, path, mode, true, "File::OpenSystemFileNoCache", token, error);
    if (handle == Platform::kNoHandle) {
        return nullptr;
    }
    return MakeNoCacheFile(io, handle, path, token);
}

std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                         Common::Error& error) {
    return OpenFile(Platform::SystemFileIo(), path, mode, error);
}

std::unique_ptr<rio_file> OpenSystemFileNoCache(const std::u16string& path, open_mode mode,
                                                Common::Error& error) {
    return OpenNoCacheFile(Platform::SystemFileIo(), path, mode, error);
}

std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                         Common::Error& error,
                                         const std::shared_ptr<SubstToken>& token) {
    return OpenFile(Platform::SystemFileIo(), path, mode, error, token);
}

std::unique_ptr<rio_file> OpenSystemFileNoCache(const std::u16string& path, open_mode mode,
                                                Common::Error& error,
                                                const std::shared_ptr<SubstToken>& token) {
    return OpenNoCacheFile(Platform::SystemFileIo(), path, mode, error, token);
}

}  // namespace File
