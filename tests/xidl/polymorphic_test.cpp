// Members that point into a hierarchy: the closed hierarchies that travel by kind number,
// and open ones that travel by class ID.

#include <gtest/gtest.h>

#include "xidl/xidl_support.h"

namespace {

using xidl_test::Body;
using xidl_test::Read;
using xidl_test::RoundTrip;
using xidl_test::Watch;

using AlarmPtr = std::shared_ptr<ScheduleManagement::Alarm>;

TEST(Polytype, AKindIsWrittenAsItsNumberTheCommonFieldsAndItsRecordInImpl) {
    auto alarm = std::make_shared<ScheduleManagement::LogonAlarm>();
    alarm->OnceADayFlag = true;
    alarm->SessType = 2u;
    EXPECT_EQ(Body(AlarmPtr(alarm), "Trigger"),
              "<Trigger><Alarm><polyType>2</polyType><OnceADayFlag>1</OnceADayFlag><impl><SessType>"
              "<optional_type><is_null>0</is_null><value>2</value></optional_type></SessType></impl>"
              "</Alarm></Trigger>");
}

TEST(Polytype, KindsComeBackWithTheirClassAndTheCommonFields) {
    ScheduleManagement::Schedule schedule;
    auto time = std::make_shared<ScheduleManagement::TimeAlarm>();
    time->StartTime = {0, 30, 6};
    auto weekly = std::make_shared<ScheduleManagement::WeeklyCalendar>();
    weekly->WeekInterval = 2;
    weekly->Days = 0x3e;
    time->Calendar = weekly;
    auto startup = std::make_shared<ScheduleManagement::StartupAlarm>();
    startup->OnceADayFlag = true;
    schedule.Alarms = {time, startup};
    schedule.Conditions = {std::make_shared<ScheduleManagement::NotOnMeteredConnectionCondition>(),
                           std::make_shared<ScheduleManagement::BatteryLevelEnoughCondition>()};

    const ScheduleManagement::Schedule back = RoundTrip(schedule);
    EXPECT_EQ(back, schedule);
    ASSERT_EQ(back.Alarms.size(), 2u);
    auto backTime = std::dynamic_pointer_cast<ScheduleManagement::TimeAlarm>(back.Alarms.front());
    ASSERT_NE(backTime, nullptr);
    auto backWeekly = std::dynamic_pointer_cast<ScheduleManagement::WeeklyCalendar>(backTime->Calendar);
    ASSERT_NE(backWeekly, nullptr);
    EXPECT_EQ(backWeekly->Days, 0x3e);
    // The flag of a kind without members reaches the object the reader made.
    auto backStartup = std::dynamic_pointer_cast<ScheduleManagement::StartupAlarm>(back.Alarms.back());
    ASSERT_NE(backStartup, nullptr);
    EXPECT_TRUE(backStartup->OnceADayFlag);
    EXPECT_NE(std::dynamic_pointer_cast<ScheduleManagement::BatteryLevelEnoughCondition>(
                  back.Conditions.back()),
              nullptr);
}

TEST(Polytype, ANullPointerIsAnEmptyElementAndReadsAsNull) {
    Watch watch;
    EXPECT_EQ(Body(AlarmPtr(), "A"), "<A><Alarm></Alarm></A>");
    EXPECT_EQ(Read<AlarmPtr>("<A><Alarm></Alarm></A>", "A"), nullptr);
    EXPECT_TRUE(watch.assertions.empty());
}

TEST(Polytype, AnUnknownNumberReadsAsNullWithTheAssertion) {
    Watch watch;
    // A kind that a newer peer added, with members of its own.
    const std::string body =
        "<A><Alarm><polyType>32768</polyType><OnceADayFlag>1</OnceADayFlag><impl><New>1</New></impl>"
        "</Alarm></A>";
    EXPECT_EQ(Read<AlarmPtr>(body, "A"), nullptr);
    EXPECT_EQ(watch.assertions, std::vector<std::string>{"!\"Unknown polymorph type of Alarm!\""});
    // The element is left whole: what follows it still reads.
    const auto list = Read<std::vector<AlarmPtr>>(
        "<L><vector><item>" + body.substr(3, body.size() - 7) +
            "</item><item><Alarm><polyType>64</polyType><OnceADayFlag>0</OnceADayFlag><impl></impl>"
            "</Alarm></item></vector></L>",
        "L");
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0], nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<ScheduleManagement::PowerOffAlarm>(list[1]), nullptr);
}

TEST(Polytype, AKindTheSwitchLeavesOutWritesItsNumberOnlyAndReadsAsNull) {
    Watch watch;
    auto device = std::make_shared<ScheduleManagement::DeviceChangedAlarm>();
    device->DeviceID = u"usb";
    const std::string body = Body(AlarmPtr(device));
    EXPECT_EQ(body, "<Root><Alarm><polyType>16384</polyType><OnceADayFlag>0</OnceADayFlag></Alarm></Root>");
    EXPECT_EQ(Read<AlarmPtr>(body), nullptr);
    EXPECT_EQ(watch.assertions.size(), 2u);
}

