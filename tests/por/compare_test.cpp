// Ordering, equality and copying of units.

#include <cmath>
#include <limits>
#include <set>

#include <tessel_link/por/assign.h>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::Compare;
using Por::Util::UnitEqual;
using Por::Util::UnitValueEqual;

int Cmp(const UnitPtr& a, const UnitPtr& b) {
    return Compare(*a, *b);
}

Common::Guid MakeGuid(std::uint32_t d1, std::uint16_t d2, std::uint16_t d3,
                      std::initializer_list<std::uint8_t> d4) {
    Common::Guid g{d1, d2, d3, {}};
    std::size_t i = 0;
    for (auto b : d4) {
        g.Data4[i++] = b;
    }
    return g;
}

TEST(Order, KindsOrderByTypeIndexWhateverTheValues) {
    // The greatest value of each kind against the least value of the next kinds.
    std::vector<UnitPtr> high;
    high.push_back(With(Nil(), "T", Str(u"zzz")));
    high.push_back(Bool(true));
    high.push_back(Byte(255));
    high.push_back(Sbyte(127));
    high.push_back(Word(65535));
    high.push_back(Sword(32767));
    high.push_back(Dword(0xffffffffu));
    high.push_back(Sdword(0x7fffffff));
    high.push_back(Qword(~0ull));
    high.push_back(Sqword(std::numeric_limits<std::int64_t>::max()));
    high.push_back(Double(1e300));
    high.push_back(Blob(std::vector<unsigned char>(64, 0xff)));
    high.push_back(Guid(MakeGuid(~0u, 0xffff, 0xffff, {255, 255, 255, 255, 255, 255, 255, 255})));
    high.push_back(Str(u"\xffff\xffff"));
    high.push_back(Err(Common::Error(TL_ORIGIN("f"), 0xffffffffu)));
    high.push_back(Arr(Dword(9), Dword(9), Dword(9)));
    high.push_back(Comp("zzz", Dword(9)));
    std::vector<UnitPtr> low;
    low.push_back(Nil());
    low.push_back(Bool(false));
    low.push_back(Byte(0));
    low.push_back(Sbyte(-128));
    low.push_back(Word(0));
    low.push_back(Sword(-32768));
    low.push_back(Dword(0));
    low.push_back(Sdword(-0x7fffffff - 1));
    low.push_back(Qword(0));
    low.push_back(Sqword(std::numeric_limits<std::int64_t>::min()));
    low.push_back(Double(-1e300));
    low.push_back(Blob({}));
    low.push_back(Guid(Common::Guid{}));
    low.push_back(Str(u""));
    low.push_back(Err(Common::Error()));
    low.push_back(Arr());
    low.push_back(Comp());
    for (unsigned i = 0; i < high.size(); ++i) {
        for (unsigned j = i + 1; j < low.size(); ++j) {
            EXPECT_EQ(Cmp(high[i], low[j]), -1) << i << " against " << j;
            EXPECT_EQ(Cmp(low[j], high[i]), 1) << j << " against " << i;
        }
    }
}

TEST(Order, ScalarsBySignednessOfTheirKind) {
    EXPECT_EQ(Cmp(Sdword(-1), Sdword(0)), -1);
    EXPECT_EQ(Cmp(Dword(0xffffffffu), Dword(0)), 1);
    EXPECT_EQ(Cmp(Sbyte(-1), Sbyte(1)), -1);
    EXPECT_EQ(Cmp(Byte(200), Byte(100)), 1);
    EXPECT_EQ(Cmp(Sqword(-5), Sqword(-5)), 0);
    EXPECT_EQ(Cmp(Bool(false), Bool(true)), -1);
    EXPECT_EQ(Cmp(Double(-0.0), Double(0.0)), 0);
    // No special case for NaN: neither less nor equal means greater, on both sides.
    const double nan = std::nan("");
    EXPECT_EQ(Cmp(Double(nan), Double(1.0)), 1);
    EXPECT_EQ(Cmp(Double(1.0), Double(nan)), 1);
}

