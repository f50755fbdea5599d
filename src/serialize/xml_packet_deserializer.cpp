#include <tessel_link/serialize/xml_packet_deserializer.h>

#include <tessel_link/impl/serialize/scope_guards.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <tessel_link/common/assert.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/serialize/errors.h>

#include "common/guid_text.h"
#include "serialize/base64.h"
#include "xml/xml_store.h"

namespace Serialization {

namespace {

// The low byte of every UTF-16 unit, up to the first NUL: the inverse of the Latin-1
// widening with which narrow strings are written (wider characters lose their high byte).
std::string Narrow(std::u16string_view text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (char16_t unit : text) {
        const char c = static_cast<char>(unit & 0xff);
        if (c == '\0') {
            break;
        }
        narrow += c;
    }
    return narrow;
}

// Numbers are read as the C library reads them: leading white space and a sign are taken,
// trailing junk is ignored, text that is no number gives 0, and out-of-range values are
// clamped by the library and then cut to the width of the value.
//
// Nearly every number a writer produces is plain decimal digits that cannot overflow; those
// are read here directly, and everything else goes to the C library.
bool PlainDigits(std::u16string_view text, std::uint64_t& value) {
    if (text.empty() || text.size() > 19) {
        return false;
    }
    std::uint64_t result = 0;
    std::size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
        // Four units at a time: each must be a digit, which no borrow between the units can
        // hide, since a unit below '0' sets its own top bit first.
        for (; text.size() - i >= 4; i += 4) {
            std::uint64_t units;
            std::memcpy(&units, text.data() + i, sizeof units);
            if ((units & 0xff00ff00ff00ff00ull) != 0 ||
                (((units + 0x0046004600460046ull) | (units - 0x0030003000300030ull)) &
                 0x0080008000800080ull) != 0) {
                return false;
            }
            const std::uint64_t digits = units - 0x0030003000300030ull;
            result = result * 10000 + (digits & 0xff) * 1000 + ((digits >> 16) & 0xff) * 100 +
                     ((digits >> 32) & 0xff) * 10 + (digits >> 48);
        }
    }
    for (char16_t unit : text.substr(i)) {
        if (unit < u'0' || unit > u'9') {
            return false;
        }
        result = result * 10 + static_cast<std::uint64_t>(unit - u'0');
    }
    value = result;
    return true;
}

std::uint64_t ParseUnsigned(std::u16string_view text) {
    std::uint64_t value = 0;
    if (PlainDigits(text, value)) {
        return value;
    }
    return std::strtoull(Narrow(text).c_str(), nullptr, 10);
}

std::int64_t ParseSigned(std::u16string_view text) {
    constexpr std::uint64_t kMax = static_cast<std::uint64_t>(INT64_MAX);
    std::uint64_t value = 0;
    if (PlainDigits(text, value) && value <= kMax) {
        return static_cast<std::int64_t>(value);
    }
    if (text.size() > 1 && text.front() == u'-' && PlainDigits(text.substr(1), value) && value <= kMax) {
        return -static_cast<std::int64_t>(value);
    }
    return std::strtoll(Narrow(text).c_str(), nullptr, 10);
}

// Whether the element name `tag` is `wanted`: every member read compares one, and the short
// names of members compare without a library call.
inline bool SameName(std::string_view tag, std::string_view wanted) noexcept {
    return Xml::Detail::SameBytes(tag, wanted);
}

// The tree of a large packet is far larger than the caches, and reading a record would wait
// on memory more than it computes. The tree lies in memory in document order, a subtree from
// its tag up to the tag of its next sibling; so the subtree of a sibling can be fetched whole
// before it is read: from its tag up to the tag behind it, within a bound.
inline void PrefetchSubtree(const Xml::XmlTag* next, const Xml::XmlTag* behind) noexcept {
    constexpr std::uintptr_t kLine = 64;
    constexpr std::uintptr_t kMostBytes = 4096;
    const auto from = reinterpret_cast<std::uintptr_t>(next);
    const auto to = reinterpret_cast<std::uintptr_t>(behind);
    const std::uintptr_t bytes = to > from && to - from <= kMostBytes ? to - from : kLine;
    for (std::uintptr_t at = 0; at < bytes; at += kLine) {
        __builtin_prefetch(reinterpret_cast<const void*>(from + at));
    }
}

[[noreturn]] void ThrowNoData(const Common::ErrorOrigin& origin) {
    throw SerializerError(origin, kErrorNoData);
}

std::vector<unsigned char> DecodeBinary(std::u16string_view text) {
    std::vector<unsigned char> bytes;
    if (!Base64::Decode(text, bytes)) {
        ThrowNoData(TL_ORIGIN("Serialization::XMLPacketDeserializer::Read"));
    }
    return bytes;
}

}  // namespace

