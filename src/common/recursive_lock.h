#pragma once

#include <atomic>
#include <cstdint>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>

namespace Common {

// A lock that its owner may enter again. An uncontended entry is one atomic operation;
// a contended one sleeps on the state word itself (a futex), so the lock never needs a
// kernel object of its own.
class TL_API RecursiveLock : public NonCopyable {
public:
    RecursiveLock() noexcept = default;

    void Lock() noexcept;
    bool TryLock() noexcept;
    // False, and nothing happens, when the calling thread does not own the lock.
    bool Unlock() noexcept;

    // The owner's CurrentThreadId(), 0 when free.
    std::uint32_t Owner() const noexcept { return owner_.load(std::memory_order_relaxed); }
    std::uint32_t RecursionCount() const noexcept { return recursion_; }

private:
    enum : std::uint32_t { kFree = 0, kHeld = 1, kContended = 2 };
    void Acquired(std::uint32_t self) noexcept;

    std::atomic<std::uint32_t> state_{kFree};
    std::atomic<std::uint32_t> owner_{0};
    std::uint32_t recursion_ = 0;  // touched by the owner only
};

// Holds a lock (anything with Lock and Unlock) for a scope.
template <class L>
class ScopedLock : public NonCopyable {
public:
    explicit ScopedLock(L& lock) noexcept : lock_(lock) { lock_.Lock(); }
    ~ScopedLock() { lock_.Unlock(); }

private:
    L& lock_;
};

}  // namespace Common
