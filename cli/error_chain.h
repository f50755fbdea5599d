#pragma once

// How the file commands report a failure: the whole error chain, head first, one record per
// line, with each record's function, path and system code, and names as plain text.

#include <string>
#include <string_view>

#include <tessel_link/common/error.h>

namespace tessel_cli {

// A name of the system for one line of text: its bytes, with control characters as \xHH and
// a backslash doubled, so that it stays on one line and reads back unambiguously.
std::string PlainName(std::u16string_view wide);

// Prints the chain of `error` to stderr and returns the exit code of a failure.
int FailWithChain(const Common::Error& error);

}  // namespace tessel_cli
