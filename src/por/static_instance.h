#pragma once

#include <atomic>

namespace Por::Util {

// A lazily built singleton. The first Get calls the creator; concurrent first callers each
// build one object, one of them is published by compare-and-exchange, and the others
// destroy their own and take it. The object lives until the StaticInstance is destroyed.
template <class T>
class StaticInstance {
public:
    using Creator = T* (*)();

    constexpr explicit StaticInstance(Creator creator) noexcept : creator_(creator) {}
    StaticInstance(const StaticInstance&) = delete;
    StaticInstance& operator=(const StaticInstance&) = delete;
    ~StaticInstance() { delete slot_.load(std::memory_order_acquire); }

    T& Get() {
        T* present = slot_.load(std::memory_order_acquire);
        if (present != nullptr) {
            return *present;
        }
        T* created = creator_();
        if (slot_.compare_exchange_strong(present, created, std::memory_order_acq_rel,
                                          std::memory_order_acquire)) {
            return *created;
        }
        delete created;
        return *present;
    }

private:
    Creator creator_;
    std::atomic<T*> slot_{nullptr};
};

}  // namespace Por::Util
