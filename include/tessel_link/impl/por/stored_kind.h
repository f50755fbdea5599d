#pragma once

// Not API: the kind index of each stored value type, for the typed getters of Por::Util and
// Por::BaseObject. Hosts use Util::UnitValueGetter<T>::kExpectedType.

#include <tessel_link/por/kinds.h>

namespace Por::Util::Detail {
template <class T>
struct StoredKind;
#define TL_POR_STORED_KIND(Kind, Type, Idx)          \
    template <>                                      \
    struct StoredKind<Type> {                        \
        static constexpr unsigned Index = (Idx);     \
    };
TL_POR_FOR_EACH_SCALAR(TL_POR_STORED_KIND)
TL_POR_FOR_EACH_COMPLEX(TL_POR_STORED_KIND)
#undef TL_POR_STORED_KIND
}  // namespace Por::Util::Detail
