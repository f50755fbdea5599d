#include <tessel_link/xml/xml_tag.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <tessel_link/file/memory_file.h>

#include "xml/binary_xml.h"
#include "xml/read_document.h"
#include "xml/xml_chars.h"
#include "xml/xml_lexer.h"
#include "xml/xml_store.h"
#include "xml/xml_tree_builder.h"
#include "xml/xml_whole_reader.h"

namespace Xml {

namespace {

using Token = XmlToken;

// Reads the root element and its subtree from the lexer, the root's StartTag having been
// taken and opened. Elements are read with an explicit stack, so the depth of a document
// costs heap rather than stack, and it is bounded by kMaxXmlDepth.
class TextDocumentReader {
public:
    TextDocumentReader(XmlLexer& lexer, XmlTreeBuilder& builder)
        : lexer_(lexer), builder_(builder) {}

    bool ReadRoot() {
        EnterElement(false);
        Token token = lexer_.Next();
        bool inContent = false;
        for (;;) {
            if (!inContent) {
                switch (token) {
                    case Token::TagClose:
                        token = lexer_.Next();
                        inContent = true;
                        continue;
                    case Token::EmptyTagClose:
                        token = lexer_.Next();
                        if (!LeaveElement()) {
                            return token == Token::End;
                        }
                        inContent = true;
                        continue;
                    case Token::AttributeName:
                        token = ReadAttribute();
                        if (token == Token::Error) {
                            return false;
                        }
                        continue;
                    default:
                        return false;
                }
            }
            switch (token) {
                case Token::Text:
                    // The lexer gathers the text; it is taken at the next tag.
                    token = lexer_.Next();
                    continue;
                case Token::StartTag:
                    if (builder_.Depth() >= kMaxXmlDepth) {
                        return false;
                    }
                    TakeText();
                    builder_.Open(builder_.Intern(lexer_.TokenName()));
                    EnterElement(preserve_.back());
                    token = lexer_.Next();
                    inContent = false;
                    continue;
                case Token::EndTag:
                    TakeText();
                    if (!Detail::SameBytes(lexer_.TokenName(), builder_.OpenName()) ||
                        lexer_.Next() != Token::TagClose) {
                        return false;
                    }
                    token = lexer_.Next();
                    if (!LeaveElement()) {
                        return token == Token::End;
                    }
                    continue;
                default:
                    return false;
            }
        }
    }

private:
    // An element is read with the Preserve it inherits; its own xml:space may turn it on.
    void EnterElement(bool inherited) {
        preserve_.push_back(inherited);
        lexer_.SetPreserve(inherited);
    }

    // Closes the open element; false when that was the root. The parent's Preserve holds
    // again, for the token already fetched as well as for the rest.
    bool LeaveElement() {
        builder_.Close();
        preserve_.pop_back();
        if (preserve_.empty()) {
            return false;
        }
        lexer_.SetPreserve(preserve_.back());
        return true;
    }

    void TakeText() {
        builder_.SetText(lexer_.TokenText());
        lexer_.ClearText();
    }

    // On AttributeName: reads '=' and the value, and returns the token behind the value,
    // or Error. A name the tag has already fails before its value is read, so that the
    // position reported is the name's.
    Token ReadAttribute() {
        const Detail::XmlName* name = builder_.Intern(lexer_.TokenName());
        if (builder_.HasAttribute(name)) {
            return Token::Error;
        }
        if (lexer_.Next() != Token::AttributeEquals) {
            return Token::Error;
        }
        Token token = lexer_.Next();
        while (token == Token::Text) {
            token = lexer_.Next();
        }
        const std::u16string_view value = lexer_.TokenText();
        if (!builder_.AddAttribute(name, value)) {
            return Token::Error;
        }
        if (name->View() == "xml:space" && value == u"preserve") {
            preserve_.back() = true;
            lexer_.SetPreserve(true);
        }
        lexer_.ClearText();
        return token;
    }

    XmlLexer& lexer_;
    XmlTreeBuilder& builder_;
    std::vector<bool> preserve_;  // per open element
};

}  // namespace

bool ReadDocumentStreaming(XmlDocument& document, File::i_file& file, std::uint32_t& line,
                           std::uint32_t& column) {
    document.Reset();
    XmlLexer lexer(file);
    const Token first = lexer.Next();
    bool ok = false;
    if (first == Token::Binary) {
        ok = ReadBinaryDocument(document, file);
    } else if (first == Token::StartTag) {
        XmlTreeBuilder builder(document);
        builder.Open(builder.Intern(lexer.TokenName()));
        TextDocumentReader reader(lexer, builder);
        ok = reader.ReadRoot() && !file.Failed();
    }
    lexer.Where(line, column);
    return ok;
}

namespace {

constexpr std::size_t kFirstRead = 4;
constexpr std::size_t kBlockSize = 32768;

// The bytes left to read in a file that lies in memory; empty when that is not known.
struct Remainder {
    const unsigned char* Data = nullptr;
    std::size_t Size = 0;
    File::raccess_file* Seeker = nullptr;  // the file, to move on behind the bytes
};

Remainder KnownRemainder(File::i_file& file) {
    if (file.Failed()) {
        return {};
    }
    if (auto* view = dynamic_cast<File::buf_ifile<char>*>(&file)) {
        return {reinterpret_cast<const unsigned char*>(view->Data()) + view->Position(),
                static_cast<std::size_t>(view->Size() - view->Position()), view};
    }
    if (auto* view = dynamic_cast<File::buf_ifile<unsigned char>*>(&file)) {
        return {view->Data() + view->Position(),
                static_cast<std::size_t>(view->Size() - view->Position()), view};
    }
    if (auto* memory = dynamic_cast<File::memory_file*>(&file)) {
        const std::uint64_t size = memory->Content().size();
        if (memory->Position() < size) {
            return {memory->Content().data() + memory->Position(),
                    static_cast<std::size_t>(size - memory->Position()), memory};
        }
    }
    return {};
}

// The input gathered whole, with the zero padding that the whole-text reader needs behind it.
class Input {
public:
    unsigned char* Data() noexcept { return data_.get(); }
    std::size_t Size() const noexcept { return size_; }

