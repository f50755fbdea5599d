#include <tessel_link/serialize/xml_packet_deserializer.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/serialize/errors.h>
#include <tessel_link/impl/serialize/scope_guards.h>

#include "packet_text.h"

namespace {

using packet_test::Packet;
using Serialization::MetaInfo;
using Serialization::ReadScope;
using Serialization::XMLPacketDeserializer;

std::vector<std::string>& Fired() {
    static std::vector<std::string> fired;
    return fired;
}

// Packets are read from the text; assertions that fire are collected.
class PacketReader : public ::testing::Test {
protected:
    void SetUp() override {
        Fired().clear();
        previous_ = Common::SetAssertionObserver(
            [](const char* expression, const char*, int) { Fired().push_back(expression); });
    }
    void TearDown() override { Common::SetAssertionObserver(previous_); }

    XMLPacketDeserializer& Open(const std::string& body, std::uint32_t version = 0) {
        text_ = Packet(body);
        reader_ = std::make_unique<XMLPacketDeserializer>(text_.data(), text_.size(), version);
        return *reader_;
    }

    // The code of the Common::Error that `action` throws, 0 when it throws none.
    template <class Action>
    static std::uint32_t Thrown(Action&& action, std::string* function = nullptr) {
        try {
            action();
        } catch (const Common::Error& error) {
            if (function != nullptr) {
                *function = error.Origin().Func;
            }
            return error.Code();
        }
        return 0;
    }

private:
    Common::AssertionObserver previous_ = nullptr;
    std::string text_;
    std::unique_ptr<XMLPacketDeserializer> reader_;
};

TEST_F(PacketReader, UnreadablePacketFailsOnFirstUse) {
    const std::string broken = "<XML_SERIALIZER><a>";
    XMLPacketDeserializer d(broken.data(), broken.size(), 0);
    ASSERT_EQ(Fired(),
              std::vector<std::string>{"result && \"Cannot read xml document from string.\""});
    EXPECT_EQ(d.Root(), nullptr);
    std::uint32_t value = 7;
    std::string function;
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("a"), value); }, &function), 0x9c0004u);
    EXPECT_EQ(function, "Serialization::XMLPacketDeserializer::Read");
    EXPECT_EQ(Thrown([&] { d.BeginReadMetaInfo(MetaInfo("a")); }), 0x9c0003u);
    EXPECT_EQ(Fired().back(), "!\"XMLPacketDeserializer: No meta.\"");
    EXPECT_EQ(d.NextMetaInfo(), MetaInfo());
    EXPECT_EQ(Thrown([&] { d.GetSubjectVersion(); }), 0x9c0002u);
    EXPECT_EQ(value, 7u);

    XMLPacketDeserializer empty(nullptr, 0, 0);
    EXPECT_EQ(Thrown([&] { empty.Read(MetaInfo("a"), value); }), 0x9c0004u);
}

TEST_F(PacketReader, HostileNestingIsRefusedCleanly) {
    std::string deep;
    for (int i = 0; i < 100000; ++i) {
        deep += "<a>";
    }
    XMLPacketDeserializer d(deep.data(), deep.size(), 0);
    std::uint32_t value = 0;
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("a"), value); }), 0x9c0004u);
}

TEST_F(PacketReader, AnyRootNameIsRead) {
    const std::string text = "<Other><a>5</a></Other>";
    XMLPacketDeserializer d(text.data(), text.size(), 0);
    std::uint32_t a = 0;
    d.Read(MetaInfo("a"), a);
    EXPECT_EQ(a, 5u);
    EXPECT_TRUE(Fired().empty());
}

