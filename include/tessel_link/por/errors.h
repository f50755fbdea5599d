#pragma once

// The error codes of the unit trees and the errors they raise.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/por/unit_name.h>

namespace Por {

// Error codes of the module (0x00fa in the high half).
inline constexpr std::uint32_t kErrorTypeMismatch = 0xfa000a;
inline constexpr std::uint32_t kErrorNullUnit = 0xfa000b;
inline constexpr std::uint32_t kErrorOutOfRange = 0xfa000f;
inline constexpr std::uint32_t kErrorAssignProperties = 0xfa0010;
inline constexpr std::uint32_t kErrorAssignTypes = 0xfa0011;
inline constexpr std::uint32_t kErrorAssignTraits = 0xfa0012;
// Plain objects: an uninitialised object, a missing default, a failed property.
inline constexpr std::uint32_t kErrorObject = 0xfa0001;
inline constexpr std::uint32_t kErrorPropertyNotFound = 0xfa000d;
// A pattern that cannot be evaluated.
inline constexpr std::uint32_t kErrorPattern = 0xfa000e;
// A record that cannot be turned into units.
inline constexpr std::uint32_t kErrorSerializing = 0xfa0019;
// An accessor step that found nothing.
inline constexpr std::uint32_t kErrorElementNotFound = 0xfa0020;
// A binary unit form that cannot be read.
inline constexpr std::uint32_t kErrorCorruptedBlob = 0xfa0021;

}  // namespace Por

namespace Por::Util::Detail {

// "POR: There is a mismatch in object internal structure. Expected object type is '{0}',
// actual object type is '{1}'." with both type names as the record's parameters "0" and "1".
// Logs the stack first.
TL_API Common::Error MakeTypeMismatchError(unsigned expectedType, unsigned actualType);

// The same for a named property: parameters "0" (the name), "1" and "2" (the type names).
TL_API Common::Error MakePropertyTypeMismatchError(const UnitName& property, unsigned expectedType,
                                                   unsigned actualType);

// Raises "POR: Out of range." when index >= bound.
TL_API void CheckOutOfRange(std::uint64_t index, std::uint64_t bound);

// Raises "POR: Null units are forbidden." when the pointer is null.
TL_API void CheckNotNull(const void* unit, const char* function);

}  // namespace Por::Util::Detail
