#include "xml/xml_whole_reader.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "xml/xml_chars.h"
#include "xml/xml_tree_builder.h"

namespace Xml {

using namespace Detail;

namespace {

// A text written in place at the free end of the arena: the XmlText header first, then the
// units. Blocks of sixteen units are stored whole and the pointer moves on by the part that
// counts, so every write asks for room first.
class TextOut {
public:
    explicit TextOut(Arena& arena) : arena_(arena) {}

    void Begin() {
        if (static_cast<std::size_t>(arena_.TailEnd() - arena_.Tail()) < kMinRoom) {
            arena_.RegrowTail(0, kMinRoom);
        }
        base_ = arena_.Tail();
        out_ = reinterpret_cast<char16_t*>(base_ + sizeof(XmlText));
        limit_ = reinterpret_cast<char16_t*>(arena_.TailEnd());
    }
    // Room for `units` more units.
    void Need(std::size_t units) {
        if (static_cast<std::size_t>(limit_ - out_) < units) {
            Grow(units);
        }
    }
    char16_t*& Out() noexcept { return out_; }
    char16_t* First() const noexcept { return reinterpret_cast<char16_t*>(base_ + sizeof(XmlText)); }
    void Put(char16_t unit) noexcept { *out_++ = unit; }
    // Ends the text: null for an empty one, which takes no room.
    const XmlText* Commit() {
        auto* first = reinterpret_cast<char16_t*>(base_ + sizeof(XmlText));
        const std::size_t size = static_cast<std::size_t>(out_ - first);
        if (size == 0) {
            return nullptr;
        }
        auto* text = reinterpret_cast<XmlText*>(base_);
        text->Size = static_cast<std::uint32_t>(size);
        arena_.TakeTail(reinterpret_cast<char*>(out_));
        return text;
    }

private:
public:
    // Room that Begin leaves: a first block copy needs no check of its own.
    static constexpr std::size_t kMinRoom = 256;

private:

    // Only growing makes a text long, so the limit of its length is checked here.
    void Grow(std::size_t units) {
        const std::size_t used = static_cast<std::size_t>(reinterpret_cast<char*>(out_) - base_);
        const std::size_t want = used + units * sizeof(char16_t);
        if ((want - sizeof(XmlText)) / sizeof(char16_t) > UINT32_MAX) {
            throw std::length_error("text too long");
        }
        base_ = arena_.RegrowTail(used, want + want / 2 + kMinRoom);
        out_ = reinterpret_cast<char16_t*>(base_ + used);
        limit_ = reinterpret_cast<char16_t*>(arena_.TailEnd());
    }

    Arena& arena_;
    char* base_ = nullptr;
    char16_t* out_ = nullptr;
    char16_t* limit_ = nullptr;
};

// Room a block copy may use: sixteen units, and a blank owed in front.
constexpr std::size_t kBlockRoom = 18;

#if defined(__SSE2__)
inline __m128i Load16(const unsigned char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline void StoreWide(char16_t* out, __m128i v) {
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(v, zero));
}

inline unsigned Mask(__m128i m) {
    return static_cast<unsigned>(_mm_movemask_epi8(m));
}

inline __m128i Eq(__m128i v, char c) {
    return _mm_cmpeq_epi8(v, _mm_set1_epi8(c));
}
#endif

enum class Markup { Skipped, Failed, Ended };

class WholeReader {
public:
    WholeReader(const unsigned char* data, std::size_t size, XmlTreeBuilder& builder)
        : end_(data + size), builder_(builder), names_(builder.Names()), text_(builder.Arena()) {}

    const unsigned char* Read(const unsigned char* p);

private:
    // Behind the name of a tag just opened: its attributes up to '>' or "/>".
    // Content: the content of the open tag goes on. Opened: a child without attributes
    // was opened and read up to the first byte its fast path could not take; its content
    // goes on. BodyRead: a child was opened and its attributes read, and bodyStep_ says
    // what came behind them.
    enum class Step { Content, Opened, BodyRead, Closed, Failed };
    Step TagBody(const unsigned char*& p, bool& preserve);
    // The content of the open element up to its end tag.
    Step Content(const unsigned char*& p, bool preserve, bool atStart, bool carriedPreserve,
                 bool textBegun);
    bool Value(const unsigned char*& p, unsigned char quote, const XmlText*& value);
    // These take the position and return the one behind what they read, or null when it
    // fails: the hot position stays in a register.
    const unsigned char* CData(const unsigned char* p);
    const unsigned char* Reference(const unsigned char* p);
    const unsigned char* Sequence(const unsigned char* p);
    bool Trailing(const unsigned char* p, bool preserve);
    Markup SkipMarkup(const unsigned char*& p) {
        Markup result;
        p = PassMarkup(p, result);
        return result;
    }
    const unsigned char* PassMarkup(const unsigned char* p, Markup& result);

