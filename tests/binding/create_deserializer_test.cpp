#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/impl/serialize/scope_guards.h>

#include <string>

#include <gtest/gtest.h>

namespace {

using Binding::ArgumentKind;
using Binding::Detail::CreateRequest;
using Serialization::MetaInfo;

Binding::MethodDescriptor MethodInCategory(const char* name, std::uint64_t category) {
    Binding::MethodDescriptor method;
    method.ComponentID = 900;
    method.MethodNumber = 7;
    method.ComponentName = "ProbeManager";
    method.MethodName = name;
    method.InterfaceVersion = 12;
    method.Category = category;
    return method;
}

// A record with members of two categories.
struct Split {
    std::uint32_t Mine = 1;
    std::uint32_t Foreign = 2;
};
void operator<<(Serialization::Serializer& s, const Split& split) {
    MetaInfo mine("Mine");
    mine.Category = 5;
    MetaInfo foreign("Foreign");
    foreign.Category = 6;
    s.Write(mine, split.Mine).Write(foreign, split.Foreign);
}

TEST(CreateDeserializer, ReadsTheRequestsOwnPacket) {
    std::uint32_t count = 3;
    const std::u16string secret = u"s3cret";
    std::string out = "not sent";
    const auto request = CreateRequest<void(std::uint32_t, const std::u16string&, std::string&)>(
        MethodInCategory("Probe", 0x7'0000'0005), {count, "count", ArgumentKind::In},
        {secret, "password", ArgumentKind::Obscured}, {out, "out", ArgumentKind::Out});

    const auto reader = request->CreateDeserializer(11);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->GetSubjectVersion(), 11u);
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo("request_ProbeManager_Probe"));
    Serialization::ReadScope element(*reader, MetaInfo("request_ProbeManager_Probe"));
    std::uint32_t countRead = 0;
    std::u16string passwordRead;
    reader->Read(MetaInfo("count"), countRead).Read(MetaInfo("password"), passwordRead);
    EXPECT_EQ(countRead, 3u);
    EXPECT_EQ(Serialization::Unobscure(passwordRead), secret);
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo());  // the out argument is not in the packet
}

TEST(CreateDeserializer, PacketIsWrittenForTheLowWordOfTheCategory) {
    const Split split;
    const auto request = CreateRequest<void(const Split&)>(MethodInCategory("Split", 0x7'0000'0005),
                                                           {split, "split", ArgumentKind::In});
    const auto reader = request->CreateDeserializer(0);
    Serialization::ReadScope element(*reader, MetaInfo("request_ProbeManager_Split"));
    Serialization::ReadScope value(*reader, MetaInfo("split"));
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo("Mine"));
    std::uint32_t mine = 0;
    reader->Read(MetaInfo("Mine"), mine);
    EXPECT_EQ(mine, 1u);
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo());
}

TEST(CreateDeserializer, MethodWithoutParametersStillHasItsElement) {
    const auto request = CreateRequest<void()>(MethodInCategory("Ping", Binding::kAllCategories));
    const auto reader = request->CreateDeserializer(0);
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo("request_ProbeManager_Ping"));
    Serialization::ReadScope element(*reader, MetaInfo("request_ProbeManager_Ping"));
    EXPECT_EQ(reader->NextMetaInfo(), MetaInfo());
}

}  // namespace
