#pragma once

// The policy of the assertion report, apart from reading the environment, so that tests
// can drive it with settings of their own.

#include <cstdint>
#include <cstdio>

namespace Common::Detail {

// The switches of CORVANE_SAFE_ASSERT.
inline constexpr std::uint32_t kAssertBreak = 0x01;  // reserved: a debugger always breaks
inline constexpr std::uint32_t kAssertDebug = 0x02;  // the system's debug output
inline constexpr std::uint32_t kAssertLog = 0x04;    // the log target
inline constexpr std::uint32_t kAssertEvent = 0x08;  // the event hook
inline constexpr std::uint32_t kAssertMsgBox = 0x10; // ask the user
inline constexpr std::uint32_t kAssertAbort = 0x20;  // abort rather than return
inline constexpr std::uint32_t kAssertStack = 0x40;  // add a stack trace to 0x02, 0x04, 0x08
// Log with a stack trace and go on: a library inside a host's process must not end it
// for a failed internal check unless the host or the user asks for that.
inline constexpr std::uint32_t kAssertDefault = 0x44;
inline constexpr std::uint32_t kAssertOff = 0xffffffffu;

// The mask for a value of CORVANE_SAFE_ASSERT; null (not set) gives the default. A
// hexadecimal number, with or without "0x", is the mask unless it is 0; anything else is a
// list of words separated by blanks, and one unknown word turns assertions off.
std::uint32_t ParseAssertMask(const char* value);

// The log target named by CORVANE_SAFE_ASSERT_LOGFILE: "stdout", "stderr", or a file
// opened for appending. Not set, or a file that cannot be opened, gives standard error.
std::FILE* OpenAssertLog(const char* value);

struct AssertSettings {
    std::uint32_t Mask = kAssertDefault;
    std::FILE* Log = stderr;
};

// The report with the given settings: outputs in the order debug, log, event; then the
// stack trace; then asking the user or breaking or aborting. Returns 0 to ignore, 1 to go
// on.
int ReportWith(const AssertSettings& settings, const char* expression, const char* file,
               int line, const char* message);

}  // namespace Common::Detail
