#pragma once

#include <cstdint>
#include <vector>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>

namespace Demo {

// One call per remote component, generated from the definitions: the component is asked
// for its interface by type, and its simplest method is called with default arguments.
struct DemoCall {
    std::uint32_t ComponentID;
    const char* Interface;
    const char* Method;
    // Sets `found` to whether the component offers the interface; calls only then.
    Common::Error (*Call)(Common::DynamicCaster& component, bool& found);
};

// In ascending component ID.
const std::vector<DemoCall>& DemoCalls();

// Every method of every component, called the same way, by component ID and method number.
const std::vector<DemoCall>& EveryMethodCall();

}  // namespace Demo