TEST(Order, GuidsByFieldsAsNumbersThenTheLastEightBytes) {
    // Data1 is a number: 0x100 is greater than 2 though its first stored byte is lower.
    EXPECT_EQ(Cmp(Guid(MakeGuid(0x100, 0, 0, {})), Guid(MakeGuid(2, 0xffff, 0xffff, {0xff}))), 1);
    // Data1 decides before Data2, Data2 before Data3, Data3 before Data4.
    EXPECT_EQ(Cmp(Guid(MakeGuid(1, 9, 0, {})), Guid(MakeGuid(2, 0, 0, {}))), -1);
    EXPECT_EQ(Cmp(Guid(MakeGuid(1, 1, 9, {})), Guid(MakeGuid(1, 2, 0, {}))), -1);
    EXPECT_EQ(Cmp(Guid(MakeGuid(1, 1, 0x100, {})), Guid(MakeGuid(1, 1, 2, {0xff}))), 1);
    // The last eight bytes are one big-endian number: the first byte weighs most.
    EXPECT_EQ(Cmp(Guid(MakeGuid(1, 1, 1, {1, 0, 0, 0, 0, 0, 0, 0})),
                  Guid(MakeGuid(1, 1, 1, {0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}))),
              1);
    EXPECT_EQ(Cmp(Guid(MakeGuid(1, 1, 1, {0, 0, 0, 0, 0, 0, 0, 1})),
                  Guid(MakeGuid(1, 1, 1, {0, 0, 0, 0, 0, 0, 0, 2}))),
              -1);
    EXPECT_EQ(Cmp(Guid(MakeGuid(5, 6, 7, {8})), Guid(MakeGuid(5, 6, 7, {8}))), 0);
}

TEST(Order, BlobsAndStringsByContentThenLength) {
    EXPECT_EQ(Cmp(Blob({1, 0xff}), Blob({2})), -1);        // the first byte decides
    EXPECT_EQ(Cmp(Blob({1}), Blob({1, 0})), -1);           // a prefix is less
    EXPECT_EQ(Cmp(Blob({1, 0}), Blob({1})), 1);
    EXPECT_EQ(Cmp(Blob({0xff}), Blob({0, 0, 0})), 1);      // bytes are unsigned
    EXPECT_EQ(Cmp(Blob({}), Blob({})), 0);
    EXPECT_EQ(Cmp(Blob({}), Blob({0})), -1);

    EXPECT_EQ(Cmp(Str(u"ab"), Str(u"abc")), -1);
    EXPECT_EQ(Cmp(Str(u"b"), Str(u"abc")), 1);
    EXPECT_EQ(Cmp(Str(u"B"), Str(u"a")), -1);              // case-sensitive, by unit
    EXPECT_EQ(Cmp(Str(u"\xffff"), Str(u"z")), 1);          // units are unsigned
    EXPECT_EQ(Cmp(Str(u"\xd83d\xde00"), Str(u"\xe000")), -1);  // by unit, not by code point
}

TEST(Order, ArraysByCountFirstThenElementByElement) {
    EXPECT_EQ(Cmp(Arr(Dword(9)), Arr(Dword(1), Dword(1))), -1);
    EXPECT_EQ(Cmp(Arr(Dword(1), Dword(5)), Arr(Dword(1), Dword(4))), 1);
    EXPECT_EQ(Cmp(Arr(Dword(1), Dword(5)), Arr(Dword(2), Dword(0))), -1);
    EXPECT_EQ(Cmp(Arr(Nil(), Dword(1)), Arr(Nil(), Dword(1))), 0);
    // Traits of elements count.
    EXPECT_EQ(Cmp(Arr(With(Dword(1), "T")), Arr(Dword(1))), 1);
    EXPECT_EQ(Cmp(Arr(Dword(1)), Arr(With(Dword(1), "T"))), -1);
}

