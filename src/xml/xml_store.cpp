#include "xml/xml_store.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "platform/random_source.h"

namespace Xml::Detail {

namespace {

constexpr std::size_t kFirstChunk = 4096;
constexpr std::size_t kLargestChunk = std::size_t{1} << 20;

// Names come from the peer, so their hash is keyed with secrets drawn once per process: a
// sender cannot choose names that collide, and the table keeps its constant cost per name.
struct HashKeys {
    std::uint64_t First;
    std::uint64_t Second;
};

HashKeys DrawHashKeys() {
    HashKeys keys{0x243f6a8885a308d3ull, 0x13198a2e03707344ull};
    std::uint64_t drawn[2] = {0, 0};
    if (!Platform::KernelRandom(drawn, sizeof drawn)) {
        // Without the kernel's source, the clock and the layout of this process still keep
        // the keys out of a remote sender's reach.
        drawn[0] = static_cast<std::uint64_t>(
            std::chrono::steady_clock::now().time_since_epoch().count());
        drawn[1] = reinterpret_cast<std::uintptr_t>(&drawn) ^
                   reinterpret_cast<std::uintptr_t>(&DrawHashKeys);
    }
    keys.First ^= drawn[0];
    keys.Second ^= drawn[1];
    keys.Second |= 1;
    return keys;
}

const HashKeys& Keys() {
    static const HashKeys keys = DrawHashKeys();
    return keys;
}

// Folds the 128-bit product of two words: every input bit reaches every output bit.
inline std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

}  // namespace

namespace {

template <typename Word>
inline std::uint64_t Load(const char* p) {
    Word word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

inline bool SameName(const XmlName& interned, std::string_view name) {
    return SameBytes(interned.View(), name);
}

}  // namespace

std::uint64_t HashName(std::string_view name) {
    const HashKeys& keys = Keys();
    const char* p = name.data();
    const std::size_t size = name.size();
    std::uint64_t hash = keys.First ^ size;
    std::uint64_t tail = 0;
    if (size >= 8) {
        std::size_t i = 0;
        for (; i + 8 < size; i += 8) {
            hash = Mix(hash ^ Load<std::uint64_t>(p + i), keys.Second);
        }
        // The last eight bytes, overlapping the word before when the size is no multiple
        // of eight: with the size in the hash, equal inputs still mean equal names.
        tail = Load<std::uint64_t>(p + size - 8);
    } else if (size >= 4) {
        tail = (Load<std::uint32_t>(p) << 32) | Load<std::uint32_t>(p + size - 4);
    } else if (size != 0) {
        tail = (std::uint64_t{static_cast<unsigned char>(p[0])} << 16) |
               (std::uint64_t{static_cast<unsigned char>(p[size / 2])} << 8) |
               static_cast<unsigned char>(p[size - 1]);
    }
    return Mix(hash ^ tail ^ keys.First, keys.Second ^ 0x9e3779b97f4a7c15ull);
}

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

char* Arena::RegrowTail(std::size_t used, std::size_t bytes) {
    if (static_cast<std::size_t>(end_ - next_) >= bytes) {
        return next_;
    }
    const char* old = next_;
    Grow((bytes + 7) & ~std::size_t{7});
    if (used != 0) {
        std::memcpy(next_, old, used);
    }
    return next_;
}

XmlName* NameTable::Lookup(std::string_view name) {
    if (name.size() > UINT32_MAX) {
        throw std::length_error("name too long");
    }
    // Documents repeat a few names over and over: a small cache by length and end bytes
    // finds them without hashing. A sender can only make it miss, never make it wrong.
    XmlName*& cached = recent_[RecentIndex(name)];
    if (cached != nullptr && SameName(*cached, name)) {
        return cached;
    }
    if ((used_ + 1) * 2 > slots_.size()) {
        Rehash();
    }
    const std::uint64_t hash = HashName(name);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
        Slot& slot = slots_[i];
        if (slot.Name == nullptr) {
            // At least kNameBlock bytes, zero behind the name, so that a short name is
            // compared as one block.
            const std::size_t room = std::max(name.size(), kNameBlock);
            auto* entry = static_cast<XmlName*>(arena_.Allocate(sizeof(XmlName) + room));
            entry->Size = static_cast<std::uint32_t>(name.size());
            entry->Mark = 0;
            entry->Successor = nullptr;
            std::memcpy(entry + 1, name.data(), name.size());
            std::memset(reinterpret_cast<char*>(entry + 1) + name.size(), 0, room - name.size());
            slot = {hash, entry};
            ++used_;
            cached = entry;
            return entry;
        }
        if (slot.Hash == hash && SameName(*slot.Name, name)) {
            cached = slot.Name;
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

}  // namespace Xml::Detail
