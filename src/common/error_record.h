#pragma once

// The record layout behind Common::Error. Internal to the library: hosts see records only
// through Common::Error.

#include <atomic>
#include <cstdint>
#include <string>

#include <tessel_link/common/error.h>

namespace Common {

struct ErrorRecord;

// Behaviour of one kind of record.
struct RecordOps {
    void (*Destroy)(ErrorRecord* record);
    // A byte copy with RefCount 1 and no cause, or null when memory runs out.
    ErrorRecord* (*Clone)(const ErrorRecord* record);
    void (*GetText)(const ErrorRecord* record, std::u16string& text);
    std::uint64_t (*GetNumber)(const ErrorRecord* record, const char* name);
    const char* (*GetAnsi)(const ErrorRecord* record, const char* name);
    const char16_t* (*GetWide)(const ErrorRecord* record, const char* name);
    const char* (*GetNames)(const ErrorRecord* record);
};

// The fixed fields of every record. Kind-specific fields follow in the same allocation.
struct ErrorRecord {
    std::atomic<std::uint32_t> RefCount;
    std::uint32_t Code;
    ErrorRecord* Cause;
    const RecordOps* Ops;
    std::uint64_t LineTag;
    const char* File;
    const char* Func;
    std::uint32_t Line;
    // Byte size of the record with its embedded strings; the system value in a system record.
    std::uint32_t Size;
};

namespace Detail {

// The records behind an error, for the library's own code.
struct ErrorAccess {
    static const ErrorRecord* Head(const Error& error) noexcept { return error.head_; }
    // Takes over one reference to `record` (which may be null).
    static Error Adopt(ErrorRecord* record) noexcept {
        Error e;
        e.head_ = record;
        return e;
    }
};

}  // namespace Detail

// Takes over one reference to `record` (which may be null).
inline Error Adopt(ErrorRecord* record) noexcept {
    return Detail::ErrorAccess::Adopt(record);
}

// Takes one more reference.
inline ErrorRecord* AddRef(ErrorRecord* record) noexcept {
    if (record != nullptr) {
        record->RefCount.fetch_add(1, std::memory_order_seq_cst);
    }
    return record;
}

// Drops one reference and walks down the chain while records die; no recursion.
void Release(ErrorRecord* record) noexcept;

// The static out-of-memory record, with one more reference taken for the caller.
ErrorRecord* OutOfMemoryRecord() noexcept;

// Builds a generic record, the kind that deserialization yields. `names` is the
// comma-separated list; `values` holds, per name, a type byte ('N', 'A' or 'W') followed
// by the value (8 bytes little-endian, a zero-terminated narrow string, or a
// zero-terminated UTF-16 string in native order).
struct GenericValue {
    char Type;
    std::uint64_t Number;
    std::string Ansi;
    std::u16string Wide;
};
ErrorRecord* MakeGenericRecord(std::uint32_t code, std::uint64_t lineTag, const char* file,
                               const char* func, std::uint32_t line, const std::u16string& text,
                               const std::string& names, const GenericValue* values,
                               std::size_t count) noexcept;

// The text that the platform gives for a system value (see system_messages.cpp), already
// cleaned: carriage returns removed, one trailing line feed removed, and a final full stop
// removed when no line feed remains.
std::u16string SystemMessageText(std::uint32_t value);

// The record's text when the record stores it as a wide string (the text kinds and the
// generic record), so that it can be read without a copy; null for the other kinds, whose
// text comes from GetText.
const char16_t* StoredWideText(const ErrorRecord* record) noexcept;

// Interns an origin string for the life of the process; null when memory runs out or the
// bounded set is full.
const char* InternOriginString(const char* text) noexcept;

}  // namespace Common