TEST(Order, CompositesByLoneNamesFirstThenTheFirstDifferingPair) {
    EXPECT_EQ(Cmp(Comp("a", Dword(1), "b", Dword(5)), Comp("a", Dword(2), "b", Dword(0))), -1);
    EXPECT_EQ(Cmp(Comp("a", Dword(2), "b", Dword(0)), Comp("a", Dword(1), "b", Dword(5))), 1);
    EXPECT_EQ(Cmp(Comp("a", Dword(1), "b", Dword(5)), Comp("a", Dword(1), "b", Dword(0))), 1);
    // A lone name decides whatever the shared properties hold.
    EXPECT_EQ(Cmp(Comp("a", Dword(0), "s", Dword(9)), Comp("b", Dword(0), "s", Dword(0))), -1);
    EXPECT_EQ(Cmp(Comp("b", Dword(0), "s", Dword(0)), Comp("a", Dword(0), "s", Dword(9))), 1);
    EXPECT_EQ(Cmp(Comp("s", Dword(0), "x", Nil()), Comp("s", Dword(9))), 1);   // left only
    EXPECT_EQ(Cmp(Comp("s", Dword(9)), Comp("s", Dword(0), "x", Nil())), -1);  // right only
    // The lesser lone name of each side counts.
    EXPECT_EQ(Cmp(Comp("c", Nil(), "d", Nil()), Comp("b", Nil(), "e", Nil())), 1);
    EXPECT_EQ(Cmp(Comp(), Comp()), 0);
    EXPECT_EQ(Cmp(Comp("p", Comp("q", Str(u"x"))), Comp("p", Comp("q", Str(u"y")))), -1);
}

Common::Error PathError(std::uint32_t code, const char16_t* path) {
    return Common::Error::WithPath(TL_ORIGIN("f"), code, u"text", path);
}

TEST(Order, ErrorsByCodeThenCausesThenFields) {
    const auto cmp = Por::Util::CompareErrors;
    EXPECT_EQ(cmp(Common::Error(), Common::Error()), 0);
    EXPECT_EQ(cmp(Common::Error(), PathError(1, u"a")), -1);
    EXPECT_EQ(cmp(PathError(1, u"a"), Common::Error()), 1);
    EXPECT_EQ(cmp(PathError(2, u"a"), PathError(3, u"a")), -1);
    EXPECT_EQ(cmp(PathError(0xfa000001, u"a"), PathError(2, u"a")), 1);  // unsigned codes

    // The text is not a field: errors of one code that differ by text alone are equal.
    EXPECT_EQ(cmp(Common::Error(TL_ORIGIN("f"), 9, u"one"), Common::Error(TL_ORIGIN("g"), 9, u"two")),
              0);

    // Wide fields: by length first, then by content.
    EXPECT_EQ(cmp(PathError(5, u"zz"), PathError(5, u"aaa")), -1);
    EXPECT_EQ(cmp(PathError(5, u"b"), PathError(5, u"a")), 1);
    // Narrow fields by bytes; field names before values.
    auto fn = [](const char* function) {
        return Common::Error::WithFunction(TL_ORIGIN("f"), 5, u"t", function);
    };
    EXPECT_EQ(cmp(fn("CreateFileW"), fn("ReadFile")), -1);
    EXPECT_EQ(cmp(fn("Z"), PathError(5, u"a")), -1);  // "function" < "path"
    // Numbers by their signed difference.
    auto hints = [](std::uint64_t h) { return Common::Error::WithPathAndHints(TL_ORIGIN("f"), 5, u"p", h); };
    EXPECT_EQ(cmp(hints(1), hints(2)), -1);
    EXPECT_EQ(cmp(hints(0), hints(~0ull)), 1);  // 0 - (-1) is positive
    // A list with a field is greater than one without.
    EXPECT_EQ(cmp(Common::Error(TL_ORIGIN("f"), 5, u"t"), PathError(5, u"")), -1);

    // Causes before the fields of their head, the deepest level first.
    Common::Error withCause1 = PathError(5, u"b");
    withCause1.AddCause(PathError(1, u"a"));
    Common::Error withCause2 = PathError(5, u"a");
    withCause2.AddCause(PathError(1, u"b"));
    EXPECT_EQ(cmp(withCause1, withCause2), -1);
    Common::Error lowerCause = PathError(5, u"z");
    lowerCause.AddCause(PathError(1, u"z"));
    Common::Error higherCause = PathError(5, u"a");
    higherCause.AddCause(PathError(2, u"a"));
    EXPECT_EQ(cmp(lowerCause, higherCause), -1);
    EXPECT_EQ(cmp(PathError(5, u"a"), higherCause), -1);  // no cause is less
    EXPECT_EQ(cmp(withCause1, withCause1), 0);

    // Through units.
    EXPECT_EQ(Cmp(Err(withCause1), Err(withCause2)), -1);
    EXPECT_TRUE(UnitValueEqual(*Err(lowerCause), *Err(lowerCause)));
}

