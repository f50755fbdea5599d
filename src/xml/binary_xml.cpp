#include "xml/binary_xml.h"

#include <algorithm>
#include <memory>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/unicode.h>

#include "common/utf8_into.h"

#include "xml/xml_tree_builder.h"

namespace Xml {

namespace {
// The input is read in blocks of this size.
constexpr std::size_t kBlockSize = 65536;
}  // namespace

xml_reader_interface::~xml_reader_interface() = default;
xml_reader_core::~xml_reader_core() = default;

xml_reader_core::xml_reader_core(File::i_file& file, xml_reader_interface& sink)
    : file_(file), sink_(sink), block_(new std::uint8_t[kBlockSize]) {
    next_ = end_ = block_.get();
}

bool xml_reader_core::Fill() {
    if (file_.Failed()) {
        return false;
    }
    std::uint64_t got = 0;
    file_.Read(block_.get(), kBlockSize, got);
    next_ = block_.get();
    end_ = next_ + std::min<std::uint64_t>(got, kBlockSize);
    if (next_ != end_) {
        return true;
    }
    // Nothing arrived: an exact read of the byte that is missing puts the file's own
    // end-of-file error on it, unless the read failed with an error of its own.
    if (!file_.Failed()) {
        std::uint8_t byte = 0;
        file_.ReadExact(&byte, 1);
    }
    return false;
}

std::uint8_t xml_reader_core::ReadByte() {
    return Available() ? *next_++ : 0;
}

std::uint32_t xml_reader_core::ReadNumber() {
    std::uint32_t value = 0;
    std::uint32_t shift = 0;
    while (Available()) {
        const std::uint8_t byte = *next_++;
        value |= static_cast<std::uint32_t>(byte & 0x7f) << (shift & 31);
        shift += 7;
        if ((byte & 0x80) == 0) {
            break;
        }
    }
    return value;
}

std::string_view xml_reader_core::ReadBytes(std::uint64_t count) {
    if (count <= static_cast<std::uint64_t>(end_ - next_)) {
        const std::string_view bytes(reinterpret_cast<const char*>(next_),
                                     static_cast<std::size_t>(count));
        next_ += count;
        return bytes;
    }
    gathered_.clear();
    while (count != 0 && Available()) {
        // Pieces of at most one block, each only once the one before it has arrived: the
        // buffer grows with what the input holds, not with what a length claims.
        const std::uint64_t piece = std::min<std::uint64_t>(count, end_ - next_);
        gathered_.append(reinterpret_cast<const char*>(next_), static_cast<std::size_t>(piece));
        next_ += piece;
        count -= piece;
    }
    return gathered_;
}

std::u16string_view xml_reader_core::ReadText(std::uint64_t count) {
    const std::string_view bytes = ReadBytes(count);
    Common::Detail::Utf8ToUtf16LenientInto(bytes.substr(0, bytes.find('\0')), text_);
    return text_;
}

const Detail::XmlName& xml_reader_core::ResolveName(std::uint32_t reference) {
    const bool direct = reference < kDirectNames;
    if (direct) {
        if (!directNames_) {
            directNames_.reset(new const Detail::XmlName*[kDirectNames]());
        }
        if (directNames_[reference] != nullptr) {
            return *directNames_[reference];
        }
    }
    const auto known = direct ? names_.end() : names_.lower_bound(reference);
    if (known != names_.end() && known->first == reference) {
        return *known->second;
    }
    const std::uint32_t length = ReadNumber();
    const Detail::XmlName* name = sink_.InternName(ReadBytes(length));
    if (direct) {
        directNames_[reference] = name;
    } else {
        names_.emplace_hint(known, reference, name);
    }
    return *name;
}

bool xml_reader_core::Enter() {
    if (depth_ >= kMaxXmlDepth) {
        tooDeep_ = true;
        return false;
    }
    ++depth_;
    return true;
}

bool xml_reader_binary_old::Read() {
    if (!Enter()) {
        return true;
    }
    sink_.StartTag(ResolveName(ReadNumber()));
    const std::uint8_t attributes = ReadByte();
    for (unsigned i = 0; i < attributes; ++i) {
        const Detail::XmlName& name = ResolveName(ReadNumber());
        sink_.Attribute(name, ReadText(ReadNumber()));
    }
    const std::uint32_t textCount = ReadNumber();
    TL_ASSERT_TEXT(textCount != 0, "textCount");
    sink_.Text(ReadText(ReadNumber()));
    // A count of 0 wraps as it always has; the loop then runs until the input fails.
    for (std::uint32_t i = textCount - 1; i != 0 && !file_.Failed() && !TooDeep(); --i) {
        Read();
        sink_.Text(ReadText(ReadNumber()));
    }
    sink_.EndTag();
    Leave();
    return true;
}

bool xml_reader_binary_new::Read() {
    // The terminator is no element: it must not count against the nesting bound, or a
    // document would be refused one level earlier than the same tree as text.
    const std::uint32_t reference = ReadNumber();
    if (reference == 0 || !Enter()) {
        return false;
    }
    sink_.StartTag(ResolveName(reference));
    for (;;) {
        const std::uint32_t attribute = ReadNumber();
        if (attribute == 0) {
            break;
        }
        const Detail::XmlName& name = ResolveName(attribute);
        const std::uint32_t textLength = ReadNumber();
        TL_ASSERT_TEXT((textLength & 1) == 0, "(textLength & 1) == 0");
        sink_.Attribute(name, textLength < 2 ? std::u16string_view() : ReadText(textLength / 2));
    }
    ReadTextItem();
    while (!TooDeep() && Read()) {
        ReadTextItem();
    }
    sink_.EndTag();
    Leave();
    return !file_.Failed();
}

void xml_reader_binary_new::ReadTextItem() {
    const std::uint32_t item = ReadNumber();
    const std::uint32_t length = item >> 1;
    if ((item & 1) != 0) {
        sink_.BinaryText(ReadBytes(length));
    } else {
        sink_.Text(ReadText(length));
    }
}

const Detail::XmlName* binary_reader::InternName(std::string_view name) {
    return builder_.Intern(name);
}

void binary_reader::StartDocument() {
    builder_.CloseAll();
}

void binary_reader::EndDocument() {
    TL_ASSERT_TEXT(builder_.Depth() == 0, "!tagStack.size()");
    builder_.CloseAll();
}

void binary_reader::StartTag(const Detail::XmlName& name) {
    builder_.Open(&name);
}

void binary_reader::EndTag() {
    if (builder_.Depth() != 0) {
        builder_.Close();
    }
}

void binary_reader::Attribute(const Detail::XmlName& name, std::u16string_view value) {
    TL_ASSERT_TEXT(builder_.Depth() != 0, "tagStack.size()");
    if (builder_.Depth() != 0) {
        builder_.AddAttribute(&name, value);  // a repeated name keeps the first
    }
}

void binary_reader::Text(std::u16string_view value) {
    TL_ASSERT_TEXT(builder_.Depth() != 0, "tagStack.size()");
    if (builder_.Depth() != 0) {
        builder_.SetText(value);
    }
}

bool ReadBinaryDocument(XmlDocument& document, File::i_file& file) {
    std::uint8_t header[2] = {0, 0};
    file.ReadExact(header, 2);  // the revision, and a byte without meaning for a reader
    XmlTreeBuilder builder(document);
    binary_reader sink(builder);
    std::unique_ptr<xml_reader_core> reader;
    if (header[0] == 1) {
        reader = std::make_unique<xml_reader_binary_old>(file, sink);
    } else if (header[0] == 2) {
        reader = std::make_unique<xml_reader_binary_new>(file, sink);
    } else {
        return false;
    }
    sink.StartDocument();
    reader->Read();
    sink.EndDocument();
    return !file.Failed() && !reader->TooDeep();
}

}  // namespace Xml
