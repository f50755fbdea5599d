#pragma once

// A directory known by its path alone: it can be watched for changes and serves the change
// journal's commands for its volume. Entries can't be listed or opened through it.

#include <string>

#include <tessel_link/file/dir_object.h>

#include "file/dir_watch.h"

namespace File {

class watched_dir final : public i_dir, public dir_watch {
public:
    explicit watched_dir(std::u16string path, NotificationService& service);
    ~watched_dir() override;

    const std::u16string& Path() const noexcept { return path_; }

    // ".": another object for the same directory, as the notification service hands to a
    // callback. Nothing else can be opened.
    i_dir* OpenDir(const char16_t* name) override;
    bool EnableNotification(dir_notification* callback) override;
    void ContinueNotification() override;
    // USNJ and FREI.
    bool IOCTL(ioctl_command& command) override;

    i_file* OpenI(const file_identifier& id) override;
    i_file* OpenI(iterator& position) override;
    i_file* OpenI(const char16_t* name, std::uint32_t flags) override;
    i_dir* OpenDir(const file_identifier& id) override;
    i_dir* OpenDir(iterator& position) override;
    i_dir* OpenPath(const char16_t*& path) override;
    iterator* GetIterator(const file_identifier& id) override;
    iterator* GetIterator(const char16_t* name) override;
    iterator* GetIterator() override;
    iterator* GetSelfIterator() override;
    int Compare(i_dir& other) override;
    int Compare(const file_identifier& a, const file_identifier& b) override;

private:
    std::u16string path_;
};

}  // namespace File