TEST(Order, ErrorChainsOfAnyLengthNeedNoStack) {
    Common::Error a = PathError(1, u"x");
    Common::Error b = PathError(1, u"x");
    for (int i = 0; i < 100000; ++i) {
        Common::Error headA = PathError(1, u"x");
        headA.AddCause(a);
        a = headA;
        Common::Error headB = PathError(1, u"x");
        headB.AddCause(b);
        b = headB;
    }
    EXPECT_EQ(Por::Util::CompareErrors(a, b), 0);
}

TEST(Order, TraitsAfterValuesWithCandidateRules) {
    EXPECT_EQ(Cmp(With(Dword(1), "T"), Dword(1)), 1);
    EXPECT_EQ(Cmp(Dword(1), With(Dword(1), "T")), -1);
    EXPECT_EQ(Cmp(With(Dword(1), "T"), With(Dword(2), "T")), -1);  // values first
    EXPECT_EQ(Cmp(With(Nil(), "A", Dword(9)), With(Nil(), "B", Dword(1))), -1);  // by name
    EXPECT_EQ(Cmp(With(Nil(), "T", Dword(3)), With(Nil(), "T", Dword(2))), 1);   // by unit
    // Equal pairs are passed over; the lone traits decide.
    EXPECT_EQ(Cmp(With(With(Nil(), "A", Dword(1)), "T", Dword(5)),
                  With(With(Nil(), "A", Dword(1)), "T", Dword(3))),
              1);
    EXPECT_EQ(Cmp(With(With(Nil(), "A", Dword(1)), "T", Dword(5)),
                  With(With(Nil(), "A", Dword(1)), "T", Dword(5))),
              0);
    // Of several lone traits of one name, the least one stands for its side.
    EXPECT_EQ(Cmp(With(With(Nil(), "T", Dword(7)), "T", Dword(2)), With(Nil(), "T", Dword(3))),
              -1);
    // A trait unit that differs only in a trait of its own is not a pair.
    EXPECT_EQ(Cmp(With(Nil(), "T", With(Dword(1), "N")), With(Nil(), "T", Dword(1))), 1);
}

TEST(Equality, ValueEqualityIgnoresTopTraitsOnly) {
    UnitPtr plain = Str(u"x");
    UnitPtr marked = With(Str(u"x"), "T", Dword(1));
    EXPECT_TRUE(UnitValueEqual(*plain, *marked));
    EXPECT_FALSE(UnitEqual(*plain, *marked));
    EXPECT_FALSE(UnitEqual(*marked, *plain));
    EXPECT_TRUE(UnitEqual(*marked, *With(Str(u"x"), "T", Dword(1))));

    // One level down the traits count: array elements and property units.
    EXPECT_FALSE(UnitValueEqual(*Arr(Str(u"x")), *Arr(With(Str(u"x"), "T"))));
    EXPECT_FALSE(UnitValueEqual(*Comp("p", Str(u"x")), *Comp("p", With(Str(u"x"), "T"))));
    EXPECT_TRUE(UnitValueEqual(*With(Arr(Str(u"x")), "A"), *Arr(Str(u"x"))));

    EXPECT_FALSE(UnitValueEqual(*Dword(1), *Qword(1)));
    EXPECT_FALSE(UnitValueEqual(*Nil(), *Str(u"")));
    EXPECT_TRUE(UnitValueEqual(*Nil(), *Nil()));
    EXPECT_FALSE(UnitValueEqual(*Arr(Dword(1)), *Arr(Dword(1), Dword(2))));
    EXPECT_FALSE(UnitValueEqual(*Comp("a", Nil()), *Comp("a", Nil(), "b", Nil())));
    EXPECT_FALSE(UnitValueEqual(*Comp("a", Nil(), "b", Nil()), *Comp("a", Nil())));
    EXPECT_FALSE(UnitValueEqual(*Double(std::nan("")), *Double(std::nan(""))));
    // Nor is a NaN equal to itself: no shortcut for a unit against itself.
    const UnitPtr nan = Double(std::nan(""));
    EXPECT_FALSE(UnitValueEqual(*nan, *nan));
}

