#pragma once

#include <cstdint>

namespace Platform {

// The Windows error code that names the same reason as a POSIX errno value, or 0 when there
// is none. The file layer translates Windows codes, so this is where the two meet.
std::uint32_t WindowsErrorFromErrno(int errnum) noexcept;

}  // namespace Platform
