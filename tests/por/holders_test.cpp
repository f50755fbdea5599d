// The in-memory holders: arrays, composites, trait sets, the factory and the small helpers
// around them.

#include <atomic>
#include <thread>

#include <tessel_link/por/root_holder.h>
#include "por/static_instance.h"

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::UnitName;

std::vector<std::uint32_t> Dwords(const Por::View::Unit& array) {
    std::vector<std::uint32_t> values;
    auto each = Por::MakeProcessor<const Por::View::Unit>(
        [&](const Por::View::Unit& u) { values.push_back(ValueOf<std::uint32_t>(u)); });
    Por::Util::ForEachArrayElement(array, each);
    return values;
}

using Values = std::vector<std::uint32_t>;

TEST(ArrayHolder, IndexChecksAllowInsertAtTheEndOnly) {
    UnitPtr unit = Arr(Dword(1), Dword(2));
    auto& array = Por::Util::AsArray(*unit);
    array.Insert(2, Dword(3));
    array.Insert(0, Dword(0));
    array.Insert(2, Dword(9));
    EXPECT_EQ(Dwords(*unit), (Values{0, 1, 9, 2, 3}));

    EXPECT_EQ(Thrown([&] { array.Insert(6, Dword(7)); }).Code(), 0xfa000fu);
    EXPECT_EQ(Thrown([&] { array.InsertCopy(6, Dword(7)); }).Code(), 0xfa000fu);
    EXPECT_EQ(Thrown([&] { array.RemoveAt(5); }).Code(), 0xfa000fu);
    auto ignore = Por::MakeProcessor<const Por::View::Unit>([](const Por::View::Unit&) {});
    EXPECT_EQ(Thrown([&] { std::as_const(array).At(5, ignore); }).Code(), 0xfa000fu);
    EXPECT_EQ(Dwords(*unit), (Values{0, 1, 9, 2, 3}));  // failures change nothing

    array.RemoveAt(2);
    array.PopFront();
    array.PopBack();
    EXPECT_EQ(Dwords(*unit), (Values{1, 2}));
    array.InsertCopy(2, Dword(4));
    array.PushFrontCopy(Dword(0));
    array.PushBackCopy(Dword(5));
    EXPECT_EQ(Dwords(*unit), (Values{0, 1, 2, 4, 5}));
    array.Clear();
    EXPECT_TRUE(array.IsEmpty());
}

TEST(ArrayHolder, EmptyArrayEdges) {
    UnitPtr unit = Arr();
    auto& array = Por::Util::AsArray(*unit);
    auto ignore = Por::MakeProcessor<const Por::View::Unit>([](const Por::View::Unit&) {});
    EXPECT_EQ(Thrown([&] { std::as_const(array).At(0, ignore); }).Code(), 0xfa000fu);
    array.PopBack();
    array.PopFront();
    int called = 0;
    auto count = Por::MakeProcessor<const Por::View::Unit>([&](const Por::View::Unit&) { ++called; });
    std::as_const(array).Front(count);
    std::as_const(array).Back(count);
    EXPECT_EQ(called, 0);
    array.Insert(0, Dword(1));
    EXPECT_EQ(array.Size(), 1u);
}

TEST(ArrayHolder, NullUnitsAreRejected) {
    UnitPtr unit = Arr();
    auto& array = Por::Util::AsArray(*unit);
    EXPECT_EQ(Thrown([&] { array.PushBack(nullptr); }).Code(), 0xfa000bu);
    EXPECT_EQ(Thrown([&] { array.PushFront(nullptr); }).Code(), 0xfa000bu);
    EXPECT_EQ(Thrown([&] { array.Insert(0, nullptr); }).Code(), 0xfa000bu);
    EXPECT_EQ(Thrown([&] { array.PushBackCopy(nullptr); }).Code(), 0xfa000bu);
    EXPECT_TRUE(array.IsEmpty());
}

