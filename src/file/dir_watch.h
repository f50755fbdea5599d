#pragma once

// The watch of a directory object: a directory that can be watched derives from dir_watch
// besides its directory class, and its EnableNotification and ContinueNotification hand
// over to EnableWatch and ContinueWatch. The object's destruction ends its watch.

#include <cstdint>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/file/dir_notification.h>

namespace File {

class NotificationService;

class dir_watch {
public:
    explicit dir_watch(NotificationService& service) noexcept : service_(&service) {}
    virtual ~dir_watch();
    dir_watch(const dir_watch&) = delete;
    dir_watch& operator=(const dir_watch&) = delete;

    // Starts watching `path` for `self` with `callback`, gives a watch already running the
    // new callback, or, with a null callback, ends the watch. Returns the reason of a
    // failure: 0x40007 when the directory has no path or can't be watched.
    Common::Error EnableWatch(i_dir& self, const std::u16string& path, dir_notification* callback);
    void ContinueWatch();

    // The service's token of this object's watch, 0 for none.
    std::uint32_t NotificationToken() const noexcept { return token_; }
    void SetNotificationToken(std::uint32_t token) noexcept { token_ = token; }
    NotificationService& Service() const noexcept { return *service_; }

private:
    NotificationService* service_;
    std::uint32_t token_ = 0;
};

}  // namespace File
