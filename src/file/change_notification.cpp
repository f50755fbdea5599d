#include "file/change_notification.h"

#include <memory>
#include <new>
#include <thread>

#include <tessel_link/common/assert.h>
#include "common/thread.h"

#include "file/dir_watch.h"

namespace File {

namespace {

constexpr Platform::ChangeHandle kDeadHandle = -1;

}  // namespace

void dir_notification::Release() noexcept {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

dir_notification::~dir_notification() = default;

// Watches outlive no service: each holds the service of its directory object, which ends
// its watch first.
NotificationService::~NotificationService() = default;

NotificationService::Item* NotificationService::Find(std::uint32_t token, Bucket** bucket) {
    std::uint32_t index = (token - 1) / ITEMS_PER_BUCKET;
    Bucket* b = head_;
    while (b != nullptr && index != 0) {
        b = b->next;
        --index;
    }
    if (b == nullptr) {
        return nullptr;
    }
    *bucket = b;
    return &b->items[(token - 1) % ITEMS_PER_BUCKET];
}

void NotificationService::Pause(Bucket& bucket) {
    if (bucket.thread != 0 && Common::CurrentThreadId() != bucket.threadId) {
        platform_.SetEvent(bucket.wake);
        bucket.semaphore.Wait();
        platform_.ResetEvent(bucket.wake);
    }
}

bool NotificationService::Resume(Bucket& bucket) {
    if (bucket.thread != 0) {
        if (Common::CurrentThreadId() != bucket.threadId) {
            bucket.semaphore.Signal();
        }
        return true;
    }
    if (bucket.wake == 0 && platform_.CreateEvent(bucket.wake).Failed()) {
        bucket.wake = 0;
        return false;
    }
    bucket.thread = Common::BeginThread(0, &NotificationService::ThreadMain, &bucket, &bucket.threadId);
    return bucket.thread != 0;
}

std::uint32_t NotificationService::Add(Platform::ChangeHandle handle, i_dir* dir,
                                       dir_notification* notify) {
    TL_ASSERT_TEXT(handle != 0, "Handle != 0");
    TL_ASSERT_TEXT(dir != nullptr, "Dir != 0");
    TL_ASSERT_TEXT(notify != nullptr, "Notify != 0");

    std::uint32_t base = 0;
    Bucket** link = &head_;
    while (*link != nullptr && (*link)->ItemCount == ITEMS_PER_BUCKET) {
        link = &(*link)->next;
        base += ITEMS_PER_BUCKET;
    }
    if (*link == nullptr) {
        *link = new (std::nothrow) Bucket(*this);
        if (*link == nullptr) {
            platform_.Unwatch(handle);
            return 0;
        }
        (*link)->base = base;
    }
    Bucket& bucket = **link;
    TL_ASSERT_TEXT(bucket.ItemCount < ITEMS_PER_BUCKET, "ItemCount < ITEMS_PER_BUCKET");

    std::uint32_t slot = 0;
    while (slot < ITEMS_PER_BUCKET && bucket.items[slot].Handle != 0) {
        ++slot;
    }
    if (slot == ITEMS_PER_BUCKET) {
        TL_ASSERT(false);
        platform_.Unwatch(handle);
        return 0;
    }

    Pause(bucket);
    Item& item = bucket.items[slot];
    item.Handle = handle;
    item.Dir = dir;
    item.Notify = notify;
    notify->AddRef();
    item.RefCount = 1;
    item.Active = true;
    ++bucket.ItemCount;
    ++TotalItemCount;
    ++bucket.ActiveCount;
    if (!Resume(bucket)) {
        // No thread to serve the bucket: the watch can't be kept.
        item = Item{};
        --bucket.ItemCount;
        --TotalItemCount;
        --bucket.ActiveCount;
        notify->Release();
        platform_.Unwatch(handle);
        if (TotalItemCount == 0) {
            DestroyBuckets();
        }
        return 0;
    }
    return base + slot + 1;
}

void NotificationService::Remove(std::uint32_t token) {
    const std::uint32_t index = (token - 1) % ITEMS_PER_BUCKET;
    TL_ASSERT_TEXT(index < ITEMS_PER_BUCKET, "Index < ITEMS_PER_BUCKET");
    Bucket* bucket = nullptr;
    Item* item = Find(token, &bucket);
    if (item == nullptr || item->Handle == 0) {
        return;  // not a watch: nothing to end
    }
    Pause(*bucket);
    const bool wasActive = item->Active;
    if (item->Active) {
        TL_ASSERT_TEXT(bucket->ActiveCount != 0, "ActiveCount != 0");
        item->Active = false;
        --bucket->ActiveCount;
    }
    if (item->Handle != kDeadHandle) {
        platform_.Unwatch(item->Handle);
    }
    if (--item->RefCount == 0) {
        dir_notification* notify = item->Notify;
        *item = Item{};
        TL_ASSERT_TEXT(bucket->ItemCount != 0, "ItemCount != 0");
        TL_ASSERT_TEXT(TotalItemCount != 0, "TotalItemCount != 0");
        --bucket->ItemCount;
        --TotalItemCount;
        notify->Release();
    } else {
        item->Handle = kDeadHandle;  // its callback runs still and holds the slot
    }
    if (wasActive) {
        Resume(*bucket);
    } else if (bucket->thread != 0 && Common::CurrentThreadId() != bucket->threadId) {
        bucket->semaphore.Signal();  // paused all the same: let the thread go on
    }
}

std::uint32_t NotificationService::UpdateNotification(std::uint32_t token,
                                                      Platform::ChangeHandle handle, i_dir* dir,
                                                      dir_notification* notify) {
    const std::uint32_t result = UpdateLocked(token, handle, dir, notify);
    JoinStopped();
    return result;
}

std::uint32_t NotificationService::UpdateLocked(std::uint32_t token, Platform::ChangeHandle handle,
                                                i_dir* dir, dir_notification* notify) {
    const Common::ScopedLock<Common::RecursiveLock> hold(lock_);
    const bool complete = dir != nullptr && notify != nullptr;
    if (token == 0) {
        if (handle != 0 && complete) {
            return Add(handle, dir, notify);
        }
        if (handle != 0) {
            platform_.Unwatch(handle);
        }
        return 0;
    }
    if (handle == 0 && complete) {
        Bucket* bucket = nullptr;
        Item* item = Find(token, &bucket);
        if (item == nullptr || item->Handle == 0) {
            return 0;
        }
        Pause(*bucket);
        notify->AddRef();
        dir_notification* old = item->Notify;
        item->Dir = dir;
        item->Notify = notify;
        if (bucket->thread != 0 && Common::CurrentThreadId() != bucket->threadId) {
            bucket->semaphore.Signal();
        }
        old->Release();
        return token;
    }
    Remove(token);
    std::uint32_t added = 0;
    if (handle != 0) {
        added = complete ? Add(handle, dir, notify) : (platform_.Unwatch(handle), 0u);
    }
    if (TotalItemCount == 0 && head_ != nullptr) {
        DestroyBuckets();
    }
    return added;
}

void NotificationService::ContinueNotification(std::uint32_t token) {
    if (token == 0) {
        return;
    }
    const Common::ScopedLock<Common::RecursiveLock> hold(lock_);
    Bucket* bucket = nullptr;
    Item* item = Find(token, &bucket);
    if (item == nullptr || item->Handle == 0 || item->Handle == kDeadHandle || item->Active) {
        return;
    }
    Pause(*bucket);
    item->Active = true;
    ++bucket->ActiveCount;
    platform_.Rearm(item->Handle);
    Resume(*bucket);
}

void NotificationService::DestroyBuckets() {
    Bucket* bucket = head_;
    head_ = nullptr;
    while (bucket != nullptr) {
        Bucket* next = bucket->next;
        DestroyBucket(bucket);
        bucket = next;
    }
}

void NotificationService::DestroyBucket(Bucket* bucket) {
    TL_ASSERT_TEXT(bucket->ActiveCount == 0, "ActiveCount == 0");
    TL_ASSERT_TEXT(bucket->ItemCount == 0, "ItemCount == 0");
    if (bucket->thread == 0) {
        if (bucket->wake != 0) {
            platform_.CloseEvent(bucket->wake);
        }
        delete bucket;
        return;
    }
    Pause(*bucket);
    bucket->stop = true;
    const std::uintptr_t thread = bucket->thread;
    bucket->thread = 0;
    if (Common::CurrentThreadId() != bucket->threadId && lock_.RecursionCount() == 1) {
        // Joined once the lock is let go: the thread may be in a callback, after which it
        // takes the lock.
        bucket->semaphore.Signal();
        bucket->stoppedThread = thread;
        bucket->next = stopped_;
        stopped_ = bucket;
    } else {
        // Ended from its own callback, or from a frame inside one that holds the lock (the
        // end of another bucket's fresh directory): the thread finishes its turn and frees
        // the bucket.
        bucket->orphaned = true;
        if (Common::CurrentThreadId() != bucket->threadId) {
            bucket->semaphore.Signal();  // paused above
        }
        Common::DetachThread(thread);
    }
}

void NotificationService::JoinStopped() {
    Bucket* stopped = nullptr;
    {
        const Common::ScopedLock<Common::RecursiveLock> hold(lock_);
        if (lock_.RecursionCount() > 1 || stopped_ == nullptr) {
            return;
        }
        stopped = stopped_;
        stopped_ = nullptr;
    }
    while (stopped != nullptr) {
        Bucket* next = stopped->next;
        if (stopped->threadId == Common::CurrentThreadId()) {
            // Stopped by another thread while this one was in a callback, and taken here by
            // a call the callback made: the thread can't wait for itself. It finishes its
            // turn and frees the bucket, as when it ends its own last watch.
            stopped->orphaned = true;
            Common::DetachThread(stopped->stoppedThread);
        } else {
            Common::JoinThread(stopped->stoppedThread);
            delete stopped;
        }
        stopped = next;
    }
}

unsigned NotificationService::ThreadMain(void* arg) {
    Bucket& bucket = *static_cast<Bucket*>(arg);
    NotificationService& service = bucket.service;
    ++service.running_;
    service.Run(bucket);
    --service.running_;
    if (bucket.orphaned) {
        delete &bucket;
    }
    return 0;
}

void NotificationService::Run(Bucket& bucket) {
    bucket.semaphore.Wait();
    Platform::ChangeHandle handles[ITEMS_PER_BUCKET];
    std::uint32_t slots[ITEMS_PER_BUCKET];
    while (!bucket.stop) {
        std::size_t n = 0;
        for (std::uint32_t i = 0; i < ITEMS_PER_BUCKET; ++i) {
            if (bucket.items[i].Active) {
                slots[n] = i;
                handles[n++] = bucket.items[i].Handle;
            }
        }
        TL_ASSERT_TEXT(n == bucket.ActiveCount, "n == self.ActiveCount");

        std::size_t signalled = 0;
        const Platform::SystemError failure = platform_.WaitAny(bucket.wake, handles, n, signalled);
        if (!failure.Failed() && signalled != 0 && signalled <= n) {
            Item& item = bucket.items[slots[signalled - 1]];
            TL_ASSERT_TEXT(item.Active, "hmap[result]->Active");
            Deliver(bucket, item, slots[signalled - 1]);
        } else {
            // The wake event, or a wait that failed: let a pauser in, then look again.
            bucket.semaphore.Signal();
            std::this_thread::yield();
            bucket.semaphore.Wait();
        }
    }
    TL_ASSERT_TEXT(bucket.thread == 0, "Thread == 0");
    if (bucket.wake != 0) {
        platform_.CloseEvent(bucket.wake);
        bucket.wake = 0;
    }
}

void NotificationService::Deliver(Bucket& bucket, Item& item, std::uint32_t slot) {
    const std::uint32_t token = bucket.base + slot + 1;
    item.Active = false;
    --bucket.ActiveCount;
    dir_notification* notify = item.Notify;
    notify->AddRef();
    std::unique_ptr<i_dir> fresh(item.Dir->OpenDir(u"."));
    dir_watch* watch = dynamic_cast<dir_watch*>(fresh.get());
    if (watch == nullptr) {
        // No object to hand over: the watch rests until it is re-armed, rather than report
        // the same failure over and over.
        notify->Release();
        return;
    }
    watch->SetNotificationToken(token);
    i_dir* const owner = item.Dir;
    ++item.RefCount;
    bucket.semaphore.Signal();

    notify->Notify(*fresh);
    notify->Release();

    {
        const Common::ScopedLock<Common::RecursiveLock> hold(lock_);
        bucket.semaphore.Wait();
        if (watch->NotificationToken() == token && item.RefCount > 1) {
            --item.RefCount;
            watch->SetNotificationToken(0);  // so that its end doesn't end the watch
            if (item.Dir == fresh.get()) {
                item.Dir = owner;  // given a new callback through it: the watch stays the owner's
            }
        }
        fresh.reset();
    }
}

std::size_t NotificationService::RunningThreads() const noexcept {
    return running_.load();
}

Platform::ChangeHandle NotificationService::SlotHandle(std::uint32_t token) {
    const Common::ScopedLock<Common::RecursiveLock> hold(lock_);
    Bucket* bucket = nullptr;
    const Item* item = token == 0 ? nullptr : Find(token, &bucket);
    return item == nullptr ? 0 : item->Handle;
}

NotificationService& SystemNotifications() {
    static NotificationService* service =
        new NotificationService(Platform::SystemChangeNotifications());
    return *service;
}

}  // namespace File
