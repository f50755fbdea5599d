#pragma once

// The XML packet writer: writes the packets the service reads.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
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
    XMLPacketSerializer(const XMLPacketSerializer&) = delete;
    XMLPacketSerializer& operator=(const XMLPacketSerializer&) = delete;

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

    std::uint32_t FormatRevision() const { return formatRevision_; }  // as given to the constructor
    std::uint32_t Category() const { return category_; }  // the category the packet is written for

private:
    // The packet so far, in one block that grows in place, so that a large packet is not
    // copied as it grows and Finish can hand the block over as it is.
    class Buffer {
    public:
        Buffer() = default;
        Buffer(const Buffer&) = delete;
        Buffer& operator=(const Buffer&) = delete;
        ~Buffer();
        // Room for `size` more bytes; returns where they go. Commit then sets the new end.
        char* Reserve(std::size_t size) {
            if (capacity_ - size_ < size) {
                Grow(size);
            }
            return data_ + size_;
        }
        void Commit(char* end) { size_ = static_cast<std::size_t>(end - data_); }
        void Append(const char* text, std::size_t size) {
            char* out = Reserve(size);
            if (size != 0) {
                std::memcpy(out, text, size);
            }
            size_ += size;
        }
        void Append(std::string_view text) { Append(text.data(), text.size()); }
        void Append(char c) {
            *Reserve(1) = c;
            ++size_;
        }
        const char* Data() const { return data_; }
        std::size_t Size() const { return size_; }
        // Hands the block out and leaves the buffer empty.
        std::shared_ptr<unsigned char[]> Release();
        void Clear() { size_ = 0; }

    private:
        void Grow(std::size_t needed);
        char* data_ = nullptr;
        std::size_t size_ = 0;
        std::size_t capacity_ = 0;
    };

    bool Refuses(const MetaInfo& meta) const;
    void Open(const MetaInfo& meta);
    void Close(const MetaInfo& meta);
    template <class AppendValue>
    Serializer& WriteScalar(const MetaInfo& meta, AppendValue&& append);
    void AppendUnsigned(std::uint64_t value);
    void AppendSigned(std::int64_t value);
    void AppendTraits(const MetaInfoTraitsPtr& traits);

    Buffer buffer_;
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
