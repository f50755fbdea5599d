#pragma once

// A value that each thread keeps for reuse (a cache, a scratch buffer, a spare object) and
// that stays safe to ask for while the thread ends.
//
// A plain thread_local object is destroyed when its thread ends, and exit() destroys those
// of the thread that calls it before it runs the handlers of exit(), from which a host may
// still call the library. Reaching such an object after that reads freed memory. Here the
// value lives behind a pointer that is trivially destructible and a state that says when the
// value is gone: from then on Get() returns null and the caller does without the cache.

namespace Common {

// `Tag` tells apart two caches of the same type.
template <class T, class Tag = T>
class ThreadCache {
public:
    // This thread's value, made on first use; null once the thread's teardown has taken it.
    static T* Get() {
        Slot& slot = t_slot;
        if (slot.Phase == State::Kept) [[likely]] {
            return slot.Value;
        }
        if (slot.Phase == State::Gone) {
            return nullptr;
        }
        slot.Value = new T();
        (void)&t_owner;  // the first touch registers the owner's end with the thread
        slot.Phase = State::Kept;
        return slot.Value;
    }

private:
    enum class State : unsigned char { Unmade, Kept, Gone };

    // Trivially destructible, so that it can be reached at any time without a guard.
    struct Slot {
        T* Value;
        State Phase;
    };

    struct Owner {
        ~Owner() {
            Slot& slot = t_slot;
            slot.Phase = State::Gone;
            delete slot.Value;
            slot.Value = nullptr;
        }
    };

    static inline thread_local Slot t_slot{nullptr, State::Unmade};
    static inline thread_local Owner t_owner;
};

}  // namespace Common
