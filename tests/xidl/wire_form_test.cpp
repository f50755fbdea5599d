// The exact wire forms of generated records, and the reader's tolerance of what newer
// peers send.

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/obscurer.h>

#include "xidl/xidl_support.h"

namespace {

using xidl_test::Body;
using xidl_test::Read;
using xidl_test::RoundTrip;
using xidl_test::Watch;

TEST(WireForm, MembersTravelInDefinitionOrderUnderTheirOwnNames) {
    ArchiveManagement::PagingOptions paging{5, 20};
    EXPECT_EQ(Body(paging, "Paging"),
              "<Paging version=\"18\"><Position>5</Position><Size>20</Size></Paging>");
    ArchiveManagement::ArchiveFilter filter;
    filter.Paging = paging;
    const std::string body = Body(filter, "Filter");
    EXPECT_NE(body.find("<Sorting><Field>0</Field><Ascending>0</Ascending></Sorting>"
                        "<Paging><Position>5</Position><Size>20</Size></Paging>"),
              std::string::npos)
        << body;
}

TEST(WireForm, AVersionIsStatedOnlyWhereItChanges) {
    // Inside an archive record (version 18), a member of version 18 states nothing, and one
    // of another module states its own version; the record itself states 18 at the top.
    ArchiveManagement::StageDescription stage;
    const std::string body = Body(stage, "Stage");
    EXPECT_EQ(body.rfind("<Stage version=\"18\">", 0), 0u) << body;
    EXPECT_NE(body.find("<LocationInfo version=\"12\">"), std::string::npos) << body;
    EXPECT_NE(body.find("<ArchiveInfo><ArchiveUri>"), std::string::npos) << body;
    // Unversioned records run without any version.
    EXPECT_EQ(Body(Common::TimePeriod{3, 4}, "Period"),
              "<Period><PeriodType>3</PeriodType><Value>4</Value></Period>");
}

TEST(WireForm, EnumerationsTravelByNameInsideTheirOwnElement) {
    Watch watch;
    DiskManagementEx::DeleteVolumeContext context;
    EXPECT_EQ(Body(context.Opcode, "Opcode"),
              "<Opcode><OperationCode>OPERATION_DELETE_VOLUME</OperationCode></Opcode>");
    EXPECT_EQ(Read<DiskManagementEx::OperationCode>(
                  "<Opcode><OperationCode>OPERATION_CHANGE_DISK</OperationCode></Opcode>", "Opcode"),
              DiskManagementEx::OperationCode::OPERATION_CHANGE_DISK);
    EXPECT_TRUE(watch.assertions.empty());
    EXPECT_TRUE(watch.errors.empty());
}

TEST(WireForm, AnEnumerationValueWithoutANameTravelsAsItsNumberWithALogOnEachSide) {
    ArchiveManagement::ArchiveSettings settings;
    settings.EncryptionAlgorithm = static_cast<ArchiveManagement::ArchiveEncryptionAlgorithm>(3);
    std::string body;
    {
        Watch writing;
        body = Body(settings);
        ASSERT_EQ(writing.errors.size(), 1u);
        EXPECT_EQ(writing.errors[0].Code(), 0x9c0008u);
        EXPECT_EQ(writing.errors[0].Text(), u"Invalid enum value: ");
        EXPECT_EQ(writing.assertions, std::vector<std::string>{"!\"Unknown value of enum!\""});
    }
    EXPECT_NE(body.find("<EncryptionAlgorithm><ArchiveEncryptionAlgorithm>3</ArchiveEncryptionAlgorithm>"
                        "</EncryptionAlgorithm>"),
              std::string::npos)
        << body;
    Watch reading;
    const auto back = Read<ArchiveManagement::ArchiveSettings>(body);
    EXPECT_EQ(static_cast<int>(back.EncryptionAlgorithm), 3);
    ASSERT_EQ(reading.errors.size(), 1u);
    EXPECT_EQ(reading.errors[0].Text(), u"SERIALIZER_ERROR_INVALID_ENUM_VALUE");
    EXPECT_EQ(reading.errors[0].Cause().Text(), u"Invalid enum value: 3");
    EXPECT_EQ(reading.assertions.size(), 1u);

    // A number for a named enumeration reads as that value; a name that is neither reads 0.
    EXPECT_EQ(Read<DiskManagementEx::OperationCode>("<X><OperationCode>7</OperationCode></X>", "X"),
              DiskManagementEx::OperationCode::OPERATION_MIGRATE_DISKS);
    EXPECT_EQ(static_cast<int>(Read<DiskManagementEx::OperationCode>(
                  "<X><OperationCode>DELETE</OperationCode></X>", "X")),
              0);
}

TEST(WireForm, ANumberBeyondTheEnumerationsWidthReadsAsItsLimit) {
    Watch quiet;
    auto read = [](const char* number) {
        return static_cast<std::int64_t>(Read<DiskManagementEx::OperationCode>(
            std::string("<X><OperationCode>") + number + "</OperationCode></X>", "X"));
    };
    // The enumeration is 32 bits wide: what lies beyond saturates instead of wrapping.
    EXPECT_EQ(read("4294967297"), 2147483647);
    EXPECT_EQ(read("-4294967297"), -2147483647 - 1);
    EXPECT_EQ(read("2147483647"), 2147483647);
    EXPECT_EQ(read("-5"), -5);
}

TEST(WireForm, OptionalsStateTheirNullFlagAndHoldTheValueOnlyWhenSet) {
    Core::Optional<std::uint32_t> port;
    EXPECT_EQ(Body(port, "Port"), "<Port><optional_type><is_null>1</is_null></optional_type></Port>");
    port = 7u;
    EXPECT_EQ(Body(port, "Port"),
              "<Port><optional_type><is_null>0</is_null><value>7</value></optional_type></Port>");
    EXPECT_TRUE(RoundTrip(Core::Optional<std::uint32_t>()).IsNull());
    // The value of a versioned record states its version on "value".
    Core::Optional<ArchiveManagement::PagingOptions> paging = ArchiveManagement::PagingOptions{1, 2};
    EXPECT_NE(Body(paging).find("<value version=\"18\"><Position>1</Position>"), std::string::npos);
    EXPECT_EQ(RoundTrip(paging), paging);
}

TEST(WireForm, SecretMembersTravelObscuredWithTheirTraitAndReadBackPlain) {
    Connectivity::Logon logon;
    logon.User = u"admin";
    logon.Password = u"secret";
    const std::string body = Body(logon);
    const std::string user = Common::Utf16ToUtf8(Serialization::Obscure(u"admin"));
    EXPECT_NE(body.find("<User>" + user +
                        "<traits><trait  name=\"Obscured\" type=\"NilValue\"></trait></traits></User>"),
              std::string::npos)
        << body;
    EXPECT_EQ(body.find("secret"), std::string::npos);
    EXPECT_EQ(Read<Connectivity::Logon>(body).Password, u"secret");
    // A plain member states no traits.
    EXPECT_NE(body.find("<Computer></Computer>"), std::string::npos);
}

TEST(WireForm, TraitsOtherThanObscuredAreStatedAsGiven) {
    ServiceProcess::ProcessSpec spec;
    spec.BitDepth = 64;
    EXPECT_NE(Body(spec).find("<BitDepth>64<traits><trait  name=\"serialize_as\" type=\"StringValue\">"
                              "dword</trait></traits></BitDepth>"),
              std::string::npos);
}

TEST(WireForm, SequencesMapsAndPointersUseTheirFixedElements) {
    EXPECT_EQ(Body(std::vector<std::u16string>{u"a", u"b"}, "L"),
              "<L><vector><item>a</item><item>b</item></vector></L>");
    EXPECT_EQ(Body(std::vector<std::u16string>{}, "L"), "<L><vector></vector></L>");
    EXPECT_EQ(Body(std::map<std::u16string, std::u16string>{{u"k", u"v"}}, "M"),
              "<M><map><item><first>k</first><second>v</second></item></map></M>");
    EXPECT_EQ(Body(std::shared_ptr<DiskManagement::Volume>(), "P"), "<P><shared_ptr version=\"54\"></shared_ptr></P>");
}

TEST(WireForm, ANewerPeersExtraMemberIsSkipped) {
    const std::string newer =
        "<Paging><Position>5</Position><Cursor>abc</Cursor><Size>20</Size><Extra>1</Extra></Paging>";
    const auto paging = Read<ArchiveManagement::PagingOptions>(newer, "Paging");
    EXPECT_EQ(paging.Position, 5u);
    EXPECT_EQ(paging.Size, 20u);
}

TEST(WireForm, AForeignElementBehindASequenceEndsItWithoutAnError) {
    const std::string body =
        "<L><vector><item>a</item><item>b</item><item>c</item><foreign>x</foreign><item>d</item>"
        "</vector></L>";
    const auto items = Read<std::vector<std::u16string>>(body, "L");
    EXPECT_EQ(items, (std::vector<std::u16string>{u"a", u"b", u"c"}));
}

TEST(WireForm, APointerReadsANewObjectAndFillsIt) {
    DiskManagement::Volume volume;
    const auto back = RoundTrip(std::make_shared<DiskManagement::Volume>(volume));
    ASSERT_TRUE(back);
    EXPECT_EQ(Body(*back), Body(volume));
    // The empty element that a null pointer is written as has none of the members, and
    // that is an error like any other missing member, not a null pointer.
    try {
        Read<std::shared_ptr<DiskManagement::Volume>>(
            "<Root><shared_ptr version=\"54\"></shared_ptr></Root>");
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0002u);
    }
}

TEST(WireForm, AMissingMemberIsAnError) {
    try {
        Read<ArchiveManagement::PagingOptions>("<Paging><Position>5</Position></Paging>", "Paging");
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0002u);
    }
}

}  // namespace
