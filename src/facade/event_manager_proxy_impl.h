#pragma once

#include <cstdint>
#include <memory>

#include <tessel_link/binding/request_channel.h>

#include "facade/proxy_component.h"
#include "xidl/components/event_management_proxy.h"

namespace EventManagement {

// The event manager's proxy with the operations that have no remote method: local
// subscription and absorbing a queue into a sink. Until the subscription machinery
// exists they answer that they are not available.
class EventManager_ProxyImpl : public EventManager_Proxy {
public:
    explicit EventManager_ProxyImpl(std::shared_ptr<Binding::RequestChannel> channel);

    using EventManager_Proxy::AbsorbQueue;

    Common::Error Subscribe(std::uint32_t type, EventDispatcher* sink) override;
    Common::Error Unsubscribe(std::uint32_t type, EventDispatcher* sink) override;
    Common::Error AbsorbQueue(std::uint32_t id, EventDispatcher* sink) override;
};

// What the factory creates for the event manager.
class EventManager_ProxyImplComponent final
    : public Core::ProxyComponent<EventManager_ProxyImpl, EventManager, 132, EventManager_Proxy> {
public:
    using ProxyComponent::ProxyComponent;
};

}  // namespace EventManagement
