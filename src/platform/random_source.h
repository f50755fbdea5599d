#pragma once

#include <cstddef>

namespace Platform {

// Fills `buffer` from the kernel's random source; false when that fails.
using RandomSource = bool (*)(void* buffer, std::size_t count);
bool KernelRandom(void* buffer, std::size_t count);

// The source that GetRandomBytes uses: KernelRandom unless a test put another in place
// (null restores it). Returns the previous one.
RandomSource GetRandomSource();
RandomSource SetRandomSource(RandomSource source);

}  // namespace Platform
