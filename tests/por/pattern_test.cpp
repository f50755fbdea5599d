// Matching units against patterns: the shape rules, each test of the table, and the failures
// that a malformed pattern raises.

#include <tessel_link/por/pattern.h>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Por::Util::Match;

// A pattern unit: `unit` carrying the test `name` with `argument`.
UnitPtr P(UnitPtr unit, const std::string& name, UnitPtr argument = nullptr) {
    return With(std::move(unit), name, std::move(argument));
}

TEST(Match, ShapeRules) {
    EXPECT_TRUE(Match(*Comp("a", Dword(1)), *Nil()));  // a bare nil fits anything
    EXPECT_FALSE(Match(*Nil(), *Str(u"x")));
    // A nil pattern with a test must meet a nil.
    EXPECT_TRUE(Match(*Nil(), *P(Nil(), "AnyValue")));
    EXPECT_FALSE(Match(*Dword(1), *P(Nil(), "AnyValue")));
    // A bare value compares by value, traits of the source aside.
    EXPECT_TRUE(Match(*With(Dword(4), "T"), *Dword(4)));
    EXPECT_FALSE(Match(*Dword(4), *Dword(5)));
    EXPECT_FALSE(Match(*Sdword(4), *Dword(4)));
    EXPECT_TRUE(Match(*Arr(Dword(1)), *Arr(Dword(1))));
    // Composites: every pattern property must be there and fit; extra source ones are ignored.
    const UnitPtr source = Comp("a", Dword(1), "b", Comp("c", Str(u"deep")), "x", Nil());
    EXPECT_TRUE(Match(*source, *Comp()));
    EXPECT_TRUE(Match(*source, *Comp("b", Comp("c", Str(u"deep")))));
    EXPECT_FALSE(Match(*source, *Comp("b", Comp("c", Str(u"other")))));
    EXPECT_FALSE(Match(*source, *Comp("missing", Nil())));
    EXPECT_TRUE(Match(*source, *Comp("a", Nil(), "x", Nil())));
}

TEST(Match, ATestedPatternIgnoresItsOwnValue) {
    EXPECT_TRUE(Match(*Str(u"abc"), *P(Str(u"zzz"), "Like", Str(u"a%"))));
    EXPECT_TRUE(Match(*Dword(2), *P(Dword(99), "Greater", Dword(1))));
}

TEST(Match, OrderingAndRanges) {
    EXPECT_TRUE(Match(*Dword(2), *P(Dword(0), "Greater", Dword(1))));
    EXPECT_FALSE(Match(*Dword(1), *P(Dword(0), "Greater", Dword(1))));
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "GreaterEqual", Dword(1))));
    EXPECT_TRUE(Match(*Dword(0), *P(Dword(0), "Less", Dword(1))));
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "LessEqual", Dword(1))));
    EXPECT_FALSE(Match(*Dword(2), *P(Dword(0), "LessEqual", Dword(1))));
    // The argument must be of the source's kind.
    EXPECT_FALSE(Match(*Dword(5), *P(Dword(0), "Greater", Qword(1))));
    EXPECT_TRUE(Match(*With(Dword(5), "T"), *P(Dword(0), "EqualValue", Dword(5))));

    const auto between = [](UnitPtr from, UnitPtr to) {
        return P(Dword(0), "Between", Comp("From", std::move(from), "To", std::move(to)));
    };
    for (std::uint32_t v : {1u, 2u, 3u}) {
        EXPECT_TRUE(Match(*Dword(v), *between(Dword(1), Dword(3)))) << v;
    }
    EXPECT_FALSE(Match(*Dword(4), *between(Dword(1), Dword(3))));
    EXPECT_FALSE(Match(*Dword(0), *between(Dword(1), Dword(3))));
    // A source of another kind doesn't fit; bounds of different kinds are malformed even then.
    const UnitPtr other = Str(u"x");
    EXPECT_FALSE(Por::Util::MatchTraits(*other, *between(Dword(1), Dword(3))));
    const Common::Error e =
        Thrown([&] { Por::Util::MatchTraits(*other, *between(Dword(1), Qword(3))); });
    EXPECT_EQ(e.Code(), 0xfa000eu);
    EXPECT_EQ(e.Text(), u"POR: Failed to check range inclusion.");
    const Common::Error missing =
        Thrown([&] { Match(*Dword(1), *P(Dword(0), "Between", Comp("From", Dword(1)))); });
    EXPECT_EQ(missing.Code(), 0xfa0020u);
    EXPECT_EQ(std::u16string(missing.GetWide("0")), u"To");
}

