#pragma once

// Deep trees on bounded stacks. The recursive operations (copy, comparison, assignment,
// walks, pattern matching, printing) follow a tree level by level on the stack. So that the
// depth of a tree is bounded by kMaxTreeDepth alone, and not by the stack of whichever
// thread a host calls from, every kLevelsPerStack levels the walk goes on on a fresh stack
// of its own (a helper thread that the caller waits for). Trees of ordinary depth never
// leave the caller's thread.

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

#include "por/por_errors.h"

namespace Por::Detail {

inline constexpr unsigned kLevelsPerStack = 128;

// True at the levels where a walk moves to a fresh stack.
inline bool NeedsFreshStack(unsigned depth) noexcept {
    return depth != 0 && depth % kLevelsPerStack == 0;
}

// Runs `body(context)` on a fresh stack and waits for it. What it throws is thrown here;
// when no stack can be had, "POR: Out of range." is raised in the name of `function`.
void RunOnFreshStack(void (*body)(void*), void* context, const char* function);

// Runs `body` here, or on a fresh stack at the levels that need one, and hands back its
// result or its exception.
template <class Body>
decltype(auto) OnFreshStackIfDue(unsigned depth, const char* function, Body&& body) {
    using Result = std::invoke_result_t<Body&>;
    if (!NeedsFreshStack(depth)) {
        return body();
    }
    struct Context {
        Body* Work;
        std::conditional_t<std::is_void_v<Result>, bool, std::optional<Result>> Value;
        std::exception_ptr Failure;
    } context{&body, {}, nullptr};
    RunOnFreshStack(
        [](void* raw) {
            auto& c = *static_cast<Context*>(raw);
            try {
                if constexpr (std::is_void_v<Result>) {
                    (*c.Work)();
                } else {
                    c.Value.emplace((*c.Work)());
                }
            } catch (...) {
                c.Failure = std::current_exception();
            }
        },
        &context, function);
    if (context.Failure) {
        std::rethrow_exception(context.Failure);
    }
    if constexpr (!std::is_void_v<Result>) {
        return Result(std::move(*context.Value));
    }
}

// One level of a recursive operation: the depth check, then `body` on a stack that has
// room for it.
template <class Body>
decltype(auto) Descend(unsigned depth, const char* function, Body&& body) {
    CheckDepth(depth, function);
    return OnFreshStackIfDue(depth, function, std::forward<Body>(body));
}

}  // namespace Por::Detail
