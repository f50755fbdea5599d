#pragma once

// An event service for tests, served through a loopback channel: queues per event type
// whose AbsorbQueue blocks until events arrive or the absorbing is cancelled. It can fail
// CreateQueue and fetches, and it can be silent: then CancelQueueAbsorbing and
// DestroyQueue do not answer until it speaks again. Every call is logged in order.

#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/components/event_management.h>
#include <tessel_link/facade/entry_points.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace EventTesting {

using namespace std::chrono_literals;

inline EventManagement::Event MakeEvent(std::uint32_t type, std::uint32_t sequence) {
    EventManagement::Event event;
    event.Type = type;
    event.SubType = sequence;
    event.Message = u"event " + std::u16string(1, static_cast<char16_t>(u'0' + sequence % 10));
    return event;
}

class FakeEventService : public EventManagement::EventManager {
public:
    ~FakeEventService() override { Speak(); }

    // --- Remote methods ---
    Common::Error CreateQueue(std::uint32_t type, std::uint32_t& result) override {
        std::lock_guard<std::mutex> lock(lock_);
        Log("CreateQueue " + std::to_string(type));
        if (FailCreate) {
            return Common::Error(TL_ORIGIN("FakeEventService::CreateQueue"), 0x840001,
                                 u"no queue today");
        }
        result = nextId_++;
        queues_[result].Type = type;
        return Common::ErrorSuccess;
    }

    Common::Error DestroyQueue(std::uint32_t id) override {
        std::unique_lock<std::mutex> lock(lock_);
        Log("DestroyQueue " + std::to_string(id));
        changed_.wait(lock, [&] { return !silent_; });
        queues_.erase(id);
        changed_.notify_all();
        return Common::ErrorSuccess;
    }

    Common::Error AbsorbQueue(std::uint32_t id, std::list<EventManagement::Event>& result) override {
        std::unique_lock<std::mutex> lock(lock_);
        Log("AbsorbQueue " + std::to_string(id));
        ++absorbing_;
        changed_.notify_all();
        changed_.wait(lock, [&] {
            const auto at = queues_.find(id);
            return at == queues_.end() || at->second.Cancelled || !at->second.Pending.empty() ||
                   FailAbsorb > 0;
        });
        --absorbing_;
        ++absorbed_;
        changed_.notify_all();
        if (FailAbsorb > 0) {
            --FailAbsorb;
            return Common::Error(TL_ORIGIN("FakeEventService::AbsorbQueue"), 0x840002,
                                 u"fetch failed");
        }
        const auto at = queues_.find(id);
        if (at == queues_.end()) {
            return Common::Error(TL_ORIGIN("FakeEventService::AbsorbQueue"), 0x840003,
                                 u"no such queue");
        }
        result.assign(at->second.Pending.begin(), at->second.Pending.end());
        at->second.Pending.clear();
        return Common::ErrorSuccess;
    }

    Common::Error CancelQueueAbsorbing(std::uint32_t id) override {
        std::unique_lock<std::mutex> lock(lock_);
        Log("CancelQueueAbsorbing " + std::to_string(id));
        changed_.wait(lock, [&] { return !silent_; });
        const auto at = queues_.find(id);
        if (at != queues_.end()) {
            at->second.Cancelled = true;
        }
        changed_.notify_all();
        return Common::ErrorSuccess;
    }

    // The local operations have no remote method; the service never gets them.
    Common::Error Subscribe(std::uint32_t, EventManagement::EventDispatcher*) override {
        return Common::ErrorSuccess;
    }
    Common::Error Unsubscribe(std::uint32_t, EventManagement::EventDispatcher*) override {
        return Common::ErrorSuccess;
    }
    Common::Error AbsorbQueue(std::uint32_t, EventManagement::EventDispatcher*) override {
        return Common::ErrorSuccess;
    }
    Common::Error Dispatch(const std::shared_ptr<EventManagement::Event>&) override {
        return Common::ErrorSuccess;
    }

    // --- Control ---
    // Adds the event to every queue of its type.
    void Raise(const EventManagement::Event& event) {
        std::lock_guard<std::mutex> lock(lock_);
        for (auto& [id, queue] : queues_) {
            if (queue.Type == event.Type) {
                queue.Pending.push_back(event);
            }
        }
        changed_.notify_all();
    }

    void Silence() {
        std::lock_guard<std::mutex> lock(lock_);
        silent_ = true;
    }
    void Speak() {
        std::lock_guard<std::mutex> lock(lock_);
        silent_ = false;
        changed_.notify_all();
    }

