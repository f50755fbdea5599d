#include <tessel_link/por/util.h>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/trait_names.h>

namespace Por::Util {

namespace {

struct TypeIndexProbe {
    unsigned index = UnknownType;
    template <class Value>
    void operator()(const Value&) {
        index = ValueKindOf<Value>;
    }
};

// Finds the value interface of one kind, or raises the type mismatch.
template <class Wanted, class UnitRef>
Wanted& Expect(UnitRef& unit) {
    Wanted* found = nullptr;
    unsigned actual = UnknownType;
    VisitValue(unit, [&](auto& value) {
        using Value = std::remove_reference_t<decltype(value)>;
        if constexpr (std::is_same_v<Value, Wanted>) {
            found = &value;
        } else {
            actual = ValueKindOf<Value>;
        }
    });
    if (found == nullptr) {
        throw Detail::MakeTypeMismatchError(ValueKindOf<Wanted>, actual);
    }
    return *found;
}

}  // namespace

unsigned GetValueTypeIndex(const View::Unit& unit) {
    TypeIndexProbe probe;
    VisitValue(unit, probe);
    return probe.index;
}

bool HaveSameType(const View::Unit& a, const View::Unit& b) {
    return GetValueTypeIndex(a) == GetValueTypeIndex(b);
}

bool IsArray(const View::Unit& unit) {
    return GetValueTypeIndex(unit) == ArrayType;
}

bool IsComposite(const View::Unit& unit) {
    return GetValueTypeIndex(unit) == CompositeType;
}

bool IsSearchableArray(const View::Unit& unit) {
    return IsArray(unit) && HasTrait(unit, UnitName::Literal(TraitNames::Searchable));
}

bool HasTrait(const View::Unit& unit, const UnitName& name) {
    auto any = MakeProcessor<const View::Trait>([](const View::Trait&) { return true; });
    return unit.GetTraits().ForEachByName(name, any);
}

bool HasTraitWithValue(const View::Unit& unit, const UnitName& name, const View::Unit& value) {
    auto matching = MakeProcessor<const View::Trait>(
        [&](const View::Trait& trait) { return UnitValueEqual(trait.GetUnit(), value); });
    return unit.GetTraits().ForEachByName(name, matching);
}

bool HasTraits(const View::Unit& unit) {
    auto any = MakeProcessor<const View::Trait>([](const View::Trait&) { return true; });
    return unit.GetTraits().ForEach(any);
}

void AddTrait(Construction::Unit& unit, const UnitName& name, UnitPtr value,
              Construction::UnitFactory& factory) {
    if (!value) {
        value = factory.CreateNil();
    }
    unit.GetTraits().Add(factory.CreateTrait(name, std::move(value)));
}

void AddProperty(Construction::Unit& unit, const UnitName& name, UnitPtr value,
                 Construction::UnitFactory& factory) {
    Construction::CompositeValue& composite = AsComposite(unit);
    composite.Set(factory.CreateProperty(name, std::move(value)));
}

const View::Property* GetProperty(const View::Unit& unit, const UnitName& name) {
    const View::Property* found = nullptr;
    auto take = MakeProcessor<const View::Property>([&](const View::Property& p) {
        found = &p;
        return true;
    });
    AsComposite(unit).Find(name, take);
    return found;
}

Construction::Property* GetProperty(Construction::Unit& unit, const UnitName& name) {
    Construction::Property* found = nullptr;
    auto take = MakeProcessor<Construction::Property>([&](Construction::Property& p) {
        found = &p;
        return true;
    });
    AsComposite(unit).Find(name, take);
    return found;
}

const View::Unit& GetArrayElement(const View::Unit& unit, std::uint64_t index) {
    const View::Unit* found = nullptr;
    auto take = MakeProcessor<const View::Unit>([&](const View::Unit& u) {
        found = &u;
        return true;
    });
    AsArray(unit).At(index, take);
    return *found;
}

Construction::Unit& GetArrayElement(Construction::Unit& unit, std::uint64_t index) {
    Construction::Unit* found = nullptr;
    auto take = MakeProcessor<Construction::Unit>([&](Construction::Unit& u) {
        found = &u;
        return true;
    });
    AsArray(unit).At(index, take);
    return *found;
}

std::uint64_t GetArraySize(const View::Unit& unit) {
    return AsArray(unit).Size();
}

void AddArrayElement(Construction::Unit& unit, UnitPtr element) {
    AsArray(unit).PushBack(std::move(element));
}

bool ForEachArrayElement(const View::Unit& unit, ItemProcessor<const View::Unit>& processor) {
    View::ForEachArrayElementVisitor visitor(processor);
    unit.Accept(visitor);
    return visitor.Stopped();
}

const View::ArrayValue& AsArray(const View::Unit& unit) {
    return Expect<const View::ArrayValue>(unit);
}

const View::CompositeValue& AsComposite(const View::Unit& unit) {
    return Expect<const View::CompositeValue>(unit);
}

Construction::ArrayValue& AsArray(Construction::Unit& unit) {
    return Expect<Construction::ArrayValue>(unit);
}

Construction::CompositeValue& AsComposite(Construction::Unit& unit) {
    return Expect<Construction::CompositeValue>(unit);
}

std::u16string GetStringValue(const View::Unit& unit) {
    return UnitValueGetter<WideString, TypeMismatchHandlers::Throw>::Get(unit);
}

}  // namespace Por::Util
