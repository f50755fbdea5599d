// The shared library's statics outlive the process's own teardown.
//
// A host may call into the library while its process ends: a global of the host, destroyed
// by exit(), may still create a proxy, release one or raise an error whose text comes from
// the message table. So the library's statics are never destroyed when the process ends;
// they are destroyed, newest first, only when the host unloads the library with dlclose.
//
// The compiler registers the destructor of every static of the library through
// __cxa_atexit, and so does atexit. The definition below is hidden: the library's own calls
// bind to it when the library is linked, and the host's calls still reach the C runtime.
// It keeps the destructors in a list of the library's own. The library's finaliser runs
// them, unless the process is ending; exit() tells it so through a handler registered with
// the C runtime, which exit() runs before it finalises the loaded modules.
//
// This unit is linked into the shared library alone: a program linked with the static
// archive keeps the C runtime's order.

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>

extern "C" void* __dso_handle;  // this module's handle, as the C runtime knows it

namespace {

struct Destructor {
    void (*Function)(void*);
    void* Argument;
    Destructor* Next;
};

// Newest first. Statics are made on any thread (function-local ones on first use), so the
// list is pushed to without a lock.
std::atomic<Destructor*> g_destructors{nullptr};
std::atomic<bool> g_processEnding{false};

void MarkProcessEnding(void*) {
    g_processEnding.store(true, std::memory_order_release);
}

using AtExitFunction = int (*)(void (*)(void*), void*, void*);

// The C runtime's registration, which the definition below hides from this module. The
// handler is registered under this module's handle, so that dlclose drops it with the
// module.
__attribute__((constructor)) void WatchForProcessEnd() {
    const auto runtimeAtExit =
        reinterpret_cast<AtExitFunction>(dlsym(RTLD_DEFAULT, "__cxa_atexit"));
    if (runtimeAtExit != nullptr) {
        runtimeAtExit(MarkProcessEnding, nullptr, &__dso_handle);
    }
    // Without it the statics are destroyed at the end of the process too, as the C
    // runtime would have done.
}

__attribute__((destructor)) void DestroyStatics() {
    if (g_processEnding.load(std::memory_order_acquire)) {
        return;
    }
    // A destructor may make a static of its own; it is destroyed in a later round.
    while (Destructor* entry = g_destructors.exchange(nullptr, std::memory_order_acq_rel)) {
        while (entry != nullptr) {
            Destructor* next = entry->Next;
            entry->Function(entry->Argument);
            std::free(entry);
            entry = next;
        }
    }
}

}  // namespace

extern "C" __attribute__((visibility("hidden"))) int __cxa_atexit(void (*function)(void*),
                                                                  void* argument,
                                                                  void* /*module*/) {
    auto* entry = static_cast<Destructor*>(std::malloc(sizeof(Destructor)));
    if (entry == nullptr) {
        return -1;
    }
    entry->Function = function;
    entry->Argument = argument;
    entry->Next = g_destructors.load(std::memory_order_relaxed);
    while (!g_destructors.compare_exchange_weak(entry->Next, entry, std::memory_order_release,
                                                std::memory_order_relaxed)) {
    }
    return 0;
}
