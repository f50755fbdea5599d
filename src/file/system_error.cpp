#include "file/system_error.h"

#include <tessel_link/common/messages.h>

namespace File {

namespace {

struct Translation {
    std::uint32_t SystemCode;
    FileErrorCode FileCode;
};

constexpr Translation kTranslations[] = {
    {18, kEndOfFile},      {38, kEndOfFile},      {39, kDiskFull},       {112, kDiskFull},
    {8, kOutOfMemory},     {123, kRenameFailed},  {21, kDriveNotReady},  {19, kReadOnly},
    {1, kNotSupported},    {50, kNotSupported},   {1005, kNotSupported}, {1223, kCanceled},
    {2, kFileNotFound},    {183, kAlreadyExists}, {5, kAccessDenied},    {86, kAccessDenied},
    {1219, kAccessDenied}, {1326, kAccessDenied}, {1330, kAccessDenied}, {1331, kAccessDenied},
    {53, kNetworkDown},    {67, kNetworkDown},    {1203, kNetworkDown},  {1231, kNetworkDown},
    {1232, kNetworkDown},  {32, kLockFailed},     {33, kLockFailed},     {3, kPathNotFound},
};

// The system records beneath the function record: the Windows code, and the native code
// beneath that when the platform has one of its own. The native record has a code of its
// own, so that the deepest record of the chain says what it is rather than repeating the
// head's code.
Common::Error SystemCause(const Common::ErrorOrigin& origin, const Platform::SystemError& failure) {
    Common::Error cause;
    if (failure.Windows != 0) {
        cause.AddWindowsError(static_cast<int>(failure.Windows));
    }
    if (failure.Native != 0) {
        const Common::Error native = Common::Error::Errno(origin, Common::Error::kErrnoCode, failure.Native);
        if (cause.Empty()) {
            cause = native;
        } else {
            cause.AddCause(native);
        }
    }
    return cause;
}

FileErrorCode Choose(const Platform::SystemError& failure, FileErrorCode fallback) {
    const auto translated = TranslateSystemCode(failure.Windows);
    return translated ? *translated : fallback;
}

}  // namespace

std::optional<FileErrorCode> TranslateSystemCode(std::uint32_t code) noexcept {
    if ((code & 0x80000000u) != 0 && ((code >> 16) & 0x1fffu) == 7) {
        code &= 0xffffu;
    }
    for (const Translation& t : kTranslations) {
        if (t.SystemCode == code) {
            return t.FileCode;
        }
    }
    return std::nullopt;
}

Common::Error MakeSystemError(const Common::ErrorOrigin& origin, const char* function,
                              const Platform::SystemError& failure, FileErrorCode fallback) {
    const FileErrorCode code = Choose(failure, fallback);
    Common::Error error =
        Common::Error::WithFunction(origin, code.Code, Common::GetMessageRow(code.Row), function);
    error.AddCause(SystemCause(origin, failure));
    return error;
}

Common::Error MakeSystemError(const Common::ErrorOrigin& origin, const char* function,
                              const char16_t* path, const Platform::SystemError& failure,
                              FileErrorCode fallback) {
    const FileErrorCode code = Choose(failure, fallback);
    Common::Error error = Common::Error::WithFunctionAndPath(
        origin, code.Code, Common::GetMessageRow(code.Row), function, path);
    error.AddCause(SystemCause(origin, failure));
    return error;
}

}  // namespace File

namespace File {

Common::Error MakeFixedSystemError(const Common::ErrorOrigin& origin, const char* function,
                                   const char16_t* path, const Platform::SystemError& failure,
                                   FileErrorCode code) {
    Common::Error error = Common::Error::WithFunctionAndPath(
        origin, code.Code, Common::GetMessageRow(code.Row), function, path);
    error.AddCause(SystemCause(origin, failure));
    return error;
}

Platform::SystemError SystemReasonOf(const Common::Error& error) {
    Platform::SystemError reason;
    for (const Common::Error& record : error.Chain()) {
        const std::uint32_t code = record.Code();
        const auto value = static_cast<std::uint32_t>(record.GetNumber("code"));
        if (reason.Windows == 0 && code == Common::Error::kSystemCode &&
            (value & 0xffff0000u) == 0x80070000u) {
            reason.Windows = value & 0xffffu;
        } else if (reason.Native == 0 && code == Common::Error::kErrnoCode) {
            if (const auto errnum = record.Parameter("Errno")) {
                reason.Native = static_cast<int>(errnum->Number);
            }
        }
    }
    return reason;
}

}  // namespace File
