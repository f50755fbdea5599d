#include "xml/xml_lexer.h"

#include "xml/xml_chars.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Xml {

using namespace Detail;

namespace {

constexpr std::size_t kFirstRead = 4;
constexpr std::size_t kBlockSize = 32768;
// Zero bytes kept behind the buffered input, so that a lookahead never leaves the buffer.
constexpr std::size_t kPadding = 32;

}  // namespace

void XmlTextBuffer::Grow(std::size_t extra) {
    if (extra > std::numeric_limits<std::size_t>::max() / 4 - size_) {
        throw std::bad_alloc();
    }
    const std::size_t capacity = std::max({capacity_ * 2, size_ + extra, std::size_t{256}});
    std::unique_ptr<char16_t[]> data(new char16_t[capacity]);
    if (size_ != 0) {
        std::memcpy(data.get(), data_.get(), size_ * sizeof(char16_t));
    }
    data_ = std::move(data);
    capacity_ = capacity;
}

XmlLexer::XmlLexer(File::i_file& file) : file_(file) {
    capacity_ = kFirstRead + kPadding;
    buffer_.reset(new unsigned char[capacity_]());
    stepStart_ = cursor_ = end_ = counted_ = nameStart_ = buffer_.get();
}

void XmlLexer::CountTo(const unsigned char* to) {
    std::uint32_t line = line_;
    std::uint32_t column = column_;
    const unsigned char* p = counted_;
#if defined(__SSE2__)
    // Sixteen bytes at a time: without a tab among them, only the line feeds matter, and the
    // column is the number of bytes behind the last of them.
    while (to - p >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const auto tabs = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('\t'))));
        if (tabs != 0) {
            CountBytes(p, p + 16, line, column);
        } else {
            const auto feeds =
                static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n'))));
            if (feeds != 0) {
                line += static_cast<std::uint32_t>(std::popcount(feeds));
                column = static_cast<std::uint32_t>(std::countl_zero(feeds << 16));
            } else {
                column += 16;
            }
        }
        p += 16;
    }
#endif
    CountBytes(p, to, line, column);
    line_ = line;
    column_ = column;
    counted_ = to;
}

void XmlLexer::Where(std::uint32_t& line, std::uint32_t& column) {
    CountTo(stepStart_);
    line = line_;
    column = column_ + failureColumns_ + 1;
}

bool XmlLexer::Refill() {
    if (endOfInput_) {
        return false;
    }
    // Bytes before the current token are no longer needed: count them, then move the rest
    // to the front.
    CountTo(stepStart_);
    const std::size_t keep = static_cast<std::size_t>(end_ - stepStart_);
    const std::size_t want = state_ == State::Start ? kFirstRead - keep : kBlockSize;
    // Offsets from the token start survive the move; the name may belong to an earlier
    // token, and is then no longer of use.
    const std::ptrdiff_t cursorOffset = cursor_ - stepStart_;
    const std::ptrdiff_t nameOffset = nameStart_ - stepStart_;
    if (keep + want + kPadding > capacity_) {
        const std::size_t capacity = std::max(capacity_ * 2, keep + want + kPadding);
        std::unique_ptr<unsigned char[]> bigger(new unsigned char[capacity]);
        std::memcpy(bigger.get(), stepStart_, keep);
        buffer_ = std::move(bigger);
        capacity_ = capacity;
    } else if (stepStart_ != buffer_.get() && keep != 0) {
        std::memmove(buffer_.get(), stepStart_, keep);
    }
    unsigned char* fresh = buffer_.get();
    cursor_ = fresh + cursorOffset;
    nameStart_ = nameOffset >= 0 ? fresh + nameOffset : fresh;
    stepStart_ = counted_ = fresh;

    std::uint64_t got = 0;
    file_.Read(fresh + keep, want, got);
    if (got == 0 || file_.Failed()) {
        // A failed read ends the input here; the reader sees the file's error afterwards.
        endOfInput_ = true;
        fresh[keep] = 0;
        got = 1;
    }
    end_ = fresh + keep + got;
    std::memset(const_cast<unsigned char*>(end_), 0, kPadding);
    return true;
}

