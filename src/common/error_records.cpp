// The kinds of error record: their layout, their operations, and how they are built.

#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <set>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/common/unicode.h>

#include "common/error_kinds.h"
#include "common/error_record.h"
#include "common/message_table_source.h"

namespace Common {

namespace {

constexpr std::size_t kHeaderSize = sizeof(ErrorRecord);

std::size_t AlignUp(std::size_t n, std::size_t a) {
    return (n + a - 1) & ~(a - 1);
}

// ---------------------------------------------------------------------------------------
// Kinds with fixed parameters. Behind the header stands one 64-bit slot per string or
// number: the text first (when the kind has one), then the parameters in the order of the
// names list. A string slot is null, an offset from the record's start when smaller than
// Size, or an absolute pointer (a text inside the message table, which outlives records).

std::uint64_t* Slots(ErrorRecord* r) {
    return reinterpret_cast<std::uint64_t*>(reinterpret_cast<unsigned char*>(r) + kHeaderSize);
}
const std::uint64_t* Slots(const ErrorRecord* r) {
    return reinterpret_cast<const std::uint64_t*>(reinterpret_cast<const unsigned char*>(r) +
                                                  kHeaderSize);
}

const void* SlotString(const ErrorRecord* r, std::size_t index) {
    const std::uint64_t v = Slots(r)[index];
    if (v == 0) {
        return nullptr;
    }
    if (v < r->Size) {
        return reinterpret_cast<const unsigned char*>(r) + v;
    }
    return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(v));
}

const KindDesc& DescOf(const ErrorRecord* r);

int FindParam(const KindDesc& kind, const char* name) {
    for (int i = 0; i < kind.ParamCount; ++i) {
        if (std::strcmp(kind.Params[i].Name, name) == 0) {
            return i;
        }
    }
    return -1;
}

std::size_t ParamSlot(const KindDesc& kind, int param) {
    return (kind.Text != TextForm::None ? 1 : 0) + static_cast<std::size_t>(param);
}

void FixedDestroy(ErrorRecord* r) {
    delete[] reinterpret_cast<unsigned char*>(r);
}

ErrorRecord* FixedClone(const ErrorRecord* r) {
    auto* bytes = new (std::nothrow) unsigned char[r->Size];
    if (bytes == nullptr) {
        return nullptr;
    }
    std::memcpy(bytes, r, r->Size);
    auto* copy = reinterpret_cast<ErrorRecord*>(bytes);
    new (&copy->RefCount) std::atomic<std::uint32_t>(1);
    copy->Cause = nullptr;
    return copy;
}

void FixedGetText(const ErrorRecord* r, std::u16string& text) {
    const KindDesc& kind = DescOf(r);
    text.clear();
    const void* s = kind.Text != TextForm::None ? SlotString(r, 0) : nullptr;
    if (s == nullptr) {
        return;
    }
    if (kind.Text == TextForm::Wide) {
        text = static_cast<const char16_t*>(s);
    } else {
        text = WidenLatin1(static_cast<const char*>(s));
    }
}

std::uint64_t FixedGetNumber(const ErrorRecord* r, const char* name) {
    const KindDesc& kind = DescOf(r);
    const int i = FindParam(kind, name);
    if (i < 0 || kind.Params[i].Type != 'N') {
        return 0;
    }
    return Slots(r)[ParamSlot(kind, i)];
}

const char* FixedGetAnsi(const ErrorRecord* r, const char* name) {
    if (std::strcmp(name, "$module") == 0) {
        return kModuleIdentifier;
    }
    const KindDesc& kind = DescOf(r);
    const int i = FindParam(kind, name);
    if (i < 0 || kind.Params[i].Type != 'A') {
        return nullptr;
    }
    return static_cast<const char*>(SlotString(r, ParamSlot(kind, i)));
}

const char16_t* FixedGetWide(const ErrorRecord* r, const char* name) {
    const KindDesc& kind = DescOf(r);
    const int i = FindParam(kind, name);
    if (i < 0 || kind.Params[i].Type != 'W') {
        return nullptr;
    }
    return static_cast<const char16_t*>(SlotString(r, ParamSlot(kind, i)));
}

const char* FixedGetNames(const ErrorRecord* r) {
    return DescOf(r).Names;
}

#define TL_FIXED_OPS \
    {FixedDestroy, FixedClone, FixedGetText, FixedGetNumber, FixedGetAnsi, FixedGetWide, FixedGetNames}

// One ops table per kind, so that a record finds its descriptor from its Ops pointer.
const RecordOps kFixedOps[] = {
    TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS,
    TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS, TL_FIXED_OPS,
    TL_FIXED_OPS,
};
#undef TL_FIXED_OPS

const KindDesc kKinds[] = {
    {"$module", TextForm::None, 0, {}},
    {"$module", TextForm::Narrow, 0, {}},
    {"$module", TextForm::Wide, 0, {}},
    {"TraceLevel,$module", TextForm::Wide, 1, {{"TraceLevel", 'N'}}},
    {"function,$module", TextForm::Wide, 1, {{"function", 'A'}}},
    {"path,$module", TextForm::Wide, 1, {{"path", 'W'}}},
    {"function,path,$module", TextForm::Wide, 2, {{"function", 'A'}, {"path", 'W'}}},
    {"path,name,$module", TextForm::Wide, 2, {{"path", 'W'}, {"name", 'W'}}},
    {"Path,Hints,$module", TextForm::None, 2, {{"Path", 'W'}, {"Hints", 'N'}}},
    {"path,$module", TextForm::None, 1, {{"path", 'A'}}},
    {"path,function,$module", TextForm::None, 2, {{"path", 'A'}, {"function", 'A'}}},
    {"path,function,$module", TextForm::None, 2, {{"path", 'A'}, {"function", 'N'}}},
    {"Errno,$module", TextForm::None, 1, {{"Errno", 'N'}}},
};
static_assert(sizeof(kKinds) / sizeof(kKinds[0]) == sizeof(kFixedOps) / sizeof(kFixedOps[0]));

const KindDesc& DescOf(const ErrorRecord* r) {
    return kKinds[r->Ops - kFixedOps];
}

// ---------------------------------------------------------------------------------------
// The system record: a header alone, with the system value in the Size position.

void SystemDestroy(ErrorRecord* r) {
    delete[] reinterpret_cast<unsigned char*>(r);
}

ErrorRecord* SystemClone(const ErrorRecord* r) {
    auto* bytes = new (std::nothrow) unsigned char[kHeaderSize];
    if (bytes == nullptr) {
        return nullptr;
    }
    std::memcpy(bytes, r, kHeaderSize);
    auto* copy = reinterpret_cast<ErrorRecord*>(bytes);
    new (&copy->RefCount) std::atomic<std::uint32_t>(1);
    copy->Cause = nullptr;
    return copy;
}

void SystemGetText(const ErrorRecord* r, std::u16string& text) {
    text = SystemMessageText(r->Size);
}

std::uint64_t SystemGetNumber(const ErrorRecord* r, const char* name) {
    return std::strcmp(name, "code") == 0 ? r->Size : 0;
}

const char* SystemGetAnsi(const ErrorRecord*, const char* name) {
    return std::strcmp(name, "$module") == 0 ? kModuleIdentifier : nullptr;
}

const char16_t* SystemGetWide(const ErrorRecord*, const char*) {
    return nullptr;
}

const char* SystemGetNames(const ErrorRecord*) {
    return "code,$module";
}

const RecordOps kSystemOps = {SystemDestroy,   SystemClone,   SystemGetText, SystemGetNumber,
                              SystemGetAnsi,   SystemGetWide, SystemGetNames};

// ---------------------------------------------------------------------------------------
// The generic record, made by deserialization. Behind the header: the parameter count,
// a table of 32-bit offsets (the names string, then one per parameter), the UTF-16 text,
// the names, and per parameter its type byte and value ('W' values start two bytes after
// their type byte, so that they are aligned).

struct GenericHead {
    std::uint32_t Count;
    std::uint32_t Offsets[1];  // 1 + Count entries
};

const GenericHead* Generic(const ErrorRecord* r) {
    return reinterpret_cast<const GenericHead*>(reinterpret_cast<const unsigned char*>(r) +
                                                kHeaderSize);
}

std::size_t GenericTextOffset(std::uint32_t count) {
    return AlignUp(kHeaderSize + 4 + 4 * (1 + static_cast<std::size_t>(count)), 2);
}

const char* GenericNames(const ErrorRecord* r) {
    return reinterpret_cast<const char*>(r) + Generic(r)->Offsets[0];
}

// The position of `name` in the comma-separated list, or -1.
int GenericIndex(const ErrorRecord* r, const char* name) {
    const char* list = GenericNames(r);
    const std::size_t len = std::strlen(name);
    int index = 0;
    for (const char* p = list;; ++index) {
        const char* end = std::strchr(p, ',');
        const std::size_t n = end != nullptr ? static_cast<std::size_t>(end - p) : std::strlen(p);
        if (n == len && std::memcmp(p, name, len) == 0) {
            return index < static_cast<int>(Generic(r)->Count) ? index : -1;
        }
        if (end == nullptr) {
            return -1;
        }
        p = end + 1;
    }
}

const unsigned char* GenericValueAt(const ErrorRecord* r, const char* name, char type) {
    const int i = GenericIndex(r, name);
    if (i < 0) {
        return nullptr;
    }
    const auto* p = reinterpret_cast<const unsigned char*>(r) + Generic(r)->Offsets[1 + i];
    return static_cast<char>(*p) == type ? p : nullptr;
}

void GenericGetText(const ErrorRecord* r, std::u16string& text) {
    text = reinterpret_cast<const char16_t*>(reinterpret_cast<const unsigned char*>(r) +
                                             GenericTextOffset(Generic(r)->Count));
}

std::uint64_t GenericGetNumber(const ErrorRecord* r, const char* name) {
    const unsigned char* p = GenericValueAt(r, name, 'N');
    if (p == nullptr) {
        return 0;
    }
    std::uint64_t v;
    std::memcpy(&v, p + 1, sizeof v);
    return v;
}

const char* GenericGetAnsi(const ErrorRecord* r, const char* name) {
    const unsigned char* p = GenericValueAt(r, name, 'A');
    return p != nullptr ? reinterpret_cast<const char*>(p + 1) : nullptr;
}

const char16_t* GenericGetWide(const ErrorRecord* r, const char* name) {
    const unsigned char* p = GenericValueAt(r, name, 'W');
    return p != nullptr ? reinterpret_cast<const char16_t*>(p + 2) : nullptr;
}

const RecordOps kGenericOps = {FixedDestroy,     FixedClone,     GenericGetText,
                               GenericGetNumber, GenericGetAnsi, GenericGetWide,
                               GenericNames};

// ---------------------------------------------------------------------------------------

// The static out-of-memory record: a plain record whose count starts at 1, so that it is
// never freed.
struct OutOfMemoryStorage {
    ErrorRecord Record;
};
OutOfMemoryStorage g_outOfMemory = {
    {{1}, Error::kOutOfMemoryCode, nullptr, &kFixedOps[0], 0, nullptr, nullptr, 0,
     static_cast<std::uint32_t>(kHeaderSize)}};

void InitHeader(ErrorRecord* r, const RecordOps* ops, std::uint32_t code,
                const ErrorOrigin& origin, std::uint32_t size) {
    new (&r->RefCount) std::atomic<std::uint32_t>(1);
    r->Code = code;
    r->Cause = nullptr;
    r->Ops = ops;
    r->LineTag = origin.LineTag;
    r->File = origin.File;
    r->Func = origin.Func;
    r->Line = origin.Line;
    r->Size = size;
}

}  // namespace

