#pragma once

// Error construction shared by the POR sources.

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include <tessel_link/common/error.h>
#include <tessel_link/common/error_origin.h>
#include <tessel_link/export.h>
#include <tessel_link/por/unit_name.h>

namespace Por::Detail {

// Message table rows of the texts raised here.
inline constexpr std::uint32_t kRowAssignProperties = 354;
inline constexpr std::uint32_t kRowAssignTraits = 355;
inline constexpr std::uint32_t kRowAssignTypes = 356;
inline constexpr std::uint32_t kRowElementNotFound = 367;
inline constexpr std::uint32_t kRowRangeCheck = 369;
inline constexpr std::uint32_t kRowInternalError = 370;
inline constexpr std::uint32_t kRowUninitializedObject = 377;
inline constexpr std::uint32_t kRowNullUnits = 379;
inline constexpr std::uint32_t kRowOutOfRange = 380;
inline constexpr std::uint32_t kRowPropertyNotFound = 381;
inline constexpr std::uint32_t kRowPropertyProcessing = 382;
inline constexpr std::uint32_t kRowSerializingOptional = 383;
inline constexpr std::uint32_t kRowSerializingPointer = 384;
inline constexpr std::uint32_t kRowSerializingNoValue = 385;
inline constexpr std::uint32_t kRowPatternNotRegistered = 386;
inline constexpr std::uint32_t kRowCorruptedBlob = 394;
inline constexpr std::uint32_t kRowStructureMismatch = 401;
inline constexpr std::uint32_t kRowPropertyTypeMismatch = 402;
inline constexpr std::uint32_t kRowTypeMismatch = 403;

// An error with the text of a row and no parameters.
Common::Error MakeRowError(const Common::ErrorOrigin& origin, std::uint32_t code,
                           std::uint32_t row);

// An error with the text of a row whose placeholders {0}, {1}, ... are filled by the host from
// the record's parameters "0", "1", ... (wide strings, in that order).
Common::Error MakeRowErrorWithArguments(const Common::ErrorOrigin& origin, std::uint32_t code,
                                        std::uint32_t row,
                                        std::initializer_list<std::u16string_view> arguments);

// Raises "POR: Out of range." for a unit that lies deeper than kMaxTreeDepth below the unit a
// recursive operation started on.
[[noreturn]] void ThrowTooDeep(const char* function);

inline void CheckDepth(unsigned depth, const char* function);

}  // namespace Por::Detail

namespace Por::Util::Detail {

// The same as MakeTypeMismatchError for a named property: parameters "0" (the name), "1" and
// "2" (the type names).
TL_API Common::Error MakePropertyTypeMismatchError(const UnitName& property, unsigned expectedType,
                                                   unsigned actualType);

// Raises "POR: Out of range." when index >= bound.
TL_API void CheckOutOfRange(std::uint64_t index, std::uint64_t bound);

// Raises "POR: Null units are forbidden." when the pointer is null.
TL_API void CheckNotNull(const void* unit, const char* function);

}  // namespace Por::Util::Detail

#include <tessel_link/por/compare.h>

namespace Por::Detail {
inline void CheckDepth(unsigned depth, const char* function) {
    if (depth > Util::kMaxTreeDepth) {
        ThrowTooDeep(function);
    }
}
}  // namespace Por::Detail
