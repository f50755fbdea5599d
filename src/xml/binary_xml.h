#pragma once

// The two binary forms of a document. They are read, never written, and end in the same
// tree as XML text.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <tessel_link/file/file_object.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

namespace Xml {

class XmlTreeBuilder;

// Reads the elements of a binary document straight into the tree builder.
//
// The input, the builder and the name dictionary, which spans the whole document and serves
// tag and attribute names alike. A document is mostly numbers of a byte or two and short
// strings, so the input is never read a byte at a time: a file held in memory is read in
// place, any other in blocks. Where the input ends, the file is left with its own
// end-of-file error, as an exact read would leave it. Once the input has failed, reads
// deliver nothing and numbers read as far as they got.
class BinaryXmlReader {
public:
    BinaryXmlReader(File::i_file& file, XmlTreeBuilder& builder);
    ~BinaryXmlReader();
    BinaryXmlReader(const BinaryXmlReader&) = delete;
    BinaryXmlReader& operator=(const BinaryXmlReader&) = delete;

    // Revision 1: a count byte for attributes and a count of texts per element. Reads one
    // element with its subtree.
    void ReadOld();
    // Revision 2: lists ended by the name reference 0, and text items that may hold raw
    // data. Reads one element with its subtree; false when the terminator stands where a
    // tag name would, or the input failed.
    bool ReadNew();

    // The nesting bound was hit.
    bool TooDeep() const noexcept { return tooDeep_; }
    // The input failed, at its end or with an error of its own.
    bool Failed() const noexcept { return failed_; }

private:
    std::uint8_t ReadByte() { return Available() ? *next_++ : 0; }
    // A number of 7-bit groups, least significant first, gathered in 32 bits.
    std::uint32_t ReadNumber();
    std::uint32_t ReadNumberSlowly(std::uint32_t value, std::uint32_t shift);
    // `count` bytes, valid until the next read: in place when the input holds them all at
    // once, else gathered in a buffer that grows with what arrives, so that a corrupt
    // length cannot demand more memory than the input holds.
    std::string_view ReadBytes(std::uint64_t count);
    std::string_view GatherBytes(std::uint64_t count);
    // `count` bytes of UTF-8, up to the first NUL, as a text of the tree, decoded straight
    // into the document's arena; null for an empty text.
    const Detail::XmlText* ReadTextEntry(std::uint64_t count);
    // The name that `reference` stands for; a reference seen for the first time is followed
    // by the name's length and bytes. A known reference is one lookup in the dictionary,
    // whatever the length of its name.
    const Detail::XmlName* ResolveName(std::uint32_t reference);
    const Detail::XmlName* DefineName(std::uint32_t reference);
    // One element of revision 2 whose name reference has been read, with its subtree.
    bool ReadElement(std::uint32_t reference);
    // Children up to the terminator, the first of whose references has been read.
    void ReadChildren(std::uint32_t reference);
    // A text, or raw data that the tree keeps no text for (null).
    const Detail::XmlText* ReadTextItem();

    // Guards the recursion of the reads.
    bool Enter();
    void Leave() noexcept { --depth_; }

    bool Available() { return next_ != end_ || Fill(); }
    // Refills the block; false when nothing more arrives.
    bool Fill();

    File::i_file& file_;
    XmlTreeBuilder& builder_;
    // The file read in place, or null.
    File::buf_ifile<char>* inPlace_ = nullptr;
    std::uint64_t inPlaceStart_ = 0;
    const std::uint8_t* start_ = nullptr;

    // Sorted by the sender's numbers: the sender chooses them, so no hashing of them may
    // decide the cost.
    std::map<std::uint32_t, const Detail::XmlName*> names_;
    // The small references, which writers hand out from 1 upwards, in a table of bounded
    // size: one index instead of a walk down the map.
    static constexpr std::uint32_t kDirectNames = 1024;
    std::unique_ptr<const Detail::XmlName*[]> directNames_;

    std::unique_ptr<std::uint8_t[]> block_;
    std::string gathered_;
    const std::uint8_t* next_ = nullptr;
    const std::uint8_t* end_ = nullptr;
    std::uint32_t depth_ = 0;
    bool tooDeep_ = false;
    bool failed_ = false;
};

// Reads a binary document whose magic has been consumed: the revision byte, a byte that is
// skipped, and the root. True when the file object ends without error.
bool ReadBinaryDocument(XmlDocument& document, File::i_file& file);

}  // namespace Xml
