#pragma once

// The vocabulary of tree updates: property and trait names of a diff unit. Diffs are built
// and applied elsewhere; the names are kept so that every side spells them alike.

namespace Por::DiffNames {

// Kinds of a diff.
inline constexpr char PackedDiff[] = "PackedDiff";
inline constexpr char FullDiff[] = "FullDiff";
inline constexpr char EmptyDiff[] = "EmptyDiff";
inline constexpr char TraitsOnlyDiff[] = "TraitsOnlyDiff";
inline constexpr char FullElementCopy[] = "FullElementCopy";
inline constexpr char FixedTraitedFullCopy[] = "FixedTraitedFullCopy";

// Changes of a property or element.
inline constexpr char Added[] = "Added";
inline constexpr char Removed[] = "Removed";
inline constexpr char AddOrUpdate[] = "AddOrUpdate";
inline constexpr char PreviousValue[] = "PreviousValue";
inline constexpr char NewValue[] = "NewValue";

// State changes.
inline constexpr char StateDeclaration[] = "StateDeclaration";
inline constexpr char IncrementState[] = "IncrementState";
inline constexpr char DecrementState[] = "DecrementState";
inline constexpr char BitwiseAndState[] = "BitwiseAndState";
inline constexpr char BitwiseOrState[] = "BitwiseOrState";

}  // namespace Por::DiffNames
