#pragma once

// One open handle of a backup or restore, owned, with every call on it made as the user the
// operation acts for.

#include <memory>
#include <string>

#include <tessel_link/file/file_object.h>
#include <tessel_link/file/token_substitution.h>

#include "file/system_error.h"
#include "platform/backup_source.h"

namespace File {

class BackupHandle final : public file_object {
public:
    BackupHandle(Platform::BackupSource& source, std::shared_ptr<SubstToken> impersonation)
        : source_(source), impersonation_(std::move(impersonation)) {}
    ~BackupHandle() override { Close(); }

    // Opens `path` (named `shown` in errors); a failure is recorded, with function
    // "CreateFileW".
    bool Init(const std::u16string& path, const std::u16string& shown, std::uint32_t access,
              Platform::FileDisposition disposition, std::uint32_t flags,
              std::uint32_t attributes) {
        Close();
        ClearError();
        Common::Error entered;
        TokenSubstitutionExecutor scope(impersonation_, entered);
        if (entered.Failed()) {
            SetError(entered);
            return false;
        }
        const Platform::SystemError failure =
            source_.Open(path, access, disposition, flags, attributes, handle_);
        if (failure.Failed()) {
            handle_ = Platform::kNoHandle;
            SetError(MakeSystemError(TL_ORIGIN("FileHandle::init"), "CreateFileW", shown.c_str(),
                                     failure, kOpenFailed));
            return false;
        }
        return true;
    }

    bool Valid() const noexcept { return handle_ != Platform::kNoHandle; }
    Platform::FileHandle Handle() const noexcept { return handle_; }
    // Drops a failure that the caller has dealt with.
    void Forget() noexcept { ClearError(); }

    void Close() {
        if (Valid()) {
            Common::Error entered;
            TokenSubstitutionExecutor scope(impersonation_, entered);
            (void)source_.Close(handle_);  // nothing is left to report when a handle goes
            handle_ = Platform::kNoHandle;
        }
    }

    // The calls on the handle, each in the user's scope; a scope that cannot be entered
    // answers access denied.
    template <typename Call>
    Platform::SystemError Scoped(Call&& call) {
        Common::Error entered;
        TokenSubstitutionExecutor scope(impersonation_, entered);
        if (entered.Failed()) {
            return Platform::SystemError{Platform::kErrorBackupAccessDenied, 0};
        }
        return call();
    }
    Platform::SystemError ReparseTag(std::uint32_t& tag) {
        return Scoped([&] { return source_.ReparseTag(handle_, tag); });
    }
    Platform::SystemError Info(Platform::BackupFileInfo& info) {
        return Scoped([&] { return source_.HandleInfo(handle_, info); });
    }
    Platform::SystemError ReadFile(void* buffer, std::size_t count, std::size_t& read) {
        return Scoped([&] { return source_.ReadFile(handle_, buffer, count, read); });
    }
    Platform::SystemError WriteFile(const void* buffer, std::size_t count, std::size_t& written) {
        return Scoped([&] { return source_.WriteFile(handle_, buffer, count, written); });
    }

private:
    Platform::BackupSource& source_;
    std::shared_ptr<SubstToken> impersonation_;
    Platform::FileHandle handle_ = Platform::kNoHandle;
};

}  // namespace File
