#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

namespace xml_test {

struct ReadResult {
    bool Ok = false;
    std::uint32_t Line = 0;
    std::uint32_t Column = 0;
    Xml::XmlDocument Document;
    const Xml::XmlTag* Root() const { return Document.Root(); }
};

inline ReadResult Read(std::string_view bytes) {
    ReadResult result;
    File::buf_ifile<char> file(bytes.data(), bytes.size());
    result.Ok = Xml::ReadDocument(result.Document, file, result.Line, result.Column);
    return result;
}

inline std::u16string Text(const Xml::XmlTag* tag, std::size_t i = 0) {
    return std::u16string(tag->Text()[i]);
}

inline std::u16string Attribute(const Xml::XmlTag* tag, std::string_view name) {
    const auto value = tag->Attributes().Find(name);
    return value ? std::u16string(*value) : u"<absent>";
}

}  // namespace xml_test
