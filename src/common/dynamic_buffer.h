#pragma once

#include <cstddef>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>

namespace Common {

// A growable byte buffer for building serialized forms without exceptions. Growth takes the
// larger of one and a half times the capacity and the size needed.
//
// When memory runs out the buffer frees what it holds and the write returns false. The
// failure is sticky: every later write fails too, so that a writer may emit many pieces
// and check the outcome once with Failed().
class TL_API DynamicBuffer : public NonCopyable {
public:
    DynamicBuffer() noexcept = default;
    ~DynamicBuffer();

    // Appends `length` bytes; a null `data` appends zeros.
    bool Write(const void* data, std::size_t length) noexcept;
    // Writes `length` bytes at `offset` (a null `data` writes zeros). A range that ends
    // beyond the size grows the buffer; a gap before `offset` is filled with zeros.
    bool WriteAt(std::size_t offset, const void* data, std::size_t length) noexcept;

    // Makes room for `capacity` bytes in all, so that writes up to it do not move the
    // bytes; false (and the buffer failed) when memory runs out.
    bool Reserve(std::size_t capacity) noexcept;

    std::size_t Size() const noexcept { return size_; }
    std::size_t Capacity() const noexcept { return capacity_; }
    const unsigned char* Data() const noexcept { return data_; }
    bool Failed() const noexcept { return failed_; }

    // Hands over the bytes (allocated with new[], freed by the caller with delete[]) and
    // leaves the buffer empty. Null when nothing was written or a write failed.
    unsigned char* Release() noexcept;

private:
    bool Grow(std::size_t needed) noexcept;
    void Fail() noexcept;

    unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool failed_ = false;
};

}  // namespace Common
