#include "facade/component_proxy_factory.h"

namespace Core {

ComponentProxyFactory::ComponentProxyFactory() {
    for (const ComponentProxyEntry& entry : ComponentProxyTable()) {
        creators_[entry.ComponentID] = entry.Creator;
    }
}

ComponentProxyFactory::~ComponentProxyFactory() = default;

namespace {
const ComponentProxyFactory factory;
}

const ComponentProxyFactory& ComponentProxyFactory::Instance() {
    return factory;
}

ComponentProxyCreator ComponentProxyFactory::Find(std::uint32_t componentId) const {
    const auto it = creators_.find(componentId);
    return it != creators_.end() ? it->second : nullptr;
}

}  // namespace Core
