// Building trees from events: the frame rules, including properties named twice, and the
// walk that produces the events.

#include <tessel_link/por/unit_accumulator.h>
#include <tessel_link/por/unit_walker.h>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::UnitAccumulator;
using Kind = UnitAccumulator::FrameKind;

UnitPtr Take(UnitAccumulator& acc) {
    UnitPtr unit;
    acc.TakeUnit(unit);
    return unit;
}

TEST(UnitAccumulator, ANilIsReplacedByTheValueThatFollowsIt) {
    UnitAccumulator acc(F());
    acc.AddNil();
    acc.AddString(u"s");
    acc.End();
    EXPECT_TRUE(Por::Util::UnitEqual(*Take(acc), *Str(u"s")));

    // In a property, and with the nil's traits moved onto the value.
    acc.BeginComposite();
    acc.BeginProperty("p");
    acc.AddNil();
    acc.BeginTrait("T");
    acc.AddDword(1);
    acc.End();
    acc.AddDword(9);
    acc.End();
    acc.End();
    EXPECT_TRUE(Por::Util::UnitEqual(*Take(acc), *Comp("p", With(Dword(9), "T", Dword(1)))));
}

TEST(UnitAccumulator, TheRootTakesOneValueUnlessItIsAnArray) {
    UnitAccumulator acc(F());
    acc.AddDword(1);
    acc.AddDword(2);
    acc.BeginComposite();
    acc.End();
    EXPECT_TRUE(Por::Util::UnitEqual(*Take(acc), *Dword(1)));
    EXPECT_EQ(Take(acc), nullptr);  // taken already

    acc.BeginArray();
    acc.AddDword(1);
    acc.End();
    acc.AddString(u"x");
    acc.End();
    acc.End();
    EXPECT_TRUE(Por::Util::UnitEqual(*Take(acc), *Arr(Dword(1), Str(u"x"))));
}

TEST(UnitAccumulator, PropertiesOfAUnitUnderConstructionAreKept) {
    UnitAccumulator acc(F());
    acc.BeginComposite();
    EXPECT_EQ(acc.TopKind(), Kind::Root);
    acc.BeginProperty("b");
    EXPECT_EQ(acc.TopKind(), Kind::NewProperty);
    acc.AddDword(2);
    acc.End();
    acc.BeginProperty("a");
    acc.BeginComposite();
    acc.BeginProperty("inner");
    acc.AddString(u"x");
    acc.End();
    acc.End();
    acc.BeginTrait("Version");
    acc.AddQword(3);
    acc.End();
    acc.End();
    EXPECT_EQ(acc.Depth(), 1u);
    EXPECT_TRUE(Por::Util::UnitEqual(
        *Take(acc),
        *With(Comp("a", Comp("inner", Str(u"x")), "b", Dword(2)), "Version", Qword(3))));
}

TEST(UnitAccumulator, APropertyNamedTwiceUpdatesTheFirst) {
    UnitAccumulator acc(F());
    acc.BeginComposite();
    for (std::uint32_t v : {1u, 2u}) {
        acc.BeginProperty("n");
        acc.AddDword(v);
        acc.End();
    }
    // A composite continues, an array gets more elements.
    for (const char* name : {"x", "y"}) {
        acc.BeginProperty("c");
        acc.BeginComposite();
        acc.BeginProperty(name);
        acc.AddBoolean(true);
        acc.End();
        acc.End();
        acc.BeginProperty("list");
        acc.BeginArray();
        acc.AddByte(static_cast<std::uint8_t>(name[0]));
        acc.End();
        acc.End();
    }
    acc.End();
    EXPECT_TRUE(
        Por::Util::UnitEqual(*Take(acc), *Comp("c", Comp("x", Bool(true), "y", Bool(true)), "list",
                                               Arr(Byte('x'), Byte('y')), "n", Dword(2))));

    // A second value of another kind can't be assigned.
    acc.BeginComposite();
    acc.BeginProperty("n");
    acc.AddDword(1);
    acc.End();
    acc.BeginProperty("n");
    EXPECT_EQ(acc.TopKind(), Kind::ExistingProperty);
    EXPECT_EQ(Thrown([&] { acc.AddString(u"no"); }).Code(), 0xfa0011u);
}