void XmlLexer::EnsureSlow(std::size_t count) {
    while (static_cast<std::size_t>(end_ - cursor_) < count && Refill()) {
    }
}

XmlToken XmlLexer::FailOrEnd() {
    // The sentinel behind the last byte of input ends the document; any other failing
    // byte, a NUL among them, is an error.
    if (endOfInput_ && cursor_ + 1 == end_) {
        cursor_ = end_;
        ended_ = true;
        return XmlToken::End;
    }
    return XmlToken::Error;
}

XmlToken XmlLexer::Next() {
    if (ended_) {
        return XmlToken::End;
    }
    stepStart_ = cursor_;
    switch (state_) {
        case State::Start:
            return StartStep();
        case State::Content:
            return ContentStep();
        case State::InsideTag:
            return InsideTagStep();
        case State::DoubleQuoted:
            return QuotedStep('"');
        case State::SingleQuoted:
            return QuotedStep('\'');
        case State::CData:
            return CDataStep();
        default:
            // Markup states are left within the step that entered them.
            return XmlToken::Error;
    }
}

XmlToken XmlLexer::StartStep() {
    Ensure(4);
    state_ = State::Content;
    if (std::memcmp(cursor_, "BXML", 4) == 0) {
        cursor_ += 4;
        return XmlToken::Binary;
    }
    if (cursor_[0] == 0xef && cursor_[1] == 0xbb && cursor_[2] == 0xbf) {
        cursor_ += 3;
    }
    return ContentStep();
}

void XmlLexer::ScanName() {
    // The cursor stands on a name start.
    nameStart_ = cursor_;
    for (;;) {
#if defined(__SSE2__)
        // Sixteen bytes at a time; the zero padding behind the input stops the scan, and keeps
        // the loads inside the buffer.
        for (;;) {
            const unsigned mask = NameBytes(cursor_);
            if (mask != 0xffff) {
                cursor_ += std::countr_one(mask);
                break;
            }
            cursor_ += 16;
        }
#else
        while (Is(*cursor_, kNameChar)) {
            ++cursor_;
        }
#endif
        if (cursor_ != end_ || endOfInput_) {
            break;
        }
        Refill();  // the name goes on behind the buffer; nameStart_ moves along
    }
    nameSize_ = static_cast<std::size_t>(cursor_ - nameStart_);
}

XmlToken XmlLexer::PendingBlankFirst() {
    // The owed blank is delivered as text before the markup, which is read again next.
    text_.Append(u' ');
    blanks_ = Blanks::None;
    return XmlToken::Text;
}

