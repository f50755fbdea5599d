#pragma once

// The tokenizer of XML text. It pulls bytes from a file object into its own buffer (four
// bytes first, so that a binary document can be read on from offset 4, then blocks of
// 32 KiB) and hands out one token per call.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <tessel_link/file/file_object.h>

namespace Xml {

enum class XmlToken : std::uint8_t {
    End = 0,
    Error = 1,
    StartTag = 2,       // "<" and a name
    TagClose = 3,       // ">"
    EmptyTagClose = 4,  // "/>"
    EndTag = 5,         // "</" and a name
    AttributeName = 6,
    AttributeEquals = 7,  // "=" and the opening quotation mark
    Text = 8,
    Binary = 9,  // the magic of a binary document
};

// Text of consecutive Text tokens, gathered until the reader takes it.
class XmlTextBuffer {
public:
    std::u16string_view View() const noexcept { return {data_.get(), size_}; }
    void Clear() noexcept { size_ = 0; }
    // Makes room for `extra` more units and returns where they go.
    char16_t* Reserve(std::size_t extra) {
        if (capacity_ - size_ < extra) {
            Grow(extra);
        }
        return data_.get() + size_;
    }
    void Commit(char16_t* end) noexcept { size_ = static_cast<std::size_t>(end - data_.get()); }
    void Append(char16_t unit) { *Reserve(1) = unit, ++size_; }

private:
    void Grow(std::size_t extra);

    std::unique_ptr<char16_t[]> data_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

class XmlLexer {
public:
    explicit XmlLexer(File::i_file& file);
    XmlLexer(const XmlLexer&) = delete;
    XmlLexer& operator=(const XmlLexer&) = delete;

    XmlToken Next();

    // The name of a StartTag, EndTag or AttributeName token, valid until the next call.
    std::string_view TokenName() const noexcept {
        return {reinterpret_cast<const char*>(nameStart_), nameSize_};
    }
    // The text of the Text tokens since the last ClearText.
    std::u16string_view TokenText() const noexcept { return text_.View(); }
    void ClearText() noexcept { text_.Clear(); }

    // xml:space="preserve": white space in content is kept as text.
    void SetPreserve(bool preserve) noexcept { preserve_ = preserve; }
    bool Preserve() const noexcept { return preserve_; }

    // Where the last token began: line from 1, column from 1.
    void Where(std::uint32_t& line, std::uint32_t& column);

private:
    enum class State : std::uint8_t {
        Start,
        Content,
        CData,
        InsideTag,
        DoubleQuoted,
        SingleQuoted,
        Comment,
        ProcessingInstruction,
        Doctype,
    };
    enum class Blanks : std::uint8_t { None, Pending, Suppressed };

    // Makes at least `count` bytes available at the cursor unless the input ends first.
    void Ensure(std::size_t count) {
        if (static_cast<std::size_t>(end_ - cursor_) < count && !endOfInput_) {
            EnsureSlow(count);
        }
    }
    void EnsureSlow(std::size_t count);
    // Reads one more piece of input behind the buffered bytes; false at the end.
    bool Refill();
    // Counts line and column over the bytes from `counted_` to `to`.
    void CountTo(const unsigned char* to);

    XmlToken StartStep();
    XmlToken ContentStep();
    XmlToken InsideTagStep();
    XmlToken QuotedStep(unsigned char quote);
    XmlToken CDataStep();
    // Skips a comment, processing instruction or doctype; false on a forbidden byte.
    bool SkipMarkup(const char* terminator, std::size_t length, bool refuseBracket);
    XmlToken SkipWhitespaceOrText();
    XmlToken TextRun(unsigned char quote);
    template <typename AsciiTest>
    XmlToken DecodeRun(const AsciiTest& passes, bool collapseBlanks);
    XmlToken Entity();
    XmlToken PendingBlankFirst();
    void ScanName();
    XmlToken FailOrEnd();
    XmlToken Fail() { return XmlToken::Error; }

    File::i_file& file_;
    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t capacity_ = 0;
    const unsigned char* stepStart_ = nullptr;  // token start
    const unsigned char* cursor_ = nullptr;
    const unsigned char* end_ = nullptr;      // behind the last byte read (and the sentinel)
    const unsigned char* counted_ = nullptr;  // position is counted up to here
    const unsigned char* nameStart_ = nullptr;
    std::size_t nameSize_ = 0;
    XmlTextBuffer text_;

    std::uint32_t line_ = 1;
    std::uint32_t column_ = 0;
    std::uint32_t failureColumns_ = 0;  // bytes of a run consumed before a decoding failure
    State state_ = State::Start;
    Blanks blanks_ = Blanks::Suppressed;
    bool preserve_ = false;
    bool endOfInput_ = false;
    bool ended_ = false;
};

}  // namespace Xml
