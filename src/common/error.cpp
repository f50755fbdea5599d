#include <tessel_link/common/error.h>

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <string>
#include <vector>

#include "common/dynamic_buffer.h"
#include <tessel_link/common/unicode.h>

#include "common/error_kinds.h"
#include "common/error_record.h"

namespace Common {

const Error ErrorSuccess;

namespace {

Error Make(Kind kind, std::uint32_t code, const ErrorOrigin& origin,
           std::initializer_list<FieldValue> fields) {
    if (code == 0) {
        return Error();
    }
    return Adopt(MakeFixedRecord(kind, code, origin, fields.begin()));
}

}  // namespace

Error::Error(const ErrorOrigin& origin, std::uint32_t code) {
    if (code != 0) {
        head_ = MakeFixedRecord(Kind::Plain, code, origin, nullptr);
    }
}

Error::Error(const ErrorOrigin& origin, std::uint32_t code, const char* text) {
    if (code != 0) {
        const FieldValue f = AnsiField(text);
        head_ = MakeFixedRecord(Kind::NarrowText, code, origin, &f);
    }
}

Error::Error(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text) {
    if (code != 0) {
        const FieldValue f = WideField(text);
        head_ = MakeFixedRecord(Kind::WideText, code, origin, &f);
    }
}

Error Error::Trace(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text,
                   std::uint64_t level) {
    return Make(Kind::Trace, code, origin, {WideField(text), NumberField(level)});
}

Error Error::WithFunction(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text,
                          const char* function) {
    return Make(Kind::Function, code, origin, {WideField(text), AnsiField(function)});
}

Error Error::WithPath(const ErrorOrigin& origin, std::uint32_t code, const char16_t* text,
                      const char16_t* path) {
    return Make(Kind::Path, code, origin, {WideField(text), WideField(path)});
}

Error Error::WithFunctionAndPath(const ErrorOrigin& origin, std::uint32_t code,
                                 const char16_t* text, const char* function,
                                 const char16_t* path) {
    return Make(Kind::FunctionAndPath, code, origin,
                {WideField(text), AnsiField(function), WideField(path)});
}

Error Error::WithPathAndName(const ErrorOrigin& origin, std::uint32_t code,
                             const char16_t* text, const char16_t* path, const char16_t* name) {
    return Make(Kind::PathAndName, code, origin,
                {WideField(text), WideField(path), WideField(name)});
}

Error Error::WithPathAndHints(const ErrorOrigin& origin, std::uint32_t code,
                              const char16_t* path, std::uint64_t hints) {
    return Make(Kind::PathAndHints, code, origin, {WideField(path), NumberField(hints)});
}

Error Error::DelayLoadPath(const ErrorOrigin& origin, std::uint32_t code, const char* library) {
    return Make(Kind::DelayLoadPath, code, origin, {AnsiField(library)});
}

Error Error::DelayLoadSymbol(const ErrorOrigin& origin, std::uint32_t code,
                             const char* library, const char* symbol) {
    return Make(Kind::DelayLoadSymbol, code, origin, {AnsiField(library), AnsiField(symbol)});
}

Error Error::DelayLoadOrdinal(const ErrorOrigin& origin, std::uint32_t code,
                              const char* library, std::uint64_t ordinal) {
    return Make(Kind::DelayLoadOrdinal, code, origin, {AnsiField(library), NumberField(ordinal)});
}

Error Error::Errno(const ErrorOrigin& origin, std::uint32_t code, int errnum) {
    return Make(Kind::Errno, code, origin,
                {NumberField(static_cast<std::uint64_t>(static_cast<std::int64_t>(errnum)))});
}

Error::Error(const Error& other) noexcept : head_(AddRef(other.head_)) {}

Error& Error::operator=(const Error& other) noexcept {
    // The new head is referenced before the old chain is released, which keeps
    // self-assignment and assignment from a cause of this error safe.
    ErrorRecord* incoming = AddRef(other.head_);
    ErrorRecord* old = head_;
    head_ = incoming;
    Release(old);
    return *this;
}

Error& Error::operator=(Error&& other) noexcept {
    if (this != &other) {
        ErrorRecord* old = head_;
        head_ = other.head_;
        other.head_ = nullptr;
        Release(old);
    }
    return *this;
}

Error::~Error() {
    Release(head_);
}

std::uint32_t Error::Code() const noexcept {
    return head_ != nullptr ? head_->Code : 0;
}

Error Error::Cause() const noexcept {
    return head_ != nullptr ? Adopt(AddRef(head_->Cause)) : Error();
}

Error& Error::AddCause(const Error& other) noexcept {
    ErrorRecord* cause = AddRef(other.head_);
    if (head_ == nullptr) {
        head_ = cause;
        return *this;
    }
    if (head_->RefCount.load(std::memory_order_seq_cst) == 1) {
        // Nobody else sees this head: replace its cause in place.
        ErrorRecord* former = head_->Cause;
        head_->Cause = cause;
        Release(former);
        return *this;
    }
    ErrorRecord* clone = head_->Ops->Clone(head_);
    if (clone == nullptr) {
        Release(cause);
        return *this;
    }
    clone->Cause = cause;
    ErrorRecord* old = head_;
    head_ = clone;
    Release(old);
    return *this;
}

Error& Error::AddWindowsError(int error) noexcept {
    const std::uint32_t value =
        error <= 0 ? static_cast<std::uint32_t>(error)
                   : ((static_cast<std::uint32_t>(error) & 0xffffu) | 0x80070000u);
    return AddCause(Adopt(MakeSystemRecord(value, TL_ORIGIN("Common::Error::AddWindowsError"))));
}

Error& Error::AddHResult(unsigned hresult) noexcept {
    return AddCause(Adopt(MakeSystemRecord(hresult, TL_ORIGIN("Common::Error::AddHResult"))));
}

Error& Error::AddNTStatus(unsigned status) noexcept {
    return AddCause(
        Adopt(MakeSystemRecord(status | 0x10000000u, TL_ORIGIN("Common::Error::AddNTStatus"))));
}

std::u16string Error::Text() const {
    std::u16string text;
    if (head_ != nullptr) {
        head_->Ops->GetText(head_, text);
    }
    return text;
}

std::uint64_t Error::GetNumber(const char* name) const noexcept {
    return head_ != nullptr && name != nullptr ? head_->Ops->GetNumber(head_, name) : 0;
}

const char* Error::GetAnsi(const char* name) const noexcept {
    return head_ != nullptr && name != nullptr ? head_->Ops->GetAnsi(head_, name) : nullptr;
}

const char16_t* Error::GetWide(const char* name) const noexcept {
    return head_ != nullptr && name != nullptr ? head_->Ops->GetWide(head_, name) : nullptr;
}

const char* Error::GetNames() const noexcept {
    return head_ != nullptr ? head_->Ops->GetNames(head_) : "";
}

ErrorOrigin Error::Origin() const noexcept {
    if (head_ == nullptr) {
        return {};
    }
    return {head_->LineTag, head_->File, head_->Func, head_->Line};
}

// ---------------------------------------------------------------------------------------
// Serialized form

namespace {

// Writes the serialized form into a buffer whose failure is sticky, so that the pieces
// need no checks of their own; the caller looks at Failed() once at the end.
class BlockWriter {
public:
    explicit BlockWriter(DynamicBuffer& out) : out_(out) {}

