#pragma once

#include <cstdint>

#include <tessel_link/impl/binding/method_descriptor.h>

#include "facade/component_info.h"

namespace Core {

// The constants of one component, specialized by the component's generated unit:
//   static constexpr const char* kInterfaceName;     // without namespace
//   static constexpr std::uint32_t kInterfaceVersion;
//   static constexpr std::int32_t kMethodCount;
//   static constexpr bool kClassFlag;
//   static constexpr std::uint32_t kOptionFlag;
//   static constexpr MethodInfo kMethodInfo;          // the same for all methods
template <std::uint32_t ID>
struct ComponentTraits;

// The descriptor of method `number` of component ID, as its request maker builds it.
template <std::uint32_t ID>
Binding::MethodDescriptor Describe(std::uint32_t number, const char* methodName,
                                   std::uint64_t introducedVersion) {
    using Traits = ComponentTraits<ID>;
    Binding::MethodDescriptor method;
    method.ComponentID = ID;
    method.MethodNumber = number;
    method.ComponentName = Traits::kInterfaceName;
    method.MethodName = methodName;
    method.InterfaceVersion = Traits::kInterfaceVersion;
    method.IntroducedVersion = introducedVersion;
    method.Category = Binding::kAllCategories;
    return method;
}

}  // namespace Core
