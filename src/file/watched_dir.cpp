#include "file/watched_dir.h"

#include <new>

#include <tessel_link/file/usn_journal.h>

#include "file/file_errors.h"

namespace File {

watched_dir::watched_dir(std::u16string path, NotificationService& service)
    : dir_watch(service), path_(std::move(path)) {}

i_dir* watched_dir::OpenDir(const char16_t* name) {
    if (Failed()) {
        return nullptr;
    }
    if (name == nullptr || std::u16string_view(name) != u".") {
        RecordNotSupported(TL_ORIGIN("watched_dir::OpenDir"));
        return nullptr;
    }
    i_dir* self = new (std::nothrow) watched_dir(path_, Service());
    if (self == nullptr) {
        RecordError(MakeFileError(TL_ORIGIN("watched_dir::OpenDir"), kOutOfMemory));
    }
    return self;
}

watched_dir::~watched_dir() {
    // The watch ends before the path goes, so that no delivery meets a half-destroyed object.
    if (NotificationToken() != 0) {
        (void)EnableWatch(*this, path_, nullptr);
    }
}

bool watched_dir::EnableNotification(dir_notification* callback) {
    const Common::Error error = EnableWatch(*this, path_, callback);
    if (callback == nullptr) {
        ClearError();
    }
    if (error.Failed()) {
        SetError(error);
        return false;
    }
    return true;
}

void watched_dir::ContinueNotification() {
    ContinueWatch();
}

bool watched_dir::IOCTL(ioctl_command& command) {
    Common::Error error;
    if (HandleJournalCommand(command, path_, error)) {
        if (error.Failed()) {
            SetError(error);
            return false;
        }
        return true;
    }
    return i_dir::IOCTL(command);
}

// Entries are not reached through this object.
i_file* watched_dir::OpenI(const file_identifier&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenI"));
    return nullptr;
}
i_file* watched_dir::OpenI(iterator&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenI"));
    return nullptr;
}
i_file* watched_dir::OpenI(const char16_t*, std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenI"));
    return nullptr;
}
i_dir* watched_dir::OpenDir(const file_identifier&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenDir"));
    return nullptr;
}
i_dir* watched_dir::OpenDir(iterator&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenDir"));
    return nullptr;
}
i_dir* watched_dir::OpenPath(const char16_t*&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::OpenPath"));
    return nullptr;
}
i_dir::iterator* watched_dir::GetIterator(const file_identifier&) {
    RecordNotSupported(TL_ORIGIN("watched_dir::GetIterator"));
    return nullptr;
}
i_dir::iterator* watched_dir::GetIterator(const char16_t*) {
    RecordNotSupported(TL_ORIGIN("watched_dir::GetIterator"));
    return nullptr;
}
i_dir::iterator* watched_dir::GetIterator() {
    RecordNotSupported(TL_ORIGIN("watched_dir::GetIterator"));
    return nullptr;
}
i_dir::iterator* watched_dir::GetSelfIterator() {
    RecordNotSupported(TL_ORIGIN("watched_dir::GetSelfIterator"));
    return nullptr;
}
int watched_dir::Compare(i_dir& other) {
    if (&other == this) {
        return 0;
    }
    const auto* same = dynamic_cast<const watched_dir*>(&other);
    return same != nullptr && same->path_ == path_ ? 0 : 2;
}
int watched_dir::Compare(const file_identifier& a, const file_identifier& b) {
    return &a == &b ? 0 : 1;
}

}  // namespace File
