#pragma once

// The words the platform seams share: the outcome of a system call, handles and the modes of
// opening, seeking and locking a file.

#include <cstddef>
#include <cstdint>
#include <string>

namespace Platform {

// The outcome of one system call. `Windows` is the Windows error code that names the reason
// (0 when the platform's code has no counterpart); `Native` is the platform's own code when
// it has codes of its own (errno on POSIX; 0 on Windows). Both 0 means success.
struct SystemError {
    std::uint32_t Windows = 0;
    int Native = 0;
    bool Failed() const noexcept { return Windows != 0 || Native != 0; }
};

using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoHandle = -1;

enum class FileAccess { Read, ReadWrite };

enum class FileDisposition {
    OpenExisting,  // fails when the file is missing
    CreateAlways,  // creates, or truncates what is there
    OpenAlways,    // opens, or creates when missing
    CreateNew,     // fails when the file exists
};

enum class SeekOrigin { Begin, Current, End };

enum class LockKind { Shared, Exclusive };

}  // namespace Platform