TEST(ArrayHolder, CopyOperationsStoreADeepCopy) {
    UnitPtr unit = Arr();
    UnitPtr source = With(Comp("a", Str(u"x")), "T", Dword(1));
    const Por::View::Unit* original = source.get();
    Por::Util::AsArray(*unit).PushBackCopy(std::move(source));
    const Por::View::Unit& stored = Por::Util::GetArrayElement(*unit, 0);
    EXPECT_NE(&stored, original);
    EXPECT_TRUE(Por::Util::UnitEqual(stored, *With(Comp("a", Str(u"x")), "T", Dword(1))));
}

TEST(CompositeHolder, SetReplacesByNameAndKeepsNameOrder) {
    UnitPtr unit = Comp("b", Dword(1), "a", Dword(2), "B", Dword(3), "ab", Dword(4));
    EXPECT_EQ(PropertyNames(*unit), (std::vector<std::string>{"B", "a", "ab", "b"}));
    auto& composite = Por::Util::AsComposite(*unit);
    composite.Set(F().CreateProperty("a", Str(u"new")));
    EXPECT_EQ(PropertyNames(*unit).size(), 4u);
    EXPECT_EQ(Por::Util::GetStringValue(Por::Util::GetProperty(*unit, "a")->GetUnit()), u"new");

    composite.Remove("missing");  // no error
    composite.Remove("ab");
    EXPECT_EQ(PropertyNames(*unit), (std::vector<std::string>{"B", "a", "b"}));
    EXPECT_EQ(Thrown([&] { composite.Set(nullptr); }).Code(), 0xfa000bu);
}

TEST(CompositeHolder, FindAndIteratorsInEveryLayer) {
    UnitPtr unit = Comp("x", Dword(1), "y", Dword(2));
    auto& composite = Por::Util::AsComposite(*unit);
    auto bump = Por::MakeProcessor<Por::Modification::Property>([](Por::Modification::Property& p) {
        Por::VisitValue(p.GetUnit(), [](auto& v) {
            if constexpr (Por::ValueKindOf<decltype(v)> == Por::DwordType) {
                v.Set(v.Get() + 10);
            }
        });
    });
    EXPECT_TRUE(static_cast<Por::Modification::CompositeValue&>(composite).Find("y", bump));
    EXPECT_FALSE(static_cast<Por::Modification::CompositeValue&>(composite).Find("z", bump));
    EXPECT_EQ(ValueOf<std::uint32_t>(Por::Util::GetProperty(*unit, "y")->GetUnit()), 12u);

    auto it = std::as_const(composite).GetIterator();
    std::string seen;
    for (; it->Valid(); it->Advance()) {
        seen += it->Current().GetName().Text();
    }
    it->Advance();  // past the end: nothing happens
    EXPECT_FALSE(it->Valid());
    EXPECT_EQ(seen, "xy");
}

TEST(TraitSet, SortedByNameThenUnitWithEqualTraitsDropped) {
    UnitPtr unit = Nil();
    EXPECT_TRUE(TraitNames(*unit).empty());  // no traits before the first Add
    auto& traits = unit->GetTraits();
    traits.Add(F().CreateTrait("T", Dword(2)));
    traits.Add(F().CreateTrait("T", Dword(1)));
    traits.Add(F().CreateTrait("A", Nil()));
    traits.Add(F().CreateTrait("T", Dword(1)));  // equal: dropped
    EXPECT_EQ(TraitNames(*unit), (std::vector<std::string>{"A", "T", "T"}));

    std::vector<std::uint32_t> values;
    auto each = Por::MakeProcessor<const Por::View::Trait>(
        [&](const Por::View::Trait& t) { values.push_back(ValueOf<std::uint32_t>(t.GetUnit())); });
    std::as_const(traits).ForEachByName("T", each);
    EXPECT_EQ(values, (Values{1, 2}));

    // Same name and value, but the value carries a trait of its own: a different trait.
    traits.Add(F().CreateTrait("T", With(Dword(1), "Note")));
    EXPECT_EQ(TraitNames(*unit).size(), 4u);

    // A trait of another kind sorts by type index among its namesakes.
    traits.Add(F().CreateTrait("T", Nil()));
    values.clear();
    unsigned first = Por::UnknownType;
    auto firstKind = Por::MakeProcessor<const Por::View::Trait>([&](const Por::View::Trait& t) {
        first = Por::Util::GetValueTypeIndex(t.GetUnit());
        return true;
    });
    std::as_const(traits).ForEachByName("T", firstKind);
    EXPECT_EQ(first, Por::NilType);

    EXPECT_EQ(traits.Remove("T"), 4u);
    EXPECT_EQ(traits.Remove("T"), 0u);
    EXPECT_EQ(TraitNames(*unit), (std::vector<std::string>{"A"}));
    EXPECT_EQ(Thrown([&] { traits.Add(nullptr); }).Code(), 0xfa000bu);
}

