#pragma once

// A base for classes whose objects have identity and must not be copied.

namespace Common {

// A base without content for classes whose objects have identity.
class NonCopyable {
protected:
    NonCopyable() = default;
    ~NonCopyable() = default;

public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;
};

}  // namespace Common
