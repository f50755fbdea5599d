#include <tessel_link/serialize/xml_packet_serializer.h>

#include <charconv>
#include <cstdio>

#include <tessel_link/serialize/scope_guards.h>

#include "serialize/base64.h"
#include "serialize/xml_text.h"

namespace Serialization {

namespace {

// The byte order mark and the root's start tag open every packet; the root carries no
// attributes and there is no XML declaration.
constexpr char kPacketStart[] = "\xEF\xBB\xBF<XML_SERIALIZER>";
constexpr char kPacketEnd[] = "</XML_SERIALIZER>";

const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

XMLPacketSerializer::XMLPacketSerializer(std::uint32_t formatRevision, std::uint32_t category)
    : buffer_(kPacketStart), formatRevision_(formatRevision), category_(category) {}

XMLPacketSerializer::~XMLPacketSerializer() = default;

bool XMLPacketSerializer::Refuses(const MetaInfo& meta) const {
    return category_ != 0 && meta.Category != 0 && meta.Category != category_;
}

template <class Append>
Serializer& XMLPacketSerializer::WriteScalar(const MetaInfo& meta, Append&& append) {
    if (Refuses(meta)) {
        return *this;
    }
    WriteScope element(*this, meta);
    append();
    return *this;
}

void XMLPacketSerializer::AppendUnsigned(std::uint64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value);
    buffer_.append(digits, result.ptr);
}

void XMLPacketSerializer::AppendSigned(std::int64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value);
    buffer_.append(digits, result.ptr);
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const Blob& value) {
    return WriteScalar(meta, [&] {
        Base64::Append(buffer_, value.Data(), static_cast<std::size_t>(value.Size()));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta,
                                       const std::vector<unsigned char>& value) {
    return WriteScalar(meta, [&] { Base64::Append(buffer_, value.data(), value.size()); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::uint16_t& value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::int16_t& value) {
    return WriteScalar(meta, [&] { AppendSigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::string& value) {
    return WriteScalar(meta, [&] { XmlText::AppendEscaped(buffer_, std::string_view(value)); });
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
        buffer_.append(text, static_cast<std::size_t>(length));
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::uint32_t& value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const std::u16string& value) {
    return WriteScalar(meta, [&] { XmlText::AppendEscaped(buffer_, std::u16string_view(value)); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, const Common::Error& value) {
    return WriteScalar(meta, [&] {
        const std::vector<unsigned char> image = value.Serialize();
        Base64::Append(buffer_, image.data(), image.size());
    });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, Common::Guid value) {
    return WriteScalar(meta, [&] { buffer_ += Common::ToString(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, std::uint8_t value) {
    return WriteScalar(meta, [&] { AppendUnsigned(value); });
}

Serializer& XMLPacketSerializer::Write(const MetaInfo& meta, bool value) {
    return WriteScalar(meta, [&] { buffer_ += value ? '1' : '0'; });
}

void XMLPacketSerializer::Finish(std::vector<unsigned char>& bytes) {
    buffer_ += kPacketEnd;
    bytes.assign(buffer_.begin(), buffer_.end());
    std::string().swap(buffer_);
}

Blob XMLPacketSerializer::Finish() {
    buffer_ += kPacketEnd;
    Blob blob(buffer_.data(), buffer_.size());
    std::string().swap(buffer_);
    return blob;
}

MetaInfo XMLPacketSerializer::CurrentMetaInfo() {
    return tagStack_.empty() ? MetaInfo() : MetaInfo(tagStack_.back());
}

void XMLPacketSerializer::BeginWriteMetaInfo(const MetaInfo& meta) {
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
    buffer_ += '<';
    buffer_ += meta.Name;
    if (meta.Version != 0) {
        buffer_ += " version=\"";
        AppendUnsigned(version);
        buffer_ += '"';
    }
    buffer_ += '>';
}

void XMLPacketSerializer::AppendTraits(const MetaInfoTraitsPtr& traits) {
    if (traits == nullptr) {
        return;
    }
    for (const MetaInfoTrait& trait : *traits) {
        // Two blanks behind "trait": readers of the format expect exactly this text.
        buffer_ += "<trait  name=\"";
        buffer_ += OrEmpty(trait.Name);
        buffer_ += "\" type=\"";
        buffer_ += OrEmpty(trait.Type);
        buffer_ += "\">";
        XmlText::AppendEscaped(buffer_, std::string_view(OrEmpty(trait.Value)));
        buffer_ += "</trait>";
    }
}

void XMLPacketSerializer::FinishWriteMetaInfo(const MetaInfo& meta) {
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
    buffer_ += "</";
    buffer_ += meta.Name;
    buffer_ += '>';
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
