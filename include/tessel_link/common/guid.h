#pragma once

// GUIDs: the 16-byte identifier of components, archives and machines, with its text form.

#include <compare>
#include <cstdint>
#include <string>

#include <tessel_link/export.h>

namespace Common {

struct LittleEndian {};

// The system's GUID: 16 bytes, Data1 to Data3 stored little-endian.
template <class ByteOrder>
struct GuidTemplate {
    std::uint32_t Data1 = 0;  // first 4 bytes
    std::uint16_t Data2 = 0;  // next 2 bytes
    std::uint16_t Data3 = 0;  // next 2 bytes
    std::uint8_t Data4[8] = {};  // last 8 bytes, in order

    // Fields in order, Data4 byte by byte.
    friend auto operator<=>(const GuidTemplate&, const GuidTemplate&) = default;
    // All 16 bytes equal.
    friend bool operator==(const GuidTemplate&, const GuidTemplate&) = default;

    bool IsNull() const { return *this == GuidTemplate{}; }  // all 16 bytes zero
};

// The GUID as the wire and the system store it.
using Guid = GuidTemplate<LittleEndian>;

// "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X": upper case, no braces.
TL_API std::string ToString(const Guid& guid);
// True when all eleven fields were read; braces are not accepted. A null text asserts.
TL_API bool FromString(const char* text, Guid& guid);
// A new version-4 GUID from random bytes. A non-zero `reserved` asserts and returns false.
TL_API bool Create(Guid& guid, int reserved = 0);

}  // namespace Common
