#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "facade/component_info.h"

namespace Core {

// The process-wide table from component ID to the ComponentInfo of its unit. Units fill it
// during static initialisation; the instances are the units' own statics.
class ComponentInfoRegistry {
public:
    static ComponentInfoRegistry& Instance();

    // A second registration under one ID replaces the first.
    void Register(ComponentInfo& info);
    // Null when no unit registered the ID.
    ComponentInfo* Find(std::uint32_t componentId) const;

private:
    mutable std::mutex lock_;
    std::map<std::uint32_t, ComponentInfo*> infos_;
};

// A unit's static registrar: enters the unit's function-local Info at start-up.
template <class Info>
struct ComponentInfoRegistrar {
    ComponentInfoRegistrar() {
        static Info info;
        ComponentInfoRegistry::Instance().Register(info);
    }
};

}  // namespace Core
