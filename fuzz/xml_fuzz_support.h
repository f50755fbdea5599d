#pragma once

// What both XML fuzz targets do with an input: read it, then walk whatever tree the read
// left, so that a broken tree (a text count that does not fit the children, a wrong parent)
// shows as a crash.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

namespace xml_fuzz {

inline std::size_t Walk(const Xml::XmlTag* tag, const Xml::XmlTag* parent) {
    if (tag->Parent() != parent || tag->Text().size() != tag->Children().size() + 1) {
        std::abort();
    }
    std::size_t sum = tag->Name().size();
    for (const auto attribute : tag->Attributes()) {
        sum += attribute.Name.size() + attribute.Value.size();
    }
    for (const auto text : tag->Text()) {
        sum += text.size();
    }
    for (const Xml::XmlTag* child : tag->Children()) {
        sum += Walk(child, tag);
    }
    return sum;
}

inline void ReadAndWalk(const std::uint8_t* data, std::size_t size) {
    File::buf_ifile<std::uint8_t> file(data, size);
    Xml::XmlDocument document;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    Xml::ReadDocument(document, file, line, column);
    if (line == 0 || column == 0) {
        std::abort();
    }
    if (document.Root() != nullptr) {
        volatile std::size_t sink = Walk(document.Root(), nullptr);
        (void)sink;
    }
}

// Failed assertions are passed over (all bits set turns the report off): the readers go on
// behind them, and that path is under test.
inline void SilenceAssertions() {
    setenv("CORVANE_SAFE_ASSERT", "ffffffff", 1);
}

}  // namespace xml_fuzz
