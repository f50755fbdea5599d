#include <tessel_link/por/unit_name.h>

#include <new>

#include <tessel_link/common/unicode.h>

namespace Por {

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

void UnitName::Free(Block* block) noexcept {
    block->~Block();
    ::operator delete(block);
}

std::u16string UnitName::ToWide() const {
    return Common::Utf8ToUtf16Lenient(Text());
}

}  // namespace Por
