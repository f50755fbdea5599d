#pragma once

#include <cstdint>

#include <tessel_link/export.h>

namespace Common {

// The calling thread's system-wide id (the kernel's thread id): never 0, so that 0 can
// mean "no thread" in owner fields.
TL_API std::uint32_t CurrentThreadId() noexcept;

// The library's one way to start a thread, so that every thread it makes starts the same
// way. `start(arg)` runs on the new thread; its result is what JoinThread returns. A stack
// size of 0 takes the system default. Returns a handle, or 0 with errno set. When
// `threadId` is given it receives the new thread's CurrentThreadId() before the call
// returns.
using ThreadStart = unsigned (*)(void* arg);
TL_API std::uintptr_t BeginThread(unsigned stackSize, ThreadStart start, void* arg,
                                  std::uint32_t* threadId = nullptr) noexcept;

// Waits for the thread and returns the result of its start routine. Each handle must be
// joined or detached exactly once.
TL_API unsigned JoinThread(std::uintptr_t handle) noexcept;
TL_API void DetachThread(std::uintptr_t handle) noexcept;

}  // namespace Common
