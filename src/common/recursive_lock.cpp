#include "common/recursive_lock.h"

#include "common/thread.h"

namespace Common {

// The owner field can equal the calling thread's id only if that thread set it itself,
// so reading it without ordering is enough to recognise re-entry.

void RecursiveLock::Acquired(std::uint32_t self) noexcept {
    owner_.store(self, std::memory_order_relaxed);
    recursion_ = 1;
}

bool RecursiveLock::TryLock() noexcept {
    const std::uint32_t self = CurrentThreadId();
    if (owner_.load(std::memory_order_relaxed) == self) {
        ++recursion_;
        return true;
    }
    std::uint32_t expected = kFree;
    if (!state_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) {
        return false;
    }
    Acquired(self);
    return true;
}

void RecursiveLock::Lock() noexcept {
    const std::uint32_t self = CurrentThreadId();
    if (owner_.load(std::memory_order_relaxed) == self) {
        ++recursion_;
        return;
    }
    std::uint32_t state = kFree;
    if (!state_.compare_exchange_strong(state, kHeld, std::memory_order_acquire)) {
        // Mark the lock contended, so that the owner wakes a sleeper on its way out, and
        // sleep until it is handed free.
        if (state != kContended) {
            state = state_.exchange(kContended, std::memory_order_acquire);
        }
        while (state != kFree) {
            state_.wait(kContended, std::memory_order_relaxed);
            state = state_.exchange(kContended, std::memory_order_acquire);
        }
    }
    Acquired(self);
}

bool RecursiveLock::Unlock() noexcept {
    if (owner_.load(std::memory_order_relaxed) != CurrentThreadId()) {
        return false;
    }
    if (--recursion_ > 0) {
        return true;
    }
    owner_.store(0, std::memory_order_relaxed);
    if (state_.exchange(kFree, std::memory_order_release) == kContended) {
        state_.notify_one();
    }
    return true;
}

}  // namespace Common