TEST(Factory, NullUnitsInPropertiesAndTraitsAreForbidden) {
    const Common::Error e = Thrown([] { F().CreateProperty("p", nullptr); });
    EXPECT_EQ(e.Code(), 0xfa000bu);
    EXPECT_EQ(e.Text(), u"POR: Null units are forbidden.");
    EXPECT_EQ(Thrown([] { F().CreateTrait("t", nullptr); }).Code(), 0xfa000bu);
}

TEST(Factory, ErrorsAreStoredDetachedAndSuccessAsItIs) {
    Common::Error error(TL_ORIGIN("Test::Site"), 0x40007, u"open failed");
    error.AddWindowsError(5);
    UnitPtr unit = Err(error);
    Common::Error held = Por::Util::UnitValueGetter<Common::Error>::Get(*unit);
    EXPECT_NE(held.Identity(), error.Identity());  // no record shared with the caller
    EXPECT_EQ(held.Code(), 0x40007u);
    EXPECT_EQ(held.Cause().Code(), error.Cause().Code());
    EXPECT_EQ(Por::Util::CompareErrors(held, error), 0);

    UnitPtr success = Err(Common::ErrorSuccess);
    EXPECT_TRUE(Por::Util::UnitValueGetter<Common::Error>::Get(*success).Empty());
}

TEST(Factory, ComplexSetOntoItselfIsANoOp) {
    UnitPtr unit = Str(u"same");
    Por::VisitValue(*unit, [](auto& v) {
        if constexpr (Por::ValueKindOf<decltype(v)> == Por::StringType) {
            v.Set(v.Get());
        }
    });
    EXPECT_EQ(Por::Util::GetStringValue(*unit), u"same");
}

TEST(Factory, ProcessFactoryIsOneObject) {
    EXPECT_EQ(&Por::Construction::GetProcessUnitFactory(),
              &Por::Construction::GetProcessUnitFactory());
    UnitPtr unit = Por::Construction::GetProcessUnitFactory().CreateWord(7);
    EXPECT_EQ(ValueOf<std::uint16_t>(*unit), 7u);
}

std::atomic<int> g_created{0};
std::atomic<int> g_alive{0};
struct Counted {
    Counted() { ++g_alive; }
    ~Counted() { --g_alive; }
};

TEST(StaticInstance, RacingFirstCallersShareOneObject) {
    {
        Por::Util::StaticInstance<Counted> instance([]() -> Counted* {
            ++g_created;
            return new Counted;
        });
        std::vector<std::thread> threads;
        std::vector<Counted*> seen(8);
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&, i] { seen[i] = &instance.Get(); });
        }
        for (auto& t : threads) {
            t.join();
        }
        for (Counted* p : seen) {
            EXPECT_EQ(p, seen[0]);
        }
        EXPECT_GE(g_created.load(), 1);
        EXPECT_EQ(g_alive.load(), 1);  // losers destroyed their own
    }
    EXPECT_EQ(g_alive.load(), 0);
}

TEST(RootHolder, BranchKeepsTheTreeAlive) {
    std::shared_ptr<Por::Construction::Unit> root(Comp("child", Str(u"leaf")).release());
    Por::Construction::Unit* child = &Por::Util::GetProperty(*root, "child")->GetUnit();
    std::weak_ptr<Por::Construction::Unit> watch = root;
    auto branch = Por::Util::MakeSharedBranch(std::move(root), child);
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(Por::Util::GetStringValue(*branch), u"leaf");
    branch.reset();  // deletes nothing itself, releases the root
    EXPECT_TRUE(watch.expired());
}

}  // namespace
