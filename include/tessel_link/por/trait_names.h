#pragma once

// Trait names that the library writes and reads.

namespace Por::TraitNames {

inline constexpr char Version[] = "Version";  // the record version a unit states
inline constexpr char IsContainer[] = "IsContainer";  // a unit that holds a container
inline constexpr char IsOptional[] = "IsOptional";  // a unit that holds an optional value
inline constexpr char IsNull[] = "is_null";  // an optional value's null flag
inline constexpr char IsInit[] = "is_init";  // an optional value's presence flag
inline constexpr char IsRecursive[] = "IsRecursive";  // a unit that refers to its own kind
inline constexpr char IsReference[] = "IsReference";  // a unit that refers to another unit
inline constexpr char PtrMark[] = "ptr_mark";  // the mark of a shared pointer's target
inline constexpr char IsPolymorph[] = "IsPolymorph";  // a unit of a polymorphic hierarchy
inline constexpr char IsEmpty[] = "IsEmpty";  // an empty unit
inline constexpr char Searchable[] = "Searchable";  // a property that searches may use
inline constexpr char PrimaryKey[] = "PrimaryKey";  // a property that identifies its object
inline constexpr char ForeignKey[] = "ForeignKey";  // a property that names another object
inline constexpr char Is[] = "Is";  // the class a unit is an object of
inline constexpr char Source[] = "Source";  // where a unit came from

}  // namespace Por::TraitNames
