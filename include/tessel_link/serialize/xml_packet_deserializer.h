#pragma once

// The XML packet reader: reads the packets the service sends.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/xml/xml_tag.h>

namespace Serialization {

// The Deserializer of packets. The whole document (XML text, or either binary form) is read
// into a tree at construction; the reads of generated code then walk it with one cursor per
// open element.
//
// It forgives what lets old and new peers talk: unknown elements and attributes are skipped,
// elements in another order are found by name (except the Ordered elements of a sequence,
// which must stand exactly at the cursor), and a number that does not parse reads as 0. A
// missing element throws kErrorInconsistentMetadata.
class TL_API XMLPacketDeserializer : public Deserializer {
public:
    // Reads the packet of `size` bytes at `data` (only during construction: nothing is kept).
    // Never throws: a packet that cannot be read leaves the object without a tree, and every
    // Read then throws kErrorNoData. `subjectVersion` is the version in force at the root.
    XMLPacketDeserializer(const void* data, std::size_t size, std::uint32_t subjectVersion);
    ~XMLPacketDeserializer() override;
    XMLPacketDeserializer(const XMLPacketDeserializer&) = delete;
    XMLPacketDeserializer& operator=(const XMLPacketDeserializer&) = delete;

    Deserializer& Read(const MetaInfo& meta, Blob& value) override;
    Deserializer& Read(const MetaInfo& meta, std::vector<unsigned char>& value) override;
    Deserializer& Read(const MetaInfo& meta, std::uint16_t& value) override;
    Deserializer& Read(const MetaInfo& meta, std::int16_t& value) override;
    Deserializer& Read(const MetaInfo& meta, std::string& value) override;
    Deserializer& Read(const MetaInfo& meta, std::int64_t& value) override;
    Deserializer& Read(const MetaInfo& meta, std::int32_t& value) override;
    Deserializer& Read(const MetaInfo& meta, std::uint64_t& value) override;
    Deserializer& Read(const MetaInfo& meta, double& value) override;
    Deserializer& Read(const MetaInfo& meta, std::uint32_t& value) override;
    Deserializer& Read(const MetaInfo& meta, std::u16string& value) override;
    Deserializer& Read(const MetaInfo& meta, Common::Error& value) override;
    Deserializer& Read(const MetaInfo& meta, Common::Guid& value) override;
    Deserializer& Read(const MetaInfo& meta, std::uint8_t& value) override;
    Deserializer& Read(const MetaInfo& meta, bool& value) override;

    MetaInfo NextMetaInfo() override;
    bool NextIs(const MetaInfo& meta) override;
    // The run of children at the cursor that bear the name of `meta`.
    std::size_t CountNext(const MetaInfo& meta) override;
    void BeginReadMetaInfo(const MetaInfo& meta) override;
    // Leaving an element drops whatever of its children was not read.
    void FinishReadMetaInfo(const MetaInfo& meta) override;
    std::uint64_t GetSubjectVersion() override;

    // The root of the packet, null when it could not be read.
    const Xml::XmlTag* Root() const noexcept { return rootTag_; }

private:
    // The children of one open element and the next one to read.
    struct Cursor {
        const Xml::XmlTag* const* First;
        const Xml::XmlTag* const* Next;
        const Xml::XmlTag* const* End;
    };

    void Enter(const Xml::XmlTag* tag);
    const Xml::XmlTag* Child(const MetaInfo& meta);
    // The child that `meta` names when it is not the one at the cursor.
    const Xml::XmlTag* SearchChild(const MetaInfo& meta) const;
    // Throws for a lookup with no child left at the cursor.
    [[noreturn]] void NoChild() const;
    void UpdateMetainfoVersion();
    void ReleaseMetainfoVersion();
    template <class Convert>
    Deserializer& ReadValue(const MetaInfo& meta, Convert&& convert);

    Xml::XmlDocument document_;
    const Xml::XmlTag* rootTag_ = nullptr;
    const Xml::XmlTag* currentTag_ = nullptr;
    std::vector<std::uint64_t> versionStack_;
    std::vector<Cursor> tagStack_;
};

// A new packet deserializer over the bytes, owned by the caller.
TL_API std::unique_ptr<Deserializer> CreateXMLPacketDeserializer(const void* data, std::size_t size,
                                                                 std::uint32_t subjectVersion);

}  // namespace Serialization
