#pragma once

#include <cstdint>
#include <memory>

#include <tessel_link/binding/request_channel.h>

#include "facade/proxy_component.h"
#include "xidl/components/event_management_proxy.h"

namespace EventManagement {

class SubscriptionTable;

// The event manager's proxy with the operations that have no remote method.
//
// Subscribe keeps one background fetch per event type: the first sink of a type creates a
// queue on the service and starts a fetch on a job of the channel (RequestJob::Start); each
// fetch's events go to every sink of the type, in order of subscription, as one shared
// copy per event, and the next fetch starts. The last Unsubscribe of a type stops the
// fetch, then cancels the queue's absorbing and destroys the queue, each under a time
// limit of 500 milliseconds, so that a removal never hangs on a silent service.
//
// Sinks are called on the channel's job threads with the type's lock held. A sink may
// unsubscribe itself (or another sink of its type) from inside Dispatch; it must not wait
// there for another thread that subscribes or unsubscribes on the same proxy.
//
// Locks: the table's first, then a type's. The table's lock is held across CreateQueue and
// across the stopping of a type, so a slow service delays other subscriptions of the proxy.
class EventManager_ProxyImpl : public EventManager_Proxy {
public:
    explicit EventManager_ProxyImpl(std::shared_ptr<Binding::RequestChannel> channel);
    ~EventManager_ProxyImpl() override;

    using EventManager_Proxy::AbsorbQueue;

    Common::Error Subscribe(std::uint32_t type, EventDispatcher* sink) override;
    Common::Error Unsubscribe(std::uint32_t type, EventDispatcher* sink) override;
    // Fetches the queue once, synchronously, and hands each event to `sink`.
    Common::Error AbsorbQueue(std::uint32_t id, EventDispatcher* sink) override;

protected:
    // Stops every type's fetch as the last Unsubscribe would, and drops the subscriptions.
    // Subscribe and Unsubscribe must not be used afterwards. The destructor does the same.
    void ShutdownSubscriptions();

private:
    std::unique_ptr<SubscriptionTable> table_;
};

// What the factory creates for the event manager. Its OnShutdown ends the subscriptions.
class EventManager_ProxyImplComponent final
    : public Core::ProxyComponent<EventManager_ProxyImpl, EventManager, 132, EventManager_Proxy> {
public:
    using ProxyComponent::ProxyComponent;

    void OnShutdown() override { ShutdownSubscriptions(); }
};

}  // namespace EventManagement
