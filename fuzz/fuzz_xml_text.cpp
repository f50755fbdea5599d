// The XML reader on arbitrary bytes: text, or binary when the bytes begin with its magic.
// Text is also read by both paths of the reader, the one-pass reader of whole documents and
// the streaming lexer, which must agree on whether it reads, on the tree and the position.

#include <cstring>
#include <vector>

#include "xml/read_document.h"
#include "xml/xml_tree_builder.h"
#include "xml/xml_whole_reader.h"
#include "xml_fuzz_support.h"

namespace {

class PlainFile : public File::i_file {
public:
    PlainFile(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = count < size_ - position_ ? count : size_ - position_;
        if (read != 0) {
            std::memcpy(buffer, data_ + position_, read);
        }
        position_ += read;
        return true;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

bool SameTree(const Xml::XmlTag* a, const Xml::XmlTag* b) {
    if (a->Name() != b->Name() || a->Attributes().size() != b->Attributes().size() ||
        a->Children().size() != b->Children().size()) {
        return false;
    }
    auto x = a->Attributes().begin();
    for (const auto attribute : b->Attributes()) {
        if ((*x).Name != attribute.Name || (*x).Value != attribute.Value) {
            return false;
        }
        ++x;
    }
    for (std::size_t i = 0; i < a->Text().size(); ++i) {
        if (a->Text()[i] != b->Text()[i]) {
            return false;
        }
    }
    for (std::size_t i = 0; i < a->Children().size(); ++i) {
        if (!SameTree(a->Children()[i], b->Children()[i])) {
            return false;
        }
    }
    return true;
}

void CompareTextPaths(const std::uint8_t* data, std::size_t size) {
    if (size >= 4 && std::memcmp(data, "BXML", 4) == 0) {
        return;
    }
    PlainFile file(data, size);
    Xml::XmlDocument streamed;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    const bool ok = Xml::ReadDocumentStreaming(streamed, file, line, column);

    std::vector<unsigned char> bytes(data, data + size);
    bytes.resize(size + Xml::kWholeTextPadding, 0);
    Xml::XmlDocument whole;
    bool readWhole = false;
    {
        Xml::XmlTreeBuilder builder(whole);
        readWhole = Xml::ReadWholeText(bytes.data(), size, builder) != nullptr;
    }
    if (readWhole != ok || (ok && !SameTree(whole.Root(), streamed.Root()))) {
        std::abort();
    }

    Xml::XmlDocument read;
    std::uint32_t readLine = 0;
    std::uint32_t readColumn = 0;
    File::buf_ifile<std::uint8_t> memory(data, size);
    if (Xml::ReadDocument(read, memory, readLine, readColumn) != ok || readLine != line ||
        readColumn != column) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    xml_fuzz::SilenceAssertions();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    xml_fuzz::ReadAndWalk(data, size);
    CompareTextPaths(data, size);
    return 0;
}
