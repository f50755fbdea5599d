#pragma once

// Small helpers over units, used throughout the model.

#include <cstdint>
#include <type_traits>

#include <tessel_link/impl/por/stored_kind.h>
#include <tessel_link/por/visitors.h>

namespace Por::Util {

TL_API unsigned GetValueTypeIndex(const View::Unit& unit);  // the index of the unit's value kind
// Whether the two hold values of one kind.
TL_API bool HaveSameType(const View::Unit& a, const View::Unit& b);
TL_API bool IsArray(const View::Unit& unit);  // whether the unit holds an array
TL_API bool IsComposite(const View::Unit& unit);  // whether the unit holds a composite
// An array with a trait "Searchable".
TL_API bool IsSearchableArray(const View::Unit& unit);

// A trait of the name exists, whatever its value.
TL_API bool HasTrait(const View::Unit& unit, const UnitName& name);
// A trait of the name exists whose unit has the value of `value` (traits not looked at).
TL_API bool HasTraitWithValue(const View::Unit& unit, const UnitName& name, const View::Unit& value);
TL_API bool HasTraits(const View::Unit& unit);  // whether the unit has any trait

// Wraps `value` in a new trait and adds it; a null value becomes a nil unit.
TL_API void AddTrait(Construction::Unit& unit, const UnitName& name, UnitPtr value,
                     Construction::UnitFactory& factory);
// Wraps `value` in a new property and stores it; a unit that is not a composite raises the
// type mismatch.
TL_API void AddProperty(Construction::Unit& unit, const UnitName& name, UnitPtr value,
                        Construction::UnitFactory& factory);

// The property of that name, or null. A unit that is not a composite raises the type mismatch.
TL_API const View::Property* GetProperty(const View::Unit& unit, const UnitName& name);
TL_API Construction::Property* GetProperty(Construction::Unit& unit, const UnitName& name);

// Array access; a unit that is not an array raises the type mismatch, an index past the end
// "POR: Out of range.".
TL_API const View::Unit& GetArrayElement(const View::Unit& unit, std::uint64_t index);
TL_API Construction::Unit& GetArrayElement(Construction::Unit& unit, std::uint64_t index);
TL_API std::uint64_t GetArraySize(const View::Unit& unit);  // the number of elements
// Pushes at the back.
TL_API void AddArrayElement(Construction::Unit& unit, UnitPtr element);
// True when the processor stopped the walk.
TL_API bool ForEachArrayElement(const View::Unit& unit, ItemProcessor<const View::Unit>& processor);

// The value interfaces of a unit of the expected kind; any other kind raises the mismatch.
TL_API const View::ArrayValue& AsArray(const View::Unit& unit);
// The value interfaces of a unit of the expected kind.
TL_API const View::CompositeValue& AsComposite(const View::Unit& unit);
// The value interfaces of a unit of the expected kind.
TL_API Construction::ArrayValue& AsArray(Construction::Unit& unit);
// The value interfaces of a unit of the expected kind.
TL_API Construction::CompositeValue& AsComposite(Construction::Unit& unit);

// What a typed getter does when the unit is of another kind.
namespace TypeMismatchHandlers {
// Raises the type mismatch error.
struct Throw {
    template <class T>
    // Throws the type mismatch of the two kinds.
    [[noreturn]] static T OnMismatch(unsigned expectedType, unsigned actualType) {
        throw Detail::MakeTypeMismatchError(expectedType, actualType);
    }
};
// Gives the value-initialised T.
struct ReturnFailSafeValue {
    template <class T>
    // The value-initialised T.
    static T OnMismatch(unsigned, unsigned) {
        return T{};
    }
};
}  // namespace TypeMismatchHandlers

// Fetches the stored value of a scalar or complex unit.
template <class T, class Tag = TypeMismatchHandlers::Throw>
class UnitValueGetter {
public:
    static constexpr unsigned kExpectedType = Detail::StoredKind<T>::Index;  // the kind index of T

    static T Get(const View::Unit& unit) {  // the value; a mismatch goes to `Tag`
        Handler handler;
        VisitValue(unit, handler);
        if (handler.found) {
            return std::move(handler.value);
        }
        return Tag::template OnMismatch<T>(kExpectedType, handler.actual);
    }

private:
    struct Handler {
        T value{};
        bool found = false;
        unsigned actual = UnknownType;
        template <class Value>
        void operator()(const Value& v) {
            if constexpr (ValueKindOf<Value> == kExpectedType) {
                value = v.Get();
                found = true;
            } else {
                actual = ValueKindOf<Value>;
            }
        }
    };
};

// The value of a string unit; raises the type mismatch for another kind.
TL_API std::u16string GetStringValue(const View::Unit& unit);

}  // namespace Por::Util