XMLPacketDeserializer::XMLPacketDeserializer(const void* data, std::size_t size,
                                             std::uint32_t subjectVersion) {
    try {
        File::buf_ifile<char> file(static_cast<const char*>(data), data != nullptr ? size : 0);
        std::uint32_t line = 0;
        std::uint32_t column = 0;
        const bool result = Xml::ReadDocument(document_, file, line, column);
        if (!result) {
            TL_ASSERT_TEXT(result, "result && \"Cannot read xml document from string.\"");
            document_.Reset();
            return;
        }
        rootTag_ = document_.Root();
        if (rootTag_ == nullptr) {
            TL_ASSERT_TEXT(rootTag_ != nullptr, "RootTag");
            return;
        }
        currentTag_ = rootTag_;
        tagStack_.reserve(16);
        versionStack_.reserve(16);
        Enter(rootTag_);
        versionStack_.push_back(subjectVersion);
    } catch (...) {
        // Out of memory while reading: the object stays without a tree, as for a packet that
        // does not parse.
        document_.Reset();
        rootTag_ = nullptr;
        currentTag_ = nullptr;
        tagStack_.clear();
        versionStack_.clear();
    }
}

XMLPacketDeserializer::~XMLPacketDeserializer() = default;

inline void XMLPacketDeserializer::Enter(const Xml::XmlTag* tag) {
    const Xml::XmlChildren children = tag->Children();
    tagStack_.push_back({children.begin(), children.begin(), children.end()});
}

// Nearly every member stands at the cursor: that case is inlined into every read, and the
// rest (a search among the siblings, or an error) is a call.
inline const Xml::XmlTag* XMLPacketDeserializer::Child(const MetaInfo& meta) {
    if (!tagStack_.empty()) [[likely]] {
        Cursor& cursor = tagStack_.back();
        if (cursor.Next != cursor.End) [[likely]] {
            // The cursor moves on whether or not the child fits: an unknown element is
            // stepped over.
            const Xml::XmlTag* child = *cursor.Next++;
            if (SameName(child->Name(), meta.Name)) [[likely]] {
                return child;
            }
            return SearchChild(meta);
        }
    }
    NoChild();
}

void XMLPacketDeserializer::NoChild() const {
    if (tagStack_.empty()) {
        TL_ASSERT_TEXT(false, "!\"XMLPacketDeserializer: No meta.\"");
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::Child"),
                              kErrorNoMetaInfo);
    }
    throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::Child"),
                          kErrorInconsistentMetadata);
}

const Xml::XmlTag* XMLPacketDeserializer::SearchChild(const MetaInfo& meta) const {
    if (meta.Ordered == 0) {
        const Cursor& cursor = tagStack_.back();
        for (auto it = cursor.First; it != cursor.End; ++it) {
            if (SameName((*it)->Name(), meta.Name)) {
                return *it;
            }
        }
    }
    throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::Child"),
                          kErrorInconsistentMetadata);
}

void XMLPacketDeserializer::BeginReadMetaInfo(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    currentTag_ = Child(meta);
    // An element that is entered is mostly a record among its like: the next one is fetched
    // while this one is read.
    const Cursor& cursor = tagStack_.back();
    if (cursor.End - cursor.Next >= 2) {
        PrefetchSubtree(cursor.Next[0], cursor.Next[1]);
    }
    UpdateMetainfoVersion();
    Enter(currentTag_);
}

