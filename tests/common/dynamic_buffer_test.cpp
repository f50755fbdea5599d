#include "common/dynamic_buffer.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

using Common::DynamicBuffer;

std::string Contents(const DynamicBuffer& b) {
    return std::string(reinterpret_cast<const char*>(b.Data()), b.Size());
}

TEST(DynamicBuffer, WritesAppendAndNullWritesZeros) {
    DynamicBuffer b;
    EXPECT_TRUE(b.Write("ab", 2));
    EXPECT_TRUE(b.Write(nullptr, 2));
    EXPECT_TRUE(b.Write("c", 1));
    EXPECT_EQ(Contents(b), std::string("ab\0\0c", 5));
}

TEST(DynamicBuffer, GrowsByHalfOrToTheNeededSize) {
    DynamicBuffer b;
    b.Write(nullptr, 10);
    EXPECT_EQ(b.Capacity(), 10u);  // the needed size wins over 1.5 * 0
    b.Write(nullptr, 1);
    EXPECT_EQ(b.Capacity(), 15u);  // one and a half times the capacity
    b.Write(nullptr, 100);
    EXPECT_EQ(b.Capacity(), 111u);
    EXPECT_EQ(b.Size(), 111u);
}

TEST(DynamicBuffer, WriteAtPatchesAndExtends) {
    DynamicBuffer b;
    b.Write("xxxxyy", 6);
    const std::uint32_t length = 0x01020304;
    EXPECT_TRUE(b.WriteAt(0, &length, 4));
    EXPECT_EQ(b.Size(), 6u);
    EXPECT_EQ(Contents(b), std::string("\x04\x03\x02\x01yy", 6));
    EXPECT_TRUE(b.WriteAt(8, "z", 1));  // the gap is zero-filled
    EXPECT_EQ(Contents(b), std::string("\x04\x03\x02\x01yy\0\0z", 9));
}

TEST(DynamicBuffer, FailureFreesAndSticks) {
    DynamicBuffer b;
    b.Write("abc", 3);
    EXPECT_FALSE(b.WriteAt(std::numeric_limits<std::size_t>::max(), "x", 2));
    EXPECT_TRUE(b.Failed());
    EXPECT_EQ(b.Size(), 0u);
    EXPECT_EQ(b.Data(), nullptr);
    EXPECT_FALSE(b.Write("d", 1));
    EXPECT_EQ(b.Release(), nullptr);
}

TEST(DynamicBuffer, ReleaseHandsTheBytesOver) {
    DynamicBuffer b;
    b.Write("hello", 5);
    unsigned char* bytes = b.Release();
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::memcmp(bytes, "hello", 5), 0);
    EXPECT_EQ(b.Size(), 0u);
    delete[] bytes;
}

}  // namespace