TEST(UnitAccumulator, AnExistingNilPropertyIsReplaced) {
    UnitAccumulator acc(F());
    acc.BeginComposite();
    acc.BeginProperty("p");
    acc.AddNil();
    acc.End();
    acc.BeginProperty("p");
    acc.BeginComposite();
    acc.BeginProperty("q");
    acc.AddWord(4);
    acc.End();
    acc.End();
    acc.End();
    EXPECT_TRUE(Por::Util::UnitEqual(*Take(acc), *Comp("p", Comp("q", Word(4)))));
}

TEST(UnitAccumulator, MisplacedEventsFailCleanly) {
    {
        UnitAccumulator acc(F());
        acc.BeginTrait("T");
        acc.AddNil();
        EXPECT_EQ(Thrown([&] { acc.End(); }).Code(), 0xfa000bu);  // no unit to carry it
    }
    {
        UnitAccumulator acc(F());
        acc.BeginComposite();
        acc.BeginProperty("p");
        EXPECT_EQ(Thrown([&] { acc.End(); }).Code(), 0xfa000bu);  // no value
    }
    {
        UnitAccumulator acc(F());
        acc.AddDword(1);
        EXPECT_EQ(Thrown([&] { acc.BeginProperty("p"); }).Code(), 0xfa000au);
    }
    {
        // Abandoned with open frames: what was built is released (checked by the sanitizers).
        UnitAccumulator acc(F());
        acc.BeginComposite();
        acc.BeginProperty("p");
        acc.BeginArray();
        acc.AddString(u"open");
    }
}

// Records the events of a walk as text.
class EventLog final : public Por::Util::UnitWalker {
public:
    std::string text;
    void BeginUnit() override { text += "U"; }
    void EndUnit() override { text += "E"; }
    void BeginProperty(const Por::UnitName& n) override { text += "P" + std::string(n.Text()); }
    void BeginTrait(const Por::UnitName& n) override { text += "T" + std::string(n.Text()); }
    void OnNil() override { text += "0"; }
    void OnError(const Common::Error&) override { text += "e"; }
    void OnString(const Por::WideString&) override { text += "s"; }
    void OnGuid(const Common::Guid&) override { text += "g"; }
    void OnBlob(const Por::ByteVector&) override { text += "b"; }
    void OnDouble(double) override { text += "f"; }
    void OnSqword(std::int64_t) override { text += "q"; }
    void OnQword(std::uint64_t) override { text += "Q"; }
    void OnSdword(std::int32_t) override { text += "d"; }
    void OnDword(std::uint32_t) override { text += "D"; }
    void OnSword(std::int16_t) override { text += "w"; }
    void OnWord(std::uint16_t) override { text += "W"; }
    void OnSbyte(std::int8_t) override { text += "y"; }
    void OnByte(std::uint8_t) override { text += "Y"; }
    void OnBoolean(bool) override { text += "1"; }
    void BeginArray() override { text += "A"; }
    void BeginComposite() override { text += "C"; }
};

struct TraitsFirstShallow final : Por::Util::TraitValueGuide {
    void Choose(Por::Util::TraitValueCrossroad& c) override {
        c.WalkTraits();
        c.WalkValue(false);
    }
};

TEST(WalkHierarchy, ValueFirstThenTraitsAndTheGuideDecides) {
    UnitPtr tree = With(Comp("z", Arr(Dword(1), With(Nil(), "N")), "a", Str(u"s")), "T",
                        Comp("v", Bool(true)));
    EventLog log;
    Por::Util::WalkValueFirstGuide valueFirst;
    Por::Util::WalkHierarchy(*tree, valueFirst, log);
    EXPECT_EQ(log.text, "UCPaUsEPzUAUDEU0TNU0EEETTUCPvU1EEE");

    EventLog shallow;
    TraitsFirstShallow guide;
    Por::Util::WalkHierarchy(*tree, guide, shallow);
    EXPECT_EQ(shallow.text, "UTTUCECE");
}

TEST(WalkHierarchy, EveryKindSendsItsEvent) {
    UnitPtr all = Arr(Nil(), Bool(true), Byte(1), Sbyte(1), Word(1), Sword(1), Dword(1), Sdword(1),
                      Qword(1), Sqword(1), Double(1), Blob({1}), Guid(Common::Guid{}), Str(u"x"),
                      Err(Common::Error()), Arr(), Comp());
    EventLog log;
    Por::Util::WalkValueFirstGuide guide;
    Por::Util::WalkHierarchy(*all, guide, log);
    EXPECT_EQ(log.text, "UAU0EU1EUYEUyEUWEUwEUDEUdEUQEUqEUfEUbEUgEUsEUeEUAEUCEE");
}

}  // namespace