TEST(Equality, TraitSetsMustIncludeEachOther) {
    UnitPtr two = With(With(Nil(), "T", Dword(1)), "T", Dword(2));
    UnitPtr one = With(Nil(), "T", Dword(1));
    EXPECT_TRUE(Por::Util::TraitsInclude(*two, *one));
    EXPECT_FALSE(Por::Util::TraitsInclude(*one, *two));
    EXPECT_FALSE(UnitEqual(*two, *one));
    EXPECT_TRUE(UnitEqual(*two, *With(With(Nil(), "T", Dword(2)), "T", Dword(1))));
    // Trait units are matched with their own traits.
    EXPECT_FALSE(UnitEqual(*With(Nil(), "T", With(Dword(1), "N")), *one));
}

// Every unit and value object of a tree.
void CollectAddresses(const Por::View::Unit& unit, std::set<const void*>& out) {
    out.insert(&unit);
    if (Por::Util::HasTraits(unit)) {  // units without traits share one empty set
        out.insert(&unit.GetTraits());
    }
    auto trait = Por::MakeProcessor<const Por::View::Trait>([&](const Por::View::Trait& t) {
        out.insert(&t);
        CollectAddresses(t.GetUnit(), out);
    });
    unit.GetTraits().ForEach(trait);
    Por::VisitValue(unit, [&](const auto& value) {
        out.insert(&value);
        using V = std::remove_cvref_t<decltype(value)>;
        if constexpr (Por::ValueKindOf<V> == Por::ArrayType) {
            auto each = Por::MakeProcessor<const Por::View::Unit>(
                [&](const Por::View::Unit& u) { CollectAddresses(u, out); });
            value.ForEach(each);
        } else if constexpr (Por::ValueKindOf<V> == Por::CompositeType) {
            auto each = Por::MakeProcessor<const Por::View::Property>([&](const Por::View::Property& p) {
                out.insert(&p);
                CollectAddresses(p.GetUnit(), out);
            });
            value.ForEach(each);
        }
    });
}

UnitPtr RichTree() {
    Common::Error error = PathError(0x40007, u"C:\\x");
    error.AddWindowsError(5);
    return With(Comp("list", With(Arr(Str(u"a"), With(Dword(1), "N", Arr(Nil())), Blob({1, 2})),
                                  "IsContainer", Str(u"vector")),
                     "record", Comp("id", Guid(MakeGuid(1, 2, 3, {4, 5})), "err", Err(error),
                                    "d", Double(2.5), "b", Bool(true)),
                     "empty", With(Nil(), "IsEmpty")),
                "Version", Qword(3));
}

