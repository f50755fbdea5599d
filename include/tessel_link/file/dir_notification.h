#pragma once

// Change notification of directories: a directory object's EnableNotification takes a
// callback, which the notification service calls once for every change, until the watch is
// re-armed with ContinueNotification.

#include <atomic>
#include <cstdint>

#include <tessel_link/export.h>
#include <tessel_link/file/dir_object.h>

namespace File {

// The callback of a watch, shared by reference count between its creator and the watches
// that hold it: it is made with one reference, which its creator gives back with Release.
class TL_API dir_notification {
public:
    dir_notification() = default;
    dir_notification(const dir_notification&) = delete;
    dir_notification& operator=(const dir_notification&) = delete;

    // Takes one more reference.
    void AddRef() noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
    // Destroys the callback with the last reference.
    void Release() noexcept;

    // Called on the service's thread, with no lock of the service held, with a fresh object
    // for the watched directory (owned by the service, alive for the call). The watch is
    // quiet until ContinueNotification is called on this object or on the one watched; the
    // watch may also be ended from here, with EnableNotification(nullptr).
    virtual void Notify(i_dir& dir) = 0;

protected:
    virtual ~dir_notification();

private:
    std::atomic<std::uint32_t> refs_{1};
};

}  // namespace File
