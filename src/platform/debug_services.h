#pragma once

// What the assertion report and the stack logger need from the operating system, behind
// an interface so that tests can watch the report's outputs and its decisions.

#include <cstdint>
#include <functional>
#include <string>

namespace Platform {

struct StackFrame {
    std::uint64_t Address = 0;
    std::string Symbol;  // empty when unknown
    std::string File;    // empty when there is no line information
    int Line = 0;
};

class DebugServices {
public:
    virtual ~DebugServices() = default;

    // A line for the system's debug output channel.
    virtual void DebugOutput(const char* text) = 0;

    // Asks the user what to do about a failed check: 0 to ignore it, 1 to abort, any other
    // answer to debug. A system that cannot ask anybody answers 2.
    virtual int AskUser(const char* title, const char* text) = 0;

    virtual bool DebuggerPresent() = 0;
    virtual void DebugBreak() = 0;
    virtual void Abort() = 0;

    // The full path of the program's executable.
    virtual std::string ProgramName() = 0;

    // Calls `frame` for at most `maxFrames` frames of the calling stack, innermost first
    // (starting with the caller of WalkStack), until it returns false. False when the
    // system offers no stack walk; then nothing is walked.
    virtual bool WalkStack(unsigned maxFrames,
                           const std::function<bool(const StackFrame&)>& frame) = 0;
};

// The services in force: the system's own unless a test has put others in place.
DebugServices& GetDebugServices();
// Puts `services` in force (null restores the system's own); returns the previous ones.
DebugServices* SetDebugServices(DebugServices* services);

}  // namespace Platform
