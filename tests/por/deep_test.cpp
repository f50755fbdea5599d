// Trees deeper than the recursive operations follow: they refuse or cut off, never crash.

#include <tessel_link/por/assign.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/pattern.h>
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

// Far deeper than a thread's stack would allow if every level took a frame on it: the
// operations move to fresh stacks as they go down.
TEST(DeepTrees, FourThousandLevelsWorkInEveryOperation) {
    constexpr unsigned kLevels = 4096;
    for (Shape shape : {Shape::Arrays, Shape::Composites, Shape::Traits}) {
        SCOPED_TRACE(static_cast<int>(shape));
        UnitPtr deep = Chain(kLevels, shape);
        UnitPtr copy = Por::Util::CopyUnit(*deep, F());
        EXPECT_EQ(Por::Util::Compare(*deep, *copy), 0);
        EXPECT_TRUE(Por::Util::UnitEqual(*deep, *copy));
        EXPECT_TRUE(Por::Util::UnitValueEqual(*deep, *copy));
        if (shape != Shape::Traits) {  // traits of a pattern are tests, and "T" is none
            EXPECT_TRUE(Por::Util::Match(*deep, *copy));
        }
        // A difference at the bottom is seen from the top.
        UnitPtr other = Chain(kLevels, shape);
        UnitPtr leaf = Dword(8);
        UnitPtr changed = std::move(leaf);
        for (unsigned i = 0; i < kLevels; ++i) {
            switch (shape) {
                case Shape::Arrays: changed = Arr(std::move(changed)); break;
                case Shape::Composites: changed = Comp("p", std::move(changed)); break;
                case Shape::Traits: changed = With(Nil(), "T", std::move(changed)); break;
            }
        }
        EXPECT_FALSE(Por::Util::UnitEqual(*deep, *changed));
        if (shape != Shape::Traits) {  // ordering trait sets costs the square of the depth
            EXPECT_NE(Por::Util::Compare(*deep, *changed), 0);
            Por::Util::Assign(*other, *changed, F());
            EXPECT_TRUE(Por::Util::UnitEqual(*other, *changed));
        }
        // The binary form comes back with the same bytes.
        std::vector<unsigned char> blob;
        Por::Util::WriteBlob(*deep, blob);
        UnitPtr back = Por::Util::ReadBlob(blob.data(), blob.size(), F());
        EXPECT_TRUE(Por::Util::UnitEqual(*deep, *back));
        std::vector<unsigned char> again;
        Por::Util::WriteBlob(*back, again);
        EXPECT_EQ(blob, again);
        // Printing shows every level, the leaf included.
        std::ostringstream out;
        Por::Util::Print(*deep, "", out);
        EXPECT_EQ(out.str().find(" ..."), std::string::npos);
        EXPECT_NE(out.str().find("= 7"), std::string::npos);
    }
}

TEST(DeepTrees, AMillionLevelBlobIsRefusedCleanly) {
    std::vector<unsigned char> blob;
    for (int i = 0; i < 3000000; ++i) {
        blob.push_back('U');
        blob.push_back('A');
    }
    try {
        Por::Util::ReadBlob(blob.data(), blob.size(), F());
        FAIL() << "read";
    } catch (const Common::Error& error) {
        EXPECT_EQ(error.Code(), 0xfa0021u);
    }
}

TEST(DeepTrees, PrinterCutsTheTreeOff) {
    using Por::Util::kMaxPrintDepth;
    UnitPtr deep = Chain(kMaxPrintDepth + 10, Shape::Arrays);
    std::ostringstream out;
    Por::Util::Print(*deep, "", out);
    const std::string text = out.str();
    const std::string cut = std::string(2 * (kMaxPrintDepth + 1), ' ') + "0 ...\n";
    EXPECT_NE(text.find(cut), std::string::npos);
    EXPECT_EQ(text.find("(unsigned long)"), std::string::npos);
    EXPECT_TRUE(text.ends_with(cut));
}

TEST(DeepTrees, LongCauseChainsPrintCutOff) {
    Common::Error error(TL_ORIGIN("f"), 1);
    for (unsigned i = 0; i < Por::Util::kMaxPrintDepth + 10; ++i) {
        Common::Error head(TL_ORIGIN("f"), 1);
        head.AddCause(error);
        error = head;
    }
    std::ostringstream out;
    Por::Util::Print(*Err(error), "", out);
    EXPECT_NE(out.str().find("(SubError) ...\n"), std::string::npos);
}

}  // namespace
