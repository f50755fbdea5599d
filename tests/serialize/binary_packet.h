#pragma once

// Re-encodes a packet in the two binary XML forms, so that tests can read the same packet
// as text and as binary.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

namespace packet_test {

// The byte-level pieces of both binary forms: the header, numbers seven bits a byte, names
// by the number of their first use, and texts as raw bytes with the length each form counts.
class BinaryWriter {
public:
    explicit BinaryWriter(int revision) : revision_(revision), out_("BXML", 4) {
        out_ += static_cast<char>(revision);
        out_ += '\0';
    }
    int Revision() const { return revision_; }
    const std::string& Bytes() const { return out_; }

    void Byte(unsigned char byte) { out_ += static_cast<char>(byte); }
    void Number(std::uint32_t n) {
        do {
            const auto byte = static_cast<unsigned char>(n & 0x7f);
            n >>= 7;
            out_ += static_cast<char>(n != 0 ? byte | 0x80 : byte);
        } while (n != 0);
    }
    void Name(std::string_view name) {
        const auto found = names_.find(std::string(name));
        if (found != names_.end()) {
            Number(found->second);
            return;
        }
        const auto number = static_cast<std::uint32_t>(names_.size()) + 1;
        names_.emplace(std::string(name), number);
        Number(number);
        Number(static_cast<std::uint32_t>(name.size()));
        out_ += name;
    }
    // A text item (raw-data flag clear) or an attribute value: the new form counts in half
    // bytes.
    void Text(std::string_view bytes) {
        const auto size = static_cast<std::uint32_t>(bytes.size());
        Number(revision_ == 2 ? size * 2 : size);
        out_ += bytes;
    }

private:
    int revision_;
    std::string out_;
    std::map<std::string, std::uint32_t> names_;
};

class BinaryEncoder {
public:
    explicit BinaryEncoder(int revision) : revision_(revision) {}

    // The packet `text` (which must parse) in binary form; empty when it does not parse.
    std::string Encode(std::string_view text) {
        Xml::XmlDocument document;
        File::buf_ifile<char> file(text.data(), text.size());
        std::uint32_t line = 0, column = 0;
        if (!Xml::ReadDocument(document, file, line, column)) {
            return {};
        }
        BinaryWriter writer(revision_);
        Element(writer, *document.Root());
        return writer.Bytes();
    }

private:
    static void Text(BinaryWriter& w, std::u16string_view text) { w.Text(Common::Utf16ToUtf8(text)); }
    static void Element(BinaryWriter& w, const Xml::XmlTag& tag) {
        w.Name(tag.Name());
        if (w.Revision() == 1) {
            w.Byte(static_cast<unsigned char>(tag.Attributes().size()));
        }
        for (const auto attribute : tag.Attributes()) {
            w.Name(attribute.Name);
            Text(w, attribute.Value);
        }
        w.Number(w.Revision() == 1 ? static_cast<std::uint32_t>(tag.Text().size()) : 0);
        Text(w, tag.Text()[0]);
        for (std::size_t i = 0; i < tag.Children().size(); ++i) {
            Element(w, *tag.Children()[i]);
            Text(w, tag.Text()[i + 1]);
        }
        if (w.Revision() == 2) {
            w.Number(0);
        }
    }

    int revision_;
};

}  // namespace packet_test