TEST_F(PacketReader, NumbersReadAsTheLibraryParsesThem) {
    auto& d = Open(
        "<u>12abc</u><u>junk</u><u> +7</u><u>-1</u><u>99999999999999999999</u>"
        "<s>-40000</s><s>-9999999999999999999</s><b>2</b><b></b><b>0x1</b>"
        "<c>300</c><s>9223372036854775808</s><s>-9223372036854775807</s><u>9999999999999999999</u>");
    std::uint64_t u = 1;
    d.Read(MetaInfo("u"), u);
    EXPECT_EQ(u, 12u);
    d.Read(MetaInfo("u"), u);
    EXPECT_EQ(u, 0u);
    std::uint32_t u32 = 0;
    d.Read(MetaInfo("u"), u32);
    EXPECT_EQ(u32, 7u);
    d.Read(MetaInfo("u"), u32);  // negated as unsigned, then cut
    EXPECT_EQ(u32, 0xffffffffu);
    d.Read(MetaInfo("u"), u);  // clamped
    EXPECT_EQ(u, 0xffffffffffffffffu);
    std::int16_t s16 = 0;
    d.Read(MetaInfo("s"), s16);  // cut to 16 bits
    EXPECT_EQ(s16, static_cast<std::int16_t>(-40000));
    std::int64_t s64 = 0;
    d.Read(MetaInfo("s"), s64);
    EXPECT_EQ(s64, INT64_MIN);
    bool flag = false;
    d.Read(MetaInfo("b"), flag);
    EXPECT_TRUE(flag);
    d.Read(MetaInfo("b"), flag);
    EXPECT_FALSE(flag);
    d.Read(MetaInfo("b"), flag);  // "0" and then junk
    EXPECT_FALSE(flag);
    std::uint8_t byte = 0;
    d.Read(MetaInfo("c"), byte);
    EXPECT_EQ(byte, 44u);
    // At the edges of the widths: one above the signed range is clamped, the rest exact.
    d.Read(MetaInfo("s"), s64);
    EXPECT_EQ(s64, INT64_MAX);
    d.Read(MetaInfo("s"), s64);
    EXPECT_EQ(s64, -INT64_MAX);
    d.Read(MetaInfo("u"), u);
    EXPECT_EQ(u, 9999999999999999999u);
}

TEST_F(PacketReader, DoubleKeepsItsValueWithoutANumber) {
    auto& d = Open("<d></d><d>x</d><d>2.5e3z</d><Flag></Flag>");
    double value = 1.25;
    d.Read(MetaInfo("d"), value);
    EXPECT_EQ(value, 1.25);
    d.Read(MetaInfo("d"), value);
    EXPECT_EQ(value, 1.25);
    d.Read(MetaInfo("d"), value);
    EXPECT_EQ(value, 2500.0);
    bool flag = true;
    d.Read(MetaInfo("Flag"), flag);
    EXPECT_FALSE(flag);
}

TEST_F(PacketReader, StringsGuidsAndTheirNarrowing) {
    auto& d = Open(
        "<n>caf\xC3\xA9 \xE2\x82\xAC</n><w>a&#32; b</w><g>0123ABCD-4567-89EF-0011-2233445566FF</g>"
        "<g>not a guid</g><e></e>");
    std::string narrow;
    d.Read(MetaInfo("n"), narrow);
    EXPECT_EQ(narrow, "caf\xE9 \xAC");  // the euro sign keeps only its low byte
    std::u16string wide;
    d.Read(MetaInfo("w"), wide);
    EXPECT_EQ(wide, u"a  b");
    Common::Guid guid;
    d.Read(MetaInfo("g"), guid);
    EXPECT_EQ(Common::ToString(guid), "0123ABCD-4567-89EF-0011-2233445566FF");
    d.Read(MetaInfo("g"), guid);
    EXPECT_EQ(Common::ToString(guid), "0123ABCD-4567-89EF-0011-2233445566FF");
    Common::Error error(TL_ORIGIN("Test"), 5);
    d.Read(MetaInfo("e"), error);
    EXPECT_TRUE(error.Empty());
}

