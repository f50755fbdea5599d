#include <tessel_link/por/unit_name.h>

#include <atomic>
#include <new>

#include <tessel_link/common/unicode.h>

namespace Por {

// The shared text of copied names: a count of the names that use it, then the bytes.
struct UnitName::Block {
    std::atomic<std::uint32_t> References;
    char Text[1];
};

std::uint64_t UnitName::HashBytes(const char* bytes, std::size_t count) noexcept {
    std::uint64_t h = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t b = static_cast<unsigned char>(bytes[i]);
        h ^= b + 0x9e3779b9u + (h << 6) + (h >> 2);
    }
    return h;
}

UnitName::UnitName(std::string_view text) : UnitName() {
    const std::size_t size = offsetof(Block, Text) + text.size() + 1;
    void* memory = ::operator new(size < sizeof(Block) ? sizeof(Block) : size);
    block_ = new (memory) Block{{1}, {0}};
    std::memcpy(block_->Text, text.data(), text.size());
    block_->Text[text.size()] = '\0';
    text_ = block_->Text;
    hash_ = HashBytes(text.data(), text.size());
}

UnitName::UnitName(std::u16string_view text) : UnitName(std::string_view(Common::Utf16ToUtf8(text))) {}

UnitName::UnitName(const UnitName& other) noexcept
    : text_(other.text_), hash_(other.hash_), block_(other.block_) {
    if (block_ != nullptr) {
        block_->References.fetch_add(1, std::memory_order_relaxed);
    }
}

UnitName::UnitName(UnitName&& other) noexcept
    : text_(other.text_), hash_(other.hash_), block_(other.block_) {
    other.text_ = "";
    other.hash_ = 0;
    other.block_ = nullptr;
}

UnitName& UnitName::operator=(const UnitName& other) noexcept {
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

UnitName& UnitName::operator=(UnitName&& other) noexcept {
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

UnitName::~UnitName() {
    Release();
}

void UnitName::Release() noexcept {
    if (block_ != nullptr && block_->References.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        block_->~Block();
        ::operator delete(block_);
    }
    block_ = nullptr;
}

std::u16string UnitName::ToWide() const {
    return Common::Utf8ToUtf16Lenient(Text());
}

}  // namespace Por
