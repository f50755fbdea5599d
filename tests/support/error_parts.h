#pragma once

// The parts of an error that tests about failure paths compare, as strings that are empty
// when the part is missing, so that a missing part fails a comparison instead of crashing it.

#include <string>

#include <tessel_link/common/error.h>

namespace test_support {

// The function recorded where the error was made.
inline std::string OriginFunction(const Common::Error& e) {
    return e.Origin().Func != nullptr ? e.Origin().Func : "";
}

// The system call the error names as the one that failed (its "function" property).
inline std::string FailedFunction(const Common::Error& e) {
    const char* f = e.GetAnsi("function");
    return f ? f : "";
}

}  // namespace test_support
