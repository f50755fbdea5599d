#pragma once

// The record kinds with fixed parameters, and the builders of records.

#include <cstdint>

#include <tessel_link/common/error_origin.h>

#include "common/error_record.h"

namespace Common {

// In the order of the kinds table in error_records.cpp.
enum class Kind : std::uint8_t {
    Plain,
    NarrowText,
    WideText,
    Trace,
    Function,
    Path,
    FunctionAndPath,
    PathAndName,
    PathAndHints,
    DelayLoadPath,
    DelayLoadSymbol,
    DelayLoadOrdinal,
    Errno,
};

enum class TextForm : std::uint8_t { None, Narrow, Wide };

struct ParamDesc {
    const char* Name;
    char Type;  // 'N', 'A' or 'W'
};

struct KindDesc {
    const char* Names;  // the GetNames list
    TextForm Text;
    int ParamCount;
    ParamDesc Params[2];
};

// One field of a new record: the text (when the kind has one), then each parameter.
struct FieldValue {
    char Type;  // 'N', 'A' or 'W'
    std::uint64_t Number = 0;
    const char* Ansi = nullptr;
    const char16_t* Wide = nullptr;
};

inline FieldValue NumberField(std::uint64_t v) {
    return {'N', v, nullptr, nullptr};
}
inline FieldValue AnsiField(const char* s) {
    return {'A', 0, s, nullptr};
}
inline FieldValue WideField(const char16_t* s) {
    return {'W', 0, nullptr, s};
}

// Never null: the out-of-memory record stands in when allocation fails.
ErrorRecord* MakeFixedRecord(Kind kind, std::uint32_t code, const ErrorOrigin& origin,
                             const FieldValue* fields) noexcept;
ErrorRecord* MakeSystemRecord(std::uint32_t value, const ErrorOrigin& origin) noexcept;

}  // namespace Common
