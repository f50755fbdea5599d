#pragma once

#include "common/recursive_lock.h"
#include <tessel_link/export.h>

namespace Common {

// The system's mutex. Like the critical section it stands for, its owner may lock it
// again. It must be free when destroyed and may be unlocked only by its owner: either
// mistake is an assertion, and a foreign unlock leaves the mutex as it was.
class TL_API Mutex : public NonCopyable {
public:
    Mutex() noexcept = default;
    ~Mutex();

    void Lock() noexcept { lock_.Lock(); }
    void Unlock() noexcept;

private:
    RecursiveLock lock_;
};

using MutexLock = ScopedLock<Mutex>;

}  // namespace Common
