#include "common/thread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

namespace Common {

namespace {

struct StartBlock {
    ThreadStart Start;
    void* Arg;
    bool CreatorWaits;
    std::atomic<std::uint32_t> Id{0};
    // When the creator waits for the id, both sides hold the block; the last to let go
    // frees it (the new thread may still be inside notify_one when the creator wakes).
    std::atomic<int> Holders{2};
};

void LetGo(StartBlock* block) {
    if (block->Holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete block;
    }
}

void* Trampoline(void* raw) {
    auto* block = static_cast<StartBlock*>(raw);
    const ThreadStart start = block->Start;
    void* const arg = block->Arg;
    if (block->CreatorWaits) {
        block->Id.store(CurrentThreadId(), std::memory_order_release);
        block->Id.notify_one();
        LetGo(block);
    } else {
        delete block;
    }
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(start(arg)));
}

}  // namespace

std::uint32_t CurrentThreadId() noexcept {
    thread_local const auto id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    return id;
}

std::uintptr_t BeginThread(unsigned stackSize, ThreadStart start, void* arg,
                           std::uint32_t* threadId) noexcept {
    if (start == nullptr) {
        errno = EINVAL;
        return 0;
    }
    auto* block = new (std::nothrow) StartBlock{start, arg, threadId != nullptr};
    if (block == nullptr) {
        errno = ENOMEM;
        return 0;
    }
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc == 0 && stackSize != 0) {
        rc = pthread_attr_setstacksize(&attr, stackSize);
        if (rc != 0) {
            pthread_attr_destroy(&attr);
        }
    }
    pthread_t thread{};
    if (rc == 0) {
        rc = pthread_create(&thread, &attr, Trampoline, block);
        pthread_attr_destroy(&attr);
    }
    if (rc != 0) {
        delete block;
        errno = rc;
        return 0;
    }
    if (threadId != nullptr) {
        block->Id.wait(0, std::memory_order_acquire);
        *threadId = block->Id.load(std::memory_order_acquire);
        LetGo(block);
    }
    return static_cast<std::uintptr_t>(thread);
}

unsigned JoinThread(std::uintptr_t handle) noexcept {
    void* result = nullptr;
    if (pthread_join(static_cast<pthread_t>(handle), &result) != 0) {
        return 0;
    }
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(result));
}

void DetachThread(std::uintptr_t handle) noexcept {
    pthread_detach(static_cast<pthread_t>(handle));
}

}  // namespace Common
