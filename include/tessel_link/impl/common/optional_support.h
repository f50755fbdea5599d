#pragma once

// Not API: what Core::Optional calls when a null value is read. Hosts read the error it
// throws.

#include <typeinfo>

#include <tessel_link/export.h>

namespace Core::Detail {
// "Core::Optional<NAME>::Get", made once per type and kept for the process.
TL_API const char* OptionalGetSite(const std::type_info& type, bool isClass, bool isEnum);
// Throws 0x00ac0001 "The optional value is null." with the given function as origin.
[[noreturn]] TL_API void ThrowNullOptional(const char* site);
}  // namespace Core::Detail