    void Byte(unsigned char b) { out_.Write(&b, 1); }

    void U32(std::uint32_t v) {
        unsigned char bytes[4];
        for (int i = 0; i < 4; ++i) {
            bytes[i] = static_cast<unsigned char>(v >> (8 * i));
        }
        out_.Write(bytes, sizeof bytes);
    }

    void U64(std::uint64_t v) {
        unsigned char bytes[8];
        for (int i = 0; i < 8; ++i) {
            bytes[i] = static_cast<unsigned char>(v >> (8 * i));
        }
        out_.Write(bytes, sizeof bytes);
    }

    // A narrow string with its terminator.
    void CString(const char* s) { out_.Write(s, std::strlen(s) + 1); }
    void CString(std::string_view s) {
        out_.Write(s.data(), s.size());
        Byte(0);
    }

    // A UTF-16 string as zero-terminated UTF-8, encoded straight into the buffer; a lone
    // surrogate becomes U+FFFD.
    void Utf8(const char16_t* s) {
        unsigned char chunk[256];
        std::size_t n = 0;
        for (;; ++s) {
            char32_t c = *s;
            if (c == 0) {
                break;
            }
            if (c >= 0xd800 && c <= 0xdbff && s[1] >= 0xdc00 && s[1] <= 0xdfff) {
                c = 0x10000 + ((c - 0xd800) << 10) + (s[1] - 0xdc00);
                ++s;
            } else if (c >= 0xd800 && c <= 0xdfff) {
                c = 0xfffd;
            }
            if (n + 4 > sizeof chunk) {  // room for the longest sequence
                out_.Write(chunk, n);
                n = 0;
            }
            if (c < 0x80) {
                chunk[n++] = static_cast<unsigned char>(c);
            } else if (c < 0x800) {
                chunk[n++] = static_cast<unsigned char>(0xc0 | (c >> 6));
                chunk[n++] = static_cast<unsigned char>(0x80 | (c & 0x3f));
            } else if (c < 0x10000) {
                chunk[n++] = static_cast<unsigned char>(0xe0 | (c >> 12));
                chunk[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
                chunk[n++] = static_cast<unsigned char>(0x80 | (c & 0x3f));
            } else {
                chunk[n++] = static_cast<unsigned char>(0xf0 | (c >> 18));
                chunk[n++] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3f));
                chunk[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
                chunk[n++] = static_cast<unsigned char>(0x80 | (c & 0x3f));
            }
        }
        if (n == sizeof chunk) {
            out_.Write(chunk, n);
            n = 0;
        }
        chunk[n++] = 0;
        out_.Write(chunk, n);
    }

private:
    DynamicBuffer& out_;
};

void SerializeRecord(BlockWriter& out, const ErrorRecord* r) {
    out.U32(r->Code);
    out.U64(r->LineTag);
    if (const char16_t* stored = StoredWideText(r)) {
        out.Utf8(stored);
    } else {
        std::u16string text;
        r->Ops->GetText(r, text);
        out.Utf8(text.c_str());
    }

    // Parameters in the order of the names list; the value's type is whichever of the
    // narrow, wide and numeric accessors answers first.
    const std::string_view names = r->Ops->GetNames(r);
    std::string name;
    std::size_t start = 0;
    while (start <= names.size()) {
        std::size_t end = names.find(',', start);
        if (end == std::string_view::npos) {
            end = names.size();
        }
        name.assign(names.substr(start, end - start));
        start = end + 1;
        if (name.empty()) {
            continue;
        }
        out.CString(name);
        if (const char* a = r->Ops->GetAnsi(r, name.c_str())) {
            out.Byte('A');
            out.CString(a);
        } else if (const char16_t* w = r->Ops->GetWide(r, name.c_str())) {
            out.Byte('W');
            out.Utf8(w);
        } else {
            out.Byte('N');
            out.U64(r->Ops->GetNumber(r, name.c_str()));
        }
    }
    if (r->File != nullptr) {
        out.CString("$file");
        out.Byte('A');
        out.CString(r->File);
    }
    if (r->Func != nullptr) {
        out.CString("$func");
        out.Byte('A');
        out.CString(r->Func);
    }
    if (r->Line != 0) {
        out.CString("$line");
        out.Byte('N');
        out.U64(r->Line);
    }
    out.Byte(0);  // an empty name ends the record
}

// Reads from a bounded block; every read checks the bounds first.
class BlockReader {
public:
    BlockReader(const unsigned char* data, std::size_t size) : data_(data), size_(size) {}