    static std::string_view ScanName(const unsigned char*& p) {
        const unsigned char* start = p;
#if defined(__SSE2__)
        for (;;) {
            const unsigned mask = NameBytes(p);
            if (mask != 0xffff) {
                p += std::countr_one(mask);
                break;
            }
            p += 16;
        }
#else
        while (Is(*p, kNameChar)) {
            ++p;
        }
#endif
        return {reinterpret_cast<const char*>(start), static_cast<std::size_t>(p - start)};
    }
    // Whether the name at `p` is `name`: its bytes, and no name character behind them.
    bool NameAt(const unsigned char* p, const XmlName* name) const {
        const std::size_t size = name->Size;
#if defined(__SSE2__)
        if (size <= kNameBlock) {
            // One block from each: the input has its padding and the name its kNameBlock.
            const unsigned same = Mask(_mm_cmpeq_epi8(
                Load16(p), Load16(reinterpret_cast<const unsigned char*>(name + 1))));
            const unsigned want = (1u << size) - 1;
            return (same & want) == want && !Is(p[size], kNameChar);
        }
#endif
        if (static_cast<std::size_t>(end_ - p) < size || Is(p[size], kNameChar)) {
            return false;
        }
        return SameBytes({reinterpret_cast<const char*>(p), size}, name->View());
    }
    // The name at `p`, interned; the likely next name is tried before any scan.
    const XmlName* InternName(const unsigned char*& p) {
        const XmlName* expected = names_.Expected();
        if (expected != nullptr && NameAt(p, expected)) {
            names_.TakeExpected();
            p += expected->Size;
            return expected;
        }
        return names_.Intern(ScanName(p));
    }
    static void SkipWhite(const unsigned char*& p) {
        while (Is(*p, kWhite)) {
            ++p;
        }
    }

    // Content runs: collapsing single blanks between words, or keeping all white space.
    const unsigned char* CollapsedRun(const unsigned char* p);
    const unsigned char* PreservedRun(const unsigned char* p);
#if defined(__SSE2__)
    template <bool kFresh = false, typename Passing, typename Carries>
    const unsigned char* CopyRun(const unsigned char* p, const Passing& passing,
                                 const Carries& carries);
#endif
    // True when the run ended at the closing quote, which is left for the caller.
    // kFresh: the text was just begun and nothing written to it yet.
    template <bool kFresh = false>
    const unsigned char* ValueRun(const unsigned char* p, unsigned char quote);
    const unsigned char* CDataRun(const unsigned char* p);