TEST(Copy, CopyIsEqualAndSharesNothing) {
    UnitPtr source = RichTree();
    UnitPtr copy = Por::Util::CopyUnit(*source, F());
    EXPECT_TRUE(UnitEqual(*source, *copy));
    EXPECT_EQ(Compare(*source, *copy), 0);

    std::set<const void*> a;
    std::set<const void*> b;
    CollectAddresses(*source, a);
    CollectAddresses(*copy, b);
    for (const void* p : b) {
        EXPECT_EQ(a.count(p), 0u);
    }
    // The error value shares no record either.
    const auto* sourceError = &Por::Util::GetProperty(Por::Util::GetProperty(*source, "record")->GetUnit(), "err")->GetUnit();
    const auto* copyError = &Por::Util::GetProperty(Por::Util::GetProperty(*copy, "record")->GetUnit(), "err")->GetUnit();
    EXPECT_NE(ValueOf<Common::Error>(*sourceError).Identity(), ValueOf<Common::Error>(*copyError).Identity());

    // Changing the copy leaves the source alone.
    Por::Util::Assign(Por::Util::GetProperty(*copy, "list")->GetUnit(), *With(Arr(), "IsContainer", Str(u"vector")), F());
    EXPECT_FALSE(UnitEqual(*source, *copy));
    EXPECT_TRUE(UnitEqual(*source, *RichTree()));
}

TEST(Consistency, OrderIsAntisymmetricTransitiveAndAgreesWithEquality) {
    std::vector<UnitPtr> pool;
    pool.push_back(Nil());
    pool.push_back(With(Nil(), "IsEmpty"));
    pool.push_back(With(Nil(), "A", Dword(1)));
    pool.push_back(With(With(Nil(), "A", Dword(1)), "A", Dword(2)));
    pool.push_back(With(Nil(), "B", Dword(0)));
    pool.push_back(Dword(1));
    pool.push_back(Dword(2));
    pool.push_back(With(Dword(1), "A", Dword(1)));
    pool.push_back(Str(u""));
    pool.push_back(Str(u"a"));
    pool.push_back(Str(u"ab"));
    pool.push_back(Blob({0}));
    pool.push_back(Blob({0, 0}));
    pool.push_back(Arr());
    pool.push_back(Arr(Dword(1)));
    pool.push_back(Arr(Dword(2)));
    pool.push_back(Arr(With(Dword(1), "A", Dword(1))));
    pool.push_back(Arr(Dword(1), Dword(1)));
    pool.push_back(Comp());
    pool.push_back(Comp("a", Dword(1)));
    pool.push_back(Comp("a", Dword(2)));
    pool.push_back(Comp("b", Dword(1)));
    pool.push_back(Comp("a", Dword(1), "b", Dword(1)));
    pool.push_back(Comp("a", With(Dword(1), "A", Dword(1))));
    pool.push_back(Err(PathError(3, u"p")));
    pool.push_back(Err(PathError(3, u"q")));
    pool.push_back(Guid(MakeGuid(1, 0, 0, {})));
    const std::size_t n = pool.size();
    std::vector<std::vector<int>> order(n, std::vector<int>(n));
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            order[i][j] = Compare(*pool[i], *pool[j]);
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            EXPECT_EQ(order[i][j], -order[j][i]) << i << "," << j;
            EXPECT_EQ(order[i][j] == 0, i == j) << i << "," << j;
            EXPECT_EQ(UnitEqual(*pool[i], *pool[j]), i == j) << i << "," << j;
            EXPECT_EQ(Por::Util::UnitLess(*pool[i], *pool[j]), order[i][j] < 0);
            for (std::size_t k = 0; k < n; ++k) {
                if (order[i][j] < 0 && order[j][k] < 0) {
                    EXPECT_LT(order[i][k], 0) << i << "," << j << "," << k;
                }
            }
        }
        // A copy compares equal to its source.
        EXPECT_EQ(Compare(*pool[i], *Por::Util::CopyUnit(*pool[i], F())), 0) << i;
    }
}

// A read-only view of an in-memory tree through classes of its own, as any other
// implementation of the interfaces would offer it: arrays, composites and trait sets are
// walked through their processors, scalar values are the source's.
class ForeignUnit;
using ForeignPtr = std::unique_ptr<ForeignUnit>;

