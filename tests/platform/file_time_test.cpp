#include <cstdint>

#include <gtest/gtest.h>

#include "platform/file_time.h"

namespace Platform {
namespace {

TEST(FileTime, RoundTripsAcrossTheUnixEpoch) {
    struct Case {
        std::int64_t seconds;
        std::uint32_t nanoseconds;
    };
    // After 1970, the epoch itself, just before it, and long before it (1700).
    for (const Case c : {Case{1700000000, 123456700}, Case{0, 100}, Case{-1, 999999900},
                         Case{-8520336000, 500}}) {
        const std::uint64_t fileTime = FileTimeFromUnix(c.seconds, c.nanoseconds);
        const timespec back = UnixTimeFromFileTime(fileTime);
        EXPECT_EQ(back.tv_sec, c.seconds);
        EXPECT_EQ(back.tv_nsec, long(c.nanoseconds));
    }
    EXPECT_EQ(FileTimeFromUnix(0, 0), kUnixEpochInFileTime);
}

TEST(FileTime, ValuesOutsideTheRangeAreHeldAtItsEnds) {
    // Times as a damaged backup may carry them: any 64-bit value converts without overflow.
    EXPECT_EQ(UnixTimeFromFileTime(0).tv_sec, -std::int64_t(kUnixEpochInFileTime / 10000000));
    const timespec last = UnixTimeFromFileTime(UINT64_MAX);
    EXPECT_EQ(std::uint64_t(last.tv_sec), (UINT64_MAX - kUnixEpochInFileTime) / 10000000);
    EXPECT_GE(last.tv_nsec, 0);
    EXPECT_LT(last.tv_nsec, 1000000000);
    EXPECT_EQ(UnixTimeFromFileTime(0x8000000000000000ull).tv_nsec % 100, 0);

    EXPECT_EQ(FileTimeFromUnix(INT64_MIN, 0), 0u);
    EXPECT_EQ(FileTimeFromUnix(INT64_MAX, 999999999), UINT64_MAX);
}

}  // namespace
}  // namespace Platform
