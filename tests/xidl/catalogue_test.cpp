// The type catalogue, optionals, credentials, and serializers that take containers whole.

#include <gtest/gtest.h>

#include <set>

#include <tessel_link/serialize/credentials.h>
#include <tessel_link/xidl/catalogue.h>

#include "xidl/xidl_support.h"

namespace {

using Serialization::Xidl::CheckedInTypes;
using Serialization::Xidl::FindType;
using Serialization::Xidl::MemberForm;
using Serialization::Xidl::WireMembers;
using xidl_test::Body;
using xidl_test::Read;

std::vector<std::string> Names(const std::vector<const Serialization::Xidl::MemberInfo*>& members) {
    std::vector<std::string> names;
    for (const auto* m : members) {
        names.emplace_back(m->Name);
    }
    return names;
}

TEST(Catalogue, ListsEveryCheckedInTypeOnceInRegistrationOrder) {
    const auto types = CheckedInTypes();
    ASSERT_EQ(types.size(), 635u);
    EXPECT_STREQ(types.front()->FullName, "Tol::ActivityOrigin");
    EXPECT_STREQ(types.back()->FullName, "VMwareManagement::Events::ApplianceUpdated");
    std::set<std::string> seen;
    for (const auto* type : types) {
        EXPECT_TRUE(seen.insert(type->FullName).second) << type->FullName;
        EXPECT_EQ(FindType(type->FullName), type);
    }
    EXPECT_TRUE(seen.count("Virtualization::ConvertToVM::ConvertConfiguration"));
    // Roots, shared parts, enumerations and hand-written types are known but not checked in.
    for (const char* name : {"ScheduleManagement::Alarm", "DiskManagementEx::VolumeContext",
                             "DiskManagementEx::OperationCode", "AccessManagement::Logon"}) {
        ASSERT_NE(FindType(name), nullptr) << name;
        EXPECT_FALSE(seen.count(name)) << name;
    }
    EXPECT_EQ(FindType("ArchiveManagement::Nothing"), nullptr);
}

TEST(Catalogue, DescribesMembersWithTheirFormsChoicesAndVersions) {
    const auto* slice = FindType("ArchiveManagement::SliceInfo");
    ASSERT_NE(slice, nullptr);
    EXPECT_EQ(slice->Version, 18u);
    ASSERT_EQ(slice->MemberCount, 24u);
    EXPECT_STREQ(slice->Members[0].Name, "SliceUri");
    EXPECT_EQ(slice->Members[0].Form, MemberForm::WideString);
    EXPECT_FALSE(slice->Members[0].Chosen);
    EXPECT_STREQ(slice->Members[17].Name, "Applications");
    EXPECT_STREQ(slice->Members[17].Type, "vector<ArchiveManagement::ApplicationInfo>");
    EXPECT_EQ(slice->Members[17].Form, MemberForm::Sequence);
    EXPECT_TRUE(slice->Members[17].Chosen);

    const auto* logon = FindType("Connectivity::Logon");
    ASSERT_NE(logon, nullptr);
    ASSERT_EQ(logon->Members[2].TraitCount, 1u);
    EXPECT_STREQ(logon->Members[2].Traits[0].Name, "Obscured");
    EXPECT_EQ(logon->Members[3].Form, MemberForm::Optional);

    const auto* opcode = FindType("DiskManagementEx::OperationCode");
    ASSERT_EQ(opcode->ValueCount, 9u);
    EXPECT_STREQ(opcode->Values[8].Name, "OPERATION_CHANGE_DISK");
    EXPECT_EQ(opcode->Values[8].Number, 9);
}

TEST(Catalogue, WireMembersPutTheMembersOfBaseRecordsFirst) {
    const auto* create = FindType("DiskManagementEx::CreateVolumeContext");
    ASSERT_NE(create, nullptr);
    EXPECT_STREQ(create->Base, "DiskManagementEx::VolumeContext");
    const auto names = Names(WireMembers(*create));
    ASSERT_EQ(names.size(), 21u);
    EXPECT_EQ(names.front(), "Opcode");
    EXPECT_EQ(names.back(), "OperatingSystemID");
    // The fields of a hierarchy's root travel outside the kind's record.
    EXPECT_EQ(Names(WireMembers(*FindType("ScheduleManagement::StartupAlarm"))).size(), 0u);
}

TEST(Optional, GetOnANullOptionalThrowsFromASiteNamingItsType) {
    Core::Optional<std::int32_t> number;
    EXPECT_TRUE(number.IsNull());
    try {
        (void)number.Get();
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x00ac0001u);
        EXPECT_EQ(error.Text(), u"The optional value is null.");
        EXPECT_STREQ(error.Origin().Func, "Core::Optional<std::int32_t>::Get");
    }
    const Core::Optional<ArchiveManagement::PagingOptions> paging;
    try {
        (void)paging->Size;
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_STREQ(error.Origin().Func, "Core::Optional<struct ArchiveManagement::PagingOptions>::Get");
    }
    number = 5;
    EXPECT_EQ(number.Get(), 5);
    number.Reset();
    EXPECT_EQ(number, Core::Optional<std::int32_t>());
}

