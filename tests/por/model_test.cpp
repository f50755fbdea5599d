// The unit model: kinds and their numbering, names, visitors and the helpers over units.

#include <tessel_link/common/messages.h>
#include <tessel_link/por/visitors.h>

#include <gtest/gtest.h>

#include <string>
#include <unordered_set>

#include "por/por_errors.h"
#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::UnitName;

// One unit of every kind, in type index order.
std::vector<UnitPtr> OneOfEachKind() {
    std::vector<UnitPtr> units;
    units.push_back(Nil());
    units.push_back(Bool(true));
    units.push_back(Byte(1));
    units.push_back(Sbyte(-1));
    units.push_back(Word(2));
    units.push_back(Sword(-2));
    units.push_back(Dword(3));
    units.push_back(Sdword(-3));
    units.push_back(Qword(4));
    units.push_back(Sqword(-4));
    units.push_back(Double(0.5));
    units.push_back(Blob({1, 2}));
    units.push_back(Guid(Common::Guid{1, 2, 3, {4}}));
    units.push_back(Str(u"s"));
    units.push_back(Err(Common::Error(TL_ORIGIN("f"), 7)));
    units.push_back(Arr(Nil()));
    units.push_back(Comp("p", Nil()));
    return units;
}

// Records which slot a visit reached, counting slots as the visitor declares them.
class SlotRecorder final : public Por::View::UnitReader {
public:
    unsigned slot = 0;
    int calls = 0;
#define TL_TEST_SLOT(Kind, Value, Idx)                 \
    void On##Kind(const Por::View::Value&) override {  \
        slot = 17 - (Idx);                             \
        ++calls;                                       \
    }
    TL_POR_FOR_EACH_KIND(TL_TEST_SLOT)
#undef TL_TEST_SLOT
};

TEST(Kinds, EveryKindReachesTheSlotOfItsIndexInEveryLayer) {
    const auto units = OneOfEachKind();
    ASSERT_EQ(units.size(), Por::kTypeCount);
    for (unsigned index = 0; index < units.size(); ++index) {
        SlotRecorder recorder;
        units[index]->Accept(recorder);
        EXPECT_EQ(recorder.calls, 1);
        EXPECT_EQ(recorder.slot, Por::VisitorSlot(index)) << index;
        EXPECT_EQ(Por::Util::GetValueTypeIndex(*units[index]), index);

        // The writable layers reach the same kind.
        unsigned seen = Por::UnknownType;
        Por::VisitValue(static_cast<Por::Construction::Unit&>(*units[index]),
                        [&](auto& v) { seen = Por::ValueKindOf<decltype(v)>; });
        EXPECT_EQ(seen, index);
        seen = Por::UnknownType;
        Por::VisitValue(static_cast<Por::Modification::Unit&>(*units[index]),
                        [&](auto& v) { seen = Por::ValueKindOf<decltype(v)>; });
        EXPECT_EQ(seen, index);
    }
    EXPECT_EQ(Por::VisitorSlot(Por::DwordType), 11u);
    EXPECT_EQ(Por::VisitorSlot(Por::DoubleType), 7u);
}

TEST(Kinds, TypeNamesAndTheirFallback) {
    EXPECT_EQ(Por::GetTypeName(0), u"nil");
    EXPECT_EQ(Por::GetTypeName(6), u"dword");
    EXPECT_EQ(Por::GetTypeName(16), u"composite");
    EXPECT_EQ(Por::GetTypeName(17), u"17");
    EXPECT_EQ(Por::GetTypeName(4000000000u), u"4000000000");
}

TEST(UnitNames, CompareByUnsignedBytesAndNeverByHash) {
    EXPECT_LT(UnitName("Z"), UnitName("a"));
    EXPECT_LT(UnitName("ab"), UnitName("abc"));
    EXPECT_LT(UnitName("z"), UnitName("\xc3\xa9"));  // a byte above 0x7f is greater
    EXPECT_EQ(UnitName::Literal("Version"), UnitName(std::string("Version")));
    // A literal's hash covers its terminating zero, an owned text's does not.
    EXPECT_NE(UnitName::Literal("Version").Hash(), UnitName("Version").Hash());
    EXPECT_EQ(UnitName::Literal("a").Hash(), UnitName::HashBytes("a", 2));
    EXPECT_EQ(UnitName("").Hash(), 0u);
    // Hashed containers go by the text, as equality does: a literal and a copy are one key.
    std::unordered_set<UnitName> names{UnitName::Literal("Version")};
    for (int i = 0; i < 100; ++i) {
        names.insert(UnitName("n" + std::to_string(i)));
    }
    EXPECT_FALSE(names.insert(UnitName("Version")).second);
    EXPECT_EQ(names.size(), 101u);
}