TEST_F(PacketReader, Base64SkipsWhiteSpaceAndRejectsTheRest) {
    auto& d = Open(
        "<b>Zm9v\nYmFy\n</b><b> Zg = = </b><b></b><b>Zm9v\xC3\xA9</b><b>Zm9vY</b><after>1</after>");
    std::vector<unsigned char> bytes;
    d.Read(MetaInfo("b"), bytes);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "foobar");
    Serialization::Blob blob;
    d.Read(MetaInfo("b"), blob);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(blob.Data()), blob.Size()), "f");
    d.Read(MetaInfo("b"), blob);
    EXPECT_TRUE(blob.Empty());
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("b"), bytes); }), 0x9c0004u);
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("b"), blob); }), 0x9c0004u);
    // The failed reads closed their elements on the way out.
    std::uint32_t after = 0;
    d.Read(MetaInfo("after"), after);
    EXPECT_EQ(after, 1u);
}

TEST_F(PacketReader, ExtraReorderedAndMissingElements) {
    auto& d = Open(
        "<Rec><Position>5</Position><Added>x</Added><Size>20</Size></Rec>"
        "<Rec><Size>2</Size><Position>1</Position></Rec>"
        "<Rec><Position>9</Position></Rec>");
    std::uint64_t position = 0, size = 0;
    {
        ReadScope rec(d, MetaInfo("Rec"));
        d.Read(MetaInfo("Position"), position);
        d.Read(MetaInfo("Size"), size);
    }
    EXPECT_EQ(position, 5u);
    EXPECT_EQ(size, 20u);
    {
        ReadScope rec(d, MetaInfo("Rec"));
        d.Read(MetaInfo("Position"), position);
        d.Read(MetaInfo("Size"), size);
    }
    EXPECT_EQ(position, 1u);
    EXPECT_EQ(size, 2u);
    {
        ReadScope rec(d, MetaInfo("Rec"));
        d.Read(MetaInfo("Position"), position);
        std::string function;
        EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("Size"), size); }, &function), 0x9c0002u);
        EXPECT_EQ(function, "Serialization::XMLPacketDeserializer::Child");
    }
    EXPECT_EQ(position, 9u);
}

TEST_F(PacketReader, SearchDoesNotRewindAnExhaustedLevel) {
    // Reordered: asking for the second element first moves the cursor past both.
    auto& d = Open("<a>1</a><b>2</b>");
    std::uint32_t a = 0, b = 0;
    d.Read(MetaInfo("b"), b);
    d.Read(MetaInfo("a"), a);
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 2u);
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("a"), a); }), 0x9c0002u);
}

