// Values written by the packet writer come back unchanged from the packet reader, from the
// text and from both binary forms of the same packet.

#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "binary_packet.h"
#include "packet_text.h"

namespace {

using Serialization::MetaInfo;

// All fifteen forms, once.
struct Values {
    Serialization::Blob blob;
    std::vector<unsigned char> bytes;
    std::uint16_t u16 = 0;
    std::int16_t i16 = 0;
    std::string narrow;
    std::int64_t i64 = 0;
    std::int32_t i32 = 0;
    std::uint64_t u64 = 0;
    double real = 0;
    std::uint32_t u32 = 0;
    std::u16string wide;
    Common::Error error;
    Common::Guid guid;
    std::uint8_t u8 = 0;
    bool flag = false;
};

void WriteValues(Serialization::Serializer& s, const Values& v) {
    s.Write(MetaInfo("blob"), v.blob)
        .Write(MetaInfo("bytes"), v.bytes)
        .Write(MetaInfo("u16"), v.u16)
        .Write(MetaInfo("i16"), v.i16)
        .Write(MetaInfo("narrow"), v.narrow)
        .Write(MetaInfo("i64"), v.i64)
        .Write(MetaInfo("i32"), v.i32)
        .Write(MetaInfo("u64"), v.u64)
        .Write(MetaInfo("real"), v.real)
        .Write(MetaInfo("u32"), v.u32)
        .Write(MetaInfo("wide"), v.wide)
        .Write(MetaInfo("error"), v.error)
        .Write(MetaInfo("guid"), v.guid)
        .Write(MetaInfo("u8"), v.u8)
        .Write(MetaInfo("flag"), v.flag);
}

void ReadValues(Serialization::Deserializer& d, Values& v) {
    d.Read(MetaInfo("blob"), v.blob)
        .Read(MetaInfo("bytes"), v.bytes)
        .Read(MetaInfo("u16"), v.u16)
        .Read(MetaInfo("i16"), v.i16)
        .Read(MetaInfo("narrow"), v.narrow)
        .Read(MetaInfo("i64"), v.i64)
        .Read(MetaInfo("i32"), v.i32)
        .Read(MetaInfo("u64"), v.u64)
        .Read(MetaInfo("real"), v.real)
        .Read(MetaInfo("u32"), v.u32)
        .Read(MetaInfo("wide"), v.wide)
        .Read(MetaInfo("error"), v.error)
        .Read(MetaInfo("guid"), v.guid)
        .Read(MetaInfo("u8"), v.u8)
        .Read(MetaInfo("flag"), v.flag);
}

void ExpectSameValues(const Values& a, const Values& b) {
    EXPECT_EQ(a.blob, b.blob);
    EXPECT_EQ(a.bytes, b.bytes);
    EXPECT_EQ(a.u16, b.u16);
    EXPECT_EQ(a.i16, b.i16);
    EXPECT_EQ(a.narrow, b.narrow);
    EXPECT_EQ(a.i64, b.i64);
    EXPECT_EQ(a.i32, b.i32);
    EXPECT_EQ(a.u64, b.u64);
    EXPECT_EQ(a.real, b.real);
    EXPECT_EQ(a.u32, b.u32);
    EXPECT_EQ(a.wide, b.wide);
    EXPECT_EQ(a.error.Serialize(), b.error.Serialize());
    EXPECT_EQ(a.guid, b.guid);
    EXPECT_EQ(a.u8, b.u8);
    EXPECT_EQ(a.flag, b.flag);
}

// Binary forms carry texts in UTF-8, which has no lone surrogates.
Values Filled(bool loneSurrogate) {
    Values v;
    const unsigned char raw[] = {0, 1, 2, 0xfe, 0xff};
    v.blob = Serialization::Blob(raw, sizeof(raw));
    v.bytes.assign(raw, raw + 4);
    v.u16 = 65535;
    v.i16 = -32768;
    v.narrow = " Caf\xE9\n<&>]]> \x01 tab\there  ";
    v.i64 = std::numeric_limits<std::int64_t>::min();
    v.i32 = -123456;
    v.u64 = std::numeric_limits<std::uint64_t>::max();
    v.real = -0.1234567890123456e-300;
    v.u32 = 4000000000u;
    v.wide = u"  \u0416 \U0001F600\xD800 x\r\n\n\uFFFE  \"'\t ";
    if (!loneSurrogate) {
        v.wide[6] = u'?';
    }
    v.error = Common::Error(TL_ORIGIN("Test::Site"), 0x9c0002, u"outer");
    v.error.AddCause(Common::Error(TL_ORIGIN("Test::Cause"), 0x40002, u"inner"));
    Common::Create(v.guid);
    v.u8 = 200;
    v.flag = true;
    return v;
}

std::string WritePacket(const Values& v) {
    Serialization::XMLPacketSerializer s(2, 0);
    {
        Serialization::WriteScope record(s, MetaInfo("Record"));
        WriteValues(s, v);
    }
    return packet_test::Finish(s);
}

Values ReadPacket(const std::string& packet) {
    Serialization::XMLPacketDeserializer d(packet.data(), packet.size(), 0);
    Values v;
    // Start from values that differ from both test sets, so that a read that does nothing shows.
    v.u16 = v.u32 = v.u8 = 9;
    v.real = 9;
    v.narrow = "stale";
    v.wide = u"stale";
    v.flag = true;
    Serialization::ReadScope record(d, MetaInfo("Record"));
    ReadValues(d, v);
    return v;
}

class PacketRoundTrip : public ::testing::TestWithParam<int> {
protected:
    // The packet in the form under test: text (0) or binary of revision 1 or 2.
    std::string InForm(const std::string& text) const {
        if (GetParam() == 0) {
            return text;
        }
        return packet_test::BinaryEncoder(GetParam()).Encode(text);
    }
};

TEST_P(PacketRoundTrip, EveryFormFilled) {
    const Values written = Filled(GetParam() == 0);
    const std::string packet = InForm(WritePacket(written));
    ASSERT_FALSE(packet.empty());
    ExpectSameValues(ReadPacket(packet), written);
}

TEST_P(PacketRoundTrip, EveryFormEmpty) {
    const Values written;
    const std::string packet = InForm(WritePacket(written));
    ASSERT_FALSE(packet.empty());
    ExpectSameValues(ReadPacket(packet), written);
}

TEST_P(PacketRoundTrip, ContainersThroughTheCodecs) {
    const std::vector<std::uint32_t> numbers{3, 1, 2};
    const std::list<std::u16string> texts{u"", u" a ", u"b\nc"};
    const std::map<std::string, std::int64_t> map{{"x", -1}, {"y", 2}};
    const std::vector<std::uint32_t> none;
    Serialization::XMLPacketSerializer s(2, 0);
    Serialization::WriteMember(s, MetaInfo("Numbers"), numbers);
    Serialization::WriteMember(s, MetaInfo("None"), none);
    Serialization::WriteMember(s, MetaInfo("Texts"), texts);
    Serialization::WriteMember(s, MetaInfo("Map"), map);
    const std::string packet = InForm(packet_test::Finish(s));

    Serialization::XMLPacketDeserializer d(packet.data(), packet.size(), 0);
    std::vector<std::uint32_t> numbersRead{7}, noneRead{7};
    std::list<std::u16string> textsRead;
    std::map<std::string, std::int64_t> mapRead;
    Serialization::ReadMember(d, MetaInfo("Map"), mapRead);  // out of order on purpose
    Serialization::ReadMember(d, MetaInfo("Numbers"), numbersRead);
    Serialization::ReadMember(d, MetaInfo("None"), noneRead);
    Serialization::ReadMember(d, MetaInfo("Texts"), textsRead);
    EXPECT_EQ(numbersRead, numbers);
    EXPECT_EQ(noneRead, none);
    EXPECT_EQ(textsRead, texts);
    EXPECT_EQ(mapRead, map);
}

INSTANTIATE_TEST_SUITE_P(Forms, PacketRoundTrip, ::testing::Values(0, 1, 2),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param == 0 ? std::string("Text")
                                                    : "Binary" + std::to_string(info.param);
                         });

}  // namespace
