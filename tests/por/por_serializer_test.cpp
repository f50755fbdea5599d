// Records written through the POR serializer: the tree of each wire form, the pending
// descriptor's decisions, descriptor traits, failures, and the unit member bridge.

#include "por/serialize/por_serializer.h"
#include "por/serialize/record_to_unit.h"

#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/print.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/unit_member.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "../serialize/packet_text.h"
#include "por/serialize/processing_nodes.h"
#include "por_test_util.h"

namespace Sample {

using Serialization::MetaInfo;
using Serialization::Serializer;

struct Inner {
    std::uint32_t Count = 0;
    std::u16string Label;
};
Serializer& operator<<(Serializer& s, const Inner& v) {
    Serialization::WriteMember(s, MetaInfo("Count"), v.Count);
    Serialization::WriteMember(s, MetaInfo("Label"), v.Label);
    return s;
}

struct Empty {};
Serializer& operator<<(Serializer& s, const Empty&) {
    return s;
}

struct Outer {
    Inner In;
    std::list<std::uint32_t> List;
    std::map<std::string, std::uint32_t> Map;
    std::shared_ptr<Inner> Ptr;
    std::shared_ptr<Inner> Null;
    Empty None;
};
Serializer& operator<<(Serializer& s, const Outer& v) {
    Serialization::WriteMember(s, MetaInfo("In"), v.In);
    Serialization::WriteMember(s, MetaInfo("List"), v.List);
    Serialization::WriteMember(s, MetaInfo("Map"), v.Map);
    Serialization::WriteMember(s, MetaInfo("Ptr"), v.Ptr);
    Serialization::WriteMember(s, MetaInfo("Null"), v.Null);
    Serialization::WriteMember(s, MetaInfo("None"), v.None);
    return s;
}

// Fails halfway: a stray member inside an optional.
struct Broken {
    std::uint32_t Before = 1;
};
Serializer& operator<<(Serializer& s, const Broken& v) {
    Serialization::WriteMember(s, MetaInfo("Before"), v.Before);
    Serialization::WriteScope optional(s, MetaInfo("optional_type"));
    s.Write(MetaInfo("stray"), true);
    return s;
}

// Makes the tree of its inner record while it is being written itself, as a member that
// holds a unit does.
struct Nesting {
    Inner In;
};
Serializer& operator<<(Serializer& s, const Nesting& v);

}  // namespace Sample

template <>
struct Serialization::TypeVersion<Sample::Inner> {
    static constexpr std::uint64_t value = 5;
};

namespace {

using namespace PorTest;
using Serialization::MetaInfo;
using Serialization::MetaInfoTrait;
using Serialization::MetaInfoTraits;
using Serialization::WriteScope;

const Serialization::MetaInfoTraitsPtr kTypeTraits = std::make_shared<const MetaInfoTraits>(
    MetaInfoTraits{{"Searchable", "NilValue", ""}, {"Measure", "StringValue", "seconds"}});

// What an adapter does: the record under "Root" with a version and type traits.
template <class Record>
UnitPtr RecordUnit(const Record& record, std::uint64_t version = 10) {
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    MetaInfo root("Root", kTypeTraits, nullptr);
    root.Version = version;
    {
        WriteScope scope(s, root);
        s << record;
    }
    EXPECT_TRUE(s.Failure().Succeeded());
    return result;
}

UnitPtr Container(const char* form, std::vector<UnitPtr> elements) {
    return With(Array(std::move(elements)), "IsContainer",
                Str(std::u16string(form, form + std::strlen(form))));
}

UnitPtr InnerUnit(std::uint32_t count, std::u16string label, bool versioned) {
    UnitPtr unit = Comp("Count", Dword(count), "Label", Str(label));
    return versioned ? With(std::move(unit), "Version", Qword(5)) : std::move(unit);
}

TEST(PORSerializer, ARecordBecomesATreeWithTheTraitsOfEachForm) {
    Sample::Outer record;
    record.In = {3, u"in"};
    record.List = {7, 8};
    record.Map = {{"a", 1}};
    record.Ptr = std::make_shared<Sample::Inner>(Sample::Inner{4, u"p"});

    std::vector<UnitPtr> list;
    list.push_back(Dword(7));
    list.push_back(Dword(8));
    std::vector<UnitPtr> map;
    map.push_back(Comp("first", Str(u"a"), "second", Dword(1)));
    const UnitPtr expected = With(
        With(With(Comp("In", InnerUnit(3, u"in", true),               //
                       "List", Container("vector", std::move(list)),  //
                       "Map", Container("map", std::move(map)), "Ptr",
                       With(InnerUnit(4, u"p", true), "IsReference", Str(u"shared_ptr")), "Null",
                       With(With(Nil(), "IsReference", Str(u"shared_ptr")), "Version", Qword(5)),
                       "None", Comp()),
                  "Version", Qword(10)),
             "Searchable"),
        "Measure", Str(u"seconds"));
    const UnitPtr tree = RecordUnit(record);
    ASSERT_NE(tree, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*tree, *expected)) << [&] {
        std::ostringstream out;
        Por::Util::Print(*tree, "", out);
        return out.str();
    }();
}

