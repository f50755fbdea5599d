#include "common/tls.h"

#include <pthread.h>

#include <atomic>

#include <tessel_link/common/assert.h>

namespace Common {

namespace {

std::atomic<Tls::Callback> g_callback{nullptr};
std::atomic<Tls::Key> g_callbackKey{Tls::OUT_OF_INDEXES};
std::atomic<Tls::ProcessDetachHook> g_detachHook{nullptr};

// The system clears the slot before calling this, for non-null values only.
void ThreadDetach(void* value) {
    if (Tls::Callback callback = g_callback.load()) {
        callback(value);
    }
}

__attribute__((destructor)) void ProcessDetach() {
    if (Tls::ProcessDetachHook hook = g_detachHook.exchange(nullptr)) {
        hook();
    }
}

bool CheckKey(Tls::Key key) {
    TL_ASSERT_TEXT(key != Tls::OUT_OF_INDEXES, "key != Common::Tls::OUT_OF_INDEXES");
    return key != Tls::OUT_OF_INDEXES;
}

}  // namespace

Tls::Key Tls::Allocate(Callback callback) noexcept {
    bool withCallback = false;
    if (callback != nullptr) {
        Callback none = nullptr;
        withCallback = g_callback.compare_exchange_strong(none, callback);
        TL_ASSERT_TEXT(withCallback, "_Callback == 0");
    }
    pthread_key_t key;
    if (pthread_key_create(&key, withCallback ? ThreadDetach : nullptr) != 0) {
        if (withCallback) {
            g_callback.store(nullptr);
        }
        return OUT_OF_INDEXES;
    }
    static_assert(sizeof(pthread_key_t) <= sizeof(Key));
    if (withCallback) {
        g_callbackKey.store(static_cast<Key>(key));
    }
    return static_cast<Key>(key);
}

void Tls::Free(Key key) noexcept {
    if (!CheckKey(key)) {
        return;
    }
    Key expected = key;
    if (g_callbackKey.compare_exchange_strong(expected, OUT_OF_INDEXES)) {
        g_callback.store(nullptr);
    }
    pthread_key_delete(static_cast<pthread_key_t>(key));
}

void* Tls::Get(Key key) noexcept {
    return CheckKey(key) ? pthread_getspecific(static_cast<pthread_key_t>(key)) : nullptr;
}

bool Tls::Set(Key key, void* value) noexcept {
    return CheckKey(key) && pthread_setspecific(static_cast<pthread_key_t>(key), value) == 0;
}

Tls::ProcessDetachHook Tls::SetProcessDetachHook(ProcessDetachHook hook) noexcept {
    return g_detachHook.exchange(hook);
}

}  // namespace Common
