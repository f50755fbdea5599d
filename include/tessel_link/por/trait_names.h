#pragma once

// Trait names that the library writes and reads.

namespace Por::TraitNames {

inline constexpr char Version[] = "Version";
inline constexpr char IsContainer[] = "IsContainer";
inline constexpr char IsOptional[] = "IsOptional";
inline constexpr char IsNull[] = "is_null";
inline constexpr char IsInit[] = "is_init";
inline constexpr char IsRecursive[] = "IsRecursive";
inline constexpr char IsReference[] = "IsReference";
inline constexpr char PtrMark[] = "ptr_mark";
inline constexpr char IsPolymorph[] = "IsPolymorph";
inline constexpr char IsEmpty[] = "IsEmpty";
inline constexpr char Searchable[] = "Searchable";
inline constexpr char PrimaryKey[] = "PrimaryKey";
inline constexpr char ForeignKey[] = "ForeignKey";
inline constexpr char Is[] = "Is";
inline constexpr char Source[] = "Source";

}  // namespace Por::TraitNames
