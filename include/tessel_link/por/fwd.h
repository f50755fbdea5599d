#pragma once

// Forward declarations of the unit tree's classes, for headers that only name them.

#include <memory>

namespace Por {

namespace View {
class Unit;
class Trait;
class Traits;
class Property;
class CompositeValue;
class ArrayValue;
class NilValue;
template <class T>
class ScalarValue;
template <class T>
class ComplexValue;
class UnitReader;
}  // namespace View

namespace Modification {
class Unit;
class Traits;
class Property;
class CompositeValue;
class ArrayValue;
class NilValue;
template <class T>
class ScalarValue;
template <class T>
class ComplexValue;
class UnitModifier;
}  // namespace Modification

namespace Construction {
class Unit;
class Traits;
class Property;
class CompositeValue;
class ArrayValue;
class NilValue;
template <class T>
class ScalarValue;
template <class T>
class ComplexValue;
class UnitBuilder;
class UnitFactory;
}  // namespace Construction

// Owning pointers. Units, properties and traits have a single owner; ownership moves.
using UnitPtr = std::unique_ptr<Construction::Unit>;
using PropertyPtr = std::unique_ptr<Construction::Property>;
using TraitPtr = std::unique_ptr<View::Trait>;

}  // namespace Por
