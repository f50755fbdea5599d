#pragma once

#include <cstdint>

#include <tessel_link/export.h>

namespace Common {

// Thread-local storage slots. One key in the process may have a destructor callback: when
// a thread ends with a non-null value in that slot, the slot is cleared and the value is
// passed to the callback. Asking for a second callback is an assertion ("_Callback == 0");
// that key is then allocated without one.
class TL_API Tls {
public:
    using Key = std::uint32_t;
    using Callback = void (*)(void* value);
    using ProcessDetachHook = void (*)();

    // The invalid key: what Allocate returns when no slot is left. Using it is an
    // assertion ("key != Common::Tls::OUT_OF_INDEXES").
    static constexpr Key OUT_OF_INDEXES = 0xffffffffu;

    static Key Allocate(Callback callback = nullptr) noexcept;
    static void Free(Key key) noexcept;
    // Null for a slot that was never set on this thread.
    static void* Get(Key key) noexcept;
    static bool Set(Key key, void* value) noexcept;

    // Called once when the library is unloaded or the process ends; null removes it.
    // Returns the previous hook.
    static ProcessDetachHook SetProcessDetachHook(ProcessDetachHook hook) noexcept;
};

}  // namespace Common
