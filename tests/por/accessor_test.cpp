// Addressing by names: composites, arrays read as maps, and the failure that names the step.

#include <tessel_link/por/data_accessor.h>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::ConstDataAccessor;

std::u16string StringAt(const ConstDataAccessor& a) {
    return Por::Util::GetStringValue(a.GetUnit());
}

TEST(DataAccessor, StepsThroughCompositesAndNamesTheFirstMissingStep) {
    UnitPtr tree = Comp("a", Comp("b", Str(u"deep")), "c", Dword(3));
    ConstDataAccessor root(tree.get());
    EXPECT_EQ(StringAt(root["a"]["b"]), u"deep");
    EXPECT_EQ(ValueOf<std::uint32_t>(root["c"].GetUnit()), 3u);

    const ConstDataAccessor missing = root["x"]["b"];
    EXPECT_FALSE(missing.IsValid());
    EXPECT_EQ(missing.FailedName().Text(), "x");
    const Common::Error e = Thrown([&] { missing.EnsureUnitIsValid(); });
    EXPECT_EQ(e.Code(), 0xfa0020u);
    EXPECT_EQ(e.Text(), u"POR: Element '{0}' cannot be found.");
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"x");
    // The record carries a dump of the whole tree, which the text does not show.
    const std::u16string dump = e.GetWide("1");
    EXPECT_EQ(dump.rfind(u"Unit: Root (Composite)\n", 0), 0u);
    EXPECT_NE(dump.find(u"b (Common::String) = deep"), std::u16string::npos);

    // A scalar has no children: the step fails at its own name.
    EXPECT_EQ(root["c"]["d"].FailedName().Text(), "d");
}

TEST(DataAccessor, WithoutATreeTheFailureHasNoDump) {
    ConstDataAccessor nothing(nullptr);
    const Common::Error e = Thrown([&] { nothing["a"].GetUnit(); });
    EXPECT_EQ(e.Code(), 0xfa0020u);
    EXPECT_EQ(e.GetWide("1"), nullptr);
    EXPECT_EQ(std::string(e.GetNames()).find("1,"), std::string::npos);
}

TEST(DataAccessor, ArraysAreReadAsMapsOfFirstAndSecond) {
    UnitPtr map = Arr(Dword(1),                                      // no composite: skipped
                      Comp("second", Str(u"no first")),              // no "first": skipped
                      Comp("first", Dword(5), "second", Str(u"e")),  // "first" reads as ""
                      Comp("first", Str(u"k"), "second", Str(u"v1")),
                      Comp("first", Str(u"k"), "second", Str(u"v2")),
                      Comp("first", Str(u"caf\u00e9"), "second", Str(u"utf8")));
    ConstDataAccessor a(map.get());
    EXPECT_EQ(StringAt(a["k"]), u"v1");  // the first hit wins
    EXPECT_EQ(StringAt(a[""]), u"e");
    EXPECT_EQ(StringAt(a[Por::UnitName(u"caf\u00e9")]), u"utf8");
    EXPECT_FALSE(a["second"].IsValid());
    EXPECT_FALSE(a["5"].IsValid());
}

TEST(DataAccessor, CompositesAreNeverReadAsMaps) {
    UnitPtr tree = Comp("first", Str(u"k"), "second", Str(u"v"));
    ConstDataAccessor a(tree.get());
    EXPECT_FALSE(a["k"].IsValid());
    EXPECT_EQ(StringAt(a["first"]), u"k");
}

TEST(DataAccessor, AnOwnerKeepsTheTreeAlive) {
    std::shared_ptr<const Por::View::Unit> owner(Comp("a", Str(u"kept")).release());
    const Por::View::Unit* raw = owner.get();
    ConstDataAccessor a(owner, raw);
    owner.reset();
    const ConstDataAccessor step = a["a"];
    EXPECT_EQ(StringAt(step), u"kept");
    // The failure's dump reads the tree through the owner.
    EXPECT_NE(std::u16string(Thrown([&] { step["zz"].GetUnit(); }).GetWide("1")).find(u"kept"),
              std::u16string::npos);
}

}  // namespace
