#include <tessel_link/serialize/xml_packet_serializer.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "serialize/base64.h"
#include "serialize/xml_text.h"

namespace Serialization {

namespace {

// The byte order mark and the root's start tag open every packet; the root carries no
// attributes and there is no XML declaration.
constexpr char kPacketStart[] = "\xEF\xBB\xBF<XML_SERIALIZER>";
constexpr char kPacketEnd[] = "</XML_SERIALIZER>";
constexpr std::size_t kInitialCapacity = 4096;

const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

// The text form of a GUID, as Common::ToString gives it, without going through printf.
constexpr char kHexDigits[] = "0123456789ABCDEF";

char* PutGuid(char* out, const Common::Guid& guid) {
    const auto hex = [&out](std::uint64_t value, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
            *out++ = kHexDigits[(value >> shift) & 0xf];
        }
    };
    hex(guid.Data1, 8);
    *out++ = '-';
    hex(guid.Data2, 4);
    *out++ = '-';
    hex(guid.Data3, 4);
    *out++ = '-';
    hex(guid.Data4[0], 2);
    hex(guid.Data4[1], 2);
    *out++ = '-';
    for (int i = 2; i < 8; ++i) {
        hex(guid.Data4[i], 2);
    }
    return out;
}
constexpr std::size_t kGuidTextSize = 36;

}  // namespace

// --- the buffer ---------------------------------------------------------------------------

XMLPacketSerializer::Buffer::~Buffer() {
    std::free(data_);
}

void XMLPacketSerializer::Buffer::Grow(std::size_t needed) {
    if (needed > std::numeric_limits<std::ptrdiff_t>::max() - size_) {
        throw std::length_error("string too long");
    }
    std::size_t capacity = capacity_ < kInitialCapacity ? kInitialCapacity : capacity_;
    while (capacity < size_ + needed) {
        capacity = capacity > std::numeric_limits<std::ptrdiff_t>::max() / 2 ? size_ + needed
                                                                             : capacity * 2;
    }
    // realloc keeps large blocks where they are, so growing does not copy the packet.
    void* grown = std::realloc(data_, capacity);
    if (grown == nullptr) {
        throw std::bad_alloc();
    }
    data_ = static_cast<char*>(grown);
    capacity_ = capacity;
}

std::shared_ptr<unsigned char[]> XMLPacketSerializer::Buffer::Release() {
    std::shared_ptr<unsigned char[]> block(reinterpret_cast<unsigned char*>(data_),
                                           [](unsigned char* p) { std::free(p); });
    data_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    return block;
}

// --- the serializer -----------------------------------------------------------------------

XMLPacketSerializer::XMLPacketSerializer(std::uint32_t formatRevision, std::uint32_t category)
    : formatRevision_(formatRevision), category_(category) {
    buffer_.Append(kPacketStart, sizeof(kPacketStart) - 1);
}

XMLPacketSerializer::~XMLPacketSerializer() = default;

bool XMLPacketSerializer::Refuses(const MetaInfo& meta) const {
    return category_ != 0 && meta.Category != 0 && meta.Category != category_;
}

// A scalar is its element around its text. The element is opened and closed as a scope
// guard would do it, without the guard's copy of the MetaInfo, since nothing between the two
// can fail other than memory.
template <class AppendValue>
Serializer& XMLPacketSerializer::WriteScalar(const MetaInfo& meta, AppendValue&& append) {
    if (Refuses(meta)) {
        return *this;
    }
    Open(meta);
    try {
        append();
    } catch (...) {
        try {
            Close(meta);
        } catch (...) {
        }
        throw;
    }
    Close(meta);
    return *this;
}

void XMLPacketSerializer::AppendUnsigned(std::uint64_t value) {
    char* out = buffer_.Reserve(20);
    buffer_.Commit(std::to_chars(out, out + 20, value).ptr);
}

