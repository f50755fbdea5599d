#pragma once

#include <semaphore.h>

#include <cstdint>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>

namespace Common {

// A counting semaphore with the maximum count 0x7fffffff. Each operation that fails
// throws a Common::Error whose code names the call (20 construction, 21 Signal, 22 Wait),
// with the system's errno in an errno record as its cause.
class TL_API Semaphore : public NonCopyable {
public:
    static constexpr std::uint32_t kCreateFailed = 20;
    static constexpr std::uint32_t kSignalFailed = 21;
    static constexpr std::uint32_t kWaitFailed = 22;

    explicit Semaphore(int initialCount);
    ~Semaphore();

    // Raises the count by one; fails when it is at the maximum.
    void Signal();
    // Waits until the count is positive and lowers it by one.
    void Wait();

private:
    sem_t sem_;
};

}  // namespace Common
