#pragma once

#include <cstddef>

#include <tessel_link/export.h>

namespace Common {

// Fills `buffer` from the kernel's random source. If that fails, an assertion is raised;
// a strict caller then gets false, any other caller gets bytes from rand() and true.
TL_API bool GetRandomBytes(void* buffer, std::size_t count, bool strict);

}  // namespace Common
