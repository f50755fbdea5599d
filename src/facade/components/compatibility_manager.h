#pragma once

#include <cstdint>
#include <memory>

#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/facade/compatibility_manager.h>

#include "facade/component_traits.h"
#include "facade/proxy_component.h"

template <>
struct Core::ComponentTraits<17> {
    static constexpr const char* kInterfaceName = "CompatibilityManager";
    static constexpr std::uint32_t kInterfaceVersion = 1;
    static constexpr std::int32_t kMethodCount = 1;
};

namespace CompatibilityManagement {

class CompatibilityManager_Proxy : public CompatibilityManager {
public:
    explicit CompatibilityManager_Proxy(std::shared_ptr<Binding::RequestChannel> channel);

    Common::Error ProcessExternalAction() override;

private:
    std::shared_ptr<Binding::RequestChannel> channel_;
};

class CompatibilityManager_ProxyComponent final
    : public Core::ProxyComponent<CompatibilityManager_Proxy, CompatibilityManager, 17> {
public:
    using ProxyComponent::ProxyComponent;
};

std::unique_ptr<Binding::Request> MakeRequest_ProcessExternalAction();

}  // namespace CompatibilityManagement