TEST(PORSerializer, ThePendingDescriptorDecidesBetweenCompositeAndBridge) {
    // A record without members is an empty composite; version 0 writes no trait.
    EXPECT_TRUE(
        Por::Util::UnitEqual(*RecordUnit(Sample::Empty{}, 0),
                             *With(With(Comp(), "Searchable"), "Measure", Str(u"seconds"))));

    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    s.BeginWriteMetaInfo(MetaInfo("Root"));
    s.BeginWriteMetaInfo(MetaInfo("Wrapped"));
    EXPECT_EQ(s.CurrentMetaInfo().Name, "Wrapped");
    s.Write(MetaInfo(), std::uint16_t{9});  // unnamed: the node is the scalar itself
    s.FinishWriteMetaInfo(MetaInfo("Wrapped"));
    EXPECT_EQ(s.CurrentMetaInfo().Name, "Root");
    s.BeginWriteMetaInfo(MetaInfo("Record"));
    s.Write(MetaInfo("x"), std::string("caf\xc3\xa9"));  // named: the node is a composite
    s.FinishWriteMetaInfo(MetaInfo("Record"));
    EXPECT_EQ(result, nullptr);  // not before the outermost node ends
    s.FinishWriteMetaInfo(MetaInfo("Root"));
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(
        *result, *Comp("Wrapped", Word(9), "Record", Comp("x", Str(u"caf\u00e9")))));

    // A value written outside any node is the whole tree; a second one replaces it.
    UnitPtr bare;
    Por::Serialization::PORSerializer t(F(), bare);
    t.Write(MetaInfo("v"), true);
    t.Write(MetaInfo("v"), 2.5);
    EXPECT_TRUE(Por::Util::UnitEqual(*bare, *Double(2.5)));
}

// Writes an optional by hand in its wire form.
void WriteOptional(Serialization::Serializer& s, const char* form, const char* state,
                   bool stateValue, const std::uint32_t* value) {
    WriteScope optional(s, MetaInfo(form));
    s.Write(MetaInfo(state), stateValue);
    if (value != nullptr) {
        s.Write(MetaInfo("value"), *value);
    }
}

TEST(PORSerializer, OptionalsCarryTheirFormAndState) {
    const std::uint32_t five = 5;
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    {
        WriteScope root(s, MetaInfo("Root"));
        {
            WriteScope member(s, MetaInfo("Absent"));
            WriteOptional(s, "optional_type", "is_null", true, nullptr);
        }
        {
            WriteScope member(s, MetaInfo("Present"));
            WriteOptional(s, "checked_type", "is_init", true, &five);
        }
        {
            WriteScope member(s, MetaInfo("Nested"));
            WriteScope outer(s, MetaInfo("optional_type"));
            s.Write(MetaInfo("is_null"), false);
            WriteScope value(s, MetaInfo("value"));
            WriteOptional(s, "optional", "is_null", false, &five);
        }
    }
    const UnitPtr expected = Comp(
        "Absent", With(With(Nil(), "IsOptional", Str(u"optional_type")), "is_null", Bool(true)),
        "Present", With(With(Dword(5), "IsOptional", Str(u"checked_type")), "is_init", Bool(true)),
        "Nested",
        With(With(With(Comp("value", With(With(Dword(5), "IsOptional", Str(u"optional")), "is_null",
                                          Bool(false))),
                       "IsRecursive"),
                  "IsOptional", Str(u"optional_type")),
             "is_null", Bool(false)));
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*result, *expected));
}