inline void XMLPacketDeserializer::UpdateMetainfoVersion() {
    if (versionStack_.empty()) {
        throw SerializerError(
            TL_ORIGIN("Serialization::XMLPacketDeserializer::UpdateMetainfoVersion"),
            kErrorInconsistentMetadata);
    }
    // A version stated on the element holds for it and its subtree; a missing one, or 0,
    // inherits the parent's.
    std::uint64_t version = 0;
    if (const auto stated = currentTag_->Attributes().Find("version")) {
        version = ParseUnsigned(*stated);
    }
    versionStack_.push_back(version != 0 ? version : versionStack_.back());
}

void XMLPacketDeserializer::FinishReadMetaInfo(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    if (currentTag_ == nullptr) {
        TL_ASSERT_TEXT(false, "!\"XMLPacketDeserializer: No tags.\"");
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::FinishReadMetaInfo"),
                              kErrorNoMetaInfo);
    }
    // The element must be the one begun: the same name, and a MetaInfo without traits, as
    // one built from the element's name alone would be.
    if (!SameName(currentTag_->Name(), meta.Name) || meta.TypeTraits != nullptr || meta.MemberTraits != nullptr) {
        TL_ASSERT_TEXT(false, "!\"XMLPacketDeserializer: Inconsistent meta.\"");
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::FinishReadMetaInfo"),
                              kErrorInconsistentMetadata);
    }
    currentTag_ = currentTag_->Parent();
    if (tagStack_.empty()) {
        TL_ASSERT_TEXT(false, "!\"XMLPacketDeserializer: Stack is empty somehow.\"");
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::FinishReadMetaInfo"),
                              kErrorInconsistentMetadata);
    }
    tagStack_.pop_back();
    if (currentTag_ == nullptr) {
        TL_ASSERT_TEXT(false, "CurrentTag");
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::FinishReadMetaInfo"),
                              kErrorInconsistentMetadata);
    }
    ReleaseMetainfoVersion();
}

inline void XMLPacketDeserializer::ReleaseMetainfoVersion() {
    if (versionStack_.empty()) {
        throw SerializerError(
            TL_ORIGIN("Serialization::XMLPacketDeserializer::ReleaseMetainfoVersion"),
            kErrorInconsistentMetadata);
    }
    versionStack_.pop_back();
}

MetaInfo XMLPacketDeserializer::NextMetaInfo() {
    if (tagStack_.empty()) {
        return MetaInfo();
    }
    const Cursor& cursor = tagStack_.back();
    if (cursor.Next == cursor.End || *cursor.Next == nullptr) {
        return MetaInfo();
    }
    return MetaInfo(std::string((*cursor.Next)->Name()));
}

bool XMLPacketDeserializer::NextIs(const MetaInfo& meta) {
    // What NextMetaInfo() == meta gives: its MetaInfo never has traits.
    if (meta.TypeTraits != nullptr || meta.MemberTraits != nullptr) {
        return false;
    }
    if (tagStack_.empty()) {
        return meta.Name.empty();
    }
    const Cursor& cursor = tagStack_.back();
    if (cursor.Next == cursor.End || *cursor.Next == nullptr) {
        return meta.Name.empty();
    }
    return SameName((*cursor.Next)->Name(), meta.Name);
}

std::size_t XMLPacketDeserializer::CountNext(const MetaInfo& meta) {
    if (!NextIs(meta) || meta.Name.empty()) {
        return 0;
    }
    // Names are interned in the tree: equal names are one object, so the rest of the run is
    // told by address.
    const Cursor& cursor = tagStack_.back();
    const char* const name = (*cursor.Next)->Name().data();
    auto it = cursor.Next;
    while (it != cursor.End && *it != nullptr && (*it)->Name().data() == name) {
        ++it;
    }
    return static_cast<std::size_t>(it - cursor.Next);
}