XmlToken XmlLexer::ContentStep() {
    for (;;) {
        Ensure(10);
        const unsigned char c = *cursor_;
        if (Is(c, kWhite)) {
            if (preserve_) {
                char16_t* out = text_.Reserve(static_cast<std::size_t>(end_ - cursor_) + 1);
                if (blanks_ == Blanks::Pending) {
                    *out++ = u' ';
                }
                while (Is(*cursor_, kWhite)) {
                    *out++ = *cursor_++;
                }
                text_.Commit(out);
                blanks_ = Blanks::None;
                return XmlToken::Text;
            }
            while (Is(*cursor_, kWhite)) {
                ++cursor_;
            }
            if (blanks_ == Blanks::None) {
                blanks_ = Blanks::Pending;
            }
            continue;
        }
        if (c == '<') {
            const unsigned char c1 = cursor_[1];
            if (Is(c1, kNameStart)) {
                if (blanks_ == Blanks::Pending) {
                    return PendingBlankFirst();
                }
                ++cursor_;
                ScanName();
                state_ = State::InsideTag;
                blanks_ = Blanks::Suppressed;
                return XmlToken::StartTag;
            }
            if (c1 == '/') {
                if (!Is(cursor_[2], kNameStart)) {
                    return Fail();
                }
                cursor_ += 2;
                ScanName();
                state_ = State::InsideTag;
                blanks_ = Blanks::None;  // a blank owed before an end tag is dropped
                return XmlToken::EndTag;
            }
            if (c1 == '?') {
                cursor_ += 2;
                if (!SkipMarkup("?>", 2, false)) {
                    return FailOrEnd();
                }
                continue;
            }
            if (std::memcmp(cursor_, "<!--", 4) == 0) {
                cursor_ += 4;
                if (!SkipMarkup("-->", 3, false)) {
                    return FailOrEnd();
                }
                continue;
            }
            if (std::memcmp(cursor_, "<!DOCTYPE", 9) == 0 && Is(cursor_[9], kWhite)) {
                cursor_ += 10;
                if (!SkipMarkup(">", 1, true)) {
                    return FailOrEnd();
                }
                continue;
            }
            if (std::memcmp(cursor_, "<![CDATA[", 9) == 0) {
                if (blanks_ == Blanks::Pending) {
                    return PendingBlankFirst();
                }
                cursor_ += 9;
                state_ = State::CData;
                blanks_ = Blanks::None;
                return CDataStep();
            }
            return Fail();
        }
        if (c == '&') {
            return Entity();
        }
        if (c < 0x20) {
            return FailOrEnd();
        }
        return TextRun(0);
    }
}

namespace {

// The bytes of a text run: neither white space, control bytes, '<', '&' nor the closing
// quote (0 in content). The ASCII test is one table lookup; the block test looks at 16
// bytes at once and gives a bit per byte that passes.
struct TextRunBytes {
    unsigned char quote;
    bool operator()(unsigned char b) const { return Is(b, kRun) && b != quote; }
#if defined(__SSE2__)
    unsigned Block(__m128i v) const {
        // Signed compare: 0x21 to 0x7f are above 0x20, bytes from 0x80 up are negative.
        const __m128i printable = _mm_cmpgt_epi8(v, _mm_set1_epi8(0x20));
        const __m128i stop = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('<')), _mm_cmpeq_epi8(v, _mm_set1_epi8('&'))),
            _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(quote))));
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(stop, printable)));
    }
#endif
};

// The bytes of a run in a CDATA section: up to the next ']' or control byte.
struct CDataRunBytes {
    bool operator()(unsigned char b) const { return b >= 0x20 && b != ']'; }
#if defined(__SSE2__)
    unsigned Block(__m128i v) const {
        const __m128i printable = _mm_cmpgt_epi8(v, _mm_set1_epi8(0x1f));
        const __m128i stop = _mm_cmpeq_epi8(v, _mm_set1_epi8(']'));
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(stop, printable)));
    }
#endif
};

// Copies the ASCII bytes at `p` that pass, widened, to `out`; stops at the first byte that
// does not pass (the padding behind the input never does).
template <typename AsciiTest>
inline void CopyPassing(const unsigned char*& p, char16_t*& out, const AsciiTest& passes) {
#if defined(__SSE2__)
    for (;;) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const unsigned mask = passes.Block(v);
        if (mask != 0xffff) {
            // The passing bytes in front of the first that does not pass, one by one.
            const int count = std::countr_one(mask);
            for (int i = 0; i < count; ++i) {
                out[i] = p[i];
            }
            p += count;
            out += count;
            return;
        }
        const __m128i zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(v, zero));
        p += 16;
        out += 16;
    }
#else
    while (*p < 0x80 && passes(*p)) {
        *out++ = *p++;
    }
#endif
}