TEST(Match, Membership) {
    const UnitPtr list = Arr(Dword(1), With(Dword(2), "T"));
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "In", Arr(Dword(3), Dword(1)))));
    EXPECT_FALSE(Match(*Dword(1), *P(Dword(0), "In", Arr())));
    // "In" compares traits too, "ValueIn" values only.
    EXPECT_FALSE(Match(*Dword(2), *P(Dword(0), "In", Por::Util::CopyUnit(*list, F()))));
    EXPECT_TRUE(Match(*Dword(2), *P(Dword(0), "ValueIn", Por::Util::CopyUnit(*list, F()))));
    EXPECT_FALSE(Match(*Dword(2), *P(Dword(0), "In", Dword(2))));  // no array: no member
    EXPECT_TRUE(Match(*list, *P(Arr(), "IncludedInArray", Dword(1))));
    EXPECT_FALSE(Match(*list, *P(Arr(), "IncludedInArray", Dword(2))));
    EXPECT_TRUE(Match(*list, *P(Arr(), "ValueIncludedInArray", Dword(2))));
    EXPECT_TRUE(Match(*list, *P(Arr(), "HasIntersection", Arr(Str(u"x"), Dword(2)))));
    EXPECT_FALSE(Match(*list, *P(Arr(), "HasIntersection", Arr())));
}

TEST(Match, RelationsByTrait) {
    const UnitPtr source =
        With(With(With(Comp(), "Is", Str(u"Gtob::Dto::Action")), "PrimaryKey", Dword(7)), "Source",
             Str(u"plan"));
    EXPECT_TRUE(Match(*source, *P(Comp(), "Is", Str(u"Gtob::Dto::Action"))));
    EXPECT_FALSE(Match(*source, *P(Comp(), "Is", Str(u"Gtob::Dto::Other"))));
    // The argument's own traits take no part.
    EXPECT_TRUE(Match(*source, *P(Comp(), "PrimaryKey", With(Dword(7), "X"))));
    EXPECT_FALSE(Match(*source, *P(Comp(), "ForeignKey", Dword(7))));
    EXPECT_TRUE(Match(*source, *P(Comp(), "Source", Str(u"plan"))));
    EXPECT_FALSE(Match(*source, *P(Comp(), "Source", Str(u"other"))));
    EXPECT_TRUE(Match(*source, *P(Comp(), "Source", With(Nil(), "AnyValue"))));
    EXPECT_FALSE(Match(*Comp(), *P(Comp(), "Source", With(Nil(), "AnyValue"))));
}

TEST(Match, NotAndOr) {
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "Not", Dword(2))));
    EXPECT_FALSE(Match(*Dword(1), *P(Dword(0), "Not", Nil())));
    EXPECT_FALSE(Match(*Dword(1), *P(Dword(0), "Or", Arr())));
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "Or", Arr(Str(u"x"), Dword(1)))));
    EXPECT_TRUE(Match(*Dword(1), *P(Dword(0), "Or", Arr(Str(u"x"), Nil()))));
    EXPECT_TRUE(Match(*Comp("a", Dword(1)),
                      *P(Comp(), "Or", Arr(Comp("a", Dword(2)), Comp("a", Dword(1))))));
    // Patterns nested without end are refused.
    UnitPtr nested = Nil();
    for (int i = 0; i < 2 * static_cast<int>(Por::Util::kMaxTreeDepth); ++i) {
        nested = P(Dword(0), "Not", std::move(nested));
    }
    EXPECT_EQ(Thrown([&] { Match(*Dword(1), *nested); }).Code(), 0xfa000fu);
}

