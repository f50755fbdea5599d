#pragma once

// The change-notification service: any number of watches for a fixed cost of threads.
// Watches are kept in buckets of 63, each with one thread that waits for its wake event and
// its armed watches together; 63 is what one wait of the system can take besides the event.
//
// A watch is known by its token: bucket number * 63 + slot + 1, 0 for none. A slot is free
// (handle 0), armed, waiting for its callback to re-arm it, or, when removed while its
// callback still runs, dead (handle -1) until that callback has returned.
//
// Locks: the global lock, then a bucket's semaphore. A bucket's thread holds its semaphore
// except while a callback runs; anyone else changes the bucket holding both, after pausing
// the thread with the wake event. Calls made by the callback on its own bucket's thread
// skip the pause.

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/recursive_lock.h"
#include "common/semaphore.h"
#include <tessel_link/file/dir_notification.h>

#include "platform/change_notifications.h"

namespace File {

inline constexpr std::uint32_t ITEMS_PER_BUCKET = 63;

class dir_watch;

class NotificationService {
public:
    explicit NotificationService(Platform::ChangeNotifications& platform) : platform_(platform) {}
    ~NotificationService();
    NotificationService(const NotificationService&) = delete;
    NotificationService& operator=(const NotificationService&) = delete;

    Platform::ChangeNotifications& Platform() noexcept { return platform_; }

    // The one entry of all changes, by its arguments:
    // - token 0 with `handle`, `dir` and `notify`: adds a watch and returns its token;
    // - a token with no handle but `dir` and `notify`: gives the watch that directory and
    //   callback, and returns the token, or 0 when the slot is free;
    // - a token otherwise: removes the watch, then adds one when `handle` is given; the last
    //   watch of all takes the buckets and their threads with it.
    // A handle that can't be used is closed, and 0 returned. `dir` must be a dir_watch too.
    std::uint32_t UpdateNotification(std::uint32_t token, Platform::ChangeHandle handle,
                                     i_dir* dir, dir_notification* notify);
    // Re-arms the watch after its callback.
    void ContinueNotification(std::uint32_t token);

    // What tests look at: the threads running now, and the handle of a slot (0 free, -1
    // dead, else the watch).
    std::size_t RunningThreads() const noexcept;
    Platform::ChangeHandle SlotHandle(std::uint32_t token);

private:
    struct Item {
        bool Active = false;
        Platform::ChangeHandle Handle = 0;
        i_dir* Dir = nullptr;
        dir_notification* Notify = nullptr;
        std::uint32_t RefCount = 0;
    };

    struct Bucket {
        explicit Bucket(NotificationService& owner) : service(owner) {}
        NotificationService& service;
        Bucket* next = nullptr;
        // Tokens of this bucket start after this; buckets go only all at once, so it stays.
        std::uint32_t base = 0;
        std::uint32_t ItemCount = 0;
        std::uint32_t ActiveCount = 0;
        Item items[ITEMS_PER_BUCKET];
        Common::Semaphore semaphore{1};
        Platform::ChangeHandle wake = 0;
        std::uintptr_t thread = 0;
        std::uint32_t threadId = 0;
        bool stop = false;
        // Set when the bucket was destroyed from its own thread, which then frees it.
        bool orphaned = false;
        // A bucket told to stop waits here for its thread to be joined.
        std::uintptr_t stoppedThread = 0;
    };

    std::uint32_t UpdateLocked(std::uint32_t token, Platform::ChangeHandle handle, i_dir* dir,
                               dir_notification* notify);
    std::uint32_t Add(Platform::ChangeHandle handle, i_dir* dir, dir_notification* notify);
    void Remove(std::uint32_t token);
    Item* Find(std::uint32_t token, Bucket** bucket);
    void Pause(Bucket& bucket);
    bool Resume(Bucket& bucket);
    void DestroyBuckets();
    void DestroyBucket(Bucket* bucket);
    // Joins the threads of the buckets told to stop, and frees them: outside the lock, since a
    // thread may need it to finish the callback it is in. Called where an entry point lets
    // the lock go; a nested call leaves them to the outer one.
    void JoinStopped();

    static unsigned ThreadMain(void* arg);
    void Run(Bucket& bucket);
    void Deliver(Bucket& bucket, Item& item, std::uint32_t token);

    Platform::ChangeNotifications& platform_;
    mutable Common::RecursiveLock lock_;
    Bucket* head_ = nullptr;
    Bucket* stopped_ = nullptr;  // linked by `next`
    std::uint32_t TotalItemCount = 0;
    std::atomic<std::size_t> running_{0};
};

// The service of the process, on the system's notifications.
NotificationService& SystemNotifications();

}  // namespace File
