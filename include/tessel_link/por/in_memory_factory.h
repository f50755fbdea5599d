#pragma once

// The in-memory unit factory: makes the units that trees of this library are built from.

#include <tessel_link/por/construction.h>

namespace Por::Construction {

// Makes the in-memory units of this library. Stateless: one object may serve any thread.
// An error value is stored through its serialized form (unless it is success), so that a
// unit never shares a record with its caller.
class TL_API InMemoryUnitFactory final : public UnitFactory {
public:
    UnitPtr CreateNil() override;  // a nil unit
#define TL_POR_CREATE(Kind, Type, Idx) UnitPtr Create##Kind(Type value) override;
    TL_POR_FOR_EACH_SCALAR(TL_POR_CREATE)
#undef TL_POR_CREATE
#define TL_POR_CREATE(Kind, Type, Idx) UnitPtr Create##Kind(const Type& value) override;
    TL_POR_FOR_EACH_COMPLEX(TL_POR_CREATE)
#undef TL_POR_CREATE
    UnitPtr CreateArray() override;  // an empty array unit
    UnitPtr CreateComposite() override;  // an empty composite unit
    TraitPtr CreateTrait(const UnitName& name, UnitPtr unit) override;
    // A property of `unit` named `name`.
    PropertyPtr CreateProperty(const UnitName& name, UnitPtr unit) override;
};

// The process-wide in-memory factory, for whoever needs one and has none. Built on first use.
TL_API UnitFactory& GetProcessUnitFactory();

}  // namespace Por::Construction
