#pragma once

#include <functional>
#include <string>

#include "platform/debug_services.h"

namespace Common::Detail {

// One frame as reports show it: the address ("0x%X", or "0x%X%08X" above 4 GiB), the
// symbol, and " FILE, line N" when line information is there.
std::string FrameText(const Platform::StackFrame& frame);

// Walks at most `maxFrames` frames of the calling stack and hands each frame's text to
// `frame` until it returns false. Walks are serialised by one process-wide recursive lock,
// so a walk that asserts may walk again. False when the system offers no walk.
bool WalkStackTexts(unsigned maxFrames, const std::function<bool(const std::string&)>& frame);

}  // namespace Common::Detail
