// The short cuts that the packet reader offers the codecs (a look at the next element without
// a MetaInfo, the length of a run of items, GUIDs read from wide text) answer exactly what
// the long way answers; and what the codecs build from them is what they built before.

#include <cstdint>
#include <cstdlib>
#include <random>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/testing/recording_ends.h>
#include <tessel_link/xidl/records.h>

#include "packet_text.h"

namespace {

using packet_test::Packet;
using Serialization::MetaInfo;
using Serialization::ReadScope;
using Serialization::XMLPacketDeserializer;

struct Reader {
    explicit Reader(const std::string& body) : text(Packet(body)), d(text.data(), text.size(), 0) {}
    std::string text;
    XMLPacketDeserializer d;
};

// Every kind of MetaInfo a caller may hold up against the next element.
std::vector<MetaInfo> Probes() {
    const auto traits = std::make_shared<const Serialization::MetaInfoTraits>();
    return {MetaInfo("a"),           MetaInfo("b"),          MetaInfo("b", true),
            MetaInfo(),              MetaInfo("item"),       MetaInfo("bb"),
            MetaInfo("a", traits, nullptr), MetaInfo("b", nullptr, traits),
            MetaInfo("", nullptr, traits)};
}

void ExpectNextIsAgrees(Serialization::Deserializer& d, const char* where) {
    for (const MetaInfo& probe : Probes()) {
        EXPECT_EQ(d.NextIs(probe), d.NextMetaInfo() == probe) << where << ": " << probe.Name;
    }
}

TEST(CodecShortCuts, NextIsAnswersWhatNextMetaInfoCompares) {
    Reader r("<a>1</a><b>2</b><b>3</b><item/>");
    ExpectNextIsAgrees(r.d, "first");
    std::uint32_t value = 0;
    r.d.Read(MetaInfo("a"), value);
    ExpectNextIsAgrees(r.d, "second");
    r.d.Read(MetaInfo("b"), value);
    r.d.Read(MetaInfo("b"), value);
    ExpectNextIsAgrees(r.d, "item");
    {
        ReadScope item(r.d, MetaInfo("item"));
        ExpectNextIsAgrees(r.d, "inside an empty element");
    }
    ExpectNextIsAgrees(r.d, "at the end");

    const std::string broken = "<XML_SERIALIZER><a>";
    XMLPacketDeserializer unreadable(broken.data(), broken.size(), 0);
    ExpectNextIsAgrees(unreadable, "unreadable");
    EXPECT_EQ(unreadable.CountNext(MetaInfo("a")), 0u);

    // A reader that does not answer it itself gives the comparison too, and no count.
    Testing::ScriptedDeserializer scripted(
        Testing::Element("v", {Testing::ValueNode("a", std::uint32_t{1})}));
    {
        ReadScope v(scripted, MetaInfo("v"));
        ExpectNextIsAgrees(scripted, "scripted");
        EXPECT_EQ(scripted.CountNext(MetaInfo("a")), 0u);
    }
}

TEST(CodecShortCuts, CountNextIsTheRunOfNamesAtTheCursor) {
    Reader r("<v><item>1</item><item>2</item><other/><item>3</item><item>4</item></v>");
    ReadScope v(r.d, MetaInfo("v"));
    const MetaInfo item("item", true);
    EXPECT_EQ(r.d.CountNext(item), 2u);
    EXPECT_EQ(r.d.CountNext(MetaInfo("other")), 0u);
    EXPECT_EQ(r.d.CountNext(MetaInfo()), 0u);
    const auto traits = std::make_shared<const Serialization::MetaInfoTraits>();
    EXPECT_EQ(r.d.CountNext(MetaInfo("item", traits, nullptr)), 0u);
    std::uint32_t value = 0;
    r.d.Read(item, value);
    EXPECT_EQ(r.d.CountNext(item), 1u);
    r.d.Read(item, value);
    EXPECT_EQ(r.d.CountNext(item), 0u);
    EXPECT_EQ(r.d.CountNext(MetaInfo("other")), 1u);
    r.d.Read(MetaInfo("other"), value);
    EXPECT_EQ(r.d.CountNext(item), 2u);
    r.d.Read(item, value);
    r.d.Read(item, value);
    EXPECT_EQ(value, 4u);
    EXPECT_EQ(r.d.CountNext(item), 0u);
}

std::vector<ArchiveManagement::SliceItemCounters> Counters(std::size_t count) {
    std::vector<ArchiveManagement::SliceItemCounters> list(count);
    for (std::size_t i = 0; i < count; ++i) {
        list[i] = {static_cast<std::uint32_t>(i), 2, 3};
    }
    return list;
}

TEST(CodecShortCuts, SequencesAreReadIntoRoomMadeOnce) {
    auto s = Serialization::CreateXMLPacketSerializer(2, 0);
    const auto written = Counters(37);
    Serialization::WriteMember(*s, MetaInfo("List"), written);
    std::vector<unsigned char> bytes;
    s->Finish(bytes);
    auto d = Serialization::CreateXMLPacketDeserializer(bytes.data(), bytes.size(), 0);
    // What the vector held before is dropped, its room reused.
    std::vector<ArchiveManagement::SliceItemCounters> read = Counters(3);
    Serialization::ReadMember(*d, MetaInfo("List"), read);
    EXPECT_EQ(read, written);
    EXPECT_EQ(read.capacity(), 37u);
}

TEST(CodecShortCuts, ManyEmptyItemsClaimBoundedRoom) {
    // A small packet of many empty items for a large record: the first item fails, and the
    // room made for the run stays within a fixed bound whatever the count claims.
    std::string body = "<Slices><vector>";
    for (int i = 0; i < 200000; ++i) {
        body += "<item/>";
    }
    body += "</vector></Slices>";
    Reader r(body);
    std::vector<ArchiveManagement::SliceInfo> slices;
    EXPECT_THROW(Serialization::ReadMember(r.d, MetaInfo("Slices"), slices), Common::Error);
    EXPECT_LE(slices.capacity() * sizeof(ArchiveManagement::SliceInfo), std::size_t{16} << 20);
    EXPECT_GT(slices.capacity(), 0u);
}

TEST(CodecShortCuts, MapsKeepTheFirstOfEqualKeysAndMultimapsAll) {
    const std::string pairs =
        "<item><first>a key too long to be kept inline</first><second>x</second></item>"
        "<item><first>k</first><second>y</second></item>"
        "<item><first>a key too long to be kept inline</first><second>z</second></item>";
    {
        Reader r("<M><map>" + pairs + "</map></M>");
        std::map<std::u16string, std::u16string> map = {{u"old", u"gone"}};
        Serialization::ReadMember(r.d, MetaInfo("M"), map);
        const std::map<std::u16string, std::u16string> expected = {
            {u"a key too long to be kept inline", u"x"}, {u"k", u"y"}};
        EXPECT_EQ(map, expected);
    }
    {
        Reader r("<M><map>" + pairs + "</map></M>");
        std::multimap<std::u16string, std::u16string> map;
        Serialization::ReadMember(r.d, MetaInfo("M"), map);
        std::vector<std::u16string> values;
        for (const auto& [key, value] : map) {
            values.push_back(value);
        }
        EXPECT_EQ(values, (std::vector<std::u16string>{u"x", u"z", u"y"}));
    }
}

// What a GUID read from `text` was before: the low bytes of the units up to the first NUL,
// through the narrow parser.
Common::Guid NarrowedGuid(const std::u16string& text, const Common::Guid& before) {
    std::string narrow;
    for (char16_t unit : text) {
        const char c = static_cast<char>(unit & 0xff);
        if (c == '\0') {
            break;
        }
        narrow += c;
    }
    Common::Guid guid = before;
    Common::FromString(narrow.c_str(), guid);
    return guid;
}

TEST(CodecShortCuts, GuidsReadAsTheNarrowParserReadsThem) {
    const std::u16string canonical = u"0123abcd-4567-89EF-0011-2233445566FF";
    std::vector<std::u16string> texts = {
        canonical,
        canonical + u" and then more",
        canonical.substr(0, 35),
        u"{" + canonical + u"}",
        u" " + canonical,
        u"0123ABCD-4567-89EF-0011-22334455G6FF",
        u"0123ABCD+4567-89EF-0011-2233445566FF",
        u"0123ABCD-4567-89EF-001122-33445566FF",
        u"",
    };
    // Units beyond one byte count by their low byte: a digit, a dash, and a NUL.
    std::u16string wide = canonical;
    wide[0] = u'\u4130';
    wide[8] = u'\u012d';
    texts.push_back(wide);
    std::u16string cut = canonical;
    cut[20] = u'\u0100';
    texts.push_back(cut);

    const Common::Guid before = [] {
        Common::Guid g;
        Common::FromString("FFFFFFFF-0000-1111-2222-333333333333", g);
        return g;
    }();
    std::string body;
    for (const auto& text : texts) {
        body += "<g>" + Common::Utf16ToUtf8(text) + "</g>";
    }
    Reader r(body);
    for (const auto& text : texts) {
        Common::Guid guid = before;
        r.d.Read(MetaInfo("g"), guid);
        EXPECT_EQ(Common::ToString(guid), Common::ToString(NarrowedGuid(text, before)))
            << Common::Utf16ToUtf8(text);
    }
}

// The low bytes of the units up to the first NUL, as the library parsers see the text.
std::string LowBytes(const std::u16string& text) {
    std::string narrow;
    for (char16_t unit : text) {
        if ((unit & 0xff) == 0) {
            break;
        }
        narrow += static_cast<char>(unit & 0xff);
    }
    return narrow;
}

TEST(CodecShortCuts, NumbersReadAsTheLibraryReadsTheirLowBytes) {
    // Digits mixed with units that are no digit but whose low byte is one, or that sit just
    // beside the digits, at every place of every length up to beyond the plain range.
    const std::u16string alphabet = u"0123456789/: -+\u0131\u0139\u01b0x";
    std::mt19937 random(11);
    std::vector<std::u16string> texts;
    for (int i = 0; i < 3000; ++i) {
        const std::size_t length = 1 + random() % 22;
        std::u16string text;
        const bool plain = random() % 2 == 0;
        for (std::size_t k = 0; k < length; ++k) {
            text += plain && random() % 8 != 0 ? static_cast<char16_t>(u'0' + random() % 10)
                                               : alphabet[random() % alphabet.size()];
        }
        texts.push_back(text);
    }
    std::string body;
    for (const auto& text : texts) {
        body += "<u>" + Common::Utf16ToUtf8(text) + "</u><s>" + Common::Utf16ToUtf8(text) + "</s>";
    }
    Reader r(body);
    for (const auto& text : texts) {
        std::uint64_t u = 0;
        std::int64_t s = 0;
        r.d.Read(MetaInfo("u"), u);
        r.d.Read(MetaInfo("s"), s);
        const std::string narrow = LowBytes(text);
        EXPECT_EQ(u, std::strtoull(narrow.c_str(), nullptr, 10)) << narrow;
        EXPECT_EQ(s, std::strtoll(narrow.c_str(), nullptr, 10)) << narrow;
    }
}

}  // namespace
