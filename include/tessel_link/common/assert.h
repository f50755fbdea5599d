#pragma once

// Assertions: how a failed check of the library is reported, and how a host sets the policy
// (log or abort) and the log target from code.

#include <cstdint>
#include <cstdio>

#include <tessel_link/export.h>

namespace Common {

// Formats "Assertion failed: %s, file %s, line %d" and reports it.
TL_API int Assert(const char* expression, const char* file, int line);

// The assertion report. Its outputs are chosen by CORVANE_SAFE_ASSERT, read on the first
// report, or by the host with SetAssertionPolicy: a hexadecimal mask (with or without "0x")
// or a list of words separated by blanks, default 0x44 (log, stack: the report goes to the
// log target with a stack trace and the library goes on, since a library loaded into a
// host's process must not end it unless asked to):
//   break 0x01   reserved
//   debug 0x02   the system's debug output (the system log at debug priority)
//   log   0x04   the log target, CORVANE_SAFE_ASSERT_LOGFILE: "stdout", "stderr" (the
//                default) or a file to append to
//   event 0x08   the event hook, if one is set
//   msgbox 0x10  ask the user; where nobody can be asked this counts as "debug"
//   abort 0x20   abort the process rather than return
//   stack 0x40   add a stack trace of up to 32 frames to debug, log and event
// An unknown word turns assertions off. Returns 0 to ignore, 1 to go on.
TL_API int Report(const char* expression, const char* file, int line, const char* message);

// The outputs of the report, as bits of CORVANE_SAFE_ASSERT's mask.
enum AssertionOutput : std::uint32_t {
    AssertToDebug = 0x02,
    AssertToLog = 0x04,
    AssertToEvent = 0x08,
    AssertAbort = 0x20,
    AssertWithStack = 0x40,
};

// The mask that stands when CORVANE_SAFE_ASSERT is not set (0x44 unless a host changes it).
// A host calls this before the first report, for example with AssertToLog | AssertAbort
// to stop at the first failed check: the user's variable still wins. Returns the previous
// default.
TL_API std::uint32_t SetAssertionDefault(std::uint32_t mask);

// The policy from code: the mask (AssertionOutput bits, or AssertionsOff) applies from now
// on, over CORVANE_SAFE_ASSERT and the default. Returns the mask that stood before.
inline constexpr std::uint32_t AssertionsOff = 0xffffffffu;
TL_API std::uint32_t SetAssertionPolicy(std::uint32_t mask);  // returns the mask that stood before
// The mask that stands now (after reading the environment if no report has yet).
TL_API std::uint32_t GetAssertionPolicy();

// The log target of the report from code, over CORVANE_SAFE_ASSERT_LOGFILE: "stdout",
// "stderr" or a file to append to. False, with the target unchanged, when the file cannot be
// opened. A file opened before stays open (a report may be writing to it).
TL_API bool SetAssertionLogTarget(const char* target);
// The log target as an open stream of the host's, which must stay open while reports may
// come; null means standard error.
TL_API void SetAssertionLogStream(std::FILE* stream);

// Called with the expression of every assertion that is reported (before the mask is
// applied, and also when assertions are turned off), so that tests can see which checks
// fired. Null removes the observer. Returns the previous one.
using AssertionObserver = void (*)(const char* expression, const char* file, int line);
// Returns the previous observer.
TL_API AssertionObserver SetAssertionObserver(AssertionObserver observer);

// The event output of the report (bit 0x08): called with 5, 0, 27 and the message, and
// with the stack trace in one call when bit 0x40 is set too. Null removes the hook.
// Returns the previous one.
using AssertionEventHook = void (*)(int a, int b, int c, const char* text);
// Returns the previous hook.
TL_API AssertionEventHook SetAssertionEventHook(AssertionEventHook hook);

}  // namespace Common

// Reports `#cond` when it is false and goes on.
#define TL_ASSERT(cond) \
    ((cond) ? static_cast<void>(0) : static_cast<void>(::Common::Assert(#cond, __FILE__, __LINE__)))

// Reports `text` as the expression when `cond` is false.
#define TL_ASSERT_TEXT(cond, text) \
    ((cond) ? static_cast<void>(0) : static_cast<void>(::Common::Assert((text), __FILE__, __LINE__)))