    const unsigned char* end_;  // the end mark behind the last byte
    XmlTreeBuilder& builder_;
    NameTable& names_;
    TextOut text_;
    // Whether a child opened by Step::Opened had text read into it.
    bool openedWithText_ = false;
    // For Step::BodyRead: Content or Closed, and the child's rule for white space.
    Step bodyStep_ = Step::Failed;
    bool bodyPreserve_ = false;
    // xml:space="preserve" of each open element, the root at 0.
    bool preserve_[kMaxXmlDepth + 1] = {};
};

#if defined(__SSE2__)
// Widens the bytes at `p` into the text for as long as `passing` gives a bit for each of 16
// bytes; stops behind the last byte that passes. A blank that goes along only with the byte
// behind it cannot be judged at the last place of a block: `carries` tells from the byte
// behind the block whether it goes all the same.
template <bool kFresh, typename Passing, typename Carries>
[[gnu::always_inline]] inline const unsigned char* WholeReader::CopyRun(const unsigned char* p,
                                                                        const Passing& passing,
                                                                        const Carries& carries) {
    // A text just begun has room for its first block.
    static_assert(TextOut::kMinRoom >= sizeof(XmlText) + kBlockRoom * sizeof(char16_t));
    for (bool first = true;; first = false) {
        if (!kFresh || !first) {
            text_.Need(kBlockRoom);
        }
        const __m128i v = Load16(p);
        const unsigned ok = passing(v);
        char16_t* out = text_.Out();
        StoreWide(out, v);
        if (ok == 0xffff || (ok == 0x7fff && p[15] == ' ' && carries(p[16]))) {
            p += 16;
            text_.Out() = out + 16;
            continue;
        }
        const int count = std::countr_one(ok);
        text_.Out() = out + count;
        return p + count;
    }
}
#endif

const unsigned char* WholeReader::CollapsedRun(const unsigned char* p) {
#if defined(__SSE2__)
    return CopyRun(p, [](__m128i v) {
        // Signed compare: 0x21 to 0x7f are above 0x20, bytes from 0x80 up are negative.
        const unsigned pass =
            Mask(_mm_andnot_si128(_mm_or_si128(Eq(v, '<'), Eq(v, '&')),
                                  _mm_cmpgt_epi8(v, _mm_set1_epi8(0x20))));
        // A single blank goes along when the byte behind it passes.
        return pass | (Mask(Eq(v, ' ')) & (pass >> 1));
    }, [](unsigned char next) { return Is(next, kRun); });
#else
    text_.Need(1);
    text_.Put(*p++);
    return p;
#endif
}

const unsigned char* WholeReader::PreservedRun(const unsigned char* p) {
#if defined(__SSE2__)
    return CopyRun(p, [](__m128i v) {
        const __m128i white = _mm_or_si128(_mm_or_si128(Eq(v, '\t'), Eq(v, '\n')), Eq(v, '\r'));
        return Mask(_mm_andnot_si128(_mm_or_si128(Eq(v, '<'), Eq(v, '&')),
                                     _mm_or_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(0x1f)), white)));
    }, [](unsigned char) { return false; });
#else
    text_.Need(1);
    text_.Put(*p++);
    return p;
#endif
}

template <bool kFresh>
[[gnu::always_inline]] inline const unsigned char* WholeReader::ValueRun(const unsigned char* p,
                                                                         unsigned char quote) {
#if defined(__SSE2__)
    const __m128i quotes = _mm_set1_epi8(static_cast<char>(quote));
    return CopyRun<kFresh>(p, [quotes](__m128i v) {
        const __m128i stop = _mm_or_si128(_mm_or_si128(Eq(v, '<'), Eq(v, '&')),
                                          _mm_cmpeq_epi8(v, quotes));
        const unsigned pass = Mask(_mm_andnot_si128(stop, _mm_cmpgt_epi8(v, _mm_set1_epi8(0x20))));
        return pass | (Mask(Eq(v, ' ')) & (pass >> 1));
    }, [quote](unsigned char next) { return Is(next, kRun) && next != quote; });
#else
    (void)quote;
    text_.Need(1);
    text_.Put(*p++);
    return p;
#endif
}

const unsigned char* WholeReader::CDataRun(const unsigned char* p) {
#if defined(__SSE2__)
    return CopyRun(p, [](__m128i v) {
        return Mask(_mm_andnot_si128(Eq(v, ']'), _mm_cmpgt_epi8(v, _mm_set1_epi8(0x1f))));
    }, [](unsigned char) { return false; });
#else
    text_.Need(1);
    text_.Put(*p++);
    return p;
#endif
}

const unsigned char* WholeReader::Sequence(const unsigned char* p) {
    char32_t cp = 0;
    const int length = DecodeSequence(p, cp);
    if (length == 0) {
        return nullptr;
    }
    text_.Need(2);
    text_.Out() = PutCodePoint(text_.Out(), cp);
    return p + length;
}

const unsigned char* WholeReader::Reference(const unsigned char* p) {
    // The end mark and the zero padding stop every reference before the buffer ends.
    char32_t cp = 0;
    const std::size_t length = ParseReference(p, [p](std::size_t i) { return p[i]; }, cp);
    if (length == 0) {
        return nullptr;
    }
    text_.Need(2);
    text_.Out() = PutCodePoint(text_.Out(), cp);
    return p + length;
}

