#include "common/semaphore.h"

#include <cerrno>
#include <climits>

#include <tessel_link/common/error.h>

namespace Common {

namespace {

[[noreturn]] void Raise(const ErrorOrigin& origin, std::uint32_t code, int errnum) {
    Error error(origin, code);
    error.AddCause(Error::Errno(origin, code, errnum));
    throw error;
}

}  // namespace

static_assert(SEM_VALUE_MAX == 0x7fffffff, "the semaphore's maximum count");

Semaphore::Semaphore(int initialCount) {
    if (initialCount < 0) {
        Raise(TL_ORIGIN("Semaphore::Semaphore"), kCreateFailed, EINVAL);
    }
    if (sem_init(&sem_, 0, static_cast<unsigned>(initialCount)) != 0) {
        Raise(TL_ORIGIN("Semaphore::Semaphore"), kCreateFailed, errno);
    }
}

Semaphore::~Semaphore() {
    sem_destroy(&sem_);
}

void Semaphore::Signal() {
    if (sem_post(&sem_) != 0) {
        Raise(TL_ORIGIN("Semaphore::Signal"), kSignalFailed, errno);
    }
}

void Semaphore::Wait() {
    while (sem_wait(&sem_) != 0) {
        // A signal handler that ran meanwhile is no failure of the wait.
        if (errno != EINTR) {
            Raise(TL_ORIGIN("Semaphore::Wait"), kWaitFailed, errno);
        }
    }
}

}  // namespace Common