    // Reads up to `count` bytes in reads of at most `count`, as the streaming lexer asks for
    // them; false once the file gives nothing more. The bytes of a read that fails are
    // dropped, as that lexer drops them.
    bool Fill(File::i_file& file, std::size_t count) {
        Reserve(count);
        std::uint64_t got = 0;
        file.Read(data_.get() + size_, count, got);
        if (got == 0 || file.Failed()) {
            return false;
        }
        // Line feeds are counted while the bytes are fresh in the cache: a failure is then
        // placed without a pass over the whole input.
        Detail::CountFeeds(data_.get() + size_, data_.get() + size_ + got, feeds_, tabs_);
        size_ += static_cast<std::size_t>(got);
        return true;
    }
    // Takes the `count` bytes at `from` whole, as a file in memory holds them.
    void Take(const unsigned char* from, std::size_t count) {
        Reserve(count);
        Detail::CopyCountingFeeds(data_.get() + size_, from, count, feeds_, tabs_);
        size_ += count;
    }
    // The position of `stop`, counted from the first byte.
    void PositionOf(const unsigned char* stop, std::uint32_t& line, std::uint32_t& column) {
        // The feeds behind `stop` are the document's trailing bytes, usually few.
        std::uint64_t behind = 0;
        bool tabsBehind = false;
        Detail::CountFeeds(stop, data_.get() + size_, behind, tabsBehind);
        line = 1;
        column = 0;
        Detail::CountFromFeeds(data_.get(), stop, feeds_ - behind, tabs_, line, column);
        column += 1;
    }
    void Reserve(std::size_t extra) {
        if (capacity_ - size_ >= extra + kWholeTextPadding) {
            return;
        }
        const std::size_t capacity = std::max(capacity_ * 2, size_ + extra + kWholeTextPadding);
        std::unique_ptr<unsigned char[]> bigger(new unsigned char[capacity]);
        if (size_ != 0) {
            std::memcpy(bigger.get(), data_.get(), size_);
        }
        data_ = std::move(bigger);
        capacity_ = capacity;
    }
    void Pad() noexcept { std::memset(data_.get() + size_, 0, kWholeTextPadding); }

private:
    std::unique_ptr<unsigned char[]> data_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    std::uint64_t feeds_ = 0;
    bool tabs_ = false;
};

}  // namespace

bool ReadDocument(XmlDocument& document, File::i_file& file, std::uint32_t& line,
                  std::uint32_t& column) {
    document.Reset();
    Input input;
    // Four bytes first: a binary document is read on from offset 4 by its own reader.
    bool more = true;
    while (more && input.Size() < kFirstRead) {
        more = input.Fill(file, kFirstRead - input.Size());
    }
    if (input.Size() == kFirstRead && std::memcmp(input.Data(), "BXML", 4) == 0) {
        line = 1;
        column = 1;
        return ReadBinaryDocument(document, file);
    }
    // A file in memory is taken in one pass that copies and counts, and the file moves on
    // to its end as if it had been read.
    const Remainder remainder = more ? KnownRemainder(file) : Remainder{};
    if (remainder.Size != 0) {
        input.Take(remainder.Data, remainder.Size);
        remainder.Seeker->SeekRel(static_cast<std::int64_t>(remainder.Size));
        more = false;
    }
    while (more) {
        more = input.Fill(file, kBlockSize);
    }
    input.Pad();
    if (!file.Failed()) {
        XmlTreeBuilder builder(document);
        const unsigned char* stop = ReadWholeText(input.Data(), input.Size(), builder);
        if (stop != nullptr) {
            input.PositionOf(stop, line, column);
            return true;
        }
    }
    // The streaming reader goes over the same bytes again: it tells where reading stopped
    // and leaves the partial tree.
    File::buf_ifile<unsigned char> again(input.Data(), input.Size());
    const bool ok = ReadDocumentStreaming(document, again, line, column);
    return ok && !file.Failed();
}

}  // namespace Xml
