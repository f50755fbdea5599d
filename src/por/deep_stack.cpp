#include "por/deep_stack.h"

#include "common/thread.h"

namespace Por::Detail {

namespace {

// Room for kLevelsPerStack levels with a wide margin, also in instrumented builds, whose
// frames are several times larger. Only the pages a walk touches are ever used.
constexpr unsigned kFreshStackBytes = 16u << 20;

struct Start {
    void (*Body)(void*);
    void* Context;
};

unsigned RunStart(void* raw) {
    const Start& start = *static_cast<const Start*>(raw);
    start.Body(start.Context);  // catches everything itself
    return 0;
}

}  // namespace

void RunOnFreshStack(void (*body)(void*), void* context, const char* function) {
    Start start{body, context};
    const std::uintptr_t thread = Common::BeginThread(kFreshStackBytes, &RunStart, &start);
    if (thread == 0) {
        ThrowTooDeep(function);
    }
    Common::JoinThread(thread);
}

}  // namespace Por::Detail
