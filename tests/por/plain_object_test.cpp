// Plain objects over unit trees: the construction script, the shared tree behind branches,
// defaults, and the error handler on every failing accessor.

#include <tessel_link/gtob/slicing_configuration.h>

#include <gtest/gtest.h>
#include <tessel_link/por/pattern.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Gtob::Dto::Action;
using Gtob::Dto::SlicingConfiguration;

TEST(PlainObject, TheScriptMakesACompositeMarkedWithTheClass) {
    Action a(F());
    Action b(F());
    EXPECT_TRUE(Por::Util::UnitEqual(a.Branch(), b.Branch()));
    EXPECT_TRUE(Por::Util::UnitEqual(a.Branch(), *With(Comp(), "Is", Str(u"Gtob::Dto::Action"))));
    // The mark is what the pattern "Is" tells the class by.
    EXPECT_TRUE(Por::Util::Match(a.Branch(), *With(Comp(), "Is", Str(u"Gtob::Dto::Action"))));
    EXPECT_FALSE(Por::Util::Match(SlicingConfiguration(F()).Branch(),
                                  *With(Comp(), "Is", Str(u"Gtob::Dto::Action"))));
    // Both classes registered their construction function by name.
    EXPECT_EQ(Por::ConstructionDynamicContext::Find(u"Gtob::Dto::Action"), &Action::Construct);
    EXPECT_EQ(Por::ConstructionDynamicContext::Find(u"Gtob::Dto::SlicingConfiguration"),
              &SlicingConfiguration::Construct);
    EXPECT_EQ(Por::ConstructionDynamicContext::Find(u"Gtob::Dto::Nothing"), nullptr);
}

TEST(PlainObject, AnUninitializedObjectFailsEveryAccess) {
    Action a;
    EXPECT_FALSE(a.IsInitialized());
    for (const Common::Error& e :
         {Thrown([&] { a.Branch(); }), Thrown([&] { a.Factory(); }), Thrown([&] { a.Root(); }),
          Thrown([&] { a.GetName(); }), Thrown([&] { a.SetEnabled(false); })}) {
        EXPECT_EQ(e.Code(), 0xfa0001u);
        EXPECT_EQ(e.Text(), u"POR: There was an attempt to access an uninitialized object.");
    }
    // Given a tree, the object works.
    a.Reset(Por::MakeConstructionContext(Comp("Name", Str(u"n")), F()));
    EXPECT_EQ(a.GetName(), u"n");
}

TEST(PlainObject, AccessorsReadDefaultsAndWriteProperties) {
    Action a(F());
    EXPECT_TRUE(a.GetEnabled());
    EXPECT_EQ(a.GetTimeoutSeconds(), 0u);
    EXPECT_EQ(a.GetCommand(), u"");
    a.SetName(u"notify");
    a.SetEnabled(false);
    a.SetTimeoutSeconds(30);
    a.SetTimeoutSeconds(60);
    EXPECT_EQ(a.GetName(), u"notify");
    EXPECT_FALSE(a.GetEnabled());
    EXPECT_EQ(a.GetTimeoutSeconds(), 60u);
    EXPECT_EQ(PropertyNames(a.Branch()),
              (std::vector<std::string>{"Enabled", "Name", "TimeoutSeconds"}));
    // A missing property without default, and a property of another kind.
    Action fresh(F());
    const Common::Error missing = Thrown([&] { fresh.GetName(); });
    EXPECT_EQ(missing.Code(), 0xfa000du);
    EXPECT_EQ(std::u16string(missing.GetWide("0")), u"Name");
    Action odd(Por::MakeConstructionContext(Comp("Enabled", Dword(1)), F()));
    EXPECT_EQ(Thrown([&] { odd.GetEnabled(); }).Code(), 0xfa000au);
    EXPECT_EQ(Thrown([&] { odd.SetEnabled(true); }).Code(), 0xfa000au);
    // The property of another kind stays as it was.
    EXPECT_EQ(ValueOf<std::uint32_t>(Por::Util::GetProperty(odd.Branch(), "Enabled")->GetUnit()),
              1u);
    // A branch that is no composite is a processing error, with the cause attached.
    Action scalar(Por::MakeConstructionContext(Dword(3), F()));
    const Common::Error processing = Thrown([&] { scalar.GetCommand(); });
    EXPECT_EQ(processing.Code(), 0xfa0001u);
    EXPECT_EQ(processing.Text(), u"POR: Property '{0}' processing error has occurred.");
    EXPECT_EQ(std::u16string(processing.GetWide("0")), u"Command");
    EXPECT_EQ(processing.Cause().Code(), 0xfa000au);
}