// A named unit as a trait set or a composite holds it.
template <class Interface>
class ForeignNamed final : public Interface {
public:
    ForeignNamed(const Por::UnitName& name, ForeignPtr unit) : name_(name), unit_(std::move(unit)) {}
    const Por::UnitName& GetName() const override { return name_; }
    const Por::View::Unit& GetUnit() const override;

private:
    Por::UnitName name_;
    ForeignPtr unit_;
};
using ForeignTrait = ForeignNamed<Por::View::Trait>;
using ForeignProperty = ForeignNamed<Por::View::Property>;

class ForeignTraits final : public Por::View::Traits {
public:
    std::vector<std::unique_ptr<ForeignTrait>> traits;
    bool ForEachByName(const Por::UnitName& name,
                       Por::ItemProcessor<const Por::View::Trait>& processor) const override {
        for (const auto& t : traits) {
            if (t->GetName() == name && processor.Process(*t)) {
                return true;
            }
        }
        return false;
    }
    bool ForEach(Por::ItemProcessor<const Por::View::Trait>& processor) const override {
        for (const auto& t : traits) {
            if (processor.Process(*t)) {
                return true;
            }
        }
        return false;
    }
};

class ForeignArray final : public Por::View::ArrayValue {
public:
    std::vector<ForeignPtr> elements;
    bool IsEmpty() const override { return elements.empty(); }
    std::uint64_t Size() const override { return elements.size(); }
    void Front(Por::ItemProcessor<const Por::View::Unit>& p) const override;
    void Back(Por::ItemProcessor<const Por::View::Unit>& p) const override;
    void At(std::uint64_t i, Por::ItemProcessor<const Por::View::Unit>& p) const override;
    bool ForEach(Por::ItemProcessor<const Por::View::Unit>& p) const override;
};

class ForeignComposite final : public Por::View::CompositeValue {
public:
    std::vector<std::unique_ptr<ForeignProperty>> properties;
    bool ForEach(Por::ItemProcessor<const Por::View::Property>& processor) const override {
        for (const auto& p : properties) {
            if (processor.Process(*p)) {
                return true;
            }
        }
        return false;
    }
    bool Find(const Por::UnitName& name,
              Por::ItemProcessor<const Por::View::Property>& processor) const override {
        for (const auto& p : properties) {
            if (p->GetName() == name) {
                processor.Process(*p);
                return true;
            }
        }
        return false;
    }
    std::shared_ptr<Por::IteratorState<const Por::View::Property>> GetIterator() const override {
        return nullptr;
    }
};

class ForeignUnit final : public Por::View::Unit {
public:
    explicit ForeignUnit(const Por::View::Unit& source) : source_(source) {
        Por::VisitValue(source, [&](const auto& value) {
            using V = std::remove_cvref_t<decltype(value)>;
            if constexpr (Por::ValueKindOf<V> == Por::ArrayType) {
                array_ = std::make_unique<ForeignArray>();
                auto each = Por::MakeProcessor<const Por::View::Unit>([&](const Por::View::Unit& u) {
                    array_->elements.push_back(std::make_unique<ForeignUnit>(u));
                });
                value.ForEach(each);
            } else if constexpr (Por::ValueKindOf<V> == Por::CompositeType) {
                composite_ = std::make_unique<ForeignComposite>();
                auto each = Por::MakeProcessor<const Por::View::Property>(
                    [&](const Por::View::Property& p) {
                        composite_->properties.push_back(std::make_unique<ForeignProperty>(
                            p.GetName(), std::make_unique<ForeignUnit>(p.GetUnit())));
                    });
                value.ForEach(each);
            }
        });
        auto each = Por::MakeProcessor<const Por::View::Trait>([&](const Por::View::Trait& t) {
            traits_.traits.push_back(
                std::make_unique<ForeignTrait>(t.GetName(), std::make_unique<ForeignUnit>(t.GetUnit())));
        });
        source.GetTraits().ForEach(each);
    }
    void Accept(Por::View::UnitReader& visitor) const override {
        if (array_) {
            visitor.OnArray(*array_);
        } else if (composite_) {
            visitor.OnComposite(*composite_);
        } else {
            source_.Accept(visitor);
        }
    }
    const Por::View::Traits& GetTraits() const override { return traits_; }

private:
    const Por::View::Unit& source_;
    std::unique_ptr<ForeignArray> array_;
    std::unique_ptr<ForeignComposite> composite_;
    ForeignTraits traits_;
};

