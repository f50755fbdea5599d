#include "xml/xml_store.h"

#include <cstring>
#include <stdexcept>

namespace Xml::detail {

namespace {

constexpr std::size_t kFirstChunk = 4096;
constexpr std::size_t kLargestChunk = std::size_t{1} << 20;

std::uint64_t HashName(std::string_view name) {
    // FNV-1a over 8-byte words: names are short, and this is what decides the cost.
    std::uint64_t hash = 0xcbf29ce484222325ull ^ name.size();
    std::size_t i = 0;
    for (; i + 8 <= name.size(); i += 8) {
        std::uint64_t word;
        std::memcpy(&word, name.data() + i, 8);
        hash = (hash ^ word) * 0x100000001b3ull;
        hash ^= hash >> 29;
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, name.data() + i, name.size() - i);
    hash = (hash ^ tail) * 0x9e3779b97f4a7c15ull;
    return hash ^ (hash >> 32);
}

}  // namespace

void Arena::Grow(std::size_t bytes) {
    // Chunks double up to a megabyte, so small documents stay small and large ones make
    // few allocations; a block larger than that gets a chunk of its own.
    std::size_t size = chunks_.empty() ? kFirstChunk : std::min(capacity_, kLargestChunk);
    if (size < bytes) {
        size = bytes;
    }
    chunks_.emplace_back(new std::uint64_t[size / 8]);
    next_ = reinterpret_cast<char*>(chunks_.back().get());
    end_ = next_ + size;
    capacity_ += size;
}

const XmlName* NameTable::Intern(std::string_view name) {
    if (name.size() > UINT32_MAX) {
        throw std::length_error("name too long");
    }
    if ((used_ + 1) * 2 > slots_.size()) {
        Rehash();
    }
    const std::uint64_t hash = HashName(name);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
        Slot& slot = slots_[i];
        if (slot.Name == nullptr) {
            auto* entry = static_cast<XmlName*>(arena_.Allocate(sizeof(XmlName) + name.size()));
            entry->Size = static_cast<std::uint32_t>(name.size());
            entry->Mark = 0;
            std::memcpy(entry + 1, name.data(), name.size());
            slot = {hash, entry};
            ++used_;
            return entry;
        }
        if (slot.Hash == hash && slot.Name->View() == name) {
            return slot.Name;
        }
    }
}

void NameTable::Rehash() {
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(old.empty() ? 64 : old.size() * 2, Slot{0, nullptr});
    const std::size_t mask = slots_.size() - 1;
    for (const Slot& s : old) {
        if (s.Name != nullptr) {
            std::size_t i = s.Hash & mask;
            while (slots_[i].Name != nullptr) {
                i = (i + 1) & mask;
            }
            slots_[i] = s;
        }
    }
}

const XmlText* XmlStore::NewText(std::u16string_view text) {
    if (text.empty()) {
        return nullptr;
    }
    if (text.size() > UINT32_MAX) {
        throw std::length_error("text too long");
    }
    auto* entry =
        static_cast<XmlText*>(arena.Allocate(sizeof(XmlText) + text.size() * sizeof(char16_t)));
    entry->Size = static_cast<std::uint32_t>(text.size());
    std::memcpy(entry + 1, text.data(), text.size() * sizeof(char16_t));
    return entry;
}

}  // namespace Xml::detail
