#include "xml/binary_xml.h"

#include <algorithm>
#include <memory>

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

std::u16string_view BinaryXmlReader::ReadText(std::uint64_t count) {
    if (count <= static_cast<std::uint64_t>(end_ - next_)) {
        // The input at hand holds the text and may be read on up to its end.
        const std::uint8_t* text = next_;
        next_ += count;
        return Widen(text, static_cast<std::size_t>(count), end_);
    }
    const std::string_view bytes = GatherBytes(count);
    const auto* text = reinterpret_cast<const std::uint8_t*>(bytes.data());
    return Widen(text, bytes.size(), text + bytes.size());
}

std::u16string_view BinaryXmlReader::Widen(const std::uint8_t* p, std::size_t size,
                                           const std::uint8_t* readable) {
    // Room for a whole chunk of sixteen behind the last unit.
    if (textCapacity_ < size + 16) {
        textCapacity_ = std::max<std::size_t>({size + 16, 2 * textCapacity_, 256});
        text_.reset(new char16_t[textCapacity_]);
    }
    char16_t* const out = text_.get();
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
            return {out, i};
        }
        if (c >= 0x80) {
            // An ASCII byte always stands for itself, so the rest, up to its first NUL,
            // decodes alone as it would have as part of the whole.
            std::string_view rest(reinterpret_cast<const char*>(p + i), size - i);
            rest = rest.substr(0, rest.find('\0'));
            const char16_t* end = Common::Detail::Utf8ToUtf16LenientTo(rest, out + i);
            return {out, static_cast<std::size_t>(end - out)};
        }
        out[i] = c;
    }
    return {out, size};
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
        builder_.AddAttribute(name, ReadText(ReadNumber()));  // a repeated name keeps the first
    }
    const std::uint32_t textCount = ReadNumber();
    TL_ASSERT_TEXT(textCount != 0, "textCount");
    builder_.SetText(ReadText(ReadNumber()));
    // A count of 0 wraps as it always has; the loop then runs until the input fails.
    for (std::uint32_t i = textCount - 1; i != 0 && !failed_ && !TooDeep(); --i) {
        ReadOld();
        builder_.SetText(ReadText(ReadNumber()));
    }
    builder_.Close();
    Leave();
}

bool BinaryXmlReader::ReadNew() {
    // The terminator is no element: it must not count against the nesting bound, or a
    // document would be refused one level earlier than the same tree as text.
    const std::uint32_t reference = ReadNumber();
    if (reference == 0 || !Enter()) {
        return false;
    }
    builder_.Open(ResolveName(reference));
    for (;;) {
        const std::uint32_t attribute = ReadNumber();
        if (attribute == 0) {
            break;
        }
        const Detail::XmlName* name = ResolveName(attribute);
        const std::uint32_t textLength = ReadNumber();
        TL_ASSERT_TEXT((textLength & 1) == 0, "(textLength & 1) == 0");
        builder_.AddAttribute(name, textLength < 2 ? std::u16string_view()
                                                   : ReadText(textLength / 2));
    }
    ReadTextItem();
    while (!TooDeep() && ReadNew()) {
        ReadTextItem();
    }
    builder_.Close();
    Leave();
    return !failed_;
}

void BinaryXmlReader::ReadTextItem() {
    const std::uint32_t item = ReadNumber();
    const std::uint32_t length = item >> 1;
    if ((item & 1) != 0) {
        ReadBytes(length);  // raw data: the tree keeps no text for it
    } else {
        builder_.SetText(ReadText(length));
    }
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