const char16_t* StoredWideText(const ErrorRecord* r) noexcept {
    if (r->Ops == &kGenericOps) {
        return reinterpret_cast<const char16_t*>(reinterpret_cast<const unsigned char*>(r) +
                                                 GenericTextOffset(Generic(r)->Count));
    }
    if (r->Ops >= std::begin(kFixedOps) && r->Ops < std::end(kFixedOps)) {
        const KindDesc& kind = DescOf(r);
        if (kind.Text == TextForm::None) {
            return u"";
        }
        if (kind.Text == TextForm::Wide) {
            const void* s = SlotString(r, 0);
            return s != nullptr ? static_cast<const char16_t*>(s) : u"";
        }
    }
    return nullptr;
}

ErrorRecord* OutOfMemoryRecord() noexcept {
    return AddRef(&g_outOfMemory.Record);
}

void Release(ErrorRecord* record) noexcept {
    while (record != nullptr) {
        if (record->RefCount.fetch_sub(1, std::memory_order_seq_cst) != 1) {
            return;
        }
        ErrorRecord* cause = record->Cause;
        record->Ops->Destroy(record);
        record = cause;
    }
}

ErrorRecord* MakeFixedRecord(Kind kind, std::uint32_t code, const ErrorOrigin& origin,
                             const FieldValue* fields) noexcept {
    const auto index = static_cast<std::size_t>(kind);
    const KindDesc& desc = kKinds[index];
    const std::size_t slotCount = (desc.Text != TextForm::None ? 1 : 0) + desc.ParamCount;

    // A string inside the loaded message table is kept by pointer, since the table outlives
    // every record; any other string is copied behind the slots, wide ones first.
    const MessageTableBlock table = Detail::PeekLoadedMessageTable();
    const auto tableBegin = reinterpret_cast<std::uintptr_t>(table.Data);
    const auto inTable = [&](const void* p) {
        const auto address = reinterpret_cast<std::uintptr_t>(p);
        return tableBegin != 0 && address >= tableBegin && address < tableBegin + table.Size;
    };
    const auto copiedSize = [](const FieldValue& f) -> std::size_t {
        if (f.Type == 'W' && f.Wide != nullptr) {
            return 2 * (WideLength(f.Wide) + 1);
        }
        if (f.Type == 'A' && f.Ansi != nullptr) {
            return std::strlen(f.Ansi) + 1;
        }
        return 0;
    };

    bool byPointer[4] = {};
    std::size_t size = kHeaderSize + 8 * slotCount;
    for (std::size_t i = 0; i < slotCount; ++i) {
        const FieldValue& f = fields[i];
        const void* s = f.Type == 'W' ? static_cast<const void*>(f.Wide)
                                      : static_cast<const void*>(f.Ansi);
        byPointer[i] = f.Type != 'N' && s != nullptr && inTable(s);
        if (!byPointer[i]) {
            size += copiedSize(f);
        }
    }
    // A slot value below Size reads as an offset. Should the table itself lie below that,
    // pointers into it could not be told from offsets: then every string is copied.
    if (tableBegin != 0 && tableBegin < size) {
        for (std::size_t i = 0; i < slotCount; ++i) {
            if (byPointer[i]) {
                byPointer[i] = false;
                size += copiedSize(fields[i]);
            }
        }
    }
    if (size > 0xffffffffu) {
        return OutOfMemoryRecord();
    }

    auto* bytes = new (std::nothrow) unsigned char[size];
    if (bytes == nullptr) {
        return OutOfMemoryRecord();
    }
    auto* r = reinterpret_cast<ErrorRecord*>(bytes);
    InitHeader(r, &kFixedOps[index], code, origin, static_cast<std::uint32_t>(size));
    std::uint64_t* slots = Slots(r);
    std::size_t pos = kHeaderSize + 8 * slotCount;
    const auto place = [&](std::size_t i, const void* s, std::size_t n) {
        if (byPointer[i]) {
            slots[i] = reinterpret_cast<std::uintptr_t>(s);
        } else {
            std::memcpy(bytes + pos, s, n);
            slots[i] = pos;
            pos += n;
        }
    };
    for (std::size_t i = 0; i < slotCount; ++i) {
        const FieldValue& f = fields[i];
        slots[i] = f.Type == 'N' ? f.Number : 0;
        if (f.Type == 'W' && f.Wide != nullptr) {
            place(i, f.Wide, copiedSize(f));
        }
    }
    for (std::size_t i = 0; i < slotCount; ++i) {
        const FieldValue& f = fields[i];
        if (f.Type == 'A' && f.Ansi != nullptr) {
            place(i, f.Ansi, copiedSize(f));
        }
    }
    return r;
}