TEST(PORSerializer, PointersAndPolymorphicObjects) {
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    {
        WriteScope root(s, MetaInfo("Root"));
        {
            WriteScope member(s, MetaInfo("Raw"));
            WriteScope raw(s, MetaInfo("raw_ptr"));
            s.Write(MetaInfo("ptr_mark"), std::uint64_t{77});
            s.Write(MetaInfo("ptr_value"), std::int32_t{-1});
        }
        {
            WriteScope member(s, MetaInfo("Poly"));
            s.Write(MetaInfo("ClassID"), std::uint32_t{12});
            WriteScope object(s, MetaInfo("Object"));
            s.Write(MetaInfo("Field"), true);
        }
        {
            // "Object" is no composite: an ordinary record of two members.
            WriteScope member(s, MetaInfo("NotPoly"));
            s.Write(MetaInfo("ClassID"), std::uint32_t{12});
            s.Write(MetaInfo("Object"), std::u16string(u"text"));
        }
        {
            WriteScope member(s, MetaInfo("Owned"));
            WriteScope pointer(s, MetaInfo("auto_ptr"));
            s.Write(MetaInfo("ClassID"), std::uint32_t{3});
            WriteScope object(s, MetaInfo("Object"));
            s.Write(MetaInfo("F"), std::uint8_t{1});
        }
    }
    const UnitPtr expected = Comp(
        "Raw", With(With(Sdword(-1), "IsReference", Str(u"raw_ptr")), "ptr_mark", Qword(77)),
        "Poly", With(Comp("Field", Bool(true)), "IsPolymorph", Dword(12)), "NotPoly",
        Comp("ClassID", Dword(12), "Object", Str(u"text")), "Owned",
        With(With(Comp("F", Byte(1)), "IsReference", Str(u"auto_ptr")), "IsPolymorph", Dword(3)));
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*result, *expected));
}

TEST(PORSerializer, UnrecognizedChildrenUseTheSerializerUp) {
    for (const char* form : {"optional_type", "raw_ptr"}) {
        UnitPtr result = Str(u"untouched");
        Por::Serialization::PORSerializer s(F(), result);
        s.BeginWriteMetaInfo(MetaInfo("Root"));
        s.BeginWriteMetaInfo(MetaInfo(form));
        const Common::Error e = Thrown([&] { s.Write(MetaInfo("stray"), true); });
        EXPECT_EQ(e.Code(), 0xfa0019u);
        EXPECT_EQ(std::u16string(e.GetWide("0")), std::u16string(form, form + std::strlen(form)));
        EXPECT_EQ(std::u16string(e.GetWide("1")), u"stray");
        EXPECT_NE(
            e.Text().find(std::string(form) == "raw_ptr" ? u"pointer value" : u"optional value"),
            std::u16string::npos);
        // Every later call fails the same way and the destination stays as it was.
        EXPECT_EQ(Thrown([&] { s.FinishWriteMetaInfo(MetaInfo(form)); }).Code(), 0xfa0019u);
        EXPECT_EQ(Thrown([&] { s.FinishWriteMetaInfo(MetaInfo("Root")); }).Code(), 0xfa0019u);
        EXPECT_TRUE(Por::Util::UnitEqual(*result, *Str(u"untouched")));
    }
}

TEST(RecordToUnit, EachTreeIsWholeWhateverTheRecordsBeforeIt) {
    const Sample::Inner inner{3, u"x"};
    UnitPtr first;
    Por::Serialization::RecordToUnit(first, inner, F());
    // A failure leaves the destination empty and nothing behind for the next record.
    UnitPtr failed = Str(u"old");
    EXPECT_EQ(Thrown([&] { Por::Serialization::RecordToUnit(failed, Sample::Broken{}, F()); }).Code(),
              0xfa0019u);
    EXPECT_EQ(failed, nullptr);
    UnitPtr second;
    Por::Serialization::RecordToUnit(second, inner, F());
    UnitPtr nested;
    Por::Serialization::RecordToUnit(nested, Sample::Nesting{inner}, F());
    UnitPtr third;
    Por::Serialization::RecordToUnit(third, inner, F());

    const UnitPtr expected = InnerUnit(3, u"x", true);
    for (const UnitPtr* tree : {&first, &second, &third}) {
        ASSERT_NE(*tree, nullptr);
        EXPECT_TRUE(Por::Util::UnitEqual(**tree, *expected));
    }
    // The inner tree was made while the outer one was being made, and each went to its own
    // destination.
    const UnitPtr outer = Comp("In", InnerUnit(3, u"x", true), "Tree", InnerUnit(3, u"x", true));
    ASSERT_NE(nested, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*nested, *outer));
}

