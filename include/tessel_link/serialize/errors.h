#pragma once

// The error codes of packet reading and writing.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/common/error_origin.h>
#include <tessel_link/export.h>

namespace Serialization {

// Codes of the serializer module (0x009c). All are thrown as Common::Error, except the
// invalid enumeration value, which is only logged.
inline constexpr std::uint32_t kErrorInconsistentMetadata =
    0x9c0002;                                                  // element missing or mismatched
inline constexpr std::uint32_t kErrorNoMetaInfo = 0x9c0003;    // no open element to read in
inline constexpr std::uint32_t kErrorNoData = 0x9c0004;        // no document, or undecodable binary
inline constexpr std::uint32_t kErrorCreateObject = 0x9c0005;  // a factory returned nothing
inline constexpr std::uint32_t kErrorNoFactory = 0x9c0006;  // a polymorphic object without class ID
inline constexpr std::uint32_t kErrorInvalidEnumValue =
    0x9c0008;  // an enumeration value without a name

// The error of `code` with its standard text ("Invalid enum value: " for the enumeration
// code, to which the caller appends the value). Any other code gets no text.
TL_API Common::Error SerializerError(const Common::ErrorOrigin& origin, std::uint32_t code);

}  // namespace Serialization
