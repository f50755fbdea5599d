#pragma once

// Files held in memory: a read-only view of the caller's bytes and a growing file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <tessel_link/file/file_object.h>
#include <tessel_link/impl/file/memory_seek.h>

namespace File {

// A read-only file over elements held by the caller. Nothing is copied: the memory must
// stay valid and unchanged while the object reads it. Sizes and positions are in bytes.
template <typename CharT>
class buf_ifile : public ri_file {
public:
    // Reads the `count` elements at `data`.
    buf_ifile(const CharT* data, std::size_t count)
        : data_(reinterpret_cast<const unsigned char*>(data)), size_(count * sizeof(CharT)) {}

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = 0;
        if (Failed()) {
            return false;
        }
        const std::uint64_t take = std::min<std::uint64_t>(count, size_ - position_);
        if (take != 0) {
            std::memcpy(buffer, data_ + position_, static_cast<std::size_t>(take));
            position_ += take;
            read = take;
        }
        return true;
    }

    std::uint64_t Seek(std::uint64_t position) override {
        return MoveTo(position, "buf_ifile::Seek");
    }
    std::uint64_t SeekRel(std::int64_t delta) override {
        return MoveTo(position_ + static_cast<std::uint64_t>(delta), "buf_ifile::SeekRel");
    }
    std::uint64_t SeekEnd(std::int64_t delta) override {
        return MoveTo(size_ + static_cast<std::uint64_t>(delta), "buf_ifile::SeekEnd");
    }
    std::uint64_t Size() override { return size_; }

    // The elements read from.
    const CharT* Data() const noexcept { return reinterpret_cast<const CharT*>(data_); }
    std::uint64_t Position() const noexcept { return position_; }  // the position, in bytes

private:
    // Positions wrap like unsigned numbers, so a negative result lands far behind the end
    // and is refused there.
    std::uint64_t MoveTo(std::uint64_t position, const char* function) {
        if (Failed()) {
            return position_;
        }
        if (position > size_) {
            RecordError(Detail::MemorySeekError(function));
            return position_;
        }
        position_ = position;
        return position_;
    }

    const unsigned char* data_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;
};

// A file held in memory that grows as it is written. Seeking behind the end is allowed; a
// write there fills the gap with zero bytes, as a disk file does.
class TL_API memory_file : public rio_file {
public:
    memory_file() = default;
    // A file that holds `content`.
    explicit memory_file(std::vector<unsigned char> content) : content_(std::move(content)) {}

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override;
    bool Write(const void* buffer, std::uint64_t count, std::uint64_t& written) override;
    std::uint64_t Seek(std::uint64_t position) override;
    std::uint64_t SeekRel(std::int64_t delta) override;
    std::uint64_t SeekEnd(std::int64_t delta) override;
    std::uint64_t Size() override { return content_.size(); }
    bool Truncate() override;

    // What the file holds.
    const std::vector<unsigned char>& Content() const noexcept { return content_; }
    std::uint64_t Position() const noexcept { return position_; }  // the position, in bytes

private:
    std::uint64_t MoveTo(std::int64_t base, std::int64_t delta, const char* function);

    std::vector<unsigned char> content_;
    std::uint64_t position_ = 0;
};

}  // namespace File
