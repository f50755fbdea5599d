#include <tessel_link/por/compare.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/util.h>

#include "por/holders.h"
#include "por/deep_stack.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

constexpr const char kCopyFunction[] = "Por::Util::CopyUnit";

#define TL_POR_CREATE_VALUE(Kind, Type, Idx)                                                \
    UnitPtr CreateValue(Construction::UnitFactory& factory, const Type& value) {            \
        return factory.Create##Kind(value);                                                 \
    }
TL_POR_FOR_EACH_SCALAR(TL_POR_CREATE_VALUE)
TL_POR_FOR_EACH_COMPLEX(TL_POR_CREATE_VALUE)
#undef TL_POR_CREATE_VALUE

UnitPtr CopyAt(const View::Unit& source, Construction::UnitFactory& factory, unsigned depth);

// Makes the value of the copy: scalars and complex values through the factory, arrays and
// composites element by element and property by property.
struct UnitValueCopier {
    Construction::UnitFactory& factory;
    unsigned depth;
    UnitPtr result;

    void operator()(const View::NilValue&) { result = factory.CreateNil(); }

    template <class T>
    void operator()(const View::ScalarValue<T>& value) {
        result = CreateValue(factory, value.Get());
    }

    template <class T>
    void operator()(const View::ComplexValue<T>& value) {
        result = CreateValue(factory, value.Get());
    }

    void operator()(const View::ArrayValue& value) {
        UnitPtr unit = factory.CreateArray();
        Construction::ArrayValue& target = AsArray(*unit);
        auto fitter = MakeProcessor<const View::Unit>([&](const View::Unit& element) {
            target.PushBack(CopyAt(element, factory, depth + 1));
        });
        value.ForEach(fitter);
        result = std::move(unit);
    }

    void operator()(const View::CompositeValue& value) {
        UnitPtr unit = factory.CreateComposite();
        Construction::CompositeValue& target = AsComposite(*unit);
        auto fitter = MakeProcessor<const View::Property>([&](const View::Property& property) {
            target.Set(factory.CreateProperty(property.GetName(),
                                              CopyAt(property.GetUnit(), factory, depth + 1)));
        });
        value.ForEach(fitter);
        result = std::move(unit);
    }
};

UnitPtr CopyAtHere(const View::Unit& source, Construction::UnitFactory& factory, unsigned depth);

UnitPtr CopyAt(const View::Unit& source, Construction::UnitFactory& factory, unsigned depth) {
    return Por::Detail::Descend(depth, kCopyFunction,
                                [&] { return CopyAtHere(source, factory, depth); });
}

UnitPtr CopyAtHere(const View::Unit& source, Construction::UnitFactory& factory, unsigned depth) {
    UnitValueCopier copier{factory, depth, nullptr};
    VisitValue(source, copier);
    UnitPtr copy = std::move(copier.result);
    auto traitsFitter = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        copy->GetTraits().Add(
            factory.CreateTrait(trait.GetName(), CopyAt(trait.GetUnit(), factory, depth + 1)));
    });
    const View::Traits& traits = source.GetTraits();
    if (!HasNoTraits(traits)) {
        traits.ForEach(traitsFitter);
    }
    return copy;
}

}  // namespace

UnitPtr CopyUnit(const View::Unit& unit, Construction::UnitFactory& factory) {
    if (dynamic_cast<Construction::InMemoryUnitFactory*>(&factory) != nullptr) {
        return CopyToMemory(unit, 0);
    }
    return CopyAt(unit, factory, 0);
}

}  // namespace Por::Util

namespace Por {

namespace {

// Gathers the items of a walk, on the stack for the usual few.
template <class Item>
class Gathered {
public:
    void Add(const Item* item) {
        if (count_ < kInline) {
            inline_[count_] = item;
        } else {
            if (count_ == kInline) {
                heap_.assign(inline_, inline_ + kInline);
            }
            heap_.push_back(item);
        }
        ++count_;
    }
    std::size_t Size() const { return count_; }
    const Item& operator[](std::size_t i) const {
        return *(count_ <= kInline ? inline_[i] : heap_[i]);
    }

private:
    static constexpr std::size_t kInline = 16;
    const Item* inline_[kInline];
    std::vector<const Item*> heap_;
    std::size_t count_ = 0;
};

struct MemoryValueCopier {
    unsigned depth;
    UnitPtr result;

    void operator()(const View::NilValue&) { result = std::make_unique<Object<NilValueHolder>>(); }

    template <class T>
    void operator()(const View::ScalarValue<T>& value) {
        result = std::make_unique<Object<ScalarValueHolder<T>>>(value.Get());
    }

    template <class T>
    void operator()(const View::ComplexValue<T>& value) {
        if constexpr (std::is_same_v<T, Common::Error>) {
            // As the factory stores errors: detached from the source's records.
            Common::Error copy(value.Get());
            copy.Detach();
            result = std::make_unique<Object<ComplexValueHolder<T>>>(std::move(copy));
        } else {
            result = std::make_unique<Object<ComplexValueHolder<T>>>(value.Get());
        }
    }

    void operator()(const View::ArrayValue& value) {
        auto array = std::make_unique<Object<ArrayValueHolder>>();
        ArrayValueHolder& elements = array->Value();
        elements.Reserve(static_cast<std::size_t>(value.Size()));
        auto each = MakeProcessor<const View::Unit>(
            [&](const View::Unit& element) { elements.Append(CopyToMemory(element, depth + 1)); });
        value.ForEach(each);
        result = std::move(array);
    }

    void operator()(const View::CompositeValue& value) {
        Gathered<View::Property> properties;
        auto gather = MakeProcessor<const View::Property>(
            [&](const View::Property& property) { properties.Add(&property); });
        value.ForEach(gather);
        auto composite = std::make_unique<Object<CompositeValueHolder>>();
        CompositeValueHolder& fields = composite->Value();
        fields.Reserve(properties.Size());
        for (std::size_t i = 0; i < properties.Size(); ++i) {
            const View::Property& property = properties[i];
            fields.Set(std::make_unique<PropertyHolder>(property.GetName(),
                                                        CopyToMemory(property.GetUnit(), depth + 1)));
        }
        result = std::move(composite);
    }
};

}  // namespace

UnitPtr CopyToMemoryHere(const View::Unit& source, unsigned depth);

UnitPtr CopyToMemory(const View::Unit& source, unsigned depth) {
    return Detail::Descend(depth, "Por::Util::CopyUnit",
                           [&] { return CopyToMemoryHere(source, depth); });
}

UnitPtr CopyToMemoryHere(const View::Unit& source, unsigned depth) {
    MemoryValueCopier copier{depth, nullptr};
    VisitValue(source, copier);
    const View::Traits& traits = source.GetTraits();
    if (!HasNoTraits(traits)) {
        Gathered<View::Trait> gathered;
        auto gather = MakeProcessor<const View::Trait>(
            [&](const View::Trait& trait) { gathered.Add(&trait); });
        traits.ForEach(gather);
        // The unit was made here, so its traits are a TraitsHolderImpl.
        auto& target = static_cast<TraitsHolderImpl&>(copier.result->GetTraits());
        target.Reserve(gathered.Size());
        for (std::size_t i = 0; i < gathered.Size(); ++i) {
            const View::Trait& trait = gathered[i];
            target.Add(std::make_unique<TraitHolder>(trait.GetName(),
                                                     CopyToMemory(trait.GetUnit(), depth + 1)));
        }
    }
    return std::move(copier.result);
}

}  // namespace Por
