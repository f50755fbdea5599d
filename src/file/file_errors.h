#pragma once

// Codes of the file layer (module 0x0004) with the message-table rows of their texts.

#include <cstdint>

#include <tessel_link/common/error.h>

namespace File {

struct FileErrorCode {
    std::uint32_t Code;
    std::uint32_t Row;
};

inline constexpr FileErrorCode kReadFailed{0x40001,
                                           555};  // "Error occurred while reading the file."
inline constexpr FileErrorCode kEndOfFile{0x40002, 535};  // "The end of the file has been reached."
inline constexpr FileErrorCode kWriteFailed{0x40003,
                                            569};  // "Error occurred while writing to the file."
inline constexpr FileErrorCode kDiskFull{0x40004, 531};  // "The disk is full."
inline constexpr FileErrorCode kSeekFailed{0x40005,
                                           560};  // "Error occurred while searching in the file."
inline constexpr FileErrorCode kOutOfMemory{0x40006,
                                            552};  // "Not enough memory to complete the operation."
inline constexpr FileErrorCode kOpenFailed{0x40007,
                                           551};  // "Error occurred while opening the file."
inline constexpr FileErrorCode kDeleteFailed{0x40008,
                                             556};  // "Error occurred while deleting the file."
inline constexpr FileErrorCode kRenameFailed{0x40009,
                                             557};  // "Error occurred while renaming the file."
inline constexpr FileErrorCode kCreateFailed{0x4000a,
                                             528};  // "Error occurred while creating the file."
inline constexpr FileErrorCode kDriveNotReady{0x4000b, 549};  // "The drive is not ready."
inline constexpr FileErrorCode kReadOnly{0x4000c, 554};       // "The file is read-only."
inline constexpr FileErrorCode kCorrupted{0x4000d, 527};      // "The file is corrupted."
inline constexpr FileErrorCode kNotSupported{0x4000e, 564};   // "The operation is not supported."
inline constexpr FileErrorCode kCanceled{0x4000f, 525};       // "Canceled."
inline constexpr FileErrorCode kFileNotFound{0x40011, 547};  // "The specified file does not exist."
inline constexpr FileErrorCode kAlreadyExists{0x40013, 520};  // "The file (folder) already exists."
inline constexpr FileErrorCode kAccessDenied{0x40014, 519};   // "Access to the file is denied."
inline constexpr FileErrorCode kNetworkDown{0x40015, 545};    // "Network disconnected."
inline constexpr FileErrorCode kLockFailed{0x40017, 543};     // "Failed to lock the file."
inline constexpr FileErrorCode kInvalidHandle{0x40025, 540};  // "Invalid file handle."
inline constexpr FileErrorCode kPathNotFound{0x4002d,
                                             553};  // "The specified file path does not exist."

// A record of `code` with its text, made at `origin`.
Common::Error MakeFileError(const Common::ErrorOrigin& origin, FileErrorCode code);

}  // namespace File
