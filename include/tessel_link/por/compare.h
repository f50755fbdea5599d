#pragma once

// The relations between units and the deep copy.

#include <tessel_link/common/error.h>
#include <tessel_link/por/construction.h>

namespace Por::Util {

// How deep a tree the operations that follow it level by level (comparison, copy,
// assignment, walks, pattern matching, the binary form) go: a unit that lies deeper than
// this below the unit an operation started on makes it raise "POR: Out of range.", so that
// a hostile tree ends in that error. The stack of the calling thread is no limit: deep
// levels are followed on stacks of their own.
inline constexpr unsigned kMaxTreeDepth = 16384;

// A total order: -1, 0 or 1. Values first (kinds by type index, then the values of the kind),
// traits next.
TL_API int Compare(const View::Unit& a, const View::Unit& b);
TL_API bool UnitLess(const View::Unit& a, const View::Unit& b);  // Compare(a, b) < 0
// Values and traits: the trait sets include each other and the values are equal.
TL_API bool UnitEqual(const View::Unit& a, const View::Unit& b);
// Values only at the top: the traits of `a` and `b` are not looked at, but those of their
// elements and properties are.
TL_API bool UnitValueEqual(const View::Unit& a, const View::Unit& b);
// Every trait of `b` has a trait of the same name in `a` whose unit is UnitEqual to it.
TL_API bool TraitsInclude(const View::Unit& a, const View::Unit& b);

// The order of error values: codes, then the causes, then the parameter lists.
TL_API int CompareErrors(const Common::Error& a, const Common::Error& b);

// A deep copy of the unit with its traits, made with the factory; it shares nothing with the
// source.
TL_API UnitPtr CopyUnit(const View::Unit& unit, Construction::UnitFactory& factory);

// For ordered containers of unit pointers or references.
struct UnitLessFunctor {
    // Compare(a, b) < 0.
    bool operator()(const View::Unit& a, const View::Unit& b) const { return UnitLess(a, b); }
    // Compare(*a, *b) < 0.
    bool operator()(const View::Unit* a, const View::Unit* b) const { return UnitLess(*a, *b); }
};

}  // namespace Por::Util
