#pragma once

// Assignment of one unit tree's values onto another of the same shape.

#include <tessel_link/por/construction.h>

namespace Por::Util {

// Writes the value of `source` into `target`, which must have the same shape: the same kind
// at every level (no conversions, nil included), every trait of the source present in the
// target, every property of the source present in the target. Arrays are replaced as a
// whole, their elements copied with the factory. Traits are never written.
//
// Everything is checked before anything changes: a failure leaves the target as it was.
// Failures: "POR: Cannot assign units of different types." (0xfa0011), "... with different
// traits." (0xfa0012), "... with different properties." (0xfa0010).
TL_API void Assign(Modification::Unit& target, const View::Unit& source,
                   Construction::UnitFactory& factory);

// The check alone: raises what Assign would raise, changes nothing.
TL_API void EnsureUnitsCanBeAssigned(Modification::Unit& target, const View::Unit& source);

}  // namespace Por::Util