// As CopyPassing, and single blanks between passing bytes go along, as the one blank they
// collapse to. `blankStart` and `wordStart` follow the last blank copied and the byte behind
// it. White space of any other shape stops the copy.
template <typename AsciiTest>
inline void CopyPassingAndBlanks(const unsigned char*& p, char16_t*& out, const AsciiTest& passes,
                                 const unsigned char*& blankStart, const unsigned char*& wordStart) {
#if defined(__SSE2__)
    for (;;) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const unsigned pass = passes.Block(v);
        unsigned blanks =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(' '))));
        // A blank goes along when the byte behind it passes; the last byte's successor is
        // unknown here, so a blank there stops the copy.
        const unsigned ok = pass | (blanks & (pass >> 1));
        const int count = ok == 0xffff ? 16 : std::countr_one(ok);
        if (count == 16) {
            const __m128i zero = _mm_setzero_si128();
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(v, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(v, zero));
        } else {
            for (int i = 0; i < count; ++i) {
                out[i] = p[i];
            }
            blanks &= (1u << count) - 1;
        }
        if (blanks != 0) {
            const int last = 31 - std::countl_zero(blanks);
            blankStart = p + last;
            wordStart = p + last + 1;
        }
        p += count;
        out += count;
        if (count != 16) {
            return;
        }
    }
#else
    (void)blankStart;
    (void)wordStart;
    CopyPassing(p, out, passes);
#endif
}

}  // namespace

XmlToken XmlLexer::TextRun(unsigned char quote) {
    // Outside preserved content, white space between words becomes one blank inside the run,
    // so that a sentence is one token rather than one per word.
    return DecodeRun(TextRunBytes{quote}, quote != 0 || !preserve_);
}

template <typename AsciiTest>
XmlToken XmlLexer::DecodeRun(const AsciiTest& passes, bool collapseBlanks) {
    // ASCII bytes that pass are copied as they are, other ASCII bytes end the run, and
    // everything from 0x80 up is decoded as UTF-8. With `collapseBlanks`, white space that
    // is followed by more of the run stands as one blank in it; white space that is not is
    // left to the next step. The run may stop early at the end of the buffer; the next token
    // goes on with it.
    const unsigned char* wordStart = cursor_;
    const unsigned char* blankStart = stepStart_;  // where the step of this word began
    char16_t* out = text_.Reserve(static_cast<std::size_t>(end_ - cursor_) + 1);
    if (blanks_ == Blanks::Pending) {
        *out++ = u' ';
    }
    const unsigned char* p = cursor_;
    for (;;) {
        if (collapseBlanks) {
            CopyPassingAndBlanks(p, out, passes, blankStart, wordStart);
        } else {
            CopyPassing(p, out, passes);
        }
        unsigned char b = *p;
        if (b < 0x80) {
            if (!collapseBlanks || !Is(b, kWhite)) {
                break;
            }
            const unsigned char* white = p;
            while (Is(*p, kWhite)) {
                ++p;
            }
            b = *p;
            if (b < 0x80 && !passes(b)) {
                // Markup, a reference, the quote, a bad byte or the buffer's end follows:
                // the white space is left to the next step, which counts from it.
                p = white;
                break;
            }
            *out++ = u' ';
            blankStart = white;
            wordStart = p;
            continue;
        }
        const int length = SequenceLength(b);
        if (end_ - p < length && !endOfInput_) {
            break;  // the sequence straddles the buffer's end
        }
        char32_t cp = 0;
        if (DecodeSequence(p, cp) == 0) {
            // The position is that of the step that would have read this word: it began
            // at the white space in front of the word, and counts the word's bytes up to
            // the failure.
            stepStart_ = blankStart;
            failureColumns_ = static_cast<std::uint32_t>(p - wordStart);
            cursor_ = p;
            return XmlToken::Error;
        }
        out = PutCodePoint(out, cp);
        p += length;
    }
    cursor_ = p;
    text_.Commit(out);
    blanks_ = Blanks::None;
    return XmlToken::Text;
}

XmlToken XmlLexer::Entity() {
    // The cursor stands on '&'. References are short; numeric ones may carry many leading
    // zeros, so the bytes are made available one at a time.
    auto at = [this](std::size_t i) -> unsigned char {
        Ensure(i + 1);
        return cursor_ + i < end_ ? cursor_[i] : 0;
    };
    char32_t cp = 0;
    Ensure(6);
    const std::size_t length = ParseReference(cursor_, at, cp);
    if (length == 0) {
        return Fail();
    }
    cursor_ += length;
    char16_t* out = text_.Reserve(3);
    if (blanks_ == Blanks::Pending) {
        *out++ = u' ';
    }
    text_.Commit(PutCodePoint(out, cp));
    blanks_ = Blanks::None;
    return XmlToken::Text;
}

