#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include <tessel_link/binding/method_descriptor.h>

#include "facade/component_info.h"

namespace Core {

// The constants of one component, specialized by the component's unit:
//   static constexpr const char* kInterfaceName;     // without namespace
//   static constexpr std::uint32_t kInterfaceVersion;
//   static constexpr std::int32_t kMethodCount;
template <std::uint32_t ID>
struct ComponentTraits;

// The few components that differ from the rest in their information.
constexpr bool ClassFlagOf(std::uint32_t id) {
    constexpr std::array<std::uint32_t, 9> flagged{132, 143, 205, 221, 271, 274, 301, 528, 611};
    return std::find(flagged.begin(), flagged.end(), id) != flagged.end();
}

constexpr std::uint32_t OptionFlagOf(std::uint32_t id) {
    return id == 271 || id == 274 || id == 458 || id == 459 ? 1 : 0;
}

constexpr MethodInfo MethodInfoOf(std::uint32_t id) {
    if (id == 132) {
        return {0, 1};
    }
    if (id == 187) {
        return {2, 2};
    }
    return {0, 2};
}

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
