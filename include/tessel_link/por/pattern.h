#pragma once

// Units read as queries. A pattern mirrors the shape of the source; the traits of a pattern
// unit are predicates: the trait's name selects a test and the trait's unit is its argument.

#include <string_view>

#include <tessel_link/por/view.h>

namespace Por::Util {

// A test of the pattern table: the source unit and the trait's unit.
using PatternTest = bool (*)(const View::Unit& source, const View::Unit& argument);

// Whether `source` fits `pattern`:
// 1. a nil pattern without traits fits anything;
// 2. otherwise the kinds must agree;
// 3. MatchTraits must hold;
// 4. for composites, every property of the pattern must exist in the source and match there
//    (properties that only the source has are ignored).
// Raises 0xfa000e for a trait that is no test, and for malformed arguments of "Between",
// "Like", "DirectRelative" and "HasIntersection"; "POR: Out of range." for a pattern nested
// deeper than kMaxTreeDepth.
TL_API bool Match(const View::Unit& source, const View::Unit& pattern);

// A pattern without traits that is no composite compares by value (UnitValueEqual);
// otherwise every trait's test must hold, in trait order, stopping at the first that fails.
// The pattern unit's own value takes no part then.
TL_API bool MatchTraits(const View::Unit& source, const View::Unit& pattern);

// The test of a trait name; raises "POR: Name '{0}' of the trait is not registered for
// pattern." (0xfa000e) for any other name. The tests are "AnyValue", "Between",
// "EqualValue", "Greater", "GreaterEqual", "Less", "LessEqual", "IncludedInArray",
// "ValueIncludedInArray", "In", "ValueIn", "Is", "Like", "Not", "Or", "Source", "PrimaryKey",
// "ForeignKey", "DirectRelative" and "HasIntersection".
TL_API PatternTest GetPatternByName(const UnitName& name);

// The wildcard match of "Like", case-sensitive by UTF-16 unit: "%" stands for any run of
// units (also none), "_" for exactly one. An empty pattern matches every text.
TL_API bool LikeMatch(std::u16string_view text, std::u16string_view pattern);

}  // namespace Por::Util
