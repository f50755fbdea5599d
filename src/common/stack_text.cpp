#include "common/stack_text.h"

#include <cstdint>
#include <cstdio>

#include "common/recursive_lock.h"

namespace Common::Detail {

std::string FrameText(const Platform::StackFrame& frame) {
    const auto high = static_cast<unsigned>(frame.Address >> 32);
    const auto low = static_cast<unsigned>(frame.Address & 0xffffffffu);
    char text[64];
    if (high == 0) {
        std::snprintf(text, sizeof text, "0x%X", low);
    } else {
        std::snprintf(text, sizeof text, "0x%X%08X", high, low);
    }
    std::string result = text;
    if (!frame.Symbol.empty()) {
        result += ' ';
        result += frame.Symbol;
    }
    if (!frame.File.empty()) {
        result += ' ';
        result += frame.File;
        result += ", line ";
        result += std::to_string(frame.Line);
    }
    return result;
}

bool WalkStackTexts(unsigned maxFrames, const std::function<bool(const std::string&)>& frame) {
    // Never destroyed: a walk may happen while the process tears down.
    static RecursiveLock* const lock = new RecursiveLock;
    ScopedLock<RecursiveLock> hold(*lock);
    return Platform::GetDebugServices().WalkStack(
        maxFrames, [&](const Platform::StackFrame& f) { return frame(FrameText(f)); });
}

}  // namespace Common::Detail
