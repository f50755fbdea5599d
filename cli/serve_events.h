#pragma once

// The example event service of `events demo` and `tessel serve`: a queue per CreateQueue,
// fetches that wait for events or for their cancel, and Dispatch, which raises the event it is
// given for every queue of its type, so that a caller over a socket can raise one too.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <tessel_link/components/event_management.h>

namespace tessel_cli {

struct DemoEventOptions {
    // Never answers the requests that close a queue (until Release), as a stuck service would.
    bool Silent = false;
    // How long a fetch waits for events before it returns none; zero waits until an event or
    // a cancel comes. A host that serves calls on a bounded pool of threads wants a limit, so
    // that waiting fetches cannot hold every thread.
    std::chrono::milliseconds MaxFetchWait{0};
};

class DemoEventService final : public EventManagement::EventManager {
public:
    explicit DemoEventService(DemoEventOptions options = {});
    ~DemoEventService() override;

    Common::Error CreateQueue(std::uint32_t type, std::uint32_t& result) override;
    Common::Error DestroyQueue(std::uint32_t id) override;
    Common::Error AbsorbQueue(std::uint32_t id, std::list<EventManagement::Event>& result) override;
    Common::Error CancelQueueAbsorbing(std::uint32_t id) override;
    Common::Error Subscribe(std::uint32_t type, EventManagement::EventDispatcher* sink) override;
    Common::Error Unsubscribe(std::uint32_t type, EventManagement::EventDispatcher* sink) override;
    Common::Error AbsorbQueue(std::uint32_t id, EventManagement::EventDispatcher* sink) override;
    // Raises the event.
    Common::Error Dispatch(const std::shared_ptr<EventManagement::Event>& event) override;

    // Queues the event for every queue of its type and wakes their fetches.
    void Raise(const EventManagement::Event& event);

    // Lets requests that wait on a silent service go on.
    void Release();

    // Ends every waiting fetch, and lets later ones return at once: for a host that stops.
    void Close();

private:
    struct Queue {
        std::uint32_t Type = 0;
        bool Cancelled = false;
        std::deque<EventManagement::Event> Pending;
    };

    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::uint32_t, Queue> queues_;
    std::uint32_t nextId_ = 1;
    bool silent_;
    bool closed_ = false;
    const std::chrono::milliseconds maxFetchWait_;
};

// An event of `type` stamped with the present time.
EventManagement::Event MakeDemoEvent(std::uint32_t type, const std::string& message);

}  // namespace tessel_cli
