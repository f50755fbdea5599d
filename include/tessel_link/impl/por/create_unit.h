#pragma once

// Not API: one overload per stored value type that makes its unit, for
// Por::BaseObject::SetProperty. Hosts set properties through the plain object.

#include <tessel_link/por/construction.h>

namespace Por::Detail {
#define TL_POR_CREATE_UNIT_OF(Kind, Type, Idx)                                           \
    inline UnitPtr CreateUnitOf(Construction::UnitFactory& factory, const Type& value) { \
        return factory.Create##Kind(value);                                              \
    }
TL_POR_FOR_EACH_SCALAR(TL_POR_CREATE_UNIT_OF)
TL_POR_FOR_EACH_COMPLEX(TL_POR_CREATE_UNIT_OF)
#undef TL_POR_CREATE_UNIT_OF
}  // namespace Por::Detail