void XMLPacketSerializer::AppendSigned(std::int64_t value) {
    char* out = buffer_.Reserve(20);
    buffer_.Commit(std::to_chars(out, out + 20, value).ptr);
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const Blob& value) {
    return WriteScalar(meta, [&] {
        const auto size = static_cast<std::size_t>(value.Size());
        if (size != 0) {
            char* out = buffer_.Reserve(Base64::EncodedSize(size));
            Base64::Encode(value.Data(), size, out);
            buffer_.Commit(out + Base64::EncodedSize(size));
        }
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta,
                                       const std::vector<unsigned char>& value) {
    return WriteScalar(meta, [&] {
        if (!value.empty()) {
            char* out = buffer_.Reserve(Base64::EncodedSize(value.size()));
            Base64::Encode(value.data(), value.size(), out);
            buffer_.Commit(out + Base64::EncodedSize(value.size()));
        }
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::uint16_t& value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::int16_t& value) {
    return WriteScalar(meta, [&] { AppendSigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::string& value) {
    return WriteScalar(meta, [&] {
        char* out = buffer_.Reserve(XmlText::MaxEscapedSize(value.size()));
        buffer_.Commit(XmlText::WriteEscaped(out, std::string_view(value)));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::int64_t& value) {
    return WriteScalar(meta, [&] { AppendSigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::int32_t& value) {
    return WriteScalar(meta, [&] { AppendSigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::uint64_t& value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const double& value) {
    return WriteScalar(meta, [&] {
        char text[40];
        const int length = std::snprintf(text, sizeof(text), "%.16g", value);
        buffer_.Append(text, static_cast<std::size_t>(length));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::uint32_t& value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::u16string& value) {
    return WriteScalar(meta, [&] {
        char* out = buffer_.Reserve(XmlText::MaxEscapedSize(value.size()));
        buffer_.Commit(XmlText::WriteEscaped(out, std::u16string_view(value)));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const Common::Error& value) {
    return WriteScalar(meta, [&] {
        const std::vector<unsigned char> image = value.Serialize();
        char* out = buffer_.Reserve(Base64::EncodedSize(image.size()));
        Base64::Encode(image.data(), image.size(), out);
        buffer_.Commit(out + Base64::EncodedSize(image.size()));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, Common::Guid value) {
    return WriteScalar(meta,
                       [&] { buffer_.Commit(PutGuid(buffer_.Reserve(kGuidTextSize), value)); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, std::uint8_t value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, bool value) {
    return WriteScalar(meta, [&] { buffer_.Append(value ? '1' : '0'); });
}

void XMLPacketSerializer::Finish(std::vector<unsigned char>& bytes) {
    buffer_.Append(kPacketEnd, sizeof(kPacketEnd) - 1);
    const auto* data = reinterpret_cast<const unsigned char*>(buffer_.Data());
    bytes.assign(data, data + buffer_.Size());
    buffer_.Clear();
}

Blob XMLPacketSerializer::Finish() {
    buffer_.Append(kPacketEnd, sizeof(kPacketEnd) - 1);
    const std::size_t size = buffer_.Size();
    return Blob(buffer_.Release(), size);
}

MetaInfo XMLPacketSerializer::CurrentMetaInfo() {
    return tagStack_.empty() ? MetaInfo() : MetaInfo(tagStack_.back());
}

void XMLPacketSerializer::BeginWriteMetaInfo(const MetaInfo& meta) {
    Open(meta);
}

void XMLPacketSerializer::FinishWriteMetaInfo(const MetaInfo& meta) {
    Close(meta);
}

void XMLPacketSerializer::Open(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    // Written for its own category, an element states the version of that category; the
    // plain Version still decides whether any version is stated at all.
    std::uint64_t version = meta.Version;
    if (category_ != 0 && meta.Category != 0) {
        if (meta.Category != category_) {
            skipClose_ = true;
            return;
        }
        version = meta.CategoryVersion;
    }
    tagStack_.push_back(meta.Name);
    buffer_.Append('<');
    buffer_.Append(meta.Name);
    if (meta.Version != 0) {
        buffer_.Append(" version=\"", 10);
        AppendUnsigned(version);
        buffer_.Append('"');
    }
    buffer_.Append('>');
}

void XMLPacketSerializer::AppendTraits(const MetaInfoTraitsPtr& traits) {
    if (traits == nullptr) {
        return;
    }
    for (const MetaInfoTrait& trait : *traits) {
        // Two blanks behind "trait": readers of the format expect exactly this text.
        buffer_.Append("<trait  name=\"", 14);
        buffer_.Append(std::string_view(OrEmpty(trait.Name)));
        buffer_.Append("\" type=\"", 8);
        buffer_.Append(std::string_view(OrEmpty(trait.Type)));
        buffer_.Append("\">", 2);
        const std::string_view value(OrEmpty(trait.Value));
        char* out = buffer_.Reserve(XmlText::MaxEscapedSize(value.size()));
        buffer_.Commit(XmlText::WriteEscaped(out, value));
        buffer_.Append("</trait>", 8);
    }
}

void XMLPacketSerializer::Close(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    if (skipClose_) {
        skipClose_ = false;
        return;
    }
    if (meta.TypeTraits != nullptr || meta.MemberTraits != nullptr) {
        const MetaInfo traits("traits");
        BeginWriteMetaInfo(traits);
        AppendTraits(meta.TypeTraits);
        AppendTraits(meta.MemberTraits);
        FinishWriteMetaInfo(traits);
    }
    buffer_.Append("</", 2);
    buffer_.Append(meta.Name);
    buffer_.Append('>');
    if (!tagStack_.empty()) {
        tagStack_.pop_back();
    }
}

void XMLPacketSerializer::SetSubjectVersion(std::uint64_t version) {
    subjectVersion_ = version;
}

std::uint64_t XMLPacketSerializer::GetSubjectVersion() {
    return subjectVersion_;
}

std::unique_ptr<Serializer> CreateXMLPacketSerializer(std::uint32_t formatRevision,
                                                      std::uint32_t category) {
    return std::make_unique<XMLPacketSerializer>(formatRevision, category);
}

}  // namespace Serialization
