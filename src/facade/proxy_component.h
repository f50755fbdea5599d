#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/facade/component.h>

#include "facade/component_traits.h"

namespace Core {

// The X_ProxyComponent of a component: its proxy, made a Component the host can hold and
// query. The host finds the interface under `Interface*` and the proxy under
// `Registered*`: the generated X_Proxy, also where a hand-written class completes it.
//
// Destruction order: the name, then (with the proxy) the channel reference, then the
// caster table, which is a virtual base.
template <class Proxy, class Interface, std::uint32_t ID, class Registered = Proxy>
class ProxyComponent : public Proxy, public ComponentManagement::Component {
public:
    using Traits = ComponentTraits<ID>;

    explicit ProxyComponent(std::shared_ptr<Binding::RequestChannel> channel)
        : Proxy(std::move(channel)), name_(Traits::kInterfaceName) {
        RegisterInterface<Interface>(this);
        RegisterInterface<Registered>(this);
    }

    std::uint32_t GetComponentID() const override { return ID; }
    const std::string& GetComponentName() const override { return name_; }
    std::uint32_t GetInterfaceVersion() const override { return Traits::kInterfaceVersion; }

private:
    std::string name_;
};

using ComponentProxyCreator = std::unique_ptr<
    ComponentManagement::Component>& (*)(const std::shared_ptr<Binding::RequestChannel>& channel,
                                         std::unique_ptr<ComponentManagement::Component>& slot);

// The creator of the factory's table for one proxy component type.
template <class Created>
std::unique_ptr<ComponentManagement::Component>& CreateProxyComponent(
    const std::shared_ptr<Binding::RequestChannel>& channel,
    std::unique_ptr<ComponentManagement::Component>& slot) {
    slot = std::make_unique<Created>(channel);
    return slot;
}

}  // namespace Core