    // Waits until `count` fetches block in the service.
    bool WaitAbsorbing(int count) {
        std::unique_lock<std::mutex> lock(lock_);
        return changed_.wait_for(lock, 5s, [&] { return absorbing_ >= count; });
    }
    // Waits until no fetch blocks in the service any more.
    bool WaitNoneAbsorbing() {
        std::unique_lock<std::mutex> lock(lock_);
        return changed_.wait_for(lock, 5s, [&] { return absorbing_ == 0; });
    }
    bool WaitLogged(const std::string& entry) {
        std::unique_lock<std::mutex> lock(lock_);
        return changed_.wait_for(lock, 5s, [&] {
            return std::find(log_.begin(), log_.end(), entry) != log_.end();
        });
    }

    std::vector<std::string> Calls() {
        std::lock_guard<std::mutex> lock(lock_);
        return log_;
    }
    int CountCalls(const std::string& method) {
        std::lock_guard<std::mutex> lock(lock_);
        int count = 0;
        for (const std::string& entry : log_) {
            count += entry.rfind(method + " ", 0) == 0 ? 1 : 0;
        }
        return count;
    }
    std::size_t QueueCount() {
        std::lock_guard<std::mutex> lock(lock_);
        return queues_.size();
    }
    std::size_t Pending(std::uint32_t id) {
        std::lock_guard<std::mutex> lock(lock_);
        const auto at = queues_.find(id);
        return at == queues_.end() ? 0 : at->second.Pending.size();
    }

    std::atomic<bool> FailCreate{false};
    // The number of fetches still to fail; guarded by the service's lock.
    int FailAbsorb = 0;
    void FailNextAbsorbs(int count) {
        std::lock_guard<std::mutex> lock(lock_);
        FailAbsorb = count;
        changed_.notify_all();
    }

private:
    struct Queue {
        std::uint32_t Type = 0;
        bool Cancelled = false;
        std::deque<EventManagement::Event> Pending;
    };

    void Log(std::string entry) {
        log_.push_back(std::move(entry));
        changed_.notify_all();
    }

    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::uint32_t, Queue> queues_;
    std::uint32_t nextId_ = 1;
    int absorbing_ = 0;
    int absorbed_ = 0;
    bool silent_ = false;
    std::vector<std::string> log_;
};

// A sink that keeps every event it is handed, with the thread it came on. `OnDispatch`
// runs inside Dispatch.
class RecordingSink : public EventManagement::EventDispatcher {
public:
    Common::Error Dispatch(const std::shared_ptr<EventManagement::Event>& event) override {
        if (OnDispatch) {
            OnDispatch(event);
        }
        // Nothing of the sink is touched after the lock is let go: a sink that unsubscribed
        // itself above may be destroyed as soon as its waiter sees the event.
        std::lock_guard<std::mutex> lock(lock_);
        events_.push_back(event);
        arrived_.notify_all();
        return Result;
    }

    bool WaitCount(std::size_t count) {
        std::unique_lock<std::mutex> lock(lock_);
        return arrived_.wait_for(lock, 5s, [&] { return events_.size() >= count; });
    }
    std::vector<std::shared_ptr<EventManagement::Event>> Events() {
        std::lock_guard<std::mutex> lock(lock_);
        return events_;
    }
    std::vector<std::uint32_t> Sequence() {
        std::lock_guard<std::mutex> lock(lock_);
        std::vector<std::uint32_t> sequence;
        for (const auto& event : events_) {
            sequence.push_back(event->SubType);
        }
        return sequence;
    }

    std::function<void(const std::shared_ptr<EventManagement::Event>&)> OnDispatch;
    Common::Error Result;

private:
    std::mutex lock_;
    std::condition_variable arrived_;
    std::vector<std::shared_ptr<EventManagement::Event>> events_;
};

// The service behind a loopback, and the event manager's proxy over it.
struct EventRig {
    explicit EventRig(std::shared_ptr<Binding::RequestChannel> front = nullptr) {
        Loopback->Register(std::make_unique<EventManagement::EventManager_Dispatcher>(Service));
        Channel = front != nullptr ? std::move(front) : Core::ChannelPointer(Loopback);
        if (CreateProxy(132, &Channel, &Component) == Core::ProxyCreated) {
            Manager = Common::QueryInterface<EventManagement::EventManager>(*Component);
        }
    }
    ~EventRig() {
        // The proxy goes first, then the service speaks again, so that the channel's
        // workers can end.
        Component.reset();
        Service->Speak();
    }

    std::shared_ptr<FakeEventService> Service = std::make_shared<FakeEventService>();
    std::shared_ptr<Binding::LoopbackChannel> Loopback =
        std::make_shared<Binding::LoopbackChannel>();
    Core::ChannelPointer Channel;
    Core::ComponentSlot Component;
    EventManagement::EventManager* Manager = nullptr;
};

}  // namespace EventTesting