const unsigned char* WholeReader::PassMarkup(const unsigned char* p, Markup& result) {
    // `p` stands on '<'. Comments, processing instructions and a doctype without an internal
    // subset are passed over; their bytes are not decoded.
    const char* terminator;
    std::size_t length;
    bool refuseBracket = false;
    if (p[1] == '?') {
        p += 2;
        terminator = "?>", length = 2;
    } else if (std::memcmp(p, "<!--", 4) == 0) {
        p += 4;
        terminator = "-->", length = 3;
    } else if (std::memcmp(p, "<!DOCTYPE", 9) == 0 && Is(p[9], kWhite)) {
        p += 10;
        terminator = ">", length = 1;
        refuseBracket = true;
    } else {
        result = Markup::Failed;
        return p;
    }
    for (;;) {
        const unsigned char b = *p;
        if (b == static_cast<unsigned char>(terminator[0]) &&
            std::memcmp(p, terminator, length) == 0) {
            result = Markup::Skipped;
            return p + length;
        }
        if ((b < 0x20 && !Is(b, kWhite)) || (refuseBracket && b == '[')) {
            // Running into the end mark ends the document rather than failing it.
            result = p == end_ ? Markup::Ended : Markup::Failed;
            return p;
        }
        ++p;
    }
}

bool WholeReader::Value(const unsigned char*& pos, unsigned char quote, const XmlText*& value) {
    const unsigned char* p = pos;  // in a register; written back when reading goes on
    // Values are always normalised: white space at either end goes, inside it becomes one
    // blank.
    text_.Begin();
    // Most values are one run of plain characters up to the quote.
    if (Is(*p, kRun)) {
        p = ValueRun<true>(p, quote);
        if (*p == quote) {
            pos = p + 1;
            value = text_.Commit();
            return true;
        }
    }
    bool pending = false;
    bool atStart = text_.Out() == text_.First();
    for (;;) {
        const unsigned char c = *p;
        if (c == quote) {
            ++p;
            value = text_.Commit();
            pos = p;
            return true;
        }
        const std::uint8_t cls = kByteClass[c];
        if ((cls & (kRun | kHigh)) != 0) {
            if (pending) {
                text_.Need(1);
                text_.Put(u' ');
                pending = false;
            }
            atStart = false;
            if ((cls & kRun) != 0) {
                p = ValueRun(p, quote);
                if (*p == quote) {
                    pos = p + 1;
                    value = text_.Commit();
                    return true;
                }
            } else if ((p = Sequence(p)) == nullptr) {
                return false;
            }
            continue;
        }
        if ((cls & kWhite) != 0) {
            SkipWhite(p);
            pending = !atStart;
            continue;
        }
        if (c == '&') {
            if (pending) {
                text_.Need(1);
                text_.Put(u' ');
                pending = false;
            }
            if ((p = Reference(p)) == nullptr) {
                return false;
            }
            atStart = false;
            continue;
        }
        return false;  // '<', a control byte or the end
    }
}

const unsigned char* WholeReader::CData(const unsigned char* p) {
    // Carriage returns are dropped, tabs and line feeds kept, other control bytes refused.
    for (;;) {
        const unsigned char c = *p;
        if (c >= 0x20 && c < 0x80 && c != ']') {
            p = CDataRun(p);
            continue;
        }
        if (c == '\r') {
            ++p;
            continue;
        }
        if (c == '\t' || c == '\n') {
            text_.Need(1);
            text_.Put(c);
            ++p;
            continue;
        }
        if (c < 0x20) {
            return nullptr;
        }
        if (c == ']') {
            if (p[1] == ']' && p[2] == '>') {
                return p + 3;
            }
            text_.Need(1);
            text_.Put(u']');
            ++p;
            continue;
        }
        if ((p = Sequence(p)) == nullptr) {
            return nullptr;
        }
    }
}

WholeReader::Step WholeReader::TagBody(const unsigned char*& pos, bool& preserve) {
    const unsigned char* p = pos;  // in a register; written back when reading goes on
    // White space around '=' is rare: the bytes expected are tried before any is skipped.
    for (;;) {
        unsigned char c = *p;
        if (Is(c, kWhite)) {
            do {
                c = *++p;
            } while (Is(c, kWhite));
        }
        if (Is(c, kNameStart)) {
            const XmlName* name = InternName(p);
            if (*p != '=') {
                SkipWhite(p);
                if (*p != '=') {
                    return Step::Failed;
                }
            }
            unsigned char quote = *++p;
            if (quote != '"' && quote != '\'') {
                SkipWhite(p);
                quote = *p;
                if (quote != '"' && quote != '\'') {
                    return Step::Failed;
                }
            }
            ++p;
            const XmlText* value = nullptr;
            if (!Value(p, quote, value) || !builder_.AddAttributeText(name, value)) {
                return Step::Failed;
            }
            if (name->Size == 9 && name->View() == "xml:space" && TextView(value) == u"preserve") {
                preserve = true;
            }
            continue;
        }
        if (c == '>') {
            ++p;
            pos = p;
            return Step::Content;
        }
        if (c == '/' && p[1] == '>') {
            p += 2;
            pos = p;
            return Step::Closed;
        }
        return Step::Failed;
    }
}

