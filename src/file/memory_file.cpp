#include <tessel_link/file/memory_file.h>

#include <limits>
#include <new>

#include "file/file_errors.h"

namespace File {

namespace Detail {

Common::Error MemorySeekError(const char* function) {
    return MakeFileError(TL_ORIGIN(function), kSeekFailed);
}

}  // namespace Detail

bool memory_file::Read(void* buffer, std::uint64_t count, std::uint64_t& read) {
    read = 0;
    if (Failed()) {
        return false;
    }
    if (position_ >= content_.size() || count == 0) {
        return true;
    }
    const std::uint64_t take = std::min<std::uint64_t>(count, content_.size() - position_);
    std::memcpy(buffer, content_.data() + position_, static_cast<std::size_t>(take));
    position_ += take;
    read = take;
    return true;
}

bool memory_file::Write(const void* buffer, std::uint64_t count, std::uint64_t& written) {
    written = 0;
    if (Failed()) {
        return false;
    }
    if (count == 0) {
        return true;
    }
    if (count > std::numeric_limits<std::size_t>::max() - position_ ||
        position_ + count > content_.max_size()) {
        RecordError(MakeFileError(TL_ORIGIN("memory_file::Write"), kDiskFull));
        return false;
    }
    const std::uint64_t end = position_ + count;
    try {
        if (end > content_.size()) {
            content_.resize(static_cast<std::size_t>(end));
        }
    } catch (const std::bad_alloc&) {
        RecordError(MakeFileError(TL_ORIGIN("memory_file::Write"), kOutOfMemory));
        return false;
    }
    std::memcpy(content_.data() + position_, buffer, static_cast<std::size_t>(count));
    position_ = end;
    written = count;
    return true;
}

std::uint64_t memory_file::MoveTo(std::int64_t base, std::int64_t delta, const char* function) {
    if (Failed()) {
        return position_;
    }
    std::int64_t target = 0;
    if (__builtin_add_overflow(base, delta, &target) || target < 0) {
        RecordError(Detail::MemorySeekError(function));
        return position_;
    }
    position_ = static_cast<std::uint64_t>(target);
    return position_;
}

std::uint64_t memory_file::Seek(std::uint64_t position) {
    if (position > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return MoveTo(-1, 0, "memory_file::Seek");
    }
    return MoveTo(0, static_cast<std::int64_t>(position), "memory_file::Seek");
}

std::uint64_t memory_file::SeekRel(std::int64_t delta) {
    return MoveTo(static_cast<std::int64_t>(position_), delta, "memory_file::SeekRel");
}

std::uint64_t memory_file::SeekEnd(std::int64_t delta) {
    return MoveTo(static_cast<std::int64_t>(content_.size()), delta, "memory_file::SeekEnd");
}

bool memory_file::Truncate() {
    if (Failed()) {
        return false;
    }
    try {
        content_.resize(static_cast<std::size_t>(position_));
    } catch (const std::exception&) {
        RecordError(MakeFileError(TL_ORIGIN("memory_file::Truncate"), kOutOfMemory));
        return false;
    }
    return true;
}

}  // namespace File