TEST(UnitNames, HashFoldsEachByte) {
    std::uint64_t h = 0;
    for (unsigned char b : std::string("Name")) {
        h ^= b + 0x9e3779b9ull + (h << 6) + (h >> 2);
    }
    EXPECT_EQ(UnitName("Name").Hash(), h);
}

TEST(UnitNames, CopiesShareTheirTextAndOutliveTheOriginal) {
    UnitName copy;
    {
        UnitName owned(std::string("a fairly long property name beyond any small buffer"));
        copy = owned;
        EXPECT_EQ(copy.c_str(), owned.c_str());  // shared, not copied
        UnitName moved = std::move(owned);
        EXPECT_TRUE(owned.Empty());
        EXPECT_EQ(moved.c_str(), copy.c_str());
    }
    EXPECT_EQ(copy.Text(), "a fairly long property name beyond any small buffer");
    EXPECT_EQ(copy.Hash(), UnitName("a fairly long property name beyond any small buffer").Hash());
    UnitName literal = UnitName::Literal("lit");
    UnitName literalCopy = literal;
    EXPECT_EQ(literalCopy.c_str(), literal.c_str());
    literalCopy = copy;  // a literal name takes an owned text
    EXPECT_EQ(literalCopy, copy);
    copy = UnitName::Literal("lit");  // and gives it up again
    EXPECT_EQ(copy, literal);
    EXPECT_EQ(UnitName(std::string_view("")).Text(), "");
}

TEST(UnitNames, WideTextIsStoredAsUtf8) {
    const UnitName name(std::u16string(u"caf\u00e9"));
    EXPECT_EQ(name.Text(), "caf\xc3\xa9");
    EXPECT_EQ(name.ToWide(), u"caf\u00e9");
}

TEST(TypeMismatch, ErrorCarriesBothTypeNames) {
    const Common::Error e = Por::Util::Detail::MakeTypeMismatchError(Por::StringType,
                                                                     Por::DwordType);
    EXPECT_EQ(e.Code(), 0xfa000au);
    EXPECT_EQ(e.Text(), Common::GetMessageRow(403));
    EXPECT_STREQ(e.GetNames(), "0,1,$module");
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"string");
    EXPECT_EQ(std::u16string(e.GetWide("1")), u"dword");
    EXPECT_STREQ(e.Origin().Func, "Por::Util::Detail::MakeTypeMismatchError");

    const Common::Error p = Por::Util::Detail::MakePropertyTypeMismatchError(
        UnitName("Size"), Por::QwordType, Por::NilType);
    EXPECT_EQ(p.Code(), 0xfa000au);
    EXPECT_EQ(p.Text(), Common::GetMessageRow(402));
    EXPECT_EQ(std::u16string(p.GetWide("0")), u"Size");
    EXPECT_EQ(std::u16string(p.GetWide("1")), u"qword");
    EXPECT_EQ(std::u16string(p.GetWide("2")), u"nil");
    // The parameters survive the serialized form.
    const auto bytes = p.Serialize();
    const Common::Error back = Common::Error::Deserialize(bytes.data(), bytes.size());
    EXPECT_EQ(std::u16string(back.GetWide("0")), u"Size");
}

TEST(TypeMismatch, ThrowingVisitorNamesExpectedAndActualKinds) {
    Por::View::TypeMismatchThrowingVisitor visitor(Por::CompositeType);
    const Common::Error e = Thrown([&] { Bool(true)->Accept(visitor); });
    EXPECT_EQ(e.Code(), 0xfa000au);
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"composite");
    EXPECT_EQ(std::u16string(e.GetWide("1")), u"boolean");
}

TEST(Helpers, TypedGettersThrowOrFallBack) {
    EXPECT_EQ(Por::Util::GetStringValue(*Str(u"x")), u"x");
    const Common::Error e = Thrown([] { Por::Util::GetStringValue(*Dword(1)); });
    EXPECT_EQ(e.Code(), 0xfa000au);
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"string");
    EXPECT_EQ(std::u16string(e.GetWide("1")), u"dword");
    using FailSafe = Por::Util::UnitValueGetter<std::u16string,
                                                Por::Util::TypeMismatchHandlers::ReturnFailSafeValue>;
    EXPECT_EQ(FailSafe::Get(*Dword(1)), u"");
    EXPECT_EQ(FailSafe::Get(*Str(u"y")), u"y");
    EXPECT_EQ(ValueOf<std::int8_t>(*Sbyte(-5)), -5);
    // Kinds never convert: a dword is not a qword.
    EXPECT_EQ(Thrown([] { ValueOf<std::uint64_t>(*Dword(1)); }).Code(), 0xfa000au);
}