bool XmlLexer::SkipMarkup(const char* terminator, std::size_t length, bool refuseBracket) {
    for (;;) {
        Ensure(length);
        const unsigned char b = *cursor_;
        if (b == static_cast<unsigned char>(terminator[0]) &&
            std::memcmp(cursor_, terminator, length) == 0) {
            cursor_ += length;
            return true;
        }
        if ((b < 0x20 && !Is(b, kWhite)) || (refuseBracket && b == '[')) {
            return false;
        }
        ++cursor_;
    }
}

XmlToken XmlLexer::InsideTagStep() {
    for (;;) {
        Ensure(2);
        const unsigned char c = *cursor_;
        if (Is(c, kWhite)) {
            ++cursor_;
            continue;
        }
        if (Is(c, kNameStart)) {
            ScanName();
            return XmlToken::AttributeName;
        }
        if (c == '>') {
            ++cursor_;
            state_ = State::Content;
            return XmlToken::TagClose;
        }
        if (c == '/' && cursor_[1] == '>') {
            cursor_ += 2;
            state_ = State::Content;
            blanks_ = Blanks::None;
            return XmlToken::EmptyTagClose;
        }
        if (c == '=') {
            ++cursor_;
            for (;;) {
                Ensure(1);
                if (!Is(*cursor_, kWhite)) {
                    break;
                }
                ++cursor_;
            }
            if (*cursor_ == '"') {
                state_ = State::DoubleQuoted;
            } else if (*cursor_ == '\'') {
                state_ = State::SingleQuoted;
            } else {
                return FailOrEnd();
            }
            ++cursor_;
            blanks_ = Blanks::Suppressed;
            return XmlToken::AttributeEquals;
        }
        return FailOrEnd();
    }
}

XmlToken XmlLexer::QuotedStep(unsigned char quote) {
    for (;;) {
        Ensure(6);
        const unsigned char c = *cursor_;
        if (c == quote) {
            // The value ends; a blank still owed is dropped. No token of its own.
            ++cursor_;
            state_ = State::InsideTag;
            blanks_ = Blanks::Suppressed;
            return InsideTagStep();
        }
        if (Is(c, kWhite)) {
            while (Is(*cursor_, kWhite)) {
                ++cursor_;
            }
            if (blanks_ == Blanks::None) {
                blanks_ = Blanks::Pending;
            }
            continue;
        }
        if (c == '&') {
            return Entity();
        }
        if (c == '<') {
            return Fail();
        }
        if (c < 0x20) {
            return FailOrEnd();
        }
        return TextRun(quote);
    }
}

XmlToken XmlLexer::CDataStep() {
    for (;;) {
        // "]]>" needs three bytes; a whole UTF-8 sequence at the start of a run needs four.
        Ensure(4);
        const unsigned char c = *cursor_;
        if (c == '\r') {
            ++cursor_;  // undoes the line ends that writers put into sections
            continue;
        }
        if (c == '\t' || c == '\n') {
            ++cursor_;
            text_.Append(c);
            blanks_ = Blanks::None;
            return XmlToken::Text;
        }
        if (c < 0x20) {
            return FailOrEnd();
        }
        if (c == ']') {
            if (cursor_[1] == ']' && cursor_[2] == '>') {
                cursor_ += 3;
                state_ = State::Content;
            } else {
                ++cursor_;
                text_.Append(u']');
            }
            blanks_ = Blanks::None;
            return XmlToken::Text;
        }
        // A run up to the next ']' or control byte.
        return DecodeRun(CDataRunBytes{}, false);
    }
}

}  // namespace Xml
