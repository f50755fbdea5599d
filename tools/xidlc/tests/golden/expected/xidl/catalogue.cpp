// Generated from the interface definitions by tools/xidlc; edit the definitions instead.

#include <tessel_link/xidl/catalogue.h>

namespace Serialization::Xidl::Generated {
extern const TypeInfo kTypes_shapes[];
extern const std::size_t kTypeCount_shapes;

// Every type, in the order of the definitions.
extern const TypeInfo* const kAllTypes[] = {
    &kTypes_shapes[0],
    &kTypes_shapes[1],
    &kTypes_shapes[2],
};
extern const std::size_t kAllTypeCount = 3;

// The types that are checked in, in their order of registration.
extern const TypeInfo* const kCheckedInTypes[] = {
    &kTypes_shapes[1],
    &kTypes_shapes[2],
};
extern const std::size_t kCheckedInTypeCount = 2;
}  // namespace Serialization::Xidl::Generated

