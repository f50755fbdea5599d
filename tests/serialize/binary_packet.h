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
        out_ = std::string("BXML", 4);
        out_ += static_cast<char>(revision_);
        out_ += '\0';
        Element(*document.Root());
        return out_;
    }

private:
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
        const std::uint32_t number = static_cast<std::uint32_t>(names_.size()) + 1;
        names_.emplace(std::string(name), number);
        Number(number);
        Number(static_cast<std::uint32_t>(name.size()));
        out_ += name;
    }
    // A text item (flag clear) or an attribute value: the new form counts in half bytes.
    void Text(std::u16string_view text) {
        const std::string utf8 = Common::Utf16ToUtf8(text);
        const auto size = static_cast<std::uint32_t>(utf8.size());
        Number(revision_ == 2 ? size * 2 : size);
        out_ += utf8;
    }
    void Element(const Xml::XmlTag& tag) {
        Name(tag.Name());
        if (revision_ == 1) {
            out_ += static_cast<char>(tag.Attributes().size());
            for (const auto attribute : tag.Attributes()) {
                Name(attribute.Name);
                Text(attribute.Value);
            }
            Number(static_cast<std::uint32_t>(tag.Text().size()));
            Text(tag.Text()[0]);
            for (std::size_t i = 0; i < tag.Children().size(); ++i) {
                Element(*tag.Children()[i]);
                Text(tag.Text()[i + 1]);
            }
            return;
        }
        for (const auto attribute : tag.Attributes()) {
            Name(attribute.Name);
            Text(attribute.Value);
        }
        Number(0);
        Text(tag.Text()[0]);
        for (std::size_t i = 0; i < tag.Children().size(); ++i) {
            Element(*tag.Children()[i]);
            Text(tag.Text()[i + 1]);
        }
        Number(0);
    }

    int revision_;
    std::string out_;
    std::map<std::string, std::uint32_t> names_;
};

}  // namespace packet_test