std::uint64_t XMLPacketDeserializer::GetSubjectVersion() {
    if (versionStack_.empty()) {
        throw SerializerError(TL_ORIGIN("Serialization::XMLPacketDeserializer::GetSubjectVersion"),
                              kErrorInconsistentMetadata);
    }
    return versionStack_.back();
}

// Every value is the first text of its element: what stands before the element's first
// child, possibly empty. A missing element fails in Child; an empty one converts "". An empty
// name reads the open element's own text.
//
// Nothing inside a value's element is read, so the element is not entered: what begin and
// finish would do to the cursors and versions cancels out. Most elements of a record are
// values, and entering each was an eighth of the time a record took to read. A MetaInfo
// with traits does enter it: the close then fails, as no element read back has traits, and
// the guard logs that failure.
template <class Convert>
Deserializer& XMLPacketDeserializer::ReadValue(const MetaInfo& meta, Convert&& convert) {
    if (currentTag_ == nullptr) {
        ThrowNoData(TL_ORIGIN("Serialization::XMLPacketDeserializer::Read"));
    }
    if (meta.TypeTraits != nullptr || meta.MemberTraits != nullptr) [[unlikely]] {
        const ReadScope element(*this, meta);
        convert(currentTag_->Text().front());
        return *this;
    }
    const Xml::XmlTag* tag = meta.Name.empty() ? currentTag_ : Child(meta);
    convert(tag->Text().front());
    return *this;
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, Blob& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        const std::vector<unsigned char> bytes = DecodeBinary(text);
        value = Blob(bytes.data(), bytes.size());
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::vector<unsigned char>& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value = DecodeBinary(text); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::uint16_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        value = static_cast<std::uint16_t>(ParseUnsigned(text));
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::int16_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        value = static_cast<std::int16_t>(ParseSigned(text));
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::string& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value = Narrow(text); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::int64_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value = ParseSigned(text); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::int32_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        value = static_cast<std::int32_t>(ParseSigned(text));
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::uint64_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value = ParseUnsigned(text); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, double& value) {
    // A text that is no number, the empty text among them, leaves the value as it was.
    return ReadValue(
        meta, [&](std::u16string_view text) { std::sscanf(Narrow(text).c_str(), "%lf", &value); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::uint32_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        value = static_cast<std::uint32_t>(ParseUnsigned(text));
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::u16string& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value.assign(text); });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, Common::Error& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        const std::vector<unsigned char> bytes = DecodeBinary(text);
        value = Common::Error::Deserialize(bytes.data(), bytes.size());
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, Common::Guid& value) {
    // A text that is no GUID leaves the value as it was, without an error.
    return ReadValue(meta, [&](std::u16string_view text) {
        if (Common::Detail::ParseCanonicalGuid(text, value)) {
            return;
        }
        // A GUID's text is short: narrowed on the stack, without an allocation per GUID.
        char narrow[64];
        if (text.size() >= sizeof narrow) {
            Common::FromString(Narrow(text).c_str(), value);
            return;
        }
        std::size_t size = 0;
        for (char16_t unit : text) {
            const char c = static_cast<char>(unit & 0xff);
            if (c == '\0') {
                break;
            }
            narrow[size++] = c;
        }
        narrow[size] = '\0';
        Common::FromString(narrow, value);
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, std::uint8_t& value) {
    return ReadValue(meta, [&](std::u16string_view text) {
        value = static_cast<std::uint8_t>(ParseUnsigned(text));
    });
}

Deserializer& XMLPacketDeserializer::Read(const MetaInfo& meta, bool& value) {
    return ReadValue(meta, [&](std::u16string_view text) { value = ParseUnsigned(text) != 0; });
}

std::unique_ptr<Deserializer> CreateXMLPacketDeserializer(const void* data, std::size_t size,
                                                          std::uint32_t subjectVersion) {
    return std::make_unique<XMLPacketDeserializer>(data, size, subjectVersion);
}

}  // namespace Serialization
