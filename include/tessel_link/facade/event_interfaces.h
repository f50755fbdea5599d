#pragma once

// The three interfaces of the event service. The same interfaces serve both directions: a
// sink that receives events is any EventDispatcher, also a local one.

#include <cstdint>
#include <list>
#include <memory>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/xidl/records/event_management.h>

namespace EventManagement {

// A sink of events: local, or the service's side of a subscription.
class TL_API EventDispatcher {
public:
    virtual ~EventDispatcher();
    virtual Common::Error Dispatch(const std::shared_ptr<Event>& event) = 0;  // takes one event
};

// Local subscription: the event manager's proxy fetches the events of a type in the
// background and hands each one to every sink subscribed to that type.
class TL_API EventSubscriber {
public:
    virtual ~EventSubscriber();
    // `sink` receives the events of `type` from now on.
    virtual Common::Error Subscribe(std::uint32_t type, EventDispatcher* sink) = 0;
    // `sink` receives no more events of `type`.
    virtual Common::Error Unsubscribe(std::uint32_t type, EventDispatcher* sink) = 0;
};

// The service's queues of events.
class TL_API EventAccumulator {
public:
    virtual ~EventAccumulator();
    // A queue for events of `type`; its ID in `result`.
    virtual Common::Error CreateQueue(std::uint32_t type, std::uint32_t& result) = 0;
    virtual Common::Error DestroyQueue(std::uint32_t id) = 0;  // the queue goes
    // Fetches what the queue holds and hands each event to `sink`.
    virtual Common::Error AbsorbQueue(std::uint32_t id, EventDispatcher* sink) = 0;
    // Blocks until the queue holds events, or its absorbing is cancelled.
    virtual Common::Error AbsorbQueue(std::uint32_t id, std::list<Event>& result) = 0;
    // Ends a blocking AbsorbQueue.
    virtual Common::Error CancelQueueAbsorbing(std::uint32_t id) = 0;
};

}  // namespace EventManagement
