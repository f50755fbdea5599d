#pragma once

// The two binary forms of a document. They are read, never written, and end in the same
// tree as XML text.

#include <cstdint>
#include <string>
#include <map>
#include <memory>
#include <string_view>

#include <tessel_link/file/file_object.h>
#include <tessel_link/xml/xml_tag.h>

namespace Xml {

class XmlTreeBuilder;

// Events of a binary document. Names arrive interned by the sink itself, so that a name the
// dictionary already holds costs nothing more than its number. Every other operation does
// nothing by default.
class xml_reader_interface {
public:
    virtual ~xml_reader_interface();
    virtual const Detail::XmlName* InternName(std::string_view name) = 0;
    virtual void StartDocument() {}
    virtual void EndDocument() {}
    virtual void StartTag(const Detail::XmlName& /*name*/) {}
    virtual void EndTag() {}
    virtual void Attribute(const Detail::XmlName& /*name*/, std::u16string_view /*value*/) {}
    virtual void Text(std::u16string_view /*value*/) {}
    virtual void BinaryText(std::string_view /*bytes*/) {}
};

// What both binary readers share: the input, the sink and the name dictionary, which spans
// the whole document and serves tag and attribute names alike. The input is read in blocks,
// since a document is mostly numbers of a byte or two; a read that finds the file at its end
// leaves the file's own end-of-file error on it, as an exact read would. Once the file has
// failed, reads deliver nothing and numbers read as far as they got.
class xml_reader_core {
public:
    xml_reader_core(File::i_file& file, xml_reader_interface& sink);
    virtual ~xml_reader_core();
    // Reads one element with its subtree.
    virtual bool Read() = 0;

    // The nesting bound was hit.
    bool TooDeep() const noexcept { return tooDeep_; }

protected:
    std::uint8_t ReadByte();
    // A number of 7-bit groups, least significant first, gathered in 32 bits.
    std::uint32_t ReadNumber();
    // `count` bytes, valid until the next read: in place when the block holds them all,
    // else gathered in a buffer that grows with what arrives, so that a corrupt length
    // cannot demand more memory than the input holds.
    std::string_view ReadBytes(std::uint64_t count);
    // `count` bytes of UTF-8, up to the first NUL, as UTF-16; valid until the next read.
    std::u16string_view ReadText(std::uint64_t count);
    // The name that `reference` stands for; a reference seen for the first time is followed
    // by the name's length and bytes. A known reference is one lookup in the dictionary,
    // whatever the length of its name.
    const Detail::XmlName& ResolveName(std::uint32_t reference);

    // Guards the recursion of Read.
    bool Enter();
    void Leave() noexcept { --depth_; }

    File::i_file& file_;
    xml_reader_interface& sink_;
    // Sorted by the sender's numbers: the sender chooses them, so no hashing of them may
    // decide the cost.
    std::map<std::uint32_t, const Detail::XmlName*> names_;
    // The small references, which writers hand out from 1 upwards, in a table of bounded
    // size: one index instead of a walk down the map.
    static constexpr std::uint32_t kDirectNames = 1024;
    std::unique_ptr<const Detail::XmlName*[]> directNames_;

private:
    // Refills the block; false when nothing more arrives.
    bool Fill();
    bool Available() { return next_ != end_ || Fill(); }

    std::unique_ptr<std::uint8_t[]> block_;
    std::string gathered_;
    std::u16string text_;
    const std::uint8_t* next_ = nullptr;
    const std::uint8_t* end_ = nullptr;
    std::uint32_t depth_ = 0;
    bool tooDeep_ = false;
};

// Revision 1: a count byte for attributes and a count of texts per element.
class xml_reader_binary_old : public xml_reader_core {
public:
    using xml_reader_core::xml_reader_core;
    bool Read() override;
};

// Revision 2: lists ended by the name reference 0, and text items that may hold raw data.
class xml_reader_binary_new : public xml_reader_core {
public:
    using xml_reader_core::xml_reader_core;
    // False when the terminator stands where a tag name would.
    bool Read() override;

private:
    void ReadTextItem();
};

// The sink that builds the tree.
class binary_reader : public xml_reader_interface {
public:
    explicit binary_reader(XmlTreeBuilder& builder) : builder_(builder) {}
    const Detail::XmlName* InternName(std::string_view name) override;
    void StartDocument() override;
    void EndDocument() override;
    void StartTag(const Detail::XmlName& name) override;
    void EndTag() override;
    void Attribute(const Detail::XmlName& name, std::u16string_view value) override;
    void Text(std::u16string_view value) override;

private:
    XmlTreeBuilder& builder_;
};

// Reads a binary document whose magic has been consumed: the revision byte, a byte that is
// skipped, and the root. True when the file object ends without error.
bool ReadBinaryDocument(XmlDocument& document, File::i_file& file);

}  // namespace Xml
