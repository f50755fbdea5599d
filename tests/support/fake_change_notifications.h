#pragma once

// Change notifications in memory: a test changes a directory by its path, and the watches of
// that path report it. Watches can be made to fail.

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "platform/change_notifications.h"

namespace test_support {

class FakeChangeNotifications final : public Platform::ChangeNotifications {
public:
    // The next Watch fails with `failure`.
    void FailNextWatch(Platform::SystemError failure) {
        const std::lock_guard<std::mutex> hold(lock_);
        failure_ = failure;
    }

    // A change in the directory `path`.
    void Change(const std::u16string& path) {
        const std::lock_guard<std::mutex> hold(lock_);
        for (auto& [handle, watch] : watches_) {
            if (watch.path == path) {
                watch.changed = true;
            }
        }
        changed_.notify_all();
    }

    std::size_t OpenWatches() {
        const std::lock_guard<std::mutex> hold(lock_);
        return watches_.size();
    }
    std::size_t OpenEvents() {
        const std::lock_guard<std::mutex> hold(lock_);
        return events_.size();
    }

    Platform::SystemError Watch(const std::u16string& path, Platform::ChangeHandle& watch) override {
        const std::lock_guard<std::mutex> hold(lock_);
        if (failure_) {
            const auto f = *failure_;
            failure_.reset();
            return f;
        }
        watch = next_++;
        watches_[watch] = {path, false};
        return {};
    }
    Platform::SystemError Rearm(Platform::ChangeHandle) override { return {}; }
    void Unwatch(Platform::ChangeHandle watch) override {
        const std::lock_guard<std::mutex> hold(lock_);
        watches_.erase(watch);
    }
    Platform::SystemError CreateEvent(Platform::ChangeHandle& event) override {
        const std::lock_guard<std::mutex> hold(lock_);
        event = next_++;
        events_[event] = false;
        return {};
    }
    void SetEvent(Platform::ChangeHandle event) override {
        const std::lock_guard<std::mutex> hold(lock_);
        events_.at(event) = true;
        changed_.notify_all();
    }
    void ResetEvent(Platform::ChangeHandle event) override {
        const std::lock_guard<std::mutex> hold(lock_);
        events_.at(event) = false;
    }
    void CloseEvent(Platform::ChangeHandle event) override {
        const std::lock_guard<std::mutex> hold(lock_);
        events_.erase(event);
    }
    Platform::SystemError WaitAny(Platform::ChangeHandle event,
                                  const Platform::ChangeHandle* watches, std::size_t count,
                                  std::size_t& signalled) override {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            if (events_.at(event)) {
                signalled = 0;
                return {};
            }
            for (std::size_t i = 0; i < count; ++i) {
                auto it = watches_.find(watches[i]);
                if (it != watches_.end() && it->second.changed) {
                    it->second.changed = false;
                    signalled = i + 1;
                    return {};
                }
            }
            changed_.wait(hold);
        }
    }

private:
    struct WatchState {
        std::u16string path;
        bool changed = false;
    };
    std::mutex lock_;
    std::condition_variable changed_;
    std::map<Platform::ChangeHandle, WatchState> watches_;
    std::map<Platform::ChangeHandle, bool> events_;
    std::optional<Platform::SystemError> failure_;
    Platform::ChangeHandle next_ = 100;
};

}  // namespace test_support