ErrorRecord* MakeSystemRecord(std::uint32_t value, const ErrorOrigin& origin) noexcept {
    auto* bytes = new (std::nothrow) unsigned char[kHeaderSize];
    if (bytes == nullptr) {
        return OutOfMemoryRecord();
    }
    auto* r = reinterpret_cast<ErrorRecord*>(bytes);
    InitHeader(r, &kSystemOps, Error::kSystemCode, origin, value);
    return r;
}

ErrorRecord* MakeGenericRecord(std::uint32_t code, std::uint64_t lineTag, const char* file,
                               const char* func, std::uint32_t line, const std::u16string& text,
                               const std::string& names, const GenericValue* values,
                               std::size_t count) noexcept {
    std::size_t size = GenericTextOffset(static_cast<std::uint32_t>(count));
    size += 2 * (text.size() + 1);
    const std::size_t namesOffset = size;
    size += names.size() + 1;
    for (std::size_t i = 0; i < count; ++i) {
        size = AlignUp(size, 2);
        switch (values[i].Type) {
            case 'N':
                size += 1 + 8;
                break;
            case 'A':
                size += 1 + values[i].Ansi.size() + 1;
                break;
            default:
                size += 2 + 2 * (values[i].Wide.size() + 1);
                break;
        }
    }
    if (size > 0xffffffffu) {
        return nullptr;
    }
    auto* bytes = new (std::nothrow) unsigned char[size];
    if (bytes == nullptr) {
        return nullptr;
    }
    std::memset(bytes, 0, size);
    auto* r = reinterpret_cast<ErrorRecord*>(bytes);
    InitHeader(r, &kGenericOps, code, ErrorOrigin{lineTag, file, func, line},
               static_cast<std::uint32_t>(size));
    auto* head = reinterpret_cast<GenericHead*>(bytes + kHeaderSize);
    head->Count = static_cast<std::uint32_t>(count);
    std::size_t pos = GenericTextOffset(head->Count);
    std::memcpy(bytes + pos, text.c_str(), 2 * (text.size() + 1));
    head->Offsets[0] = static_cast<std::uint32_t>(namesOffset);
    std::memcpy(bytes + namesOffset, names.c_str(), names.size() + 1);
    pos = namesOffset + names.size() + 1;
    for (std::size_t i = 0; i < count; ++i) {
        pos = AlignUp(pos, 2);
        head->Offsets[1 + i] = static_cast<std::uint32_t>(pos);
        bytes[pos] = static_cast<unsigned char>(values[i].Type);
        switch (values[i].Type) {
            case 'N':
                std::memcpy(bytes + pos + 1, &values[i].Number, 8);
                pos += 1 + 8;
                break;
            case 'A':
                std::memcpy(bytes + pos + 1, values[i].Ansi.c_str(), values[i].Ansi.size() + 1);
                pos += 1 + values[i].Ansi.size() + 1;
                break;
            default:
                std::memcpy(bytes + pos + 2, values[i].Wide.c_str(),
                            2 * (values[i].Wide.size() + 1));
                pos += 2 + 2 * (values[i].Wide.size() + 1);
                break;
        }
    }
    return r;
}

const char* InternOriginString(const char* text) noexcept {
    // Interned strings live for the whole process, so that records may hold them by
    // pointer; the set is never destroyed. Errors arrive from peers, so the set is bounded:
    // past the limit a new string is not kept, as if its copy had failed, and the record
    // goes without that origin field rather than letting a stream of distinct names grow
    // the process without end.
    constexpr std::size_t kMaxStrings = 16384;
    constexpr std::size_t kMaxBytes = 4u << 20;
    static std::mutex* lock = new std::mutex;
    static std::set<std::string, std::less<>>* strings = new std::set<std::string, std::less<>>;
    static std::size_t bytes = 0;
    std::lock_guard<std::mutex> guard(*lock);
    try {
        auto it = strings->find(std::string_view(text));
        if (it == strings->end()) {
            const std::size_t length = std::strlen(text) + 1;
            if (strings->size() >= kMaxStrings || bytes + length > kMaxBytes) {
                return nullptr;
            }
            it = strings->emplace(text).first;
            bytes += length;
        }
        return it->c_str();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace Common