WholeReader::Step WholeReader::Content(const unsigned char*& pos, bool preserve, bool atStart,
                                       bool carriedPreserve, bool textBegun) {
    const unsigned char* p = pos;  // in a register; written back when reading goes on
    // `atStart`: nothing of the element's text seen yet, so white space is dropped. A blank
    // owed is written in front of the next text, start tag or section, and dropped before
    // the end tag.
    if (!textBegun) {
        text_.Begin();
    }
    bool pending = false;
    if (carriedPreserve) {
        // Behind a preserving child, white space up to the next token is still kept as it
        // stands: the token behind an element is read under that element's rule.
        for (;;) {
            if (*p == '<' && (p[1] == '?' || (p[1] == '!' && p[2] == '-') ||
                              (p[1] == '!' && p[2] == 'D'))) {
                const unsigned char* at = p;
                if (SkipMarkup(at) != Markup::Skipped) {
                    return Step::Failed;
                }
                p = at;
                continue;
            }
            break;
        }
        if (Is(*p, kWhite)) {
            do {
                text_.Need(1);
                text_.Put(*p++);
            } while (Is(*p, kWhite));
        }
    }
    for (;;) {
        const unsigned char c = *p;
        const std::uint8_t cls = kByteClass[c];
        if ((cls & (kRun | kHigh)) != 0) {
            if (pending) {
                text_.Need(1);
                text_.Put(u' ');
                pending = false;
            }
            atStart = false;
            if ((cls & kRun) != 0) {
                if (preserve) {
                    p = PreservedRun(p);
                } else {
                    p = CollapsedRun(p);
                }
            } else if ((p = Sequence(p)) == nullptr) {
                return Step::Failed;
            }
            continue;
        }
        if ((cls & kWhite) != 0) {
            if (preserve) {
                p = PreservedRun(p);
                continue;
            }
            SkipWhite(p);
            pending = !atStart;
            continue;
        }
        if (c == '<') {
            const unsigned char c1 = p[1];
            if (Is(c1, kNameStart)) {
                if (pending) {
                    text_.Need(1);
                    text_.Put(u' ');
                }
                builder_.SetTextEntry(text_.Commit());
                if (builder_.Depth() >= kMaxXmlDepth) {
                    return Step::Failed;
                }
                ++p;
                const XmlName* name = InternName(p);
                if (*p != '>' || preserve) {
                    // Attributes follow. Most such tags are empty and are added whole here,
                    // unless their own rule for white space would hold behind them.
                    XmlTag* tag = builder_.BeginTag(name);
                    bool childPreserve = preserve;
                    const unsigned char* q = p;
                    const Step body = TagBody(q, childPreserve);
                    p = q;
                    if (body == Step::Failed) {
                        return Step::Failed;
                    }
                    if (body == Step::Closed && childPreserve == preserve) {
                        builder_.EndEmptyTag(tag);
                        text_.Begin();
                        atStart = false;
                        pending = false;
                        continue;
                    }
                    builder_.OpenBegunTag(tag);
                    bodyStep_ = body;
                    bodyPreserve_ = childPreserve;
                    pos = p;
                    return Step::BodyRead;
                }
                // No attributes: most such tags are leaves with plain text, which are added
                // whole without opening them.
                ++p;
                XmlTag* tag = builder_.NewTag(name);
                text_.Begin();
                if (Is(*p, kRun)) {
                    p = CollapsedRun(p);
                }
                if (p[0] == '<' && p[1] == '/' && NameAt(p + 2, name)) {
                    const unsigned char* close = p + 2 + name->Size;
                    SkipWhite(close);
                    if (*close == '>') {
                        builder_.AddLeaf(tag, text_.Commit());
                        p = close + 1;
                        text_.Begin();
                        atStart = false;
                        pending = false;
                        continue;
                    }
                }
                // Something else: the tag is opened with the text read so far.
                openedWithText_ = text_.Out() != text_.First();
                builder_.OpenTag(tag);
                pos = p;
                return Step::Opened;
            }
            if (c1 == '/') {
                if (!Is(p[2], kNameStart)) {
                    return Step::Failed;
                }
                builder_.SetTextEntry(text_.Commit());
                p += 2;
                const XmlName* open = builder_.OpenTagName();
                if (!NameAt(p, open)) {
                    return Step::Failed;
                }
                p += open->Size;
                SkipWhite(p);
                if (*p != '>') {
                    return Step::Failed;
                }
                ++p;
                pos = p;
                return Step::Closed;
            }
            if (c1 == '!' && std::memcmp(p, "<![CDATA[", 9) == 0) {
                if (pending) {
                    text_.Need(1);
                    text_.Put(u' ');
                    pending = false;
                }
                atStart = false;
                p += 9;
                if ((p = CData(p)) == nullptr) {
                    return Step::Failed;
                }
                continue;
            }
            if (SkipMarkup(p) != Markup::Skipped) {
                return Step::Failed;
            }
            continue;
        }
        if (c == '&') {
            if (pending) {
                text_.Need(1);
                text_.Put(u' ');
                pending = false;
            }
            if ((p = Reference(p)) == nullptr) {
                return Step::Failed;
            }
            atStart = false;
            continue;
        }
        return Step::Failed;  // a control byte or the end inside an element
    }
}