TEST(Match, LikeWildcards) {
    using Por::Util::LikeMatch;
    EXPECT_TRUE(LikeMatch(u"anything", u""));
    EXPECT_TRUE(LikeMatch(u"", u""));
    EXPECT_TRUE(LikeMatch(u"", u"%"));
    EXPECT_TRUE(LikeMatch(u"abc", u"%"));
    EXPECT_TRUE(LikeMatch(u"x", u"_"));
    EXPECT_FALSE(LikeMatch(u"", u"_"));
    EXPECT_FALSE(LikeMatch(u"xy", u"_"));
    EXPECT_TRUE(LikeMatch(u"abc", u"a%"));
    EXPECT_FALSE(LikeMatch(u"Abc", u"a%"));   // case-sensitive
    // Greedy with one back-up point: once the pattern is used up, the match is decided
    // without backing up again, so only a text used up too (or a final "%") matches.
    EXPECT_FALSE(LikeMatch(u"abxb", u"a%b"));
    EXPECT_FALSE(LikeMatch(u"aXbab", u"a%b"));
    EXPECT_FALSE(LikeMatch(u"abab", u"%ab"));
    EXPECT_FALSE(LikeMatch(u"abcabd", u"%ab_"));
    EXPECT_TRUE(LikeMatch(u"xaab", u"%ab"));   // a mismatch still backs up
    EXPECT_TRUE(LikeMatch(u"aXb", u"a%b"));
    EXPECT_TRUE(LikeMatch(u"abcd", u"a%"));    // a final "%" takes the rest
    EXPECT_TRUE(LikeMatch(u"ab", u"ab%"));
    EXPECT_FALSE(LikeMatch(u"ab", u"abc"));
    EXPECT_FALSE(LikeMatch(u"abcabe", u"%abd"));
    EXPECT_TRUE(LikeMatch(u"a%c", u"a%%c"));
    EXPECT_TRUE(LikeMatch(u"\U0001F600", u"__"));  // units, not characters

    // A searchable array fits when one of its strings does; other elements are skipped.
    const UnitPtr names = With(Arr(Dword(1), Str(u"beta"), Str(u"alpha")), "Searchable");
    EXPECT_TRUE(Match(*names, *P(Arr(), "Like", Str(u"al%"))));
    EXPECT_FALSE(Match(*names, *P(Arr(), "Like", Str(u"g%"))));
    EXPECT_FALSE(Match(*Arr(Str(u"alpha")), *P(Arr(), "Like", Str(u"al%"))));
    EXPECT_FALSE(Match(*Dword(1), *P(Dword(0), "Like", Str(u""))));
    EXPECT_EQ(Thrown([&] { Match(*Str(u"a"), *P(Str(u""), "Like", Dword(1))); }).Code(), 0xfa000eu);
}

TEST(Match, DirectRelativeAndHasIntersectionFailDifferently) {
    EXPECT_TRUE(Match(*Str(u"C:\\dir\\file"), *P(Str(u""), "DirectRelative", Str(u"C:\\dir"))));
    EXPECT_FALSE(Match(*Str(u"C:\\di"), *P(Str(u""), "DirectRelative", Str(u"C:\\dir"))));
    EXPECT_FALSE(Match(*Str(u"c:\\dir"), *P(Str(u""), "DirectRelative", Str(u"C:\\dir"))));
    // A source of another kind simply doesn't fit ...
    EXPECT_FALSE(Por::Util::MatchTraits(*Dword(1), *P(Str(u""), "DirectRelative", Str(u"C:"))));
    // ... while "HasIntersection" with a source that is no array is malformed.
    const Common::Error e =
        Thrown([&] { Por::Util::MatchTraits(*Dword(1), *P(Arr(), "HasIntersection", Arr())); });
    EXPECT_EQ(e.Code(), 0xfa000eu);
    EXPECT_EQ(e.Text(), u"POR: Object internal structure mismatch.");
    EXPECT_EQ(Thrown([&] { Match(*Str(u"x"), *P(Str(u""), "DirectRelative", Nil())); }).Code(),
              0xfa000eu);
}

TEST(Match, UnknownTraitsStopTheMatchUnlessAnEarlierTestFailed) {
    const Common::Error e = Thrown([&] { Match(*Dword(1), *P(Dword(0), "Version", Qword(1))); });
    EXPECT_EQ(e.Code(), 0xfa000eu);
    EXPECT_EQ(e.Text(), u"POR: Name '{0}' of the trait is not registered for pattern.");
    EXPECT_EQ(std::u16string(e.GetWide("0")), u"Version");
    // "Less" sorts before "Zzz" and fails first: the unknown name is never looked up.
    EXPECT_FALSE(Match(*Dword(5), *P(P(Dword(0), "Zzz"), "Less", Dword(1))));
    EXPECT_EQ(Thrown([&] { Match(*Dword(0), *P(P(Dword(0), "Zzz"), "Less", Dword(1))); }).Code(),
              0xfa000eu);
}

}  // namespace
