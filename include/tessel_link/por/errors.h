#pragma once

// The error codes of the unit trees and the errors they raise.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/por/type_mismatch.h>
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
