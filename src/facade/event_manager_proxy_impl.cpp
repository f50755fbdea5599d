#include "facade/event_manager_proxy_impl.h"

#include <algorithm>
#include <cstddef>
#include <list>
#include <map>
#include <utility>
#include <vector>

#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/job_control.h>
#include "common/mutex.h"

namespace EventManagement {

EventDispatcher::~EventDispatcher() = default;
EventSubscriber::~EventSubscriber() = default;
EventAccumulator::~EventAccumulator() = default;

namespace {

// The limit of each request that closes a queue.
constexpr std::uint32_t kCloseTimeoutMs = 500;

// Sends a request and runs its job under the close limit; the outcome is of no interest.
void RunLimited(Binding::RequestChannel& channel, std::unique_ptr<Binding::Request> request) {
    if (request == nullptr) {
        return;
    }
    // A job that comes back is run, whatever Send said.
    std::unique_ptr<Binding::RequestJob> job;
    (void)channel.Send(std::move(request), job);
    if (job == nullptr) {
        return;
    }
    std::unique_ptr<Binding::RequestJob> limited =
        Binding::SetJobTimeout(std::move(job), kCloseTimeoutMs);
    if (limited != nullptr) {
        (void)limited->Run(nullptr);
    }
}

template <class MakeRequest>
std::unique_ptr<Binding::Request> TryMake(MakeRequest&& make) {
    try {
        return std::forward<MakeRequest>(make)();
    } catch (const Common::Error&) {
        return nullptr;
    }
}

// The background fetch of one event type and its sinks. Fetches run as jobs of the channel;
// each one, on its end, hands its events to the sinks and starts the next.
class AsyncDispatcher final : public JobManagement::JobHandler {
public:
    static std::shared_ptr<AsyncDispatcher> Make(std::shared_ptr<Binding::RequestChannel> channel,
                                                 std::uint32_t queueId) {
        auto dispatcher =
            std::shared_ptr<AsyncDispatcher>(new AsyncDispatcher(std::move(channel), queueId));
        dispatcher->self_ = dispatcher;
        return dispatcher;
    }

    // The first sink starts the fetching.
    void AddSink(EventDispatcher* sink) {
        const Common::MutexLock lock(lock_);
        sinks_.push_back(sink);
        if (sinks_.size() == 1) {
            StartFetch();
        }
    }

    // Removes the first occurrence of `sink`; true when no sink is left.
    bool RemoveSink(EventDispatcher* sink) {
        const Common::MutexLock lock(lock_);
        const auto at = std::find(sinks_.begin(), sinks_.end(), sink);
        if (at != sinks_.end()) {
            const auto position = at - sinks_.begin();
            sinks_.erase(at);
            // A delivery under way on this thread goes on with the sink after the removed one.
            if (delivering_ && position <= nextSink_) {
                --nextSink_;
            }
        }
        return sinks_.empty();
    }

    // Ends the fetching for good and closes the queue on the service. The lock is let go
    // before the jobs are stopped, so that a handler running on a job's thread can end.
    void Stop() {
        std::unique_ptr<Binding::RequestJob> current;
        std::unique_ptr<Binding::RequestJob> previous;
        {
            const Common::MutexLock lock(lock_);
            stopping_ = 1;
            current = std::move(currentJob_);
            previous = std::move(previousJob_);
        }
        for (auto* job : {&current, &previous}) {
            if (*job != nullptr) {
                (void)(*job)->Stop();  // an abandoned fetch has nothing left to say
                job->reset();
            }
        }
        // Cancelling first frees a fetch that blocks on the service; destroying follows.
        RunLimited(*channel_, TryMake([this] {
                       return MakeRequest_EventManager_CancelQueueAbsorbing(queueId_);
                   }));
        RunLimited(*channel_, TryMake([this] {
                       return MakeRequest_EventManager_DestroyQueue(queueId_);
                   }));
    }

    void OnJobStarted() override {}
    void OnJobProgress(double) override {}
    void OnJobPaused() override {}
    void OnJobResumed() override {}
    void OnJobMessage(const Common::Error&) override {}

    // A fetch has ended, failed or not: deliver what it brought and fetch again.
    void OnJobFinished(const Common::Error&) override {
        // A sink that unsubscribes the last sink drops the table's reference; this one keeps
        // the dispatcher until the handler is done.
        const std::shared_ptr<AsyncDispatcher> keep = self_.lock();
        const Common::MutexLock lock(lock_);
        delivering_ = true;
        for (const Event& event : events_) {
            const auto shared = std::make_shared<Event>(event);
            for (nextSink_ = 0; nextSink_ < static_cast<std::ptrdiff_t>(sinks_.size());
                 ++nextSink_) {
                const std::shared_ptr<Event> further = shared;
                // A sink's failure is its own: the others still receive the event.
                (void)sinks_[static_cast<std::size_t>(nextSink_)]->Dispatch(further);
            }
        }
        delivering_ = false;
        events_.clear();
        if (stopping_ == 0) {
            StartFetch();
        }
    }

private:
    AsyncDispatcher(std::shared_ptr<Binding::RequestChannel> channel, std::uint32_t queueId)
        : channel_(std::move(channel)), queueId_(queueId) {}

