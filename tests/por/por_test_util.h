#pragma once

// Short builders for unit trees in tests.

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/util.h>

namespace PorTest {

using Por::UnitPtr;

inline Por::Construction::InMemoryUnitFactory& F() {
    static Por::Construction::InMemoryUnitFactory factory;
    return factory;
}

inline UnitPtr Nil() { return F().CreateNil(); }
inline UnitPtr Bool(bool v) { return F().CreateBoolean(v); }
inline UnitPtr Byte(std::uint8_t v) { return F().CreateByte(v); }
inline UnitPtr Sbyte(std::int8_t v) { return F().CreateSbyte(v); }
inline UnitPtr Word(std::uint16_t v) { return F().CreateWord(v); }
inline UnitPtr Sword(std::int16_t v) { return F().CreateSword(v); }
inline UnitPtr Dword(std::uint32_t v) { return F().CreateDword(v); }
inline UnitPtr Sdword(std::int32_t v) { return F().CreateSdword(v); }
inline UnitPtr Qword(std::uint64_t v) { return F().CreateQword(v); }
inline UnitPtr Sqword(std::int64_t v) { return F().CreateSqword(v); }
inline UnitPtr Double(double v) { return F().CreateDouble(v); }
inline UnitPtr Blob(std::vector<unsigned char> v) { return F().CreateBlob(v); }
inline UnitPtr Guid(const Common::Guid& v) { return F().CreateGuid(v); }
inline UnitPtr Str(const std::u16string& v) { return F().CreateString(v); }
inline UnitPtr Err(const Common::Error& v) { return F().CreateError(v); }

inline UnitPtr Array(std::vector<UnitPtr> elements) {
    UnitPtr array = F().CreateArray();
    for (UnitPtr& e : elements) {
        Por::Util::AddArrayElement(*array, std::move(e));
    }
    return array;
}

// Brace lists of move-only pointers can't be taken by initializer_list; build the vector
// from arguments.
template <class... Units>
UnitPtr Arr(Units&&... units) {
    std::vector<UnitPtr> elements;
    (elements.push_back(std::forward<Units>(units)), ...);
    return Array(std::move(elements));
}

inline UnitPtr Composite(std::vector<std::pair<std::string, UnitPtr>> properties) {
    UnitPtr composite = F().CreateComposite();
    for (auto& [name, unit] : properties) {
        Por::Util::AddProperty(*composite, Por::UnitName(name), std::move(unit), F());
    }
    return composite;
}

inline std::vector<std::pair<std::string, UnitPtr>> Props() {
    return {};
}
template <class... Rest>
std::vector<std::pair<std::string, UnitPtr>> Props(std::string name, UnitPtr unit, Rest&&... rest) {
    auto tail = Props(std::forward<Rest>(rest)...);
    tail.insert(tail.begin(), {std::move(name), std::move(unit)});
    return tail;
}
template <class... Args>
UnitPtr Comp(Args&&... args) {
    return Composite(Props(std::forward<Args>(args)...));
}

// Adds a trait and hands the unit back, for chaining.
inline UnitPtr With(UnitPtr unit, const std::string& name, UnitPtr value = nullptr) {
    Por::Util::AddTrait(*unit, Por::UnitName(name), std::move(value), F());
    return unit;
}

inline std::vector<std::string> TraitNames(const Por::View::Unit& unit) {
    std::vector<std::string> names;
    auto each = Por::MakeProcessor<const Por::View::Trait>(
        [&](const Por::View::Trait& t) { names.emplace_back(t.GetName().Text()); });
    unit.GetTraits().ForEach(each);
    return names;
}

inline std::vector<std::string> PropertyNames(const Por::View::Unit& unit) {
    std::vector<std::string> names;
    auto each = Por::MakeProcessor<const Por::View::Property>(
        [&](const Por::View::Property& p) { names.emplace_back(p.GetName().Text()); });
    Por::Util::AsComposite(unit).ForEach(each);
    return names;
}

template <class T>
T ValueOf(const Por::View::Unit& unit) {
    return Por::Util::UnitValueGetter<T>::Get(unit);
}

// Runs `body` and hands back the Common::Error it throws (an empty error when none).
template <class Body>
Common::Error Thrown(Body&& body) {
    try {
        body();
    } catch (const Common::Error& error) {
        return error;
    }
    return Common::Error();
}

}  // namespace PorTest