class PrefixHook : public Common::CredentialsHook {
public:
    void Process(Common::Credentials& credentials) override {
        credentials.UserName = u"hooked-" + credentials.UserName;
        ++calls;
    }
    int calls = 0;
};

TEST(Credentials, TravelAsUserNameAndPasswordThroughTheThreadsHook) {
    AccessManagement::Logon logon(u"user", u"pw");
    EXPECT_EQ(Body(logon, "Cred"), "<Cred><UserName>user</UserName><Password>pw</Password></Cred>");
    PrefixHook hook;
    Common::SetCredentialsHook(&hook);
    const std::string sent = Body(logon, "Cred");
    EXPECT_EQ(logon.UserName(), u"user");  // the hook sees a copy
    const auto read = Read<Core::Optional<AccessManagement::Logon>>(
        "<C><optional_type><is_null>0</is_null><value><UserName>u</UserName><Password>p</Password>"
        "</value></optional_type></C>",
        "C");
    Common::SetCredentialsHook(nullptr);
    EXPECT_EQ(sent, "<Cred><UserName>hooked-user</UserName><Password>pw</Password></Cred>");
    EXPECT_EQ(read.Get().UserName(), u"hooked-u");
    EXPECT_EQ(hook.calls, 2);
}

TEST(Credentials, AReadThatFailsLeavesThePairAsItWas) {
    // The user name is there, the password is not: the read fails, and neither changes.
    const std::string packet = std::string(packet_test::kBom) +
                               "<XML_SERIALIZER><L><UserName>new</UserName></L></XML_SERIALIZER>";
    AccessManagement::Logon logon(u"old", u"oldpw");
    auto d = Serialization::CreateXMLPacketDeserializer(packet.data(), packet.size(), 0);
    try {
        Serialization::ReadMember(*d, Serialization::MetaInfo("L"), logon);
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0002u);
    }
    EXPECT_EQ(logon.UserName(), u"old");
    EXPECT_EQ(logon.Password(), u"oldpw");
}

// A serializer that takes containers whole and records what it was given.
class ContainerTaker : public Serialization::XMLPacketSerializer, public Serialization::ContainerAwareSerializer {
public:
    ContainerTaker() : XMLPacketSerializer(2, 0) {
        RegisterInterface<Serialization::ContainerAwareSerializer>(this);
    }
    void WriteContainer(const Serialization::MetaInfo& meta, Serialization::ContainerIterator& items) override {
        std::string line = meta.Name + "@" + std::to_string(meta.Version) + ":";
        for (; items.HasNext(); items.Next()) {
            Serialization::WriteScope element(*this, Serialization::MetaInfo("e"));
            items.WriteCurrent(*this);
            ++count;
        }
        taken.push_back(line);
    }
    std::vector<std::string> taken;
    int count = 0;
};

TEST(ContainerAware, ContainersGoWholeToASerializerThatTakesThem) {
    ContainerTaker taker;
    ArchiveManagement::SliceInfo slice;
    slice.MediaIDs = {u"a", u"b"};
    slice.MetaInformation = {{u"k", u"v"}};
    slice.Applications = {{u"App"}};
    Serialization::WriteMember(taker, Serialization::MetaInfo("Slice"), slice);
    EXPECT_EQ(taker.taken, (std::vector<std::string>{"MetaInformation@0:", "MediaIDs@0:", "Applications@0:",
                                                      "SliceMediaIDs@0:"}));
    EXPECT_EQ(taker.count, 4);
    const std::string body = packet_test::Body(taker);
    // Sequences write each element under "item"; maps with names as keys under the key.
    EXPECT_NE(body.find("<e><item>a</item></e><e><item>b</item></e>"), std::string::npos) << body;
    EXPECT_NE(body.find("<e><k>v</k></e>"), std::string::npos) << body;
    EXPECT_EQ(body.find("<vector>"), std::string::npos);

    ContainerTaker byGuid;
    DiskManagementEx::OperatingSystem os;
    os.DisksOnlineStatuses = {{Common::Guid{}, true}};
    Serialization::WriteMember(byGuid, Serialization::MetaInfo("Os"), os);
    EXPECT_NE(packet_test::Body(byGuid).find("<e><item>1</item></e>"), std::string::npos);
}

}  // namespace
