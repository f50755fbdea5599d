#include <tessel_link/por/compare.h>
#include <tessel_link/por/util.h>

#include "por/holders.h"
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

UnitPtr CopyAt(const View::Unit& source, Construction::UnitFactory& factory, unsigned depth) {
    Por::Detail::CheckDepth(depth, kCopyFunction);
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
    return CopyAt(unit, factory, 0);
}

}  // namespace Por::Util
