#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

// The order of the records that parameters hold in sets or as map keys: member by
// member, in wire order.

#include <tuple>

#include <tessel_link/xidl/records/shapes.h>

namespace Shapes {

// Member by member, in wire order.
inline bool operator<(const Point& a, const Point& b) {
    return std::tie(a.X, a.Y) < std::tie(b.X, b.Y);
}

}  // namespace Shapes
