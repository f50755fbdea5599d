#pragma once

// Failed system calls of the file layer become errors through one translation: the portable
// file-layer code that the system's reason stands for heads the error, and the system's own
// code follows as its cause.

#include <cstdint>
#include <optional>

#include <tessel_link/common/error.h>

#include "file/file_errors.h"
#include "platform/file_system.h"

namespace File {

// The file-layer code for a Windows error code (an HRESULT of facility Win32 is reduced to
// its code first), or nothing when the code has no specific meaning here.
std::optional<FileErrorCode> TranslateSystemCode(std::uint32_t code) noexcept;

// A function record naming the failed `function`, with the translated code or, when there
// is none, `fallback`. The cause is the system record of the Windows code and, beneath it,
// the platform's own code when it has one (errno on POSIX).
Common::Error MakeSystemError(const Common::ErrorOrigin& origin, const char* function,
                              const Platform::SystemError& failure, FileErrorCode fallback);
// The same with the path the call was about.
Common::Error MakeSystemError(const Common::ErrorOrigin& origin, const char* function,
                              const char16_t* path, const Platform::SystemError& failure,
                              FileErrorCode fallback);

// The system's reason that an error made by MakeSystemError carries beneath its head: the
// Windows code and the native one, each 0 when the chain has none.
Platform::SystemError SystemReasonOf(const Common::Error& error);

}  // namespace File

namespace File {

// As MakeSystemError, but the head keeps `code` whatever the system's reason: for calls whose
// every failure means the same to the caller.
Common::Error MakeFixedSystemError(const Common::ErrorOrigin& origin, const char* function,
                                   const char16_t* path, const Platform::SystemError& failure,
                                   FileErrorCode code);

}  // namespace File