TEST(Polytype, AContextTravelsUnderItsOpcodeAndSelectsItsClassByTheNumber) {
    auto convert = std::make_shared<DiskManagementEx::ConvertDiskContext>();
    convert->PsType = std::u16string(u"GPT");
    const std::string body = Body(std::shared_ptr<DiskManagementEx::Context>(convert));
    EXPECT_EQ(body.rfind("<Root><Context><operationCode>5</operationCode><impl version=\"3\"><DiskID>", 0), 0u)
        << body;
    // This kind writes its Opcode last.
    EXPECT_NE(body.find("<Opcode><OperationCode>OPERATION_CONVERT_DISK</OperationCode></Opcode></impl>"),
              std::string::npos);

    auto change = std::make_shared<DiskManagementEx::ChangeVolumeContext>();
    change->Label = std::u16string(u"Data");
    const auto back = RoundTrip(std::shared_ptr<DiskManagementEx::Context>(change));
    auto backChange = std::dynamic_pointer_cast<DiskManagementEx::ChangeVolumeContext>(back);
    ASSERT_NE(backChange, nullptr);
    EXPECT_EQ(backChange->TypeNumber(), 3u);
    EXPECT_EQ(backChange->Label.Get(), u"Data");
    EXPECT_EQ(*back, *change);

    // The number, not the members, chooses the class: the same volume members under 4.
    std::string copy = Body(std::shared_ptr<DiskManagementEx::Context>(change));
    copy.replace(copy.find("<operationCode>3"), 16, "<operationCode>4");
    EXPECT_NE(std::dynamic_pointer_cast<DiskManagementEx::CopyVolumeContext>(
                  Read<std::shared_ptr<DiskManagementEx::Context>>(copy)),
              nullptr);
}

TEST(Polytype, OneVolumeClassServesTheCodesOfItsSiblings) {
    // A create context given the change code, and a copy analysis given the create code: each
    // goes out under its Opcode with the volume members, and comes back as the number's class.
    Watch watch;
    auto context = std::make_shared<DiskManagementEx::CreateVolumeContext>();
    context->Opcode = DiskManagementEx::OperationCode::OPERATION_CHANGE_VOLUME;
    context->Label = std::u16string(u"Data");
    const auto back = RoundTrip(std::shared_ptr<DiskManagementEx::Context>(context));
    auto change = std::dynamic_pointer_cast<DiskManagementEx::ChangeVolumeContext>(back);
    ASSERT_NE(change, nullptr);
    EXPECT_EQ(change->TypeNumber(), 3u);
    EXPECT_EQ(change->Label.Get(), u"Data");

    auto analysis = std::make_shared<DiskManagementEx::CopyVolumeAnalysis>();
    analysis->Opcode = DiskManagementEx::OperationCode::OPERATION_CREATE_VOLUME;
    analysis->PossibleLetters = {u"E:"};
    const auto created = std::dynamic_pointer_cast<DiskManagementEx::CreateVolumeAnalysis>(
        RoundTrip(std::shared_ptr<DiskManagementEx::Analysis>(analysis)));
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(created->PossibleLetters, std::vector<std::u16string>{u"E:"});
    EXPECT_TRUE(watch.assertions.empty());

    // A class outside the volume family can't stand for one: the number is unknown to it.
    auto removal = std::make_shared<DiskManagementEx::DeleteVolumeContext>();
    removal->Opcode = DiskManagementEx::OperationCode::OPERATION_CREATE_VOLUME;
    EXPECT_EQ(Body(std::shared_ptr<DiskManagementEx::Context>(removal)),
              "<Root><Context><operationCode>2</operationCode></Context></Root>");
    EXPECT_EQ(watch.assertions.size(), 1u);
}

TEST(Polytype, TheMemberThatHoldsTheNumberTakesTheNumberOnTheWire) {
    Watch watch;
    // A peer's record disagrees with the number it stands under: the number wins, so that
    // the object writes the same number again.
    const auto back = Read<std::shared_ptr<DiskManagementEx::Context>>(
        "<Root><Context><operationCode>1</operationCode><impl><Opcode><OperationCode>OPERATION_COPY_DISK"
        "</OperationCode></Opcode><VolumeID></VolumeID></impl></Context></Root>");
    ASSERT_NE(std::dynamic_pointer_cast<DiskManagementEx::DeleteVolumeContext>(back), nullptr);
    EXPECT_EQ(back->TypeNumber(), 1u);
    const auto tavi = Read<std::shared_ptr<ConfigurationManagement::ConfigurationBase>>(
        "<Root><ConfigurationBase><polyType>14</polyType><impl><Reporting><IsEnabled>1</IsEnabled>"
        "</Reporting><Category>6</Category></impl></ConfigurationBase></Root>");
    ASSERT_NE(tavi, nullptr);
    EXPECT_EQ(tavi->TypeNumber(), 14u);
    EXPECT_TRUE(watch.assertions.empty());
}

