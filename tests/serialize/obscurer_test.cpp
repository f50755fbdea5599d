#include <tessel_link/serialize/obscurer.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "serialize/base64.h"
#include "serialize/blowfish.h"

namespace {

using Serialization::Detail::Blowfish;

std::vector<unsigned char> Hex(const std::string& hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// Published known-answer vectors of the block cipher (key, plain text, cipher text).
TEST(BlowfishCipher, KnownAnswers) {
    const struct {
        const char* key;
        std::uint32_t plain[2];
        std::uint32_t cipher[2];
    } vectors[] = {
        {"0000000000000000", {0x00000000, 0x00000000}, {0x4EF99745, 0x6198DD78}},
        {"FFFFFFFFFFFFFFFF", {0xFFFFFFFF, 0xFFFFFFFF}, {0x51866FD5, 0xB85ECB8A}},
        {"3000000000000000", {0x10000000, 0x00000001}, {0x7D856F9A, 0x613063F2}},
        {"0123456789ABCDEF", {0x11111111, 0x11111111}, {0x61F9C380, 0x2281B096}},
        {"FEDCBA9876543210", {0x01234567, 0x89ABCDEF}, {0x0ACEAB0F, 0xC6A0A28D}},
    };
    for (const auto& v : vectors) {
        const std::vector<unsigned char> key = Hex(v.key);
        const Blowfish cipher(key.data(), key.size());
        std::uint32_t l = v.plain[0], r = v.plain[1];
        cipher.EncryptBlock(l, r);
        EXPECT_EQ(l, v.cipher[0]) << v.key;
        EXPECT_EQ(r, v.cipher[1]) << v.key;
        cipher.DecryptBlock(l, r);
        EXPECT_EQ(l, v.plain[0]);
        EXPECT_EQ(r, v.plain[1]);
    }
}

// Reference values of the obscurer's key and vector in CFB-64, computed with an independent
// implementation of the cipher.
TEST(BlowfishObscurer, MatchesReferenceCfb) {
    std::vector<unsigned char> bytes;
    for (unsigned char i = 0; i < 20; ++i) {
        bytes.push_back(i);
    }
    const auto obscurer = Serialization::CreateBlowfishObscurer();
    const std::vector<unsigned char> encrypted = obscurer->ObscureBytes(bytes);
    EXPECT_EQ(encrypted, Hex("f68e5517acdb8866a0c6fe9af7e2c47436bd441c"));
    EXPECT_EQ(obscurer->UnobscureBytes(encrypted), bytes);
    // The same stream for a prefix: every call starts from the vector again.
    EXPECT_EQ(obscurer->ObscureBytes({0, 1, 2}), Hex("f68e55"));
    EXPECT_TRUE(obscurer->ObscureBytes({}).empty());
    EXPECT_TRUE(obscurer->UnobscureBytes({}).empty());

    EXPECT_EQ(obscurer->Obscure(u""), u"w48VFJrey2Gj3RygBhSDy0hAToHZnA==");
    EXPECT_EQ(obscurer->Obscure(u"a"), u"w48VFJrey2Gj3RygBhSDy0hAToHZnFQt");
    EXPECT_EQ(obscurer->Obscure(u"password"),
              u"w48VFJrey2Gj3RygBhSDy0hAToHZnEUtURkcaO29UMJ5d3uciTM=");
    EXPECT_EQ(obscurer->Obscure(u"p\u00e4ss \u20ac\U0001F600"),
              u"w48VFJrey2Gj3RygBhSDy0hAToHZnEUt1BkcaO29B8L7SwX3RjQ=");
}

TEST(BlowfishObscurer, RoundTripsAndLength) {
    const auto obscurer = Serialization::CreateBlowfishObscurer();
    std::u16string text;
    for (std::size_t n = 0; n < 40; ++n) {
        const std::u16string obscured = obscurer->Obscure(text);
        EXPECT_EQ(obscured.size(), ((11 + n) * 2 + 2) / 3 * 4);
        EXPECT_EQ(obscurer->Unobscure(obscured), text);
        EXPECT_EQ(obscurer->Obscure(text), obscured);
        text += static_cast<char16_t>(n % 3 == 0 ? u'x' : n % 3 == 1 ? u'\u0416' : u'\xD800');
    }
}

TEST(BlowfishObscurer, BadInputGivesTheEmptyString) {
    const auto obscurer = Serialization::CreateBlowfishObscurer();
    const std::u16string good = obscurer->Obscure(u"secret");
    ASSERT_EQ(obscurer->Unobscure(good), u"secret");

    EXPECT_EQ(obscurer->Unobscure(u""), u"");
    std::u16string foreign = good;
    foreign[3] = u'*';
    EXPECT_EQ(obscurer->Unobscure(foreign), u"");
    EXPECT_EQ(obscurer->Unobscure(good.substr(0, good.size() - 1)), u"");  // dangling group
    // 24 decoded bytes would do, 23 are odd.
    const std::u16string odd = obscurer->Obscure(u"0123456789ab").substr(0, 31) + u"=";
    EXPECT_EQ(obscurer->Unobscure(odd), u"");
    // Eleven characters are only the salt.
    EXPECT_EQ(obscurer->Unobscure(obscurer->Obscure(u"")), u"");
    EXPECT_EQ(obscurer->Unobscure(u"===="), u"");
}

TEST(BlowfishObscurer, DecodingSeesLowBytesAndSkipsWhiteSpace) {
    const auto obscurer = Serialization::CreateBlowfishObscurer();
    const std::u16string good = obscurer->Obscure(u"secret");
    std::u16string spaced = u" \t" + good.substr(0, 8) + u"\r\n" + good.substr(8) + u"\n";
    EXPECT_EQ(obscurer->Unobscure(spaced), u"secret");
    std::u16string widened = good;
    widened[0] = static_cast<char16_t>(widened[0] + 0x100);
    EXPECT_EQ(obscurer->Unobscure(widened), u"secret");
    // The salt's value is not compared: any eleven characters pass.
    std::vector<unsigned char> plain;
    for (char16_t c : std::u16string(u"ABCDEFGHIJK\u7a7a")) {
        plain.push_back(static_cast<unsigned char>(c));
        plain.push_back(static_cast<unsigned char>(c >> 8));
    }
    const std::vector<unsigned char> cipher = obscurer->ObscureBytes(plain);
    std::string encoded(Serialization::Base64::EncodedSize(cipher.size()), '\0');
    Serialization::Base64::Encode(cipher.data(), cipher.size(), encoded.data());
    EXPECT_EQ(obscurer->Unobscure(std::u16string(encoded.begin(), encoded.end())), u"\u7a7a");
}

// An obscurer that marks what it was given.
class Marking : public Serialization::Obscurer {
public:
    std::u16string Obscure(const std::u16string& text) const override { return u"[" + text + u"]"; }
    std::u16string Unobscure(const std::u16string& text) const override { return text; }
    std::vector<unsigned char> ObscureBytes(const std::vector<unsigned char>&) const override {
        return {1};
    }
    std::vector<unsigned char> UnobscureBytes(const std::vector<unsigned char>&) const override {
        return {};
    }
};

TEST(ObscurerHolder, ThreadObscurerServesItsThreadOnly) {
    Marking marking;
    auto& holder = Serialization::ObscurerHolder::Instance();
    EXPECT_EQ(holder.SetThreadObscurer(&marking), nullptr);
    EXPECT_EQ(Serialization::Obscure(u"x"), u"[x]");
    EXPECT_EQ(Serialization::ObscureBytes({5}), std::vector<unsigned char>{1});
    EXPECT_EQ(Serialization::Unobscure(u"[x]"), u"[x]");

    std::u16string other;
    std::thread([&] { other = Serialization::Obscure(u"x"); }).join();
    EXPECT_EQ(other, Serialization::CreateBlowfishObscurer()->Obscure(u"x"));

    EXPECT_EQ(holder.SetThreadObscurer(nullptr), &marking);
    EXPECT_EQ(Serialization::Unobscure(Serialization::Obscure(u"x")), u"x");
}

}  // namespace