    // Under the lock. Errors are dropped: a fetch that cannot be sent or started leaves
    // nothing running, and nothing is fetched until the first sink is added anew. A job that
    // came back stays the current one all the same, and is stopped and destroyed as any.
    void StartFetch() {
        std::unique_ptr<Binding::Request> request =
            TryMake([this] { return MakeRequest_EventManager_AbsorbQueue(queueId_, events_); });
        previousJob_ = std::move(currentJob_);
        if (request == nullptr) {
            return;
        }
        (void)channel_->Send(std::move(request), currentJob_);
        if (currentJob_ != nullptr) {
            (void)currentJob_->Start(this);
        }
    }

    std::weak_ptr<AsyncDispatcher> self_;
    Common::Mutex lock_;
    std::uint32_t stopping_ = 0;
    std::shared_ptr<Binding::RequestChannel> channel_;
    std::unique_ptr<Binding::RequestJob> currentJob_;
    std::unique_ptr<Binding::RequestJob> previousJob_;
    const std::uint32_t queueId_;
    std::vector<EventDispatcher*> sinks_;
    std::list<Event> events_;
    // The delivery loop's position, moved back when a sink before it is removed.
    bool delivering_ = false;
    std::ptrdiff_t nextSink_ = 0;
};

}  // namespace

// The proxy's subscriptions: one dispatcher per event type.
class SubscriptionTable {
public:
    SubscriptionTable(std::shared_ptr<Binding::RequestChannel> channel,
                      EventManager_ProxyImpl& proxy)
        : channel_(std::move(channel)), proxy_(&proxy) {}

    ~SubscriptionTable() {
        const Common::MutexLock lock(lock_);
        for (auto& entry : dispatchers_) {
            entry.second->Stop();
        }
        dispatchers_.clear();
    }

    SubscriptionTable(const SubscriptionTable&) = delete;
    SubscriptionTable& operator=(const SubscriptionTable&) = delete;

    Common::Error Subscribe(std::uint32_t type, EventDispatcher* sink) {
        const Common::MutexLock lock(lock_);
        auto at = dispatchers_.find(type);
        if (at == dispatchers_.end()) {
            std::uint32_t queueId = 0;
            const Common::Error created = proxy_->CreateQueue(type, queueId);
            if (created.Failed()) {
                return created;
            }
            at = dispatchers_.emplace(type, AsyncDispatcher::Make(channel_, queueId)).first;
        }
        at->second->AddSink(sink);
        return Common::ErrorSuccess;
    }

    Common::Error Unsubscribe(std::uint32_t type, EventDispatcher* sink) {
        const Common::MutexLock lock(lock_);
        const auto at = dispatchers_.find(type);
        if (at == dispatchers_.end()) {
            return Common::ErrorSuccess;
        }
        if (at->second->RemoveSink(sink)) {
            // The entry is looked up again: a sink may have changed the map while the
            // dispatcher stopped, if it ran on this thread.
            const std::shared_ptr<AsyncDispatcher> stopped = at->second;
            stopped->Stop();
            const auto again = dispatchers_.find(type);
            if (again != dispatchers_.end() && again->second == stopped) {
                dispatchers_.erase(again);
            }
        }
        return Common::ErrorSuccess;
    }

private:
    Common::Mutex lock_;
    std::shared_ptr<Binding::RequestChannel> channel_;
    EventManager_ProxyImpl* proxy_;
    std::map<std::uint32_t, std::shared_ptr<AsyncDispatcher>> dispatchers_;
};

EventManager_ProxyImpl::EventManager_ProxyImpl(std::shared_ptr<Binding::RequestChannel> channel)
    : EventManager_Proxy(channel),
      table_(std::make_unique<SubscriptionTable>(std::move(channel), *this)) {}

EventManager_ProxyImpl::~EventManager_ProxyImpl() {
    ShutdownSubscriptions();
}

void EventManager_ProxyImpl::ShutdownSubscriptions() {
    table_.reset();
}

Common::Error EventManager_ProxyImpl::Subscribe(std::uint32_t type, EventDispatcher* sink) {
    if (sink == nullptr) {
        return Binding::NullPointerError(
            TL_ORIGIN("EventManagement::EventManager_ProxyImpl::Subscribe"), "sink != nullptr");
    }
    if (table_ == nullptr) {
        return Binding::NullPointerError(
            TL_ORIGIN("EventManagement::EventManager_ProxyImpl::Subscribe"), "not shut down");
    }
    return table_->Subscribe(type, sink);
}

Common::Error EventManager_ProxyImpl::Unsubscribe(std::uint32_t type, EventDispatcher* sink) {
    return table_ == nullptr ? Common::ErrorSuccess : table_->Unsubscribe(type, sink);
}

Common::Error EventManager_ProxyImpl::AbsorbQueue(std::uint32_t id, EventDispatcher* sink) {
    if (sink == nullptr) {
        return Binding::NullPointerError(
            TL_ORIGIN("EventManagement::EventManager_ProxyImpl::AbsorbQueue"), "sink != nullptr");
    }
    std::list<Event> events;
    const Common::Error result = AbsorbQueue(id, events);
    for (const Event& event : events) {
        const auto shared = std::make_shared<Event>(event);
        (void)sink->Dispatch(shared);  // a sink's failure stops neither it nor the queue
    }
    return result;
}

}  // namespace EventManagement