TEST(Helpers, PropertiesAndArraysThroughTheHelpers) {
    UnitPtr composite = Comp("b", Dword(2), "a", Dword(1));
    EXPECT_EQ(PropertyNames(*composite), (std::vector<std::string>{"a", "b"}));
    ASSERT_NE(Por::Util::GetProperty(*composite, "b"), nullptr);
    EXPECT_EQ(ValueOf<std::uint32_t>(Por::Util::GetProperty(*composite, "b")->GetUnit()), 2u);
    EXPECT_EQ(Por::Util::GetProperty(*composite, "c"), nullptr);

    UnitPtr array = Arr(Str(u"x"), Str(u"y"));
    EXPECT_EQ(Por::Util::GetArraySize(*array), 2u);
    EXPECT_EQ(Por::Util::GetStringValue(Por::Util::GetArrayElement(*array, 1)), u"y");
    EXPECT_EQ(Thrown([&] { Por::Util::GetArrayElement(*array, 2); }).Code(), 0xfa000fu);

    // The wrong kind raises the mismatch, and the value handed in is not stored anywhere.
    EXPECT_EQ(Thrown([&] { Por::Util::AddProperty(*array, "p", Nil(), F()); }).Code(),
              0xfa000au);
    EXPECT_EQ(Thrown([&] { Por::Util::GetProperty(*array, "p"); }).Code(), 0xfa000au);
    EXPECT_EQ(Thrown([&] { Por::Util::GetArraySize(*composite); }).Code(), 0xfa000au);
    EXPECT_EQ(Thrown([&] { Por::Util::AddArrayElement(*composite, Nil()); }).Code(), 0xfa000au);

    std::u16string joined;
    auto collect = Por::MakeProcessor<const Por::View::Unit>(
        [&](const Por::View::Unit& u) { joined += Por::Util::GetStringValue(u); });
    EXPECT_FALSE(Por::Util::ForEachArrayElement(*array, collect));
    EXPECT_EQ(joined, u"xy");
    auto stop = Por::MakeProcessor<const Por::View::Unit>([](const Por::View::Unit&) { return true; });
    EXPECT_TRUE(Por::Util::ForEachArrayElement(*array, stop));
    EXPECT_EQ(Thrown([&] { Por::Util::ForEachArrayElement(*composite, collect); }).Code(),
              0xfa000au);
}

TEST(Helpers, TraitQueries) {
    UnitPtr unit = Nil();
    EXPECT_FALSE(Por::Util::HasTraits(*unit));
    unit = With(std::move(unit), "IsEmpty");  // without a value: a nil unit
    EXPECT_TRUE(Por::Util::HasTraits(*unit));
    EXPECT_TRUE(Por::Util::HasTrait(*unit, "IsEmpty"));
    EXPECT_FALSE(Por::Util::HasTrait(*unit, "IsEmptyX"));
    EXPECT_TRUE(Por::Util::HasTraitWithValue(*unit, "IsEmpty", *Nil()));

    // The value test ignores the traits of the units it compares.
    unit = With(std::move(unit), "Source", With(Str(u"db"), "Note"));
    EXPECT_TRUE(Por::Util::HasTraitWithValue(*unit, "Source", *Str(u"db")));
    EXPECT_FALSE(Por::Util::HasTraitWithValue(*unit, "Source", *Str(u"DB")));
    EXPECT_FALSE(Por::Util::HasTraitWithValue(*unit, "IsEmpty", *Str(u"db")));

    EXPECT_FALSE(Por::Util::IsSearchableArray(*Arr()));
    EXPECT_TRUE(Por::Util::IsSearchableArray(*With(Arr(), "Searchable", Dword(0))));
    EXPECT_FALSE(Por::Util::IsSearchableArray(*With(Comp(), "Searchable")));
}

TEST(Helpers, ConcreteVisitorBasesRejectOtherKinds) {
    struct Counter final : Por::Construction::CompositeVisitor {
        int seen = 0;
        void OnComposite(Por::Construction::CompositeValue&) override { ++seen; }
    } counter;
    Comp()->Accept(counter);
    EXPECT_EQ(counter.seen, 1);
    EXPECT_EQ(Thrown([&] { Arr()->Accept(counter); }).Code(), 0xfa000au);

    Por::View::NullVisitor skip;
    for (const UnitPtr& unit : OneOfEachKind()) {
        unit->Accept(skip);  // every kind is silently skipped
    }
}

}  // namespace
