// Records through the packet writer and reader: every member form with empty and non-empty
// values, and the default of every type that hosts can make.

#include <regex>

#include <gtest/gtest.h>

#include <tessel_link/xidl/catalogue.h>

#include "xidl/xidl_support.h"

namespace {

using xidl_test::Body;
using xidl_test::Read;
using xidl_test::RoundTrip;

Common::Guid MakeGuid(unsigned char seed) {
    Common::Guid guid;
    Common::FromString(("6B29FC40-CA47-1067-B31D-00DD010662" + std::to_string(10 + seed)).c_str(), guid);
    return guid;
}

ArchiveManagement::SliceInfo FilledSlice() {
    ArchiveManagement::SliceInfo slice;
    slice.SliceUri = u"bsp://storage/archive?slice=7 with  blanks\nand a line";
    slice.Kind = 4000000000u;
    slice.CreationTime = -1234567890123LL;
    slice.Description = u"ünïcode 😀";
    slice.Size = 0xFFFFFFFFFFFFFFFFull;
    slice.MetaInformation = {{u"key", u"value"}, {u"empty", u""}};
    slice.MediaIDs = {u"tape-1", u"", u"tape-3"};
    slice.IsSliceDeleted = true;
    slice.Applications = {{u"Mail"}, {u"Database"}};
    slice.ItemCounters = {1, 2, 3};
    slice.LocationID = MakeGuid(1);
    slice.SliceOffset = 42;
    return slice;
}

TEST(RecordRoundTrip, ScalarsContainersAndNestedRecordsComeBackEqual) {
    const ArchiveManagement::SliceInfo empty;
    EXPECT_EQ(RoundTrip(empty), empty);
    const ArchiveManagement::SliceInfo filled = FilledSlice();
    const ArchiveManagement::SliceInfo back = RoundTrip(filled);
    EXPECT_EQ(back, filled);
    EXPECT_EQ(back.MediaIDs.size(), 3u);
    EXPECT_EQ(back.Applications[1].Name, u"Database");
    EXPECT_FALSE(back == empty);
}

TEST(RecordRoundTrip, NarrowStringsSecretsAndOptionalsComeBackEqual) {
    Connectivity::Logon logon;
    EXPECT_EQ(RoundTrip(logon), logon);
    logon.Computer = "host \xE9";
    logon.User = u"admin";
    logon.Password = u"pässwörd";
    logon.Port = 8443u;
    const Connectivity::Logon back = RoundTrip(logon);
    EXPECT_EQ(back, logon);
    EXPECT_EQ(back.Port.Get(), 8443u);
}

TEST(RecordRoundTrip, ErrorsDoublesSmallNumbersAndBytesComeBackEqual) {
    MachineManagement::OperatingSystem os;
    EXPECT_EQ(RoundTrip(os), os);
    os.Error = Common::Error(TL_ORIGIN("Test::Origin"), 0x40002, u"The file is gone.");
    os.Name = u"Windows";
    const MachineManagement::OperatingSystem osBack = RoundTrip(os);
    EXPECT_EQ(osBack, os);
    EXPECT_EQ(osBack.Error.Code(), 0x40002u);

    ConfigurationManagement::ApplianceBindingParams binding;
    binding.SameServerBinding = 0.1;
    binding.BalancingLimit = -1e300;
    binding.InstanceBindings = {{MakeGuid(2), MakeGuid(3)}};
    EXPECT_EQ(RoundTrip(binding), binding);

    ScheduleManagement::TimeOfDay time{59, 58, 23};
    EXPECT_EQ(RoundTrip(time), time);
    ScheduleManagement::Date date{12, 65535};
    EXPECT_EQ(RoundTrip(date), date);

    EventManagement::Event event;
    EXPECT_EQ(RoundTrip(event), event);
    event.RawData = std::vector<unsigned char>{0, 1, 2, 254, 255};
    event.Context = {{u"a", u"b"}};
    EXPECT_EQ(RoundTrip(event), event);
    event.RawData = std::vector<unsigned char>{};
    EXPECT_EQ(RoundTrip(event), event);

    MachineManagement::MachineInfo info;
    info.TimezoneOffsetInMinutes = -420;
    info.Agents = {{u"agent", u"1.0", 7, u"brand"}};
    EXPECT_EQ(RoundTrip(info), info);
}

TEST(RecordRoundTrip, PointersAndMapsWithOtherKeysComeBackEqual) {
    DiskManagement::Space space;
    // A null pointer goes out as an empty element, which reads as a record without its
    // members: an error, never a null pointer or a half-read record.
    try {
        RoundTrip(space);
        ADD_FAILURE() << "a null pointer read back";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0002u);
    }
    space.SpaceVolume = std::make_shared<DiskManagement::Volume>();
    space.SpaceVolume->Letter = u"C:";
    const DiskManagement::Space back = RoundTrip(space);
    ASSERT_NE(back.SpaceVolume, nullptr);
    EXPECT_EQ(back.SpaceVolume->Letter, u"C:");
    EXPECT_EQ(back, space);

