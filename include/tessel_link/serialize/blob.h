#pragma once

// Serialization::Blob, the byte array that values of the blob form travel in.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace Serialization {

// A byte array held by shared ownership, with its size. Copies share the bytes.
class Blob {
public:
    Blob() = default;
    // `size` zero bytes.
    explicit Blob(std::size_t size)
        : data_(size != 0 ? std::make_shared<unsigned char[]>(size) : nullptr), size_(size) {}
    // A copy of `size` bytes at `data`.
    Blob(const void* data, std::size_t size) : Blob(size) {
        if (size != 0) {
            std::memcpy(data_.get(), data, size);
        }
    }

    // Takes over bytes that are already held by shared ownership.
    Blob(std::shared_ptr<unsigned char[]> data, std::uint64_t size)
        : data_(size != 0 ? std::move(data) : nullptr), size_(data_ != nullptr ? size : 0) {}

    unsigned char* Data() { return data_.get(); }  // the bytes; null when empty
    const unsigned char* Data() const { return data_.get(); }  // the bytes; null when empty
    std::uint64_t Size() const { return size_; }  // the number of bytes
    bool Empty() const { return size_ == 0; }  // no bytes

    // Same bytes.
    friend bool operator==(const Blob& a, const Blob& b) {
        return a.size_ == b.size_ &&
               (a.size_ == 0 || std::memcmp(a.Data(), b.Data(), a.size_) == 0);
    }

private:
    std::shared_ptr<unsigned char[]> data_;
    std::uint64_t size_ = 0;
};

}  // namespace Serialization
