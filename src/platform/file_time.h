// File times of the system (100 ns units since 1601-01-01) and Linux times (seconds and
// nanoseconds since 1970-01-01), in both directions. A time that arrives from a backup or
// a caller may be any 64-bit value, so neither direction may overflow.
#pragma once

#include <cstdint>
#include <ctime>

namespace Platform {

// 100 ns units from 1601-01-01 to 1970-01-01.
inline constexpr std::uint64_t kUnixEpochInFileTime = 116444736000000000ull;

// 0 for a time before 1601 (the system's "no time"); the largest value past the year 30828.
inline std::uint64_t FileTimeFromUnix(std::int64_t seconds, std::uint32_t nanoseconds) {
    constexpr std::int64_t kEpochSeconds = std::int64_t(kUnixEpochInFileTime / 10000000);
    constexpr std::int64_t kLastSeconds = std::int64_t(UINT64_MAX / 10000000) - kEpochSeconds - 1;
    if (seconds < -kEpochSeconds) {
        return 0;
    }
    if (seconds > kLastSeconds) {
        return UINT64_MAX;
    }
    return static_cast<std::uint64_t>(seconds + kEpochSeconds) * 10000000 + nanoseconds / 100;
}

inline timespec UnixTimeFromFileTime(std::uint64_t fileTime) {
    if (fileTime >= kUnixEpochInFileTime) {
        const std::uint64_t units = fileTime - kUnixEpochInFileTime;
        return timespec{static_cast<time_t>(units / 10000000),
                        static_cast<long>(units % 10000000 * 100)};
    }
    const std::uint64_t before = kUnixEpochInFileTime - fileTime;
    std::int64_t seconds = -std::int64_t(before / 10000000);
    std::int64_t rest = -std::int64_t(before % 10000000);
    if (rest < 0) {
        rest += 10000000;
        --seconds;
    }
    return timespec{static_cast<time_t>(seconds), static_cast<long>(rest * 100)};
}

}  // namespace Platform
