// Assignment: the matrix of kinds, traits as a precondition, properties from the source side,
// arrays replaced whole, and nothing changed when anything fails.

#include <tessel_link/por/assign.h>
#include <tessel_link/por/print.h>

#include <sstream>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::Assign;
using Por::Util::UnitEqual;

// Two different values of each kind, in type index order.
UnitPtr Sample(unsigned kind, int variant) {
    const bool b = variant != 0;
    switch (kind) {
        case Por::NilType: return Nil();
        case Por::BooleanType: return Bool(b);
        case Por::ByteType: return Byte(b ? 7 : 1);
        case Por::SbyteType: return Sbyte(b ? -7 : 1);
        case Por::WordType: return Word(b ? 700 : 1);
        case Por::SwordType: return Sword(b ? -700 : 1);
        case Por::DwordType: return Dword(b ? 70000 : 1);
        case Por::SdwordType: return Sdword(b ? -70000 : 1);
        case Por::QwordType: return Qword(b ? 1ull << 40 : 1);
        case Por::SqwordType: return Sqword(b ? -(1ll << 40) : 1);
        case Por::DoubleType: return Double(b ? 2.5 : 1);
        case Por::BlobType: return Blob(b ? std::vector<unsigned char>{9, 9} : std::vector<unsigned char>{1});
        case Por::GuidType: return Guid(Common::Guid{b ? 9u : 1u, 0, 0, {}});
        case Por::StringType: return Str(b ? u"seven" : u"one");
        case Por::ErrorType: return Err(Common::Error(TL_ORIGIN("f"), b ? 7 : 1));
        case Por::ArrayType: return b ? Arr(Str(u"x"), Str(u"y")) : Arr(Dword(1));
        default: return b ? Comp("p", Dword(7)) : Comp("p", Dword(1), "q", Nil());
    }
}

std::string Dump(const Por::View::Unit& unit) {
    std::ostringstream out;
    Por::Util::Print(unit, "", out);
    return out.str();
}

TEST(AssignMatrix, SameKindsAssignAndAllOtherCellsFailWithoutChange) {
    int failures = 0;
    for (unsigned to = 0; to < Por::kTypeCount; ++to) {
        for (unsigned from = 0; from < Por::kTypeCount; ++from) {
            UnitPtr target = Sample(to, 0);
            UnitPtr source = Sample(from, 1);
            const std::string before = Dump(*target);
            const Common::Error e = Thrown([&] { Assign(*target, *source, F()); });
            if (to == from) {
                EXPECT_TRUE(e.Empty()) << to;
                if (to != Por::CompositeType) {
                    EXPECT_TRUE(UnitEqual(*target, *source)) << to;
                }
            } else {
                ++failures;
                EXPECT_EQ(e.Code(), 0xfa0011u) << to << " <- " << from;
                EXPECT_EQ(e.Text(), u"POR: Cannot assign units of different types.");
                EXPECT_EQ(Dump(*target), before);
            }
        }
    }
    EXPECT_EQ(failures, 272);
}

TEST(AssignMatrix, EachFailingCellNamesItself) {
    const Common::Error dwordFromQword = Thrown([] { Assign(*Dword(1), *Qword(1), F()); });
    EXPECT_STREQ(dwordFromQword.Origin().Func, "Por::Util::AssignValue<dword,qword>::Apply");
    const Common::Error nilFromString = Thrown([] { Assign(*Nil(), *Str(u""), F()); });
    EXPECT_STREQ(nilFromString.Origin().Func, "Por::Util::AssignValue<nil,string>::Apply");
    EXPECT_EQ(Thrown([] { Assign(*Str(u""), *Nil(), F()); }).Code(), 0xfa0011u);
    EXPECT_EQ(Thrown([] { Assign(*Blob({}), *Str(u""), F()); }).Code(), 0xfa0011u);
}

TEST(AssignTraits, SourceTraitsMustBeInTheTarget) {
    UnitPtr target = With(Str(u"old"), "T", Dword(1));
    Assign(*target, *Str(u"new"), F());  // the target has one trait more: fine
    EXPECT_EQ(Por::Util::GetStringValue(*target), u"new");
    EXPECT_EQ(TraitNames(*target), std::vector<std::string>{"T"});  // traits are never written

    UnitPtr plain = Str(u"old");
    const Common::Error e = Thrown([&] { Assign(*plain, *With(Str(u"new"), "T", Dword(1)), F()); });
    EXPECT_EQ(e.Code(), 0xfa0012u);
    EXPECT_EQ(e.Text(), u"POR: Cannot assign units with different traits.");
    EXPECT_EQ(Por::Util::GetStringValue(*plain), u"old");

    // Same name, other value: still missing.
    UnitPtr other = With(Str(u"old"), "T", Dword(2));
    EXPECT_EQ(Thrown([&] { Assign(*other, *With(Str(u"new"), "T", Dword(1)), F()); }).Code(),
              0xfa0012u);
}

