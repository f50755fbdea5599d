#pragma once

// Not API: the type mismatch error that the typed getters and the visitor bases raise. Hosts
// meet it as the error they throw (code Por::kErrorTypeMismatch).

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace Por::Util::Detail {

// "POR: There is a mismatch in object internal structure. Expected object type is '{0}',
// actual object type is '{1}'." with both type names as the record's parameters "0" and "1".
// Logs the stack first.
TL_API Common::Error MakeTypeMismatchError(unsigned expectedType, unsigned actualType);

}  // namespace Por::Util::Detail
