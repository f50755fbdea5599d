#pragma once

// What the change journal asks of the operating system: the volume that holds a path, a
// handle on it, and its control codes. Each platform has one implementation; tests put a
// fake in its place to reach the failure paths.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace Platform {

using VolumeHandle = std::intptr_t;

// Windows ERROR_FILE_CORRUPT: a control code's answer would be built from damaged data.
inline constexpr std::uint32_t kFileCorrupt = 1392;

class VolumeControl {
public:
    virtual ~VolumeControl() = default;

    // The name of the volume that holds `path`, ending in a separator that the caller cuts.
    virtual SystemError VolumeNameOf(const std::u16string& path, std::u16string& volume) = 0;
    // Opens the volume by the name that VolumeNameOf gave, less its separator.
    virtual SystemError Open(const std::u16string& volume, VolumeHandle& handle) = 0;
    virtual SystemError Close(VolumeHandle handle) = 0;
    // Issues control code `code` with `input`, leaving up to `outputSize` bytes in `output`
    // and their number in `returned`.
    virtual SystemError Control(VolumeHandle handle, std::uint32_t code, const void* input,
                                std::size_t inputSize, void* output, std::size_t outputSize,
                                std::size_t& returned) = 0;
};

// The implementation of this platform, for the life of the process.
VolumeControl& SystemVolumeControl();

}  // namespace Platform
