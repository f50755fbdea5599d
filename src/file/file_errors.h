#pragma once

// Codes of the file layer (module 0x0004) with the message-table rows of their texts.

#include <cstdint>

#include <tessel_link/common/error.h>

namespace File {

struct FileErrorCode {
    std::uint32_t Code;
    std::uint32_t Row;
};

inline constexpr FileErrorCode kReadFailed{0x40001, 540};       // "Error occurred while reading the file."
inline constexpr FileErrorCode kEndOfFile{0x40002, 520};        // "The end of the file has been reached."
inline constexpr FileErrorCode kWriteFailed{0x40003, 554};      // "Error occurred while writing to the file."
inline constexpr FileErrorCode kDiskFull{0x40004, 516};         // "The disk is full."
inline constexpr FileErrorCode kSeekFailed{0x40005, 545};       // "Error occurred while searching in the file."
inline constexpr FileErrorCode kOutOfMemory{0x40006, 537};      // "Not enough memory to complete the operation."
inline constexpr FileErrorCode kOpenFailed{0x40007, 536};       // "Error occurred while opening the file."
inline constexpr FileErrorCode kDeleteFailed{0x40008, 541};     // "Error occurred while deleting the file."
inline constexpr FileErrorCode kRenameFailed{0x40009, 542};     // "Error occurred while renaming the file."
inline constexpr FileErrorCode kCreateFailed{0x4000a, 513};     // "Error occurred while creating the file."
inline constexpr FileErrorCode kDriveNotReady{0x4000b, 534};    // "The drive is not ready."
inline constexpr FileErrorCode kReadOnly{0x4000c, 539};         // "The file is read-only."
inline constexpr FileErrorCode kCorrupted{0x4000d, 512};        // "The file is corrupted."
inline constexpr FileErrorCode kNotSupported{0x4000e, 549};     // "The operation is not supported."
inline constexpr FileErrorCode kCanceled{0x4000f, 510};         // "Canceled."
inline constexpr FileErrorCode kFileNotFound{0x40011, 532};     // "The specified file does not exist."
inline constexpr FileErrorCode kAlreadyExists{0x40013, 505};    // "The file (folder) already exists."
inline constexpr FileErrorCode kAccessDenied{0x40014, 504};     // "Access to the file is denied."
inline constexpr FileErrorCode kNetworkDown{0x40015, 530};      // "Network disconnected."
inline constexpr FileErrorCode kLockFailed{0x40017, 528};       // "Failed to lock the file."
inline constexpr FileErrorCode kInvalidHandle{0x40025, 525};    // "Invalid file handle."
inline constexpr FileErrorCode kPathNotFound{0x4002d, 538};     // "The specified file path does not exist."

// A record of `code` with its text, made at `origin`.
Common::Error MakeFileError(const Common::ErrorOrigin& origin, FileErrorCode code);

}  // namespace File
