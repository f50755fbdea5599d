#pragma once

// Core::Optional, the value that may be absent, as records and parameters carry it.

#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <tessel_link/export.h>
#include <tessel_link/impl/common/optional_support.h>

namespace Core {

// A value that may be absent. The null flag comes first and, when set, means there is no
// value; a null optional still holds a default-constructed T.
template <class T>
class Optional {
public:
    Optional() = default;
    Optional(const T& value) : null_(false), value_(value) {}  // a present value
    Optional(T&& value) : null_(false), value_(std::move(value)) {}  // a present value

    // Makes the optional present with `value`.
    Optional& operator=(const T& value) {
        null_ = false;
        value_ = value;
        return *this;
    }
    // Makes the optional present with `value`.
    Optional& operator=(T&& value) {
        null_ = false;
        value_ = std::move(value);
        return *this;
    }

    bool IsNull() const { return null_; }  // true when absent
    explicit operator bool() const { return !null_; }  // true when present

    // The value; throws 0x00ac0001 from "Core::Optional<T>::Get" when null.
    T& Get() {
        if (null_) {
            ThrowNull();
        }
        return value_;
    }
    const T& Get() const {
        if (null_) {
            ThrowNull();
        }
        return value_;
    }
    T* operator->() { return &Get(); }  // the value; throws as Get when null
    const T* operator->() const { return &Get(); }  // the value; throws as Get when null
    T& operator*() { return Get(); }  // the value; throws as Get when null
    const T& operator*() const { return Get(); }  // the value; throws as Get when null

    // The value, or `fallback` when null.
    T ValueOr(T fallback) const { return null_ ? std::move(fallback) : value_; }

    // Makes the optional null, holding a default T again.
    void Reset() {
        null_ = true;
        value_ = T{};
    }

    // Two null optionals are equal whatever they hold; otherwise the values decide.
    template <class Equal>
    bool EqualBy(const Optional& other, Equal&& equal) const {
        return null_ == other.null_ && (null_ || equal(value_, other.value_));
    }
    // Equal when both are null or both hold equal values.
    friend bool operator==(const Optional& a, const Optional& b) {
        return a.EqualBy(b, [](const T& x, const T& y) { return x == y; });
    }

private:
    [[noreturn]] static void ThrowNull() {
        Detail::ThrowNullOptional(
            Detail::OptionalGetSite(typeid(T), std::is_class_v<T>, std::is_enum_v<T>));
    }

    bool null_ = true;
    T value_{};
};

}  // namespace Core
