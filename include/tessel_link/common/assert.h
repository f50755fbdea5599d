#pragma once

#include <tessel_link/export.h>

namespace Common {

// Formats "Assertion failed: %s, file %s, line %d" and reports it.
TL_API int Assert(const char* expression, const char* file, int line);

// The assertion report. Its outputs are chosen by CORVANE_SAFE_ASSERT (a hexadecimal mask
// or a list of words, default 0x65) and CORVANE_SAFE_ASSERT_LOGFILE. Returns 0 to ignore,
// 1 to break; aborts when the mask says so.
TL_API int Report(const char* expression, const char* file, int line, const char* message);

// Called with the expression of every assertion that is reported (before the mask is
// applied, and also when assertions are turned off), so that tests can see which checks
// fired. Null removes the observer. Returns the previous one.
using AssertionObserver = void (*)(const char* expression, const char* file, int line);
TL_API AssertionObserver SetAssertionObserver(AssertionObserver observer);

}  // namespace Common

// Reports `#cond` when it is false and goes on.
#define TL_ASSERT(cond) \
    ((cond) ? static_cast<void>(0) : static_cast<void>(::Common::Assert(#cond, __FILE__, __LINE__)))

// Reports `text` as the expression when `cond` is false.
#define TL_ASSERT_TEXT(cond, text) \
    ((cond) ? static_cast<void>(0) : static_cast<void>(::Common::Assert((text), __FILE__, __LINE__)))
