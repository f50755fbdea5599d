#pragma once

// The memory of a document: an arena that only grows, and the table of interned names.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include <tessel_link/xml/xml_tag.h>

namespace Xml::Detail {

// Hands out 8-aligned blocks from chunks that grow with the document and are freed together.
class Arena {
public:
    void* Allocate(std::size_t bytes) {
        bytes = (bytes + 7) & ~std::size_t{7};
        if (static_cast<std::size_t>(end_ - next_) < bytes) {
            Grow(bytes);
        }
        void* block = next_;
        next_ += bytes;
        return block;
    }
    // Bytes of all chunks taken from the heap.
    std::size_t Capacity() const noexcept { return capacity_; }

    // A block of a length not known in advance is written in place at the free end of the
    // current chunk, from Tail() up to at most TailEnd(), and then taken with TakeTail.
    char* Tail() const noexcept { return next_; }
    char* TailEnd() const noexcept { return end_; }
    // Makes `bytes` free at the tail, carrying the `used` bytes already written there over
    // into a new chunk when the current one has too little room left; returns the tail.
    char* RegrowTail(std::size_t used, std::size_t bytes);
    // Takes the bytes from Tail() up to `to` as one block.
    void TakeTail(char* to) noexcept {
        next_ += (static_cast<std::size_t>(to - next_) + 7) & ~std::size_t{7};
    }

private:
    void Grow(std::size_t bytes);

    std::vector<std::unique_ptr<std::uint64_t[]>> chunks_;
    char* next_ = nullptr;
    char* end_ = nullptr;
    std::size_t capacity_ = 0;
};

// Equal byte strings, compared without a library call for the short names that documents
// use.
inline bool SameBytes(std::string_view x, std::string_view y) noexcept {
    const std::size_t size = x.size();
    if (y.size() != size) {
        return false;
    }
    const char* a = x.data();
    const char* b = y.data();
    auto load8 = [](const char* p) {
        std::uint64_t word;
        std::memcpy(&word, p, sizeof word);
        return word;
    };
    auto load4 = [](const char* p) {
        std::uint32_t word;
        std::memcpy(&word, p, sizeof word);
        return word;
    };
    if (size >= 8 && size <= 16) {
        return load8(a) == load8(b) && load8(a + size - 8) == load8(b + size - 8);
    }
    if (size >= 4 && size < 8) {
        return load4(a) == load4(b) && load4(a + size - 4) == load4(b + size - 4);
    }
    if (size < 4) {
        for (std::size_t i = 0; i < size; ++i) {
            if (a[i] != b[i]) {
                return false;
            }
        }
        return true;
    }
    return std::memcmp(a, b, size) == 0;
}

// Interned names keep at least this many bytes, the name and zero bytes behind it.
inline constexpr std::size_t kNameBlock = 16;

// The hash of a name in the table below, keyed per process.
std::uint64_t HashName(std::string_view name);

// Names are interned so that a tag holds one pointer and equal names compare by address.
class NameTable {
public:
    explicit NameTable(Arena& arena) : arena_(arena) {}
    const XmlName* Intern(std::string_view name) {
        // The name that followed the last one before is the likely one now.
        if (expected_ != nullptr && SameBytes(expected_->View(), name)) {
            TakeExpected();
            return last_;
        }
        XmlName* found = Lookup(name);
        if (last_ != nullptr) {
            last_->Successor = found;
        }
        last_ = found;
        expected_ = found->Successor;
        return found;
    }
    std::size_t Capacity() const noexcept { return slots_.capacity() * sizeof(Slot); }

    // The name that followed the last one the previous time, the likely next one; null when
    // there is none.
    const XmlName* Expected() const noexcept { return expected_; }
    // The expected name was read: the same as interning it.
    void TakeExpected() noexcept {
        last_ = expected_;
        expected_ = last_->Successor;
    }

private:
    XmlName* Lookup(std::string_view name);
    struct Slot {
        std::uint64_t Hash;
        XmlName* Name;
    };
    void Rehash();
    static std::size_t RecentIndex(std::string_view name) noexcept {
        if (name.empty()) {
            return 0;
        }
        const auto first = static_cast<unsigned char>(name.front());
        const auto last = static_cast<unsigned char>(name.back());
        return (name.size() * 7 + first * 3 + last) & (kRecent - 1);
    }

    static constexpr std::size_t kRecent = 64;
    Arena& arena_;
    XmlName* last_ = nullptr;  // the name that Intern returned last
    XmlName* expected_ = nullptr;  // its successor, kept at hand
    XmlName* recent_[kRecent] = {};
    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

struct XmlStore {
    Arena arena;
    NameTable names{arena};

    // A text copied into the arena; null for an empty one.
    const XmlText* NewText(std::u16string_view text);
};

}  // namespace Xml::Detail
