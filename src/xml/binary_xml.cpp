#include "xml/binary_xml.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <tessel_link/common/assert.h>
#include <tessel_link/file/memory_file.h>

#include "common/utf8_into.h"

#include "xml/xml_tree_builder.h"

namespace Xml {

namespace {
// Any other file is read in blocks of this size.
constexpr std::size_t kBlockSize = 65536;

// The `size` bytes of UTF-8 at `p`, up to the first NUL, as UTF-16 at `out`, which has room
// for sixteen units more than the bytes; the input may be read up to `readable`. Returns the
// units of the text.
std::size_t WidenInto(const std::uint8_t* p, std::size_t size, const std::uint8_t* readable,
                      char16_t* out) {
    std::size_t i = 0;
    // Texts are mostly ASCII: widened sixteen bytes at a time until a NUL or a byte of a
    // longer sequence turns up. A short text is one chunk, read on into the bytes behind it
    // where the input has them; what lies beyond the text is written but not counted.
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (i < size && readable - (p + i) >= 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        unsigned special = static_cast<unsigned>(_mm_movemask_epi8(chunk) |
                                                 _mm_movemask_epi8(_mm_cmpeq_epi8(chunk, zero)));
        const std::size_t left = size - i;
        if (left < 16) {
            special &= (1u << left) - 1;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(chunk, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(chunk, zero));
        if (special != 0) {
            i += static_cast<std::size_t>(__builtin_ctz(special));
            break;
        }
        i += left < 16 ? left : 16;
    }
#endif
    for (; i < size; ++i) {
        const unsigned char c = p[i];
        if (c == 0) {
            return i;
        }
        if (c >= 0x80) {
            // An ASCII byte always stands for itself, so the rest, up to its first NUL,
            // decodes alone as it would have as part of the whole.
            std::string_view rest(reinterpret_cast<const char*>(p + i), size - i);
            rest = rest.substr(0, rest.find('\0'));
            const char16_t* end = Common::Detail::Utf8ToUtf16LenientTo(rest, out + i);
            return static_cast<std::size_t>(end - out);
        }
        out[i] = c;
    }
    return size;
}

}  // namespace

BinaryXmlReader::BinaryXmlReader(File::i_file& file, XmlTreeBuilder& builder)
    : file_(file),
      builder_(builder),
      directNames_(new const Detail::XmlName*[kDirectNames]()),
      failed_(file.Failed()) {
    // A file in memory already holds the whole input: it is read where it lies, and told at
    // the end how far the reading got.
    auto* memory = dynamic_cast<File::buf_ifile<char>*>(&file);
    if (memory != nullptr && !failed_) {
        inPlace_ = memory;
        inPlaceStart_ = memory->Position();
        start_ = reinterpret_cast<const std::uint8_t*>(memory->Data()) + inPlaceStart_;
        next_ = start_;
        end_ = start_ + (memory->Size() - inPlaceStart_);
        return;
    }
    block_.reset(new std::uint8_t[kBlockSize]);
    next_ = end_ = block_.get();
}

BinaryXmlReader::~BinaryXmlReader() {
    if (inPlace_ != nullptr && !failed_) {
        inPlace_->Seek(inPlaceStart_ + static_cast<std::uint64_t>(next_ - start_));
    }
}

bool BinaryXmlReader::Fill() {
    if (failed_) {
        return false;
    }
    if (inPlace_ != nullptr) {
        // The whole input has been read: reading on from its end leaves the file's own
        // end-of-file error on it.
        inPlace_->Seek(inPlaceStart_ + static_cast<std::uint64_t>(end_ - start_));
        std::uint8_t byte = 0;
        inPlace_->ReadExact(&byte, 1);
        failed_ = inPlace_->Failed();
        inPlace_ = nullptr;
        next_ = end_;
        if (!failed_) {
            // The file grew behind the view: whatever it holds now arrives in blocks.
            block_.reset(new std::uint8_t[kBlockSize]);
            next_ = end_ = block_.get();
        }
        return false;
    }
    std::uint64_t got = 0;
    file_.Read(block_.get(), kBlockSize, got);
    next_ = block_.get();
    end_ = next_ + std::min<std::uint64_t>(got, kBlockSize);
    failed_ = file_.Failed();
    if (next_ != end_) {
        return true;
    }
    // Nothing arrived: an exact read of the byte that is missing puts the file's own
    // end-of-file error on it, unless the read failed with an error of its own.
    if (!failed_) {
        std::uint8_t byte = 0;
        file_.ReadExact(&byte, 1);
        failed_ = file_.Failed();
    }
    return false;
}

inline std::uint32_t BinaryXmlReader::ReadNumber() {
    // Nearly every number is whole in the input at hand: no check per byte then.
    if (end_ - next_ >= 5) {
        const std::uint8_t* p = next_;
        std::uint32_t byte = p[0];
        if (byte < 0x80) {
            next_ = p + 1;
            return byte;
        }
        std::uint32_t value = byte & 0x7f;
        byte = p[1];
        value |= (byte & 0x7f) << 7;
        if (byte < 0x80) {
            next_ = p + 2;
            return value;
        }
        byte = p[2];
        value |= (byte & 0x7f) << 14;
        if (byte < 0x80) {
            next_ = p + 3;
            return value;
        }
        byte = p[3];
        value |= (byte & 0x7f) << 21;
        if (byte < 0x80) {
            next_ = p + 4;
            return value;
        }
        byte = p[4];
        value |= (byte & 0x7f) << 28;
        next_ = p + 5;
        if (byte < 0x80) {
            return value;
        }
        return ReadNumberSlowly(value, 35);
    }
    return ReadNumberSlowly(0, 0);
}

std::uint32_t BinaryXmlReader::ReadNumberSlowly(std::uint32_t value, std::uint32_t shift) {
    // Groups beyond the fifth wrap around into the low bits, as they always have.
    while (Available()) {
        const std::uint8_t byte = *next_++;
        value |= static_cast<std::uint32_t>(byte & 0x7f) << (shift & 31);
        shift += 7;
        if ((byte & 0x80) == 0) {
            break;
        }
    }
    return value;
}

inline std::string_view BinaryXmlReader::ReadBytes(std::uint64_t count) {
    if (count <= static_cast<std::uint64_t>(end_ - next_)) {
        const std::string_view bytes(reinterpret_cast<const char*>(next_),
                                     static_cast<std::size_t>(count));
        next_ += count;
        return bytes;
    }
    return GatherBytes(count);
}

std::string_view BinaryXmlReader::GatherBytes(std::uint64_t count) {
    gathered_.clear();
    while (count != 0 && Available()) {
        // Pieces of at most one block, each only once the one before it has arrived: the
        // buffer grows with what the input holds, not with what a length claims.
        const std::uint64_t piece = std::min<std::uint64_t>(count, end_ - next_);
        gathered_.append(reinterpret_cast<const char*>(next_), static_cast<std::size_t>(piece));
        next_ += piece;
        count -= piece;
    }
    return gathered_;
}

const Detail::XmlText* BinaryXmlReader::ReadTextEntry(std::uint64_t count) {
    if (count == 0) {
        return nullptr;
    }
    const std::uint8_t* text = next_;
    std::size_t size = 0;
    const std::uint8_t* readable = end_;
    if (count <= static_cast<std::uint64_t>(end_ - next_)) {
        // The input at hand holds the text and may be read on up to its end.
        size = static_cast<std::size_t>(count);
        next_ += count;
    } else {
        const std::string_view bytes = GatherBytes(count);
        text = reinterpret_cast<const std::uint8_t*>(bytes.data());
        size = bytes.size();
        readable = text + size;
    }
    // A byte never becomes more than one unit. The room covers a whole chunk of sixteen
    // behind the last unit, and is no larger than what the input holds.
    Detail::Arena& arena = builder_.Arena();
    const std::size_t room = sizeof(Detail::XmlText) + (size + 16) * sizeof(char16_t);
    char* base = arena.Tail();
    if (static_cast<std::size_t>(arena.TailEnd() - base) < room) {
        base = arena.RegrowTail(0, room);
    }
    auto* out = reinterpret_cast<char16_t*>(base + sizeof(Detail::XmlText));
    const std::size_t units = WidenInto(text, size, readable, out);
    if (units == 0) {
        return nullptr;
    }
    if (units > UINT32_MAX) {
        throw std::length_error("text too long");
    }
    auto* entry = reinterpret_cast<Detail::XmlText*>(base);
    entry->Size = static_cast<std::uint32_t>(units);
    arena.TakeTail(reinterpret_cast<char*>(out + units));
    return entry;
}

inline const Detail::XmlName* BinaryXmlReader::ResolveName(std::uint32_t reference) {
    if (reference < kDirectNames && directNames_[reference] != nullptr) {
        return directNames_[reference];
    }
    return DefineName(reference);
}

const Detail::XmlName* BinaryXmlReader::DefineName(std::uint32_t reference) {
    const bool direct = reference < kDirectNames;
    const auto known = direct ? names_.end() : names_.lower_bound(reference);
    if (known != names_.end() && known->first == reference) {
        return known->second;
    }
    const std::uint32_t length = ReadNumber();
    const Detail::XmlName* name = builder_.Intern(ReadBytes(length));
    if (direct) {
        directNames_[reference] = name;
    } else {
        names_.emplace_hint(known, reference, name);
    }
    return name;
}

bool BinaryXmlReader::Enter() {
    if (depth_ >= kMaxXmlDepth) {
        tooDeep_ = true;
        return false;
    }
    ++depth_;
    return true;
}

void BinaryXmlReader::ReadOld() {
    if (!Enter()) {
        return;
    }
    builder_.Open(ResolveName(ReadNumber()));
    const std::uint8_t attributes = ReadByte();
    for (unsigned i = 0; i < attributes; ++i) {
        const Detail::XmlName* name = ResolveName(ReadNumber());
        // A repeated name keeps the first.
        builder_.AddAttributeText(name, ReadTextEntry(ReadNumber()));
    }
    const std::uint32_t textCount = ReadNumber();
    TL_ASSERT_TEXT(textCount != 0, "textCount");
    builder_.SetTextEntry(ReadTextEntry(ReadNumber()));
    // A count of 0 wraps as it always has; the loop then runs until the input fails.
    for (std::uint32_t i = textCount - 1; i != 0 && !failed_ && !TooDeep(); --i) {
        ReadOld();
        builder_.SetTextEntry(ReadTextEntry(ReadNumber()));
    }
    builder_.Close();
    Leave();
}

bool BinaryXmlReader::ReadNew() {
    return ReadElement(ReadNumber());
}

bool BinaryXmlReader::ReadElement(std::uint32_t reference) {
    // The terminator is no element: it must not count against the nesting bound, or a
    // document would be refused one level earlier than the same tree as text.
    if (reference == 0 || !Enter()) {
        return false;
    }
    const Detail::XmlName* name = ResolveName(reference);
    std::uint32_t attribute = ReadNumber();
    if (attribute == 0 && builder_.Depth() != 0) {
        // No attributes: most such elements are leaves with one text, which are added whole
        // without opening them.
        XmlTag* tag = builder_.NewTag(name);
        const Detail::XmlText* text = ReadTextItem();
        const std::uint32_t child = ReadNumber();
        if (child == 0) {
            builder_.AddLeaf(tag, text);
            Leave();
            return !failed_;
        }
        builder_.OpenTag(tag);
        builder_.SetTextEntry(text);
        ReadChildren(child);
    } else {
        builder_.Open(name);
        for (; attribute != 0; attribute = ReadNumber()) {
            const Detail::XmlName* attributeName = ResolveName(attribute);
            const std::uint32_t textLength = ReadNumber();
            TL_ASSERT_TEXT((textLength & 1) == 0, "(textLength & 1) == 0");
            builder_.AddAttributeText(attributeName,
                                      textLength < 2 ? nullptr : ReadTextEntry(textLength / 2));
        }
        builder_.SetTextEntry(ReadTextItem());
        ReadChildren(ReadNumber());
    }
    builder_.Close();
    Leave();
    return !failed_;
}

void BinaryXmlReader::ReadChildren(std::uint32_t reference) {
    // Each child is followed by a text item; a subtree that went too deep ends the list.
    while (ReadElement(reference)) {
        builder_.SetTextEntry(ReadTextItem());
        if (TooDeep()) {
            return;
        }
        reference = ReadNumber();
    }
}

const Detail::XmlText* BinaryXmlReader::ReadTextItem() {
    const std::uint32_t item = ReadNumber();
    const std::uint32_t length = item >> 1;
    if ((item & 1) != 0) {
        ReadBytes(length);  // raw data: the tree keeps no text for it
        return nullptr;
    }
    return ReadTextEntry(length);
}

bool ReadBinaryDocument(XmlDocument& document, File::i_file& file) {
    std::uint8_t header[2] = {0, 0};
    file.ReadExact(header, 2);  // the revision, and a byte without meaning for a reader
    XmlTreeBuilder builder(document);
    if (header[0] != 1 && header[0] != 2) {
        return false;
    }
    bool tooDeep = false;
    {
        BinaryXmlReader reader(file, builder);
        builder.CloseAll();
        if (header[0] == 1) {
            reader.ReadOld();
        } else {
            reader.ReadNew();
        }
        TL_ASSERT_TEXT(builder.Depth() == 0, "!tagStack.size()");
        builder.CloseAll();
        tooDeep = reader.TooDeep();
    }  // the reader tells a file in memory how far it got
    return !file.Failed() && !tooDeep;
}

}  // namespace Xml
