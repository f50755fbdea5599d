// The XML reader on arbitrary bytes, with a walk over whatever tree it leaves, so that a
// broken tree (a text count that does not fit the children, a dangling parent) shows.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

namespace {

std::size_t Walk(const Xml::XmlTag* tag, const Xml::XmlTag* parent) {
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

}  // namespace

// Failed assertions are reported and passed over (all bits set turns the report off): the
// readers go on behind them, and that path is under test here.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("CORVANE_SAFE_ASSERT", "ffffffff", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
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
    return 0;
}