bool WholeReader::Trailing(const unsigned char* p, bool preserve) {
    // Behind the root: white space, comments, processing instructions and doctypes up to
    // the end. Under the root's preserve, white space there would be text, which fails.
    bool blank = false;  // white space seen, which a CDATA section would make text
    for (;;) {
        const unsigned char c = *p;
        if (Is(c, kWhite)) {
            if (preserve) {
                return false;
            }
            SkipWhite(p);
            blank = true;
            continue;
        }
        if (c == '<') {
            if (p[1] == '!' && std::memcmp(p, "<![CDATA[", 9) == 0) {
                // Any content or end of a section is text behind the root, and so is a
                // blank before it; a section that the input ends inside before any content
                // (carriage returns are dropped there) has none, and the end is reached.
                const unsigned char* q = p + 9;
                while (q != end_ && *q == '\r') {
                    ++q;
                }
                return !blank && q == end_;
            }
            switch (SkipMarkup(p)) {
                case Markup::Skipped:
                    continue;
                case Markup::Ended:
                    return true;
                case Markup::Failed:
                    return false;
            }
        }
        return p == end_;
    }
}

const unsigned char* WholeReader::Read(const unsigned char* p) {
    if (p[0] == 0xef && p[1] == 0xbb && p[2] == 0xbf) {
        p += 3;
    }
    // The prolog: anything but markup before the root fails.
    for (;;) {
        SkipWhite(p);
        if (*p != '<') {
            return nullptr;
        }
        if (Is(p[1], kNameStart)) {
            break;
        }
        if (p[1] == '!' && std::memcmp(p, "<![CDATA[", 9) == 0) {
            return nullptr;
        }
        if (SkipMarkup(p) != Markup::Skipped) {
            return nullptr;
        }
    }
    ++p;
    builder_.Open(InternName(p));
    std::size_t depth = 0;  // of the open element, the root at 0
    bool rootPreserve = false;
    Step step = TagBody(p, rootPreserve);
    preserve_[0] = rootPreserve;
    bool atStart = true;
    bool carried = false;
    bool textBegun = false;
    for (;;) {
        if (step == Step::Failed) {
            return nullptr;
        }
        if (step == Step::Content) {
            step = Content(p, preserve_[depth], atStart, carried, textBegun);
            if (step == Step::BodyRead) {
                // A child with attributes, which may have turned its rule on.
                ++depth;
                preserve_[depth] = bodyPreserve_;
                atStart = true;
                carried = false;
                textBegun = false;
                step = bodyStep_;
            } else if (step == Step::Opened) {
                // A child without attributes, its content begun; it inherits the rule.
                ++depth;
                preserve_[depth] = preserve_[depth - 1];
                atStart = !openedWithText_;
                carried = false;
                textBegun = true;
                step = Step::Content;
            }
            continue;
        }
        // Closed: back to the parent's content, behind the child.
        builder_.Close();
        const bool closedPreserve = preserve_[depth];
        if (depth == 0) {
            return Trailing(p, closedPreserve) ? p : nullptr;
        }
        --depth;
        atStart = false;
        carried = closedPreserve && !preserve_[depth];
        textBegun = false;
        step = Step::Content;
    }
}

}  // namespace

const unsigned char* ReadWholeText(const unsigned char* data, std::size_t size,
                                   XmlTreeBuilder& builder) {
    WholeReader reader(data, size, builder);
    return reader.Read(data);
}

}  // namespace Xml
