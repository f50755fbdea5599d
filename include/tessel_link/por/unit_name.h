#pragma once

// The names of properties and traits.

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include <tessel_link/export.h>

namespace Por {

// The name of a property or trait: narrow text (UTF-8 when it came from wide text), held
// either by pointer to a string literal or as a copy of its own, with a 64-bit hash of its
// bytes. Copies of a name share its text (a reference-counted block), so copying a tree does
// not copy its names. Names compare byte-wise as unsigned bytes up to the terminating zero,
// case-sensitively; the hash never takes part in a comparison.
class TL_API UnitName {
public:
    // The empty name.
    UnitName() noexcept : text_(""), hash_(0), block_(nullptr) {}

    // Keeps a pointer to the literal. The hash covers the terminating zero byte too.
    template <std::size_t N>
    static UnitName Literal(const char (&literal)[N]) noexcept {
        UnitName name;
        name.text_ = literal;
        name.hash_ = HashBytes(literal, N);
        return name;
    }

    // Copies of the text.
    UnitName(const char* text) : UnitName(std::string_view(text != nullptr ? text : "")) {}
    UnitName(const std::string& text) : UnitName(std::string_view(text)) {}
    UnitName(std::string_view text);
    // Stored as UTF-8.
    explicit UnitName(std::u16string_view text);

    // Copies share the text, moves take it. Inline: trees copy and move names all the time.
    UnitName(const UnitName& other) noexcept
        : text_(other.text_), hash_(other.hash_), block_(other.block_) {
        if (block_ != nullptr) {
            block_->References.fetch_add(1, std::memory_order_relaxed);
        }
    }
    UnitName(UnitName&& other) noexcept
        : text_(other.text_), hash_(other.hash_), block_(other.block_) {
        other.text_ = "";
        other.hash_ = 0;
        other.block_ = nullptr;
    }
    // Shares the other's text and lets go of its own.
    UnitName& operator=(const UnitName& other) noexcept {
        if (this != &other) {
            if (other.block_ != nullptr) {
                other.block_->References.fetch_add(1, std::memory_order_relaxed);
            }
            Release();
            text_ = other.text_;
            hash_ = other.hash_;
            block_ = other.block_;
        }
        return *this;
    }
    // Takes the other's text, which is left empty, and lets go of its own.
    UnitName& operator=(UnitName&& other) noexcept {
        if (this != &other) {
            Release();
            text_ = other.text_;
            hash_ = other.hash_;
            block_ = other.block_;
            other.text_ = "";
            other.hash_ = 0;
            other.block_ = nullptr;
        }
        return *this;
    }
    ~UnitName() { Release(); }

    const char* c_str() const noexcept { return text_; }  // the text in UTF-8
    std::string_view Text() const noexcept { return std::string_view(text_); }  // the text in UTF-8
    bool Empty() const noexcept { return text_[0] == '\0'; }  // no text
    std::uint64_t Hash() const noexcept { return hash_; }  // HashBytes of the text
    std::u16string ToWide() const;  // the text in UTF-16

    // The fold of every byte into a seed starting at 0:
    // h ^= b + 0x9e3779b9 + (h << 6) + (h >> 2).
    static std::uint64_t HashBytes(const char* bytes, std::size_t count) noexcept;

    // -1, 0 or 1 by unsigned bytes.
    static int Compare(const char* a, const char* b) noexcept {
        if (a == b) {  // copies of one name share their text
            return 0;
        }
        const int r = std::strcmp(a, b);
        return r < 0 ? -1 : (r > 0 ? 1 : 0);
    }

    friend bool operator==(const UnitName& a, const UnitName& b) noexcept {  // same text
        return a.text_ == b.text_ || std::strcmp(a.text_, b.text_) == 0;
    }
    // By unsigned bytes.
    friend std::strong_ordering operator<=>(const UnitName& a, const UnitName& b) noexcept {
        return Compare(a.text_, b.text_) <=> 0;
    }

private:
    // The shared text of copied names: a count of the names that use it, then the bytes.
    struct Block {
        std::atomic<std::uint32_t> References;
        char Text[1];
    };
    void Release() noexcept {
        if (block_ != nullptr && block_->References.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            Free(block_);
        }
        block_ = nullptr;
    }
    static void Free(Block* block) noexcept;

    // The text pointer first: it is what comparisons read.
    const char* text_;
    std::uint64_t hash_;
    Block* block_;  // null for a literal
};

}  // namespace Por

// Hashes a unit name by its text, as equality compares it. (The stored hash can't serve:
// a literal's covers its terminating zero, a copy's does not, and the two are equal names.)
template <>
struct std::hash<Por::UnitName> {
    std::size_t operator()(const Por::UnitName& name) const noexcept {  // the text's hash
        return std::hash<std::string_view>{}(std::string_view(name.c_str()));
    }
};
