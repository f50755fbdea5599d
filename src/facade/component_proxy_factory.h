#pragma once

#include <cstdint>
#include <map>
#include <span>

#include <tessel_link/common/non_copyable.h>

#include "facade/proxy_component.h"

namespace Core {

struct ComponentProxyEntry {
    std::uint32_t ComponentID;
    ComponentProxyCreator Creator;
};

// Every component the library has a proxy for, with its creator.
std::span<const ComponentProxyEntry> ComponentProxyTable();

// The table from component ID to proxy creator behind CreateProxy. Filled once by the
// constructor and read-only afterwards, so lookups take no lock.
class ComponentProxyFactory : private Common::NonCopyable {
public:
    ComponentProxyFactory();
    virtual ~ComponentProxyFactory();

    // The one instance of the library.
    static const ComponentProxyFactory& Instance();

    // Null for an unknown ID.
    ComponentProxyCreator Find(std::uint32_t componentId) const;

private:
    std::map<std::uint32_t, ComponentProxyCreator> creators_;
};

}  // namespace Core
