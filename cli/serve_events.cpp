#include "serve_events.h"

#include <tessel_link/common/unicode.h>

namespace tessel_cli {

DemoEventService::DemoEventService(DemoEventOptions options)
    : silent_(options.Silent), maxFetchWait_(options.MaxFetchWait) {}

DemoEventService::~DemoEventService() {
    Release();
}

Common::Error DemoEventService::CreateQueue(std::uint32_t type, std::uint32_t& result) {
    const std::lock_guard<std::mutex> lock(lock_);
    result = nextId_++;
    queues_[result].Type = type;
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::DestroyQueue(std::uint32_t id) {
    std::unique_lock<std::mutex> lock(lock_);
    changed_.wait(lock, [&] { return !silent_; });
    queues_.erase(id);
    changed_.notify_all();
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::AbsorbQueue(std::uint32_t id, std::list<EventManagement::Event>& result) {
    std::unique_lock<std::mutex> lock(lock_);
    const auto ready = [&] {
        const auto at = queues_.find(id);
        return closed_ || at == queues_.end() || at->second.Cancelled || !at->second.Pending.empty();
    };
    if (maxFetchWait_.count() > 0) {
        changed_.wait_for(lock, maxFetchWait_, ready);
    } else {
        changed_.wait(lock, ready);
    }
    const auto at = queues_.find(id);
    if (at != queues_.end()) {
        result.assign(at->second.Pending.begin(), at->second.Pending.end());
        at->second.Pending.clear();
    }
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::CancelQueueAbsorbing(std::uint32_t id) {
    std::unique_lock<std::mutex> lock(lock_);
    changed_.wait(lock, [&] { return !silent_; });
    if (const auto at = queues_.find(id); at != queues_.end()) {
        at->second.Cancelled = true;
    }
    changed_.notify_all();
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::Subscribe(std::uint32_t, EventManagement::EventDispatcher*) {
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::Unsubscribe(std::uint32_t, EventManagement::EventDispatcher*) {
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::AbsorbQueue(std::uint32_t, EventManagement::EventDispatcher*) {
    return Common::ErrorSuccess;
}

Common::Error DemoEventService::Dispatch(const std::shared_ptr<EventManagement::Event>& event) {
    if (event != nullptr) {
        Raise(*event);
    }
    return Common::ErrorSuccess;
}

void DemoEventService::Raise(const EventManagement::Event& event) {
    const std::lock_guard<std::mutex> lock(lock_);
    for (auto& entry : queues_) {
        if (entry.second.Type == event.Type) {
            entry.second.Pending.push_back(event);
        }
    }
    changed_.notify_all();
}

void DemoEventService::Release() {
    const std::lock_guard<std::mutex> lock(lock_);
    silent_ = false;
    changed_.notify_all();
}

void DemoEventService::Close() {
    const std::lock_guard<std::mutex> lock(lock_);
    closed_ = true;
    silent_ = false;
    changed_.notify_all();
}

EventManagement::Event MakeDemoEvent(std::uint32_t type, const std::string& message) {
    EventManagement::Event event;
    event.Type = type;
    event.Time = std::chrono::duration_cast<std::chrono::milliseconds>(
                     std::chrono::system_clock::now().time_since_epoch())
                     .count();
    event.Message = Common::WidenLatin1(message);
    return event;
}

}  // namespace tessel_cli