TEST(PORSerializer, ANodeWithoutValueCannotEnd) {
    Por::Serialization::Detail::BridgeNode parent(nullptr, MetaInfo(), F());
    Por::Serialization::Detail::BridgeNode empty(&parent, MetaInfo("Member"), F());
    const Common::Error e = Thrown([&] { empty.Finalize(); });
    EXPECT_EQ(e.Code(), 0xfa0019u);
    EXPECT_EQ(e.Text(), u"POR: An error occurred while serializing '{0}'. No value was set.");
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"Member");
}

const char* g_fired = nullptr;

TEST(PORSerializer, DescriptorTraitsOfBothListsAndAnUnknownValueType) {
    const auto member = std::make_shared<const MetaInfoTraits>(MetaInfoTraits{
        {"Obscured", "NilValue", ""}, {"Bad", "Number", "1"}, {"Type", "StringValue", "X::Y"}});
    MetaInfo meta("m", kTypeTraits, member);
    meta.Version = 2;
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    const auto previous = Common::SetAssertionObserver(
        [](const char* expression, const char*, int) { g_fired = expression; });
    s.Write(meta, std::int64_t{1});
    Common::SetAssertionObserver(previous);
    ASSERT_NE(g_fired, nullptr);
    EXPECT_STREQ(g_fired, "false && \"Unknown trait value type!\"");
    EXPECT_TRUE(Por::Util::UnitEqual(
        *result, *With(With(With(With(With(Sqword(1), "Version", Qword(2)), "Searchable"),
                                 "Measure", Str(u"seconds")),
                            "Obscured"),
                       "Type", Str(u"X::Y"))));
}

TEST(PORSerializer, WriteUnitCopiesAndMarksAMissingUnit) {
    UnitPtr result;
    auto s = Por::Serialization::CreatePORSerializer(F(), result);
    Serialization::Serializer& plain = *s;
    auto* aware = Common::QueryInterface<Por::Serialization::PorAwareSerializer>(plain);
    ASSERT_EQ(aware, s.get());
    const UnitPtr source = With(Comp("a", Arr(Dword(1))), "T");
    {
        WriteScope root(plain, MetaInfo("Root"));
        aware->WriteUnit(MetaInfo("Given"), source.get());
        aware->WriteUnit(MetaInfo("Missing"), nullptr);
    }
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*result, *Comp("Given", With(Comp("a", Arr(Dword(1))), "T"),
                                                    "Missing", With(Nil(), "IsEmpty"))));
    Serialization::XMLPacketSerializer packet(2, 0);
    EXPECT_EQ(Common::QueryInterface<Por::Serialization::PorAwareSerializer>(packet), nullptr);
}

// A deserializer that holds units, as a POR-aware peer end would.
class UnitShelf final : public Por::Serialization::PorAwareDeserializer {
public:
    std::shared_ptr<const Por::View::Unit> unit;
    std::vector<std::string> opened;
#define TL_NO_READ(Type)                                  \
    Deserializer& Read(const MetaInfo&, Type&) override { \
        throw std::logic_error("no value read");          \
    }
    TL_NO_READ(Serialization::Blob)
    TL_NO_READ(std::vector<unsigned char>)
    TL_NO_READ(std::uint16_t)
    TL_NO_READ(std::int16_t)
    TL_NO_READ(std::string)
    TL_NO_READ(std::int64_t)
    TL_NO_READ(std::int32_t)
    TL_NO_READ(std::uint64_t)
    TL_NO_READ(double)
    TL_NO_READ(std::uint32_t)
    TL_NO_READ(std::u16string)
    TL_NO_READ(Common::Error)
    TL_NO_READ(Common::Guid)
    TL_NO_READ(std::uint8_t)
    TL_NO_READ(bool)
#undef TL_NO_READ
    MetaInfo NextMetaInfo() override {
        return MetaInfo();
    }
    void BeginReadMetaInfo(const MetaInfo& meta) override {
        opened.push_back(meta.Name);
    }
    void FinishReadMetaInfo(const MetaInfo&) override {}
    std::uint64_t GetSubjectVersion() override {
        return 0;
    }
    void ReadUnit(const MetaInfo&, std::shared_ptr<const Por::View::Unit>& out) override {
        out = unit;
    }
};

