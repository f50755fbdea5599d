#pragma once

#include <string>

namespace Platform {

// The full path of the file that holds this library's code: the shared library when the
// library is loaded as one, the program itself when it is linked in statically. Empty when
// the system cannot tell.
std::u16string ModuleFilePath();

}  // namespace Platform