// Counts what it is told and lets the accessor go on.
struct CountingHandler final : Por::ErrorHandler {
    int notFound = 0, mismatch = 0, processing = 0;
    void PropertyNotFound(const Por::UnitName&) override { ++notFound; }
    void PropertyTypeMismatch(const Por::UnitName&, unsigned, unsigned) override { ++mismatch; }
    void PropertyProcessingError(const Por::UnitName&, const Common::Error&) override {
        ++processing;
    }
};

TEST(PlainObject, AHandlerThatReturnsLetsAccessorsGoOn) {
    CountingHandler handler;
    Action a(F(), &handler);
    EXPECT_EQ(a.GetName(), u"");
    Action odd(Por::MakeConstructionContext(Comp("Enabled", Str(u"yes")), F(), &handler));
    EXPECT_FALSE(odd.GetEnabled());
    odd.SetEnabled(true);
    Action scalar(Por::MakeConstructionContext(Nil(), F(), &handler));
    scalar.SetName(u"x");
    EXPECT_EQ(handler.notFound, 1);
    EXPECT_EQ(handler.mismatch, 2);
    EXPECT_EQ(handler.processing, 1);
    // A null handler is the throwing one.
    Action defaulted(F(), nullptr);
    EXPECT_EQ(Thrown([&] { defaulted.GetName(); }).Code(), 0xfa000du);
}

TEST(PlainObject, BranchesShareTheirTreeAndCopiesShareNothing) {
    std::shared_ptr<Por::Construction::Unit> branch;
    {
        SlicingConfiguration config(F());
        EXPECT_FALSE(config.HasPostAction());
        EXPECT_EQ(config.GetScheme(), u"Incremental");
        config.SetSliceSize(1ull << 32);
        Action post = config.PostAction();
        post.SetName(u"cleanup");
        EXPECT_TRUE(config.HasPostAction());
        EXPECT_EQ(config.PostAction().GetName(), u"cleanup");  // the same branch again
        EXPECT_EQ(post.Root(), config.Root());

        Por::UnitPtr copy;
        config.CopyUnit(copy);
        EXPECT_TRUE(Por::Util::UnitEqual(*copy, config.Branch()));
        post.SetName(u"changed");
        EXPECT_FALSE(Por::Util::UnitEqual(*copy, config.Branch()));
        EXPECT_EQ(ValueOf<std::u16string>(
                      Por::Util::GetProperty(Por::Util::GetProperty(*copy, "PostAction")->GetUnit(),
                                             "Name")
                          ->GetUnit()),
                  u"cleanup");
        branch = post.SharedBranch();
    }
    // The configuration is gone; the shared branch kept the whole tree alive.
    Action survivor(Por::ConstructionContext{branch, branch.get(), &F(), nullptr, nullptr});
    EXPECT_EQ(survivor.GetName(), u"changed");
}

struct Bare final : Por::BaseObject {
    using BaseObject::BaseObject;
};

TEST(PlainObject, DefaultValueNeedsAFunction) {
    Bare bare(Por::MakeConstructionContext(Comp(), F()));
    const Common::Error e = Thrown([&] { bare.DefaultValue("x"); });
    EXPECT_EQ(e.Code(), 0xfa0001u);
    EXPECT_EQ(e.Text(), u"POR: An internal error has occurred.");
    Action a(F());
    EXPECT_TRUE(Por::Util::UnitEqual(*a.DefaultValue("Enabled"), *Bool(true)));
    EXPECT_EQ(a.DefaultValue("Name"), nullptr);
}

}  // namespace