TEST(UnitMember, APlainEndSeesIsEmptyAndTheBinaryForm) {
    const std::shared_ptr<const Por::View::Unit> tree(With(Comp("k", Str(u"v")), "T").release());
    Serialization::XMLPacketSerializer s(2, 0);
    Serialization::WriteMember(s, MetaInfo("present"), tree);
    Serialization::WriteMember(s, MetaInfo("missing"), std::shared_ptr<const Por::View::Unit>());
    const std::string packet = packet_test::Finish(s);
    const std::string& body = packet;
    EXPECT_NE(body.find("<present><is_empty>0</is_empty><value>"), std::string::npos) << body;
    EXPECT_NE(body.find("<missing><is_empty>1</is_empty></missing>"), std::string::npos) << body;

    Serialization::XMLPacketDeserializer d(packet.data(), packet.size(), 0);
    std::shared_ptr<const Por::View::Unit> present, missing = tree;
    Serialization::ReadMember(d, MetaInfo("present"), present);
    Serialization::ReadMember(d, MetaInfo("missing"), missing);
    ASSERT_NE(present, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*present, *tree));
    EXPECT_EQ(missing, nullptr);
}

TEST(UnitMember, APorAwareEndTakesTheUnitWhole) {
    const std::shared_ptr<const Por::View::Unit> tree(Arr(Nil()).release());
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    {
        WriteScope root(s, MetaInfo("Root"));
        Serialization::WriteMember(s, MetaInfo("arg"), tree);
        Serialization::WriteMember(s, MetaInfo("none"), std::shared_ptr<const Por::View::Unit>());
    }
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(
        Por::Util::UnitEqual(*result, *Comp("arg", Arr(Nil()), "none", With(Nil(), "IsEmpty"))));

    UnitShelf shelf;
    shelf.unit = tree;
    std::shared_ptr<const Por::View::Unit> read;
    Serialization::ReadMember(shelf, MetaInfo("arg"), read);
    EXPECT_EQ(read, tree);
    EXPECT_EQ(shelf.opened, std::vector<std::string>{"arg"});
}

// The codecs of containers reach the unit overloads, also through qualified calls made in
// templates (as request arguments make them).
template <class Value>
void WriteArgument(Serialization::Serializer& s, const char* name, const Value& value) {
    Serialization::WriteMember(s, MetaInfo(name), value);
}

TEST(UnitMember, SequencesOfUnitsTravelElementByElement) {
    std::vector<std::shared_ptr<const Por::View::Unit>> snapshot;
    snapshot.emplace_back(Comp("a", Dword(1)).release());
    snapshot.emplace_back();
    Serialization::XMLPacketSerializer s(2, 0);
    WriteArgument(s, "snapshot", snapshot);
    const std::string packet = packet_test::Finish(s);
    Serialization::XMLPacketDeserializer d(packet.data(), packet.size(), 0);
    std::vector<std::shared_ptr<const Por::View::Unit>> read;
    Serialization::ReadMember(d, MetaInfo("snapshot"), read);
    ASSERT_EQ(read.size(), 2u);
    ASSERT_NE(read[0], nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*read[0], *snapshot[0]));
    EXPECT_EQ(read[1], nullptr);
}

TEST(UnitMember, ACorruptValueIsTheCorruptionError) {
    Serialization::XMLPacketSerializer s(2, 0);
    {
        WriteScope member(s, MetaInfo("arg"));
        s.Write(MetaInfo("is_empty"), false);
        s.Write(MetaInfo("value"), std::vector<unsigned char>{'U', 0x7f});
    }
    const std::string packet = packet_test::Finish(s);
    Serialization::XMLPacketDeserializer d(packet.data(), packet.size(), 0);
    std::shared_ptr<const Por::View::Unit> read;
    EXPECT_EQ(Thrown([&] { Serialization::ReadMember(d, MetaInfo("arg"), read); }).Code(),
              0xfa0021u);
    EXPECT_EQ(read, nullptr);
}

}  // namespace

namespace Sample {

Serializer& operator<<(Serializer& s, const Nesting& v) {
    Serialization::WriteMember(s, MetaInfo("In"), v.In);
    Por::UnitPtr tree;
    Por::Serialization::RecordToUnit(tree, v.In, PorTest::F());
    Common::QueryInterface<Por::Serialization::PorAwareSerializer>(s)->WriteUnit(MetaInfo("Tree"),
                                                                                 tree.get());
    return s;
}

}  // namespace Sample
