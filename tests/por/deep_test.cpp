// Trees deeper than the recursive operations follow: they refuse or cut off, never crash.

#include <tessel_link/por/assign.h>
#include <tessel_link/por/print.h>

#include <sstream>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::kMaxTreeDepth;

enum class Shape { Arrays, Composites, Traits };

// A chain of `depth` levels above a leaf, built from the leaf up (no recursion).
UnitPtr Chain(unsigned depth, Shape shape) {
    UnitPtr unit = Dword(7);
    for (unsigned i = 0; i < depth; ++i) {
        switch (shape) {
            case Shape::Arrays:
                unit = Arr(std::move(unit));
                break;
            case Shape::Composites:
                unit = Comp("p", std::move(unit));
                break;
            case Shape::Traits:
                unit = With(Nil(), "T", std::move(unit));
                break;
        }
    }
    return unit;
}

TEST(DeepTrees, HostileDepthIsRefusedByCopyCompareAndAssign) {
    for (Shape shape : {Shape::Arrays, Shape::Composites, Shape::Traits}) {
        UnitPtr deep = Chain(20 * kMaxTreeDepth, shape);
        UnitPtr other = Chain(20 * kMaxTreeDepth, shape);
        EXPECT_EQ(Thrown([&] { Por::Util::CopyUnit(*deep, F()); }).Code(), 0xfa000fu);
        EXPECT_EQ(Thrown([&] { Por::Util::Compare(*deep, *other); }).Code(), 0xfa000fu);
        EXPECT_EQ(Thrown([&] { Por::Util::UnitEqual(*deep, *other); }).Code(), 0xfa000fu);
        if (shape != Shape::Traits) {  // the top unit's traits take no part in value equality
            EXPECT_EQ(Thrown([&] { Por::Util::UnitValueEqual(*deep, *other); }).Code(),
                      0xfa000fu);
            const Common::Error e = Thrown([&] { Por::Util::Assign(*deep, *other, F()); });
            EXPECT_EQ(e.Code(), 0xfa000fu);
            EXPECT_EQ(e.Text(), u"POR: Out of range.");
        }
    }
}

TEST(DeepTrees, DestroyingATreeOfAnyDepthNeedsNoDeepStack) {
    for (Shape shape : {Shape::Arrays, Shape::Composites, Shape::Traits}) {
        UnitPtr deep = Chain(300000, shape);
        deep.reset();
    }
    // Clearing an array and replacing a property destroy subtrees as well.
    UnitPtr array = Arr(Chain(300000, Shape::Arrays));
    Por::Util::AsArray(*array).Clear();
    UnitPtr composite = Comp("p", Chain(300000, Shape::Composites));
    Por::Util::AsComposite(*composite).Set(F().CreateProperty("p", Nil()));
}

TEST(DeepTrees, AssigningADeepArrayElementFailsBeforeAnythingChanges) {
    UnitPtr target = Comp("a", Dword(1), "list", Arr());
    UnitPtr source = Comp("a", Dword(2), "list", Arr(Chain(kMaxTreeDepth + 5, Shape::Arrays)));
    EXPECT_EQ(Thrown([&] { Por::Util::Assign(*target, *source, F()); }).Code(), 0xfa000fu);
    EXPECT_TRUE(Por::Util::UnitEqual(*target, *Comp("a", Dword(1), "list", Arr())));
}

TEST(DeepTrees, TreesAtTheLimitAreHandled) {
    UnitPtr deep = Chain(kMaxTreeDepth, Shape::Composites);
    UnitPtr copy = Por::Util::CopyUnit(*deep, F());
    EXPECT_EQ(Por::Util::Compare(*deep, *copy), 0);
    EXPECT_TRUE(Por::Util::UnitEqual(*deep, *copy));
    Por::Util::Assign(*copy, *deep, F());
    UnitPtr traits = Chain(kMaxTreeDepth, Shape::Traits);
    EXPECT_TRUE(Por::Util::UnitEqual(*traits, *Por::Util::CopyUnit(*traits, F())));
}

TEST(DeepTrees, PrinterCutsTheTreeOff) {
    UnitPtr deep = Chain(kMaxTreeDepth + 10, Shape::Arrays);
    std::ostringstream out;
    Por::Util::Print(*deep, "", out);
    const std::string text = out.str();
    const std::string cut = std::string(2 * (kMaxTreeDepth + 1), ' ') + "0 ...\n";
    EXPECT_NE(text.find(cut), std::string::npos);
    EXPECT_EQ(text.find("(unsigned long)"), std::string::npos);
    EXPECT_TRUE(text.ends_with(cut));
}

TEST(DeepTrees, LongCauseChainsPrintCutOff) {
    Common::Error error(TL_ORIGIN("f"), 1);
    for (unsigned i = 0; i < kMaxTreeDepth + 10; ++i) {
        Common::Error head(TL_ORIGIN("f"), 1);
        head.AddCause(error);
        error = head;
    }
    std::ostringstream out;
    Por::Util::Print(*Err(error), "", out);
    EXPECT_NE(out.str().find("(SubError) ...\n"), std::string::npos);
}

}  // namespace