template <class Interface>
const Por::View::Unit& ForeignNamed<Interface>::GetUnit() const {
    return *unit_;
}
void ForeignArray::Front(Por::ItemProcessor<const Por::View::Unit>& p) const {
    p.Process(*elements.front());
}
void ForeignArray::Back(Por::ItemProcessor<const Por::View::Unit>& p) const {
    p.Process(*elements.back());
}
void ForeignArray::At(std::uint64_t i, Por::ItemProcessor<const Por::View::Unit>& p) const {
    p.Process(*elements.at(i));
}
bool ForeignArray::ForEach(Por::ItemProcessor<const Por::View::Unit>& p) const {
    for (const auto& e : elements) {
        if (p.Process(*e)) {
            return true;
        }
    }
    return false;
}

// In-memory trees are compared by reading their lists side by side; any other implementation
// through the walkers. Both ways, and any mix of them, give the same answers.
TEST(Consistency, InMemoryTreesAndOtherImplementationsAgree) {
    std::vector<UnitPtr> pool;
    pool.push_back(Arr(Dword(1), Dword(5)));
    pool.push_back(Arr(Dword(1), Dword(4)));
    pool.push_back(Arr(Dword(1), With(Dword(5), "T")));
    pool.push_back(Arr(Dword(2)));
    pool.push_back(Comp("a", Dword(1), "b", Dword(5)));
    pool.push_back(Comp("a", Dword(2), "b", Dword(0)));
    pool.push_back(Comp("a", Dword(1), "c", Dword(0)));
    pool.push_back(Comp("a", Dword(1)));
    pool.push_back(Comp("a", Comp("q", Str(u"x")), "b", Arr(Str(u"y"))));
    pool.push_back(Comp("a", Comp("q", Str(u"x")), "b", Arr(Str(u"z"))));
    pool.push_back(With(With(Nil(), "A", Dword(1)), "T", Dword(5)));
    pool.push_back(With(With(Nil(), "A", Dword(1)), "T", Dword(3)));
    pool.push_back(With(With(Nil(), "A", Dword(2)), "T", Dword(5)));
    pool.push_back(With(With(Nil(), "T", Dword(7)), "T", Dword(2)));
    pool.push_back(With(Nil(), "T", Dword(3)));
    pool.push_back(With(Nil(), "T", With(Dword(1), "N")));
    pool.push_back(With(Comp("a", With(Dword(1), "V", Dword(2))), "V", Dword(1)));
    pool.push_back(With(Comp("a", With(Dword(1), "V", Dword(3))), "V", Dword(1)));
    std::vector<ForeignPtr> foreign;
    for (const UnitPtr& unit : pool) {
        foreign.push_back(std::make_unique<ForeignUnit>(*unit));
    }
    for (std::size_t i = 0; i < pool.size(); ++i) {
        for (std::size_t j = 0; j < pool.size(); ++j) {
            const int order = Compare(*foreign[i], *foreign[j]);
            EXPECT_EQ(Compare(*pool[i], *pool[j]), order) << i << "," << j;
            EXPECT_EQ(Compare(*pool[i], *foreign[j]), order) << i << "," << j;
            EXPECT_EQ(Compare(*foreign[i], *pool[j]), order) << i << "," << j;
            const bool equal = UnitEqual(*foreign[i], *foreign[j]);
            EXPECT_EQ(UnitEqual(*pool[i], *pool[j]), equal) << i << "," << j;
            EXPECT_EQ(UnitEqual(*pool[i], *foreign[j]), equal) << i << "," << j;
            EXPECT_EQ(UnitValueEqual(*pool[i], *pool[j]), UnitValueEqual(*foreign[i], *foreign[j]))
                << i << "," << j;
        }
    }
}

}  // namespace