    DiskManagementEx::OperatingSystem os;
    os.DisksOnlineStatuses = {{MakeGuid(4), true}, {MakeGuid(5), false}};
    os.SpaceID = MakeGuid(6);
    EXPECT_EQ(RoundTrip(os), os);
}

TEST(RecordRoundTrip, ValueFormsAndContainersThatNoRecordUsesStillTravel) {
    EXPECT_EQ(RoundTrip(std::int16_t{-32768}), -32768);
    const Serialization::Blob blob("\x00\x01\x02", 3);
    EXPECT_EQ(RoundTrip(blob), blob);
    EXPECT_EQ(RoundTrip(Serialization::Blob()), Serialization::Blob());
    const std::set<std::uint32_t> set{3, 1, 2};
    EXPECT_EQ(RoundTrip(set), set);
    const std::multimap<std::string, std::int32_t> multi{{"a", 1}, {"a", 2}, {"b", -3}};
    EXPECT_EQ(RoundTrip(multi), multi);
    const std::list<std::vector<std::u16string>> nested{{u"x", u"y"}, {}};
    EXPECT_EQ(RoundTrip(nested), nested);
}

// Every type that hosts can make writes its default value, reads it back equal, and writes
// the same bytes again: reader and writer agree on every member of every record.
TEST(RecordRoundTrip, EveryCheckedInTypeRoundTripsItsDefault) {
    xidl_test::Watch quiet;  // unnamed enumeration values assert and log on both sides
    for (const Serialization::Xidl::TypeInfo* type : Serialization::Xidl::CheckedInTypes()) {
        SCOPED_TRACE(type->FullName);
        ASSERT_TRUE(type->Create && type->Write && type->Read && type->Equal);
        const std::shared_ptr<void> original = type->Create();
        auto s = Serialization::CreateXMLPacketSerializer(2, 0);
        type->Write(*s, Serialization::MetaInfo("Root"), original.get());
        const std::string packet = packet_test::Finish(*s);

        const std::shared_ptr<void> copy = type->Create();
        auto d = Serialization::CreateXMLPacketDeserializer(packet.data(), packet.size(), 0);
        try {
            type->Read(*d, Serialization::MetaInfo("Root"), copy.get());
        } catch (const Common::Error& error) {
            // Defaults that hold a null pointer to a record with members can't come back:
            // the pointer's empty element lacks the members.
            EXPECT_EQ(error.Code(), 0x9c0002u);
            EXPECT_TRUE(std::regex_search(packet, std::regex("<shared_ptr[^>]*></shared_ptr>")));
            continue;
        }
        EXPECT_TRUE(type->Equal(original.get(), copy.get()));

        auto again = Serialization::CreateXMLPacketSerializer(2, 0);
        type->Write(*again, Serialization::MetaInfo("Root"), copy.get());
        EXPECT_EQ(packet_test::Finish(*again), packet);
    }
}

}  // namespace
