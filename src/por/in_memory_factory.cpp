#include <tessel_link/por/in_memory_factory.h>

#include "por/holders.h"

namespace Por::Construction {

UnitPtr InMemoryUnitFactory::CreateNil() {
    return std::make_unique<Object<NilValueHolder>>();
}

#define TL_POR_CREATE(Kind, Type, Idx)                                    \
    UnitPtr InMemoryUnitFactory::Create##Kind(Type value) {               \
        return std::make_unique<Object<ScalarValueHolder<Type>>>(value);  \
    }
TL_POR_FOR_EACH_SCALAR(TL_POR_CREATE)
#undef TL_POR_CREATE

UnitPtr InMemoryUnitFactory::CreateBlob(const ByteVector& value) {
    return std::make_unique<Object<ComplexValueHolder<ByteVector>>>(value);
}

UnitPtr InMemoryUnitFactory::CreateGuid(const Common::Guid& value) {
    return std::make_unique<Object<ComplexValueHolder<Common::Guid>>>(value);
}

UnitPtr InMemoryUnitFactory::CreateString(const WideString& value) {
    return std::make_unique<Object<ComplexValueHolder<WideString>>>(value);
}

UnitPtr InMemoryUnitFactory::CreateError(const Common::Error& value) {
    // Rebuilt from its serialized form, so that the unit shares no record with the caller;
    // the success value is kept as it is.
    Common::Error copy(value);
    copy.Detach();
    return std::make_unique<Object<ComplexValueHolder<Common::Error>>>(std::move(copy));
}

UnitPtr InMemoryUnitFactory::CreateArray() {
    return std::make_unique<Object<ArrayValueHolder>>();
}

UnitPtr InMemoryUnitFactory::CreateComposite() {
    return std::make_unique<Object<CompositeValueHolder>>();
}

TraitPtr InMemoryUnitFactory::CreateTrait(const UnitName& name, UnitPtr unit) {
    return std::make_unique<TraitHolder>(name, std::move(unit));
}

PropertyPtr InMemoryUnitFactory::CreateProperty(const UnitName& name, UnitPtr unit) {
    return std::make_unique<PropertyHolder>(name, std::move(unit));
}

UnitFactory& GetProcessUnitFactory() {
    // Built once, under the lock of the function-local static, and destroyed at exit.
    static InMemoryUnitFactory factory;
    return factory;
}

}  // namespace Por::Construction