TEST_F(PacketReader, OrderedElementsAreTakenOnlyAtTheCursor) {
    auto& d = Open("<vector><item>1</item><item>2</item><other>x</other><item>3</item></vector>");
    const MetaInfo item("item", true);
    std::vector<std::uint32_t> items;
    {
        ReadScope vector(d, MetaInfo("vector"));
        while (d.NextMetaInfo() == item) {
            std::uint32_t value = 0;
            d.Read(item, value);
            items.push_back(value);
        }
        EXPECT_EQ(d.NextMetaInfo(), MetaInfo("other"));
        EXPECT_EQ(d.NextMetaInfo().Ordered, 0);
        std::uint32_t value = 0;
        EXPECT_EQ(Thrown([&] { d.Read(item, value); }), 0x9c0002u);
        // The failed lookup stepped over "other"; the last item is at the cursor now.
        d.Read(item, value);
        EXPECT_EQ(value, 3u);
        EXPECT_EQ(d.NextMetaInfo(), MetaInfo());
    }
    EXPECT_EQ(items, (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(PacketReader, UnknownAttributesAndTraitsAreIgnored) {
    auto& d = Open(
        "<UserLogon foo=\"bar\">X<traits><trait  name=\"Obscured\" type=\"NilValue\">"
        "</trait></traits></UserLogon>");
    std::u16string value;
    d.Read(MetaInfo("UserLogon"), value);
    EXPECT_EQ(value, u"X");
}

TEST_F(PacketReader, VersionsInheritDownward) {
    auto& d = Open(
        "<A version=\"7\"><B><C version=\"0\"><D version=\"9\"></D></C></B></A>"
        "<E version=\"x\"></E>",
        3);
    EXPECT_EQ(d.GetSubjectVersion(), 3u);
    {
        ReadScope a(d, MetaInfo("A"));
        EXPECT_EQ(d.GetSubjectVersion(), 7u);
        {
            ReadScope b(d, MetaInfo("B"));
            EXPECT_EQ(d.GetSubjectVersion(), 7u);
            {
                ReadScope c(d, MetaInfo("C"));
                EXPECT_EQ(d.GetSubjectVersion(), 7u);
                {
                    ReadScope dd(d, MetaInfo("D"));
                    EXPECT_EQ(d.GetSubjectVersion(), 9u);
                }
                EXPECT_EQ(d.GetSubjectVersion(), 7u);
            }
        }
    }
    EXPECT_EQ(d.GetSubjectVersion(), 3u);
    {
        ReadScope e(d, MetaInfo("E"));
        EXPECT_EQ(d.GetSubjectVersion(), 3u);
    }
}

TEST_F(PacketReader, FinishChecksNameAndTraits) {
    auto& d = Open("<A><B>1</B></A>");
    d.BeginReadMetaInfo(MetaInfo("A"));
    const auto traits = std::make_shared<const Serialization::MetaInfoTraits>();
    EXPECT_EQ(Thrown([&] { d.FinishReadMetaInfo(MetaInfo("A", nullptr, traits)); }), 0x9c0002u);
    EXPECT_EQ(Fired().back(), "!\"XMLPacketDeserializer: Inconsistent meta.\"");
    EXPECT_EQ(Thrown([&] { d.FinishReadMetaInfo(MetaInfo("B")); }), 0x9c0002u);
    d.FinishReadMetaInfo(MetaInfo("A", true));
    // Leaving the root itself: no element to return to.
    std::string function;
    EXPECT_EQ(Thrown([&] { d.FinishReadMetaInfo(MetaInfo("XML_SERIALIZER")); }, &function),
              0x9c0002u);
    EXPECT_EQ(Fired().back(), "CurrentTag");
    EXPECT_EQ(function, "Serialization::XMLPacketDeserializer::FinishReadMetaInfo");
    EXPECT_EQ(Thrown([&] { d.FinishReadMetaInfo(MetaInfo("A")); }), 0x9c0003u);
    EXPECT_EQ(Fired().back(), "!\"XMLPacketDeserializer: No tags.\"");
}

TEST_F(PacketReader, AValueReadWithTraitsFailsItsClose) {
    // A writer's MetaInfo, traits and all: the value is read, the close fails on the traits
    // (logged, not thrown), and the reader stays inside the element, so the next sibling is
    // not found from there.
    auto& d = Open("<A>5</A><B>7</B>");
    const auto traits = std::make_shared<const Serialization::MetaInfoTraits>();
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    d.Read(MetaInfo("A", nullptr, traits), a);
    EXPECT_EQ(a, 5u);
    EXPECT_EQ(Fired().back(), "!\"XMLPacketDeserializer: Inconsistent meta.\"");
    EXPECT_EQ(Thrown([&] { d.Read(MetaInfo("B"), b); }), 0x9c0002u);
    EXPECT_EQ(b, 0u);
}

TEST_F(PacketReader, EmptyNameReadsTheOpenElementsText) {
    auto& d = Open("<A>42<B>1</B></A>");
    std::uint32_t value = 0;
    d.BeginReadMetaInfo(MetaInfo());
    {
        ReadScope a(d, MetaInfo("A"));
        d.Read(MetaInfo(), value);
        EXPECT_EQ(d.NextMetaInfo(), MetaInfo("B"));
    }
    d.FinishReadMetaInfo(MetaInfo());
    EXPECT_EQ(value, 42u);
}

}  // namespace
