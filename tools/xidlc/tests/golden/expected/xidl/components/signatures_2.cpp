// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/xidl/records/shapes.h>
#include <tessel_link/components/orderings.h>

namespace Binding::Generated {

extern const Detail::ArgumentType kArgumentType_2 = Detail::MakeArgumentType<::Shapes::Fill>();

}  // namespace Binding::Generated
