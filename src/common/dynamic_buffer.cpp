#include "common/dynamic_buffer.h"

#include <cstring>
#include <limits>
#include <new>

namespace Common {

DynamicBuffer::~DynamicBuffer() {
    delete[] data_;
}

void DynamicBuffer::Fail() noexcept {
    delete[] data_;
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    failed_ = true;
}

bool DynamicBuffer::Reserve(std::size_t capacity) noexcept {
    if (failed_) {
        return false;
    }
    if (capacity <= capacity_) {
        return true;
    }
    auto* data = new (std::nothrow) unsigned char[capacity];
    if (data == nullptr) {
        Fail();
        return false;
    }
    if (size_ != 0) {
        std::memcpy(data, data_, size_);
    }
    delete[] data_;
    data_ = data;
    capacity_ = capacity;
    return true;
}

bool DynamicBuffer::Grow(std::size_t needed) noexcept {
    if (needed <= capacity_) {
        return true;
    }
    std::size_t grown = capacity_ + capacity_ / 2;
    if (grown < capacity_) {  // overflow
        grown = std::numeric_limits<std::size_t>::max();
    }
    return Reserve(grown > needed ? grown : needed);
}

bool DynamicBuffer::Write(const void* data, std::size_t length) noexcept {
    return WriteAt(size_, data, length);
}

bool DynamicBuffer::WriteAt(std::size_t offset, const void* data, std::size_t length) noexcept {
    if (failed_) {
        return false;
    }
    if (offset > std::numeric_limits<std::size_t>::max() - length) {
        Fail();
        return false;
    }
    const std::size_t end = offset + length;
    if (!Grow(end)) {
        return false;
    }
    if (offset > size_) {
        std::memset(data_ + size_, 0, offset - size_);
    }
    if (length != 0) {
        if (data != nullptr) {
            std::memmove(data_ + offset, data, length);
        } else {
            std::memset(data_ + offset, 0, length);
        }
    }
    if (end > size_) {
        size_ = end;
    }
    return true;
}

unsigned char* DynamicBuffer::Release() noexcept {
    unsigned char* data = data_;
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    return data;
}

}  // namespace Common