TEST(AssignComposites, PropertiesComeFromTheSourceSide) {
    UnitPtr target = Comp("a", Dword(1), "b", Str(u"keep"));
    Assign(*target, *Comp("a", Dword(5)), F());  // a subset of the target
    EXPECT_TRUE(UnitEqual(*target, *Comp("a", Dword(5), "b", Str(u"keep"))));

    Assign(*target, *Comp(), F());  // an empty composite changes nothing
    EXPECT_TRUE(UnitEqual(*target, *Comp("a", Dword(5), "b", Str(u"keep"))));

    const Common::Error e = Thrown([&] { Assign(*target, *Comp("a", Dword(6), "c", Nil()), F()); });
    EXPECT_EQ(e.Code(), 0xfa0010u);
    EXPECT_EQ(e.Text(), u"POR: Cannot assign units with different properties.");
    EXPECT_TRUE(UnitEqual(*target, *Comp("a", Dword(5), "b", Str(u"keep"))));
}

TEST(AssignComposites, NestedFailureIsFoundBeforeAnythingChanges) {
    // "a" would be assigned first; "z.inner" has the wrong kind deep down.
    UnitPtr target = Comp("a", Dword(1), "m", Arr(Dword(1)), "z", Comp("inner", Dword(1)));
    const std::string before = Dump(*target);
    UnitPtr source = Comp("a", Dword(2), "m", Arr(Str(u"s")), "z", Comp("inner", Qword(2)));
    EXPECT_EQ(Thrown([&] { Assign(*target, *source, F()); }).Code(), 0xfa0011u);
    EXPECT_EQ(Dump(*target), before);

    // A trait missing deep down, and a property missing deep down, likewise.
    UnitPtr traitSource = Comp("a", Dword(2), "z", Comp("inner", With(Dword(2), "T")));
    EXPECT_EQ(Thrown([&] { Assign(*target, *traitSource, F()); }).Code(), 0xfa0012u);
    UnitPtr propertySource = Comp("a", Dword(2), "z", Comp("inner", Dword(2), "more", Nil()));
    EXPECT_EQ(Thrown([&] { Assign(*target, *propertySource, F()); }).Code(), 0xfa0010u);
    EXPECT_EQ(Dump(*target), before);
}

TEST(AssignArrays, ElementsAreReplacedWholeWithTheirTraits) {
    UnitPtr target = With(Arr(Dword(1), Dword(2)), "IsContainer", Str(u"vector"));
    UnitPtr source = Arr(Str(u"a"), With(Str(u"b"), "N"), Str(u"c"));
    Assign(*target, *source, F());
    EXPECT_TRUE(Por::Util::UnitValueEqual(*target, *source));
    EXPECT_EQ(TraitNames(*target), std::vector<std::string>{"IsContainer"});
    // The elements are copies.
    EXPECT_NE(&Por::Util::GetArrayElement(*target, 0), &Por::Util::GetArrayElement(*source, 0));

    UnitPtr nested = Comp("list", Arr(Dword(1)));
    Assign(*nested, *Comp("list", Arr()), F());
    EXPECT_EQ(Por::Util::GetArraySize(Por::Util::GetProperty(*nested, "list")->GetUnit()), 0u);
}

TEST(AssignSelf, ScalarsAndCompositesKeepTheirValueArraysEmpty) {
    UnitPtr scalar = Str(u"same");
    Assign(*scalar, *scalar, F());
    EXPECT_EQ(Por::Util::GetStringValue(*scalar), u"same");
    UnitPtr composite = Comp("a", Dword(1), "b", Arr(Dword(2)));
    Assign(*composite, *composite, F());
    EXPECT_EQ(PropertyNames(*composite), (std::vector<std::string>{"a", "b"}));
    UnitPtr array = Arr(Dword(1));
    Assign(*array, *array, F());  // cleared first: the caller must not do this
    EXPECT_EQ(Por::Util::GetArraySize(*array), 0u);

    UnitPtr nil = Nil();
    Assign(*nil, *Nil(), F());
    EXPECT_EQ(Por::Util::GetValueTypeIndex(*nil), Por::NilType);
}

}  // namespace
