#include "facade/component_info_registry.h"

namespace Core {

ComponentInfoRegistry& ComponentInfoRegistry::Instance() {
    static ComponentInfoRegistry registry;
    return registry;
}

void ComponentInfoRegistry::Register(ComponentInfo& info) {
    const std::lock_guard guard(lock_);
    infos_.insert_or_assign(info.GetComponentID(), &info);
}

ComponentInfo* ComponentInfoRegistry::Find(std::uint32_t componentId) const {
    const std::lock_guard guard(lock_);
    const auto it = infos_.find(componentId);
    return it != infos_.end() ? it->second : nullptr;
}

}  // namespace Core