TEST(Polytype, ThereIsNoAnalysisOfADiskChange) {
    Watch watch;
    EXPECT_EQ(Read<std::shared_ptr<DiskManagementEx::Analysis>>(
                  "<Root><Analysis><operationCode>9</operationCode><impl></impl></Analysis></Root>"),
              nullptr);
    EXPECT_EQ(watch.assertions, std::vector<std::string>{"!\"Unknown polymorph type of Analysis!\""});
}

TEST(Polytype, ASectionServingSeveralNumbersKeepsTheOneItWasReadWith) {
    using Sections = std::list<std::shared_ptr<ConfigurationManagement::ConfigurationBase>>;
    auto tavi = std::make_shared<ConfigurationManagement::TaviConfiguration>();
    EXPECT_EQ(tavi->TypeNumber(), 6u);
    tavi->Category = 13;
    tavi->Reporting.IsEnabled = true;
    Sections sections{tavi, std::make_shared<ConfigurationManagement::CatalogConfiguration>()};
    const std::string body = Body(sections);
    EXPECT_NE(body.find("<polyType>13</polyType>"), std::string::npos);
    const Sections back = Read<Sections>(body);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back.front()->TypeNumber(), 13u);
    EXPECT_EQ(*back.front(), *tavi);
    EXPECT_EQ(back.back()->TypeNumber(), 15u);
}

TEST(Polytype, AnUnknownSectionLeavesANullInTheList) {
    Watch watch;
    const std::string body =
        "<Root version=\"55\"><vector><item><ConfigurationBase><polyType>9</polyType><impl></impl>"
        "</ConfigurationBase></item><item><ConfigurationBase><polyType>16</polyType><impl>"
        "<WorkingDirectory>/tmp</WorkingDirectory></impl></ConfigurationBase></item></vector></Root>";
    const auto back = Read<std::vector<std::shared_ptr<ConfigurationManagement::ConfigurationBase>>>(body);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0], nullptr);
    auto rusk = std::dynamic_pointer_cast<ConfigurationManagement::RuskConfiguration>(back[1]);
    ASSERT_NE(rusk, nullptr);
    EXPECT_EQ(rusk->WorkingDirectory, u"/tmp");
    EXPECT_EQ(watch.assertions, std::vector<std::string>{"!\"Unknown polymorph type of Configuration!\""});
}

TEST(Polytype, KindsCompareByClassAndMembers) {
    ScheduleManagement::StartupAlarm startup;
    ScheduleManagement::ShutdownAlarm shutdown;
    EXPECT_FALSE(static_cast<const ScheduleManagement::Alarm&>(startup) ==
                 static_cast<const ScheduleManagement::Alarm&>(shutdown));
    ScheduleManagement::StartupAlarm flagged;
    flagged.OnceADayFlag = true;
    EXPECT_FALSE(startup == flagged);
    EXPECT_TRUE(startup == ScheduleManagement::StartupAlarm());
}

// --- the class-ID form ------------------------------------------------------------------------

class Note : public Serialization::Serializable {
public:
    static constexpr std::uint32_t kClassId = 0x4e4f5445;
    std::u16string Text;

    void Write(Serialization::Serializer& s) const override {
        s.Write(Serialization::MetaInfo("Text"), Text);
    }
    void Read(Serialization::Deserializer& d) override { d.Read(Serialization::MetaInfo("Text"), Text); }
    std::uint32_t GetClassID() const override { return kClassId; }
};

class NoteFactory : public Serialization::SerializableFactory {
public:
    std::unique_ptr<Serialization::Serializable> Create(std::uint32_t classId) override {
        return classId == Note::kClassId ? std::make_unique<Note>() : nullptr;
    }
};

using Object = std::shared_ptr<Serialization::Serializable>;

TEST(ClassIdForm, AnObjectTravelsWithItsClassIdAndIsMadeByItsFactory) {
    NoteFactory factory;
    Serialization::RegisterFactory(Note::kClassId, &factory);
    auto note = std::make_shared<Note>();
    note->Text = u"hello";
    const std::string body = Body(Object(note));
    EXPECT_EQ(body, "<Root><ClassID>1313821765</ClassID><Object><Text>hello</Text></Object></Root>");
    auto back = std::dynamic_pointer_cast<Note>(Read<Object>(body));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->Text, u"hello");
    Serialization::UnregisterFactory(Note::kClassId);
}

TEST(ClassIdForm, ANullObjectAddsNothingAndReadsAsNull) {
    EXPECT_EQ(Body(Object()), "<Root></Root>");
    EXPECT_EQ(Read<Object>("<Root></Root>"), nullptr);
}

TEST(ClassIdForm, ClassIdZeroAndUnknownClassesAreErrors) {
    Watch watch;
    try {
        Read<Object>("<Root><ClassID>0</ClassID><Object></Object></Root>");
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0006u);
        EXPECT_STREQ(error.Origin().Func, "Serialization::operator >>");
    }
    try {
        Read<Object>("<Root><ClassID>77</ClassID><Object></Object></Root>");
        FAIL() << "no error";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0x9c0005u);
        EXPECT_EQ(error.Text(), u"Failed to create the object.");
    }
    EXPECT_EQ(watch.assertions, std::vector<std::string>{"!\"Why factory couldn't create object??\""});
}

}  // namespace
