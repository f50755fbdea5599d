#include "facade/component_proxy_factory.h"
#include "facade/components/compatibility_manager.h"
#include "facade/components/test_manager.h"

namespace Core {

std::span<const ComponentProxyEntry> ComponentProxyTable() {
    static constexpr ComponentProxyEntry kTable[] = {
        {17, &CreateProxyComponent<CompatibilityManagement::CompatibilityManager_ProxyComponent>},
        {188, &CreateProxyComponent<TestManagement::TestManager_ProxyComponent>},
    };
    return kTable;
}

}  // namespace Core
