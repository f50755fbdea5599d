#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/export.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

// The Serializer that writes a packet: one UTF-8 document with a byte order mark and the root
// "XML_SERIALIZER", built by appending to a single buffer. Elements follow one another
// without separators and are never written in the short "/>" form; a version attribute
// stands only where the writer states a version, and traits follow the content of their
// element in a "traits" block.
//
// A serializer made for a category (non-zero) refuses the elements of every other category:
// a refused scalar writes nothing, a refused begin writes nothing and makes the next finish
// close nothing.
class TL_API XMLPacketSerializer : public Serializer {
public:
    // `formatRevision` is kept for the caller (the binding layer passes 2) and changes
    // nothing in the output; `category` is the category the packet is written for, 0 for all.
    XMLPacketSerializer(std::uint32_t formatRevision, std::uint32_t category);
    ~XMLPacketSerializer() override;

    Serializer& Write(const MetaInfo& meta, const Blob& value) override;
    Serializer& Write(const MetaInfo& meta, const std::vector<unsigned char>& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint16_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int16_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::string& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int64_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int32_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint64_t& value) override;
    Serializer& Write(const MetaInfo& meta, const double& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint32_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::u16string& value) override;
    Serializer& Write(const MetaInfo& meta, const Common::Error& value) override;
    Serializer& Write(const MetaInfo& meta, Common::Guid value) override;
    Serializer& Write(const MetaInfo& meta, std::uint8_t value) override;
    Serializer& Write(const MetaInfo& meta, bool value) override;

    // Both append the end tag and move the whole packet out: a second Finish yields only the
    // end tag. Open elements are not checked.
    void Finish(std::vector<unsigned char>& bytes) override;
    Blob Finish() override;
    MetaInfo CurrentMetaInfo() override;
    void BeginWriteMetaInfo(const MetaInfo& meta) override;
    void FinishWriteMetaInfo(const MetaInfo& meta) override;
    void SetSubjectVersion(std::uint64_t version) override;
    std::uint64_t GetSubjectVersion() override;

    std::uint32_t FormatRevision() const { return formatRevision_; }
    std::uint32_t Category() const { return category_; }

private:
    bool Refuses(const MetaInfo& meta) const;
    template <class Append>
    Serializer& WriteScalar(const MetaInfo& meta, Append&& append);
    void AppendUnsigned(std::uint64_t value);
    void AppendSigned(std::int64_t value);
    void AppendTraits(const MetaInfoTraitsPtr& traits);

    std::string buffer_;
    std::deque<std::string> tagStack_;
    std::uint32_t formatRevision_;
    std::uint32_t category_;
    std::uint64_t subjectVersion_ = 0;
    bool skipClose_ = false;
};

// A new packet serializer, owned by the caller.
TL_API std::unique_ptr<Serializer> CreateXMLPacketSerializer(std::uint32_t formatRevision,
                                                             std::uint32_t category);

}  // namespace Serialization
