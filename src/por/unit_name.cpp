#include <tessel_link/por/unit_name.h>

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

UnitName::UnitName(std::string text) : text_(""), hash_(0), owned_(std::move(text)) {
    text_ = owned_.c_str();
    hash_ = HashBytes(owned_.data(), owned_.size());
}

UnitName::UnitName(std::u16string_view text) : UnitName(Common::Utf16ToUtf8(text)) {}

UnitName::UnitName(const UnitName& other) : text_(other.text_), hash_(other.hash_) {
    if (other.IsOwned()) {
        owned_ = other.owned_;
        text_ = owned_.c_str();
    }
}

UnitName::UnitName(UnitName&& other) noexcept : text_(other.text_), hash_(other.hash_) {
    if (other.IsOwned()) {
        owned_ = std::move(other.owned_);
        text_ = owned_.c_str();
        other.owned_.clear();
        other.text_ = "";
        other.hash_ = 0;
    }
}

UnitName& UnitName::operator=(const UnitName& other) {
    if (this != &other) {
        if (other.IsOwned()) {
            owned_ = other.owned_;
            text_ = owned_.c_str();
        } else {
            owned_.clear();
            text_ = other.text_;
        }
        hash_ = other.hash_;
    }
    return *this;
}

UnitName& UnitName::operator=(UnitName&& other) noexcept {
    if (this != &other) {
        hash_ = other.hash_;
        if (other.IsOwned()) {
            owned_ = std::move(other.owned_);
            text_ = owned_.c_str();
            other.owned_.clear();
            other.text_ = "";
            other.hash_ = 0;
        } else {
            owned_.clear();
            text_ = other.text_;
        }
    }
    return *this;
}

std::u16string UnitName::ToWide() const {
    return Common::Utf8ToUtf16Lenient(Text());
}

}  // namespace Por
