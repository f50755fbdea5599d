#include "file/dir_watch.h"

#include "file/change_notification.h"
#include "file/file_errors.h"
#include "file/system_error.h"

namespace File {

dir_watch::~dir_watch() {
    if (token_ != 0) {
        try {
            service_->UpdateNotification(token_, 0, nullptr, nullptr);
        } catch (const Common::Error&) {
            // A semaphore that fails in a destructor leaves nothing to report to.
        }
    }
}

Common::Error dir_watch::EnableWatch(i_dir& self, const std::u16string& path,
                                     dir_notification* callback) {
    try {
        if (callback == nullptr) {
            const std::uint32_t token = token_;
            token_ = 0;
            if (token != 0) {
                service_->UpdateNotification(token, 0, nullptr, nullptr);
            }
            return Common::ErrorSuccess;
        }
        if (token_ != 0) {
            token_ = service_->UpdateNotification(token_, 0, &self, callback);
            if (token_ != 0) {
                return Common::ErrorSuccess;
            }
        }
        if (path.empty()) {
            return MakeFileError(TL_ORIGIN("dir_watch::EnableWatch"), kOpenFailed);
        }
        Platform::ChangeHandle handle = 0;
        const Platform::SystemError failure = service_->Platform().Watch(path, handle);
        if (failure.Failed()) {
            return MakeSystemError(TL_ORIGIN("dir_watch::EnableWatch"),
                                   "FindFirstChangeNotificationW", path.c_str(), failure,
                                   kOpenFailed);
        }
        token_ = service_->UpdateNotification(0, handle, &self, callback);
        if (token_ == 0) {
            return MakeFileError(TL_ORIGIN("dir_watch::EnableWatch"), kOutOfMemory);
        }
        return Common::ErrorSuccess;
    } catch (const Common::Error& error) {
        return error;
    }
}

void dir_watch::ContinueWatch() {
    service_->ContinueNotification(token_);
}

}  // namespace File
