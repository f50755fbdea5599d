#include "serialize/base64.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Serialization::Base64::Decode;

std::string Encoded(const std::string& bytes) {
    std::string out = "x";
    Serialization::Base64::Append(out, reinterpret_cast<const unsigned char*>(bytes.data()),
                                  bytes.size());
    return out.substr(1);
}

// Decodes as text, or "FAIL".
std::string Base64Decoded(const std::u16string& text) {
    std::vector<unsigned char> out;
    if (!Decode(text, out)) {
        return "FAIL";
    }
    return std::string(out.begin(), out.end());
}

TEST(Base64, EncodesEveryTailLength) {
    EXPECT_EQ(Encoded(""), "");
    EXPECT_EQ(Encoded("f"), "Zg==");
    EXPECT_EQ(Encoded("fo"), "Zm8=");
    EXPECT_EQ(Encoded("foo"), "Zm9v");
    EXPECT_EQ(Encoded("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Encoded(std::string("\xff\xfe\x00", 3)), "//4A");
}

TEST(Base64, DecodesWithPaddingAndWhiteSpace) {
    EXPECT_EQ(Base64Decoded(u""), "");
    EXPECT_EQ(Base64Decoded(u" \t\r\n"), "");
    EXPECT_EQ(Base64Decoded(u"Zg=="), "f");
    EXPECT_EQ(Base64Decoded(u"Zm8="), "fo");
    EXPECT_EQ(Base64Decoded(u"Zm9vYmFy"), "foobar");
    EXPECT_EQ(Base64Decoded(u" Zm9v\r\nYm\tFy \n"), "foobar");
    EXPECT_EQ(Base64Decoded(u"Zg= =\n"), "f");
    EXPECT_EQ(Base64Decoded(u"Zm9vYg==  "), "foob");
}

TEST(Base64, RejectsWhatIsNotStrictBase64) {
    EXPECT_EQ(Base64Decoded(u"Zg"), "FAIL");     // padding required
    EXPECT_EQ(Base64Decoded(u"Zm9vY"), "FAIL");  // dangling group
    EXPECT_EQ(Base64Decoded(u"Zg="), "FAIL");    // two pending values need two "="
    EXPECT_EQ(Base64Decoded(u"Zg=x"), "FAIL");
    EXPECT_EQ(Base64Decoded(u"Z==="), "FAIL");  // one pending value
    EXPECT_EQ(Base64Decoded(u"===="), "FAIL");
    EXPECT_EQ(Base64Decoded(u"Zm8=Zm8="), "FAIL");  // data behind the padding
    EXPECT_EQ(Base64Decoded(u"Zm9v*"), "FAIL");
    EXPECT_EQ(Base64Decoded(u"Zm9v-_"), "FAIL");     // the URL alphabet is not this one
    EXPECT_EQ(Base64Decoded(u"Zm9\u0176"), "FAIL");  // a unit above 127 is not its low byte
    std::vector<unsigned char> out;
    EXPECT_FALSE(Decode(std::string("Zm9\xf6"), out));
    EXPECT_FALSE(Decode(std::string("Zm\0v", 4), out));
}

TEST(Base64, RoundTripsAllByteValues) {
    std::string bytes;
    for (int i = 0; i < 256 * 3 + 2; ++i) {
        bytes += static_cast<char>(i * 7);
        const std::string text = Encoded(bytes);
        std::vector<unsigned char> out;
        ASSERT_TRUE(Decode(text, out));
        ASSERT_EQ(std::string(out.begin(), out.end()), bytes);
    }
}

}  // namespace