    std::size_t Remaining() const { return size_ - pos_; }

    std::uint32_t U32() {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i) {
            v |= static_cast<std::uint32_t>(data_[pos_ + i]) << (8 * i);
        }
        pos_ += 4;
        return v;
    }

    bool U64(std::uint64_t& v) {
        if (Remaining() < 8) {
            return false;
        }
        v = 0;
        for (int i = 0; i < 8; ++i) {
            v |= static_cast<std::uint64_t>(data_[pos_ + i]) << (8 * i);
        }
        pos_ += 8;
        return true;
    }

    // A zero-terminated string inside the block.
    bool CString(std::string& s) {
        const void* end = std::memchr(data_ + pos_, 0, Remaining());
        if (end == nullptr) {
            return false;
        }
        const std::size_t n = static_cast<const unsigned char*>(end) - (data_ + pos_);
        s.assign(reinterpret_cast<const char*>(data_ + pos_), n);
        pos_ += n + 1;
        return true;
    }

    bool Byte(unsigned char& b) {
        if (Remaining() < 1) {
            return false;
        }
        b = data_[pos_++];
        return true;
    }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

// The parameters a read record keeps (see below).
constexpr std::size_t kMostReadParameters = 256;

// Reads one record; null when it is malformed (or memory runs out). `end` is set when the
// record has code 0, which ends the chain.
ErrorRecord* DeserializeRecord(BlockReader& in, bool& end) {
    const std::uint32_t code = in.U32();
    std::uint64_t lineTag = 0;
    in.U64(lineTag);
    if (code == 0) {
        end = true;
        return nullptr;
    }
    std::string utf8;
    std::u16string text;
    if (!in.CString(utf8) || !Utf8ToUtf16(utf8, text)) {
        return nullptr;
    }
    std::string names;
    std::vector<GenericValue> values;
    const char* file = nullptr;
    const char* func = nullptr;
    std::uint32_t line = 0;
    for (;;) {
        std::string name;
        if (!in.CString(name)) {
            return nullptr;
        }
        if (name.empty()) {
            break;
        }
        // Names travel as one comma-separated list: a name with a comma in it could not
        // be told from two, so it can only be damage.
        if (name.find(',') != std::string::npos) {
            return nullptr;
        }
        unsigned char type = 0;
        if (!in.Byte(type)) {
            return nullptr;
        }
        GenericValue value{static_cast<char>(type), 0, {}, {}};
        if (type == 'N') {
            if (!in.U64(value.Number)) {
                return nullptr;
            }
        } else if (type == 'A') {
            if (!in.CString(value.Ansi)) {
                return nullptr;
            }
        } else if (type == 'W') {
            // Only the text must be valid UTF-8; a wide value converts with replacement
            // characters, as the system's own conversion does.
            std::string s;
            if (!in.CString(s)) {
                return nullptr;
            }
            value.Wide = Utf8ToUtf16Lenient(s);
        } else {
            return nullptr;
        }
        if (type == 'A' && (name == "$file" || name == "$func")) {
            // A string that cannot be kept is dropped: the origin field stays null.
            (name == "$file" ? file : func) = InternOriginString(value.Ansi.c_str());
            continue;
        }
        if (type == 'N' && name == "$line") {
            line = static_cast<std::uint32_t>(value.Number);
            continue;
        }
        // Parameters are found by name in the list, so that each reading of all of them
        // (printing, serializing) costs the square of their number: a record keeps the
        // first kMostReadParameters, far more than any error site makes, and skips the rest.
        if (values.size() == kMostReadParameters) {
            continue;
        }
        if (!names.empty()) {
            names.push_back(',');
        }
        names += name;
        values.push_back(std::move(value));
    }
    return MakeGenericRecord(code, lineTag, file, func, line, text, names, values.data(),
                             values.size());
}

}  // namespace

unsigned char* Error::Serialize(std::size_t& size) const {
    size = 0;
    DynamicBuffer buffer;
    buffer.Reserve(256);  // most chains fit, so the block is rarely moved
    try {
        BlockWriter out(buffer);
        out.Byte(0x01);
        for (const ErrorRecord* r = head_; r != nullptr; r = r->Cause) {
            SerializeRecord(out, r);
        }
    } catch (const std::bad_alloc&) {
        return nullptr;  // a text conversion ran out of memory
    }
    if (buffer.Failed()) {
        return nullptr;
    }
    size = buffer.Size();
    return buffer.Release();
}

std::vector<unsigned char> Error::Serialize() const {
    std::size_t size = 0;
    const std::unique_ptr<unsigned char[]> block(Serialize(size));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return std::vector<unsigned char>(block.get(), block.get() + size);
}

Error Error::Deserialize(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (bytes == nullptr || size == 0 || bytes[0] != 0x01 || size < 13) {
        return Error();
    }
    BlockReader in(bytes + 1, size - 1);
    ErrorRecord* head = nullptr;
    ErrorRecord* tail = nullptr;
    try {
        while (in.Remaining() >= 12) {
            bool end = false;
            ErrorRecord* r = DeserializeRecord(in, end);
            if (r == nullptr) {
                break;
            }
            if (tail == nullptr) {
                head = r;
            } else {
                tail->Cause = r;
            }
            tail = r;
        }
    } catch (const std::bad_alloc&) {
        // Out of memory: keep the chain read so far.
    }
    return Adopt(head);
}

Error& Error::Detach() {
    if (Code() == ErrorSuccess.Code()) {
        return *this;
    }
    std::size_t size = 0;
    const std::unique_ptr<unsigned char[]> block(Serialize(size));
    // Without memory for the block the error stays as it is rather than being lost.
    if (block != nullptr) {
        *this = Deserialize(block.get(), size);
    }
    return *this;
}

}  // namespace Common
