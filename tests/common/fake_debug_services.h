#pragma once

#include <string>
#include <vector>

#include "platform/debug_services.h"

namespace testing_support {

// Records what the assertion report asks of the system, in order, and walks a stack of
// frames given by the test.
class FakeDebugServices : public Platform::DebugServices {
public:
    FakeDebugServices() { previous_ = Platform::SetDebugServices(this); }
    ~FakeDebugServices() override { Platform::SetDebugServices(previous_); }

    void DebugOutput(const char* text) override { calls.push_back("debug:" + std::string(text)); }
    int AskUser(const char* title, const char* text) override {
        calls.push_back("ask:" + std::string(title));
        askedText = text;
        return answer;
    }
    bool DebuggerPresent() override { return debugger; }
    void DebugBreak() override { calls.push_back("break"); }
    void Abort() override { calls.push_back("abort"); }
    std::string ProgramName() override { return "/bin/host"; }
    bool WalkStack(unsigned maxFrames,
                   const std::function<bool(const Platform::StackFrame&)>& frame) override {
        calls.push_back("walk:" + std::to_string(maxFrames));
        for (const Platform::StackFrame& f : frames) {
            if (!frame(f)) {
                break;
            }
        }
        return true;
    }

    std::vector<std::string> calls;
    std::vector<Platform::StackFrame> frames;
    std::string askedText;
    int answer = 2;
    bool debugger = false;

private:
    Platform::DebugServices* previous_;
};

}  // namespace testing_support
