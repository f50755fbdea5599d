#include <tessel_link/common/unicode.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using Common::Utf16ToUtf8;
using Common::Utf8ToUtf16;
using Common::Utf8ToUtf16Lenient;

// Text whose multi-byte sequences fall at every offset against the eight-byte words that the
// conversion takes ASCII in.
std::string MixedText(std::mt19937& random, std::size_t pieces) {
    static const char* const kPieces[] = {"a", "bc", "defghij", "klmnopqrstuvwxyz", "\xC3\xA9",
                                          "\xE2\x82\xAC", "\xF0\x9F\x98\x80", " ", "0123456"};
    std::string text;
    for (std::size_t i = 0; i < pieces; ++i) {
        text += kPieces[random() % std::size(kPieces)];
    }
    return text;
}

TEST(Unicode, WellFormedTextSurvivesBothWaysAtEveryAlignment) {
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = MixedText(random, random() % 24);
        const std::u16string wide = Utf8ToUtf16Lenient(text);
        std::u16string strict;
        ASSERT_TRUE(Utf8ToUtf16(text, strict)) << text;
        EXPECT_EQ(strict, wide);
        EXPECT_EQ(Utf16ToUtf8(wide), text);
    }
    EXPECT_EQ(Utf8ToUtf16Lenient("x\xF0\x9F\x98\x80"), std::u16string(u"x\xD83D\xDE00"));
    EXPECT_EQ(Utf8ToUtf16Lenient(""), u"");
}

TEST(Unicode, MalformedBytesBecomeReplacementsOneByOneOrFailTheStrictForm) {
    struct Case {
        const char* bytes;
        std::u16string lenient;
    };
    const Case cases[] = {
        {"abcdefgh\xC3", u"abcdefgh\xFFFD"},           // cut short at the very end
        {"\xE2\x82z", u"\xFFFD\xFFFD" u"z"},           // cut short by an ASCII byte
        {"\xC0\xAF", u"\xFFFD\xFFFD"},                 // overlong
        {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},       // a surrogate
        {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // above U+10FFFF
        {"12345678\x80" "12345678", u"12345678\xFFFD" u"12345678"},  // a stray continuation
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Utf8ToUtf16Lenient(c.bytes), c.lenient) << c.bytes;
        std::u16string strict = u"left over";
        EXPECT_FALSE(Utf8ToUtf16(c.bytes, strict)) << c.bytes;
        EXPECT_TRUE(strict.empty());
    }
}

TEST(Unicode, LoneSurrogatesBecomeReplacementsInUtf8) {
    EXPECT_EQ(Utf16ToUtf8(u"a\xD800" u"b"), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(Utf16ToUtf8(u"\xDC00"), "\xEF\xBF\xBD");
    EXPECT_EQ(Utf16ToUtf8(u"\xD83D"), "\xEF\xBF\xBD");  // a high surrogate at the very end
    EXPECT_EQ(Utf16ToUtf8(std::u16string(3, u'\x20AC')), "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC");
}

}  // namespace
