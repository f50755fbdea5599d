#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/file/dir_notification.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/file/usn_journal.h>

#include "file/change_notification.h"
#include "file/watched_dir.h"
#include "support/fake_change_notifications.h"

namespace {

using File::NotificationService;
using File::watched_dir;
using test_support::FakeChangeNotifications;

class Callback final : public File::dir_notification {
public:
    explicit Callback(std::function<void(File::i_dir&)> body) : body_(std::move(body)) {}
    void Notify(File::i_dir& dir) override { body_(dir); }

private:
    std::function<void(File::i_dir&)> body_;
};

struct CallbackRef {
    explicit CallbackRef(std::function<void(File::i_dir&)> body) : p(new Callback(std::move(body))) {}
    ~CallbackRef() { p->Release(); }
    Callback* p;
};

// Waits up to five seconds for `done`.
bool Eventually(const std::function<bool()>& done) {
    for (int i = 0; i < 5000; ++i) {
        if (done()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return done();
}

std::atomic<int> g_assertions{0};
void CountAssertion(const char*, const char*, int) {
    ++g_assertions;
}

std::u16string PathOf(File::i_dir& dir) {
    return dynamic_cast<watched_dir&>(dir).Path();
}

std::u16string Numbered(int i) {
    return u"/watched/" + Common::Utf8ToUtf16Lenient(std::to_string(i));
}

class ChangeNotificationTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_assertions = 0;
        previous_ = Common::SetAssertionObserver(&CountAssertion);
    }
    void TearDown() override {
        dirs.clear();
        // A callback still running when its watch was ended ends the thread on its return.
        EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 0; }));
        EXPECT_EQ(platform.OpenWatches(), 0u);
        EXPECT_EQ(platform.OpenEvents(), 0u);
        Common::SetAssertionObserver(previous_);
        EXPECT_EQ(g_assertions.load(), 0);
    }

    // Ends every watch and waits for the callbacks still running, before the locals that
    // they use go.
    void EndAll() {
        dirs.clear();
        EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 0; }));
    }

    watched_dir& Watch(const std::u16string& path, File::dir_notification* callback) {
        dirs.push_back(std::make_unique<watched_dir>(path, service));
        EXPECT_TRUE(dirs.back()->EnableNotification(callback)) << dirs.back()->GetError().Code();
        return *dirs.back();
    }

    FakeChangeNotifications platform;
    NotificationService service{platform};
    std::vector<std::unique_ptr<watched_dir>> dirs;
    Common::AssertionObserver previous_ = nullptr;
};

TEST_F(ChangeNotificationTest, BucketsOf63WatchesWithOneThreadEach) {
    CallbackRef nothing([](File::i_dir&) {});
    for (int i = 0; i < 63; ++i) {
        Watch(Numbered(i), nothing.p);
    }
    EXPECT_EQ(dirs[62]->NotificationToken(), 63u);  // slot 62 of the first bucket
    EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 1; }));

    Watch(Numbered(63), nothing.p);
    EXPECT_EQ(dirs[63]->NotificationToken(), 64u);  // slot 0 of the second
    EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 2; }));

    // A freed slot is taken again before a new bucket is begun.
    dirs[10]->EnableNotification(nullptr);
    EXPECT_EQ(dirs[10]->NotificationToken(), 0u);
    EXPECT_EQ(service.SlotHandle(11), 0);
    Watch(Numbered(64), nothing.p);
    EXPECT_EQ(dirs.back()->NotificationToken(), 11u);

    // The last watch of all ends every thread.
    dirs.clear();
    EXPECT_EQ(service.RunningThreads(), 0u);
}

TEST_F(ChangeNotificationTest, ChangesReachTheirOwnCallbacksUntilReArmed) {
    constexpr int kWatches = 200;
    std::mutex seen_lock;
    std::vector<int> seen(kWatches, 0);
    std::vector<CallbackRef> callbacks;
    callbacks.reserve(kWatches);
    for (int i = 0; i < kWatches; ++i) {
        callbacks.emplace_back([&, i](File::i_dir& dir) {
            EXPECT_EQ(PathOf(dir), Numbered(i));
            // A fresh object, bearing the watch's token for the call.
            EXPECT_NE(&dir, dirs[static_cast<std::size_t>(i)].get());
            EXPECT_EQ(dynamic_cast<watched_dir&>(dir).NotificationToken(),
                      dirs[static_cast<std::size_t>(i)]->NotificationToken());
            const std::lock_guard<std::mutex> hold(seen_lock);
            ++seen[static_cast<std::size_t>(i)];
        });
        Watch(Numbered(i), callbacks.back().p);
    }
    EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 4; }));

    const auto total = [&] {
        const std::lock_guard<std::mutex> hold(seen_lock);
        int sum = 0;
        for (int n : seen) {
            sum += n;
        }
        return sum;
    };
    for (int i = 0; i < kWatches; ++i) {
        platform.Change(Numbered(i));
    }
    EXPECT_TRUE(Eventually([&] { return total() == kWatches; }));

    // Not re-armed yet: a change is kept, not reported.
    platform.Change(Numbered(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(total(), kWatches);
    dirs[5]->ContinueNotification();
    EXPECT_TRUE(Eventually([&] { return total() == kWatches + 1; }));
    {
        const std::lock_guard<std::mutex> hold(seen_lock);
        for (int i = 0; i < kWatches; ++i) {
            EXPECT_EQ(seen[static_cast<std::size_t>(i)], i == 5 ? 2 : 1) << i;
        }
    }
    // After a callback its watch is still the original object's: ending that ends it.
    EXPECT_NE(dirs[5]->NotificationToken(), 0u);
    EXPECT_EQ(platform.OpenWatches(), static_cast<std::size_t>(kWatches));
    EndAll();
}

TEST_F(ChangeNotificationTest, CallbackMayReArmThroughItsOwnObject) {
    std::atomic<int> calls{0};
    CallbackRef again([&](File::i_dir& dir) {
        ++calls;
        dir.ContinueNotification();
    });
    Watch(u"/a", again.p);
    for (int i = 1; i <= 3; ++i) {
        platform.Change(u"/a");
        EXPECT_TRUE(Eventually([&] { return calls.load() == i; }));
    }
    EndAll();
}

TEST_F(ChangeNotificationTest, CallbackMayGiveTheWatchANewCallbackThroughItsObject) {
    std::atomic<int> second{0};
    CallbackRef next([&](File::i_dir& dir) {
        EXPECT_EQ(PathOf(dir), u"/a");
        ++second;
    });
    std::atomic<int> first{0};
    CallbackRef swap([&](File::i_dir& dir) {
        ++first;
        EXPECT_TRUE(dir.EnableNotification(next.p));
        dir.ContinueNotification();
    });
    watched_dir& watched = Watch(u"/a", swap.p);
    platform.Change(u"/a");
    ASSERT_TRUE(Eventually([&] { return first.load() == 1; }));
    // The object handed to the callback is gone; the watch is still that of the watched
    // object, which the next change is reported through.
    platform.Change(u"/a");
    EXPECT_TRUE(Eventually([&] { return second.load() == 1; }));
    EXPECT_EQ(first.load(), 1);
    EXPECT_NE(watched.NotificationToken(), 0u);
    EndAll();
}

TEST_F(ChangeNotificationTest, WatchRemovedInItsOwnCallbackHoldsItsSlotUntilItReturns) {
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
    Platform::ChangeHandle during = 0;
    CallbackRef remove([&](File::i_dir&) {
        dirs[0]->EnableNotification(nullptr);  // the watched object, from the bucket's thread
        during = service.SlotHandle(1);
        inside = true;
        while (!release) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    Watch(u"/a", remove.p);
    platform.Change(u"/a");
    ASSERT_TRUE(Eventually([&] { return inside.load(); }));
    EXPECT_EQ(during, -1);
    EXPECT_EQ(service.SlotHandle(1), -1);
    EXPECT_EQ(dirs[0]->NotificationToken(), 0u);
    EXPECT_EQ(platform.OpenWatches(), 0u);  // the system's watch is closed at once
    release = true;
    // On return the slot is freed; it was the last watch, so the thread ends itself.
    EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 0; }));
    EXPECT_EQ(service.SlotHandle(1), 0);
}

TEST_F(ChangeNotificationTest, TheOwnerEndsWhileTheCallbackThatEndedItsWatchStillRuns) {
    // A one-shot watch: its callback ends the watch through the object it was given and
    // tells another thread, which drops the watched directory (the last watch of all) while
    // the callback is still running. The thread is stopped and waited for, without deadlock.
    std::atomic<bool> ended{false};
    CallbackRef once([&](File::i_dir& dir) {
        dir.EnableNotification(nullptr);
        ended = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    });
    Watch(u"/a", once.p);
    platform.Change(u"/a");
    ASSERT_TRUE(Eventually([&] { return ended.load(); }));
    std::atomic<bool> dropped{false};
    std::thread owner([&] {
        dirs.clear();
        dropped = true;
    });
    if (!Eventually([&] { return dropped.load(); })) {
        ADD_FAILURE() << "dropping the directory waits for a thread that waits for it";
        std::abort();  // deadlocked: nothing else can end
    }
    owner.join();
    EXPECT_EQ(service.RunningThreads(), 0u);
}

TEST_F(ChangeNotificationTest, OtherThreadsChangeWatchesWhileCallbacksRun) {
    // A callback running on one bucket's thread while the test adds and removes watches of
    // the same bucket: the thread is paused for each change, without deadlock.
    std::atomic<int> calls{0};
    CallbackRef slow([&](File::i_dir& dir) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ++calls;
        dir.ContinueNotification();
    });
    Watch(u"/busy", slow.p);
    std::atomic<bool> done{false};
    std::thread changer([&] {
        while (!done) {
            platform.Change(u"/busy");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (calls.load() < 10 && std::chrono::steady_clock::now() < until) {
        auto extra = std::make_unique<watched_dir>(u"/extra", service);
        EXPECT_TRUE(extra->EnableNotification(slow.p));
        EXPECT_EQ(extra->NotificationToken(), 2u);
        extra->EnableNotification(slow.p);  // a new callback for the same watch
        EXPECT_EQ(extra->NotificationToken(), 2u);
    }
    done = true;
    changer.join();
    EXPECT_GE(calls.load(), 10);
    EndAll();
}

TEST_F(ChangeNotificationTest, FailedWatchesLeaveTheirReason) {
    CallbackRef nothing([](File::i_dir&) {});
    watched_dir pathless(u"", service);
    EXPECT_FALSE(pathless.EnableNotification(nothing.p));
    EXPECT_EQ(pathless.GetError().Code(), 0x40007u);
    EXPECT_EQ(pathless.GetError().Text(), u"Error occurred while opening the file.");
    // A null callback ends the watch and clears the error.
    EXPECT_TRUE(pathless.EnableNotification(nullptr));
    EXPECT_FALSE(pathless.Failed());

    watched_dir failing(u"/x", service);
    platform.FailNextWatch({1117, 5});
    EXPECT_FALSE(failing.EnableNotification(nothing.p));
    EXPECT_EQ(failing.GetError().Code(), 0x40007u);
    EXPECT_STREQ(failing.GetError().GetAnsi("function"), "FindFirstChangeNotificationW");
    EXPECT_EQ(failing.NotificationToken(), 0u);
    EXPECT_EQ(service.RunningThreads(), 0u);

    // Arguments that can't make a watch: the handle is closed and no token given.
    Platform::ChangeHandle handle = 0;
    ASSERT_FALSE(platform.Watch(u"/y", handle).Failed());
    EXPECT_EQ(service.UpdateNotification(0, handle, nullptr, nothing.p), 0u);
    EXPECT_EQ(platform.OpenWatches(), 0u);
    EXPECT_EQ(service.UpdateNotification(5, 0, &failing, nothing.p), 0u);  // a free slot
}

// The system's notifications: 70 directories take exactly two threads, and each change is
// reported for its own directory.
TEST(SystemChangeNotifications, SeventyDirectoriesTwoThreads) {
    NotificationService service(Platform::SystemChangeNotifications());
    char base[] = "/tmp/change_notification_testXXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    constexpr int kDirs = 70;
    std::mutex lock;
    std::vector<int> seen(kDirs, 0);
    std::vector<std::string> paths;
    std::vector<std::unique_ptr<watched_dir>> dirs;
    std::vector<std::unique_ptr<CallbackRef>> callbacks;
    for (int i = 0; i < kDirs; ++i) {
        paths.push_back(std::string(base) + "/" + std::to_string(i));
        ASSERT_EQ(mkdir(paths.back().c_str(), 0700), 0);
        const std::u16string path = Common::Utf8ToUtf16Lenient(paths.back());
        callbacks.push_back(std::make_unique<CallbackRef>([&, i, path](File::i_dir& dir) {
            EXPECT_EQ(PathOf(dir), path);
            const std::lock_guard<std::mutex> hold(lock);
            ++seen[static_cast<std::size_t>(i)];
        }));
        dirs.push_back(std::make_unique<watched_dir>(path, service));
        ASSERT_TRUE(dirs.back()->EnableNotification(callbacks.back()->p))
            << std::hex << dirs.back()->GetError().Code();
    }
    EXPECT_TRUE(Eventually([&] { return service.RunningThreads() == 2; }));
    for (int i = 0; i < kDirs; ++i) {
        const std::string file = paths[static_cast<std::size_t>(i)] + "/new";
        std::FILE* f = std::fopen(file.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fclose(f);
    }
    EXPECT_TRUE(Eventually([&] {
        const std::lock_guard<std::mutex> hold(lock);
        for (int n : seen) {
            if (n != 1) {
                return false;
            }
        }
        return true;
    }));
    dirs.clear();
    EXPECT_EQ(service.RunningThreads(), 0u);
    for (const std::string& p : paths) {
        std::remove((p + "/new").c_str());
        rmdir(p.c_str());
    }
    rmdir(base);
}

// A directory of the system opened for listing is watched the same way, and its callback
// receives an object for the same directory, which sees the new entry; the journal's
// commands reach the journal of its volume (none here: a clean failure, not "unsupported").
TEST(SystemDirectoryNotifications, OpenedDirectoriesAreWatchedAndServeJournalCommands) {
    char base[] = "/tmp/dir_notification_testXXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    Common::Error error;
    std::unique_ptr<File::rio_dir> dir =
        File::OpenSystemDir(Common::Utf8ToUtf16Lenient(base), error);
    ASSERT_TRUE(dir) << std::hex << error.Code();
    std::atomic<int> seen{0};
    std::atomic<bool> sawEntry{false};
    CallbackRef callback([&](File::i_dir& handed) {
        std::unique_ptr<File::i_dir::iterator> entry(handed.GetIterator(u"new"));
        if (entry && !entry->Failed()) {
            sawEntry = true;
        }
        ++seen;
    });
    ASSERT_TRUE(dir->EnableNotification(callback.p)) << std::hex << dir->GetError().Code();
    const std::string file = std::string(base) + "/new";
    std::FILE* f = std::fopen(file.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_TRUE(Eventually([&] { return seen.load() >= 1; }));
    EXPECT_TRUE(sawEntry.load());
    EXPECT_TRUE(dir->EnableNotification(nullptr));

    File::usn_journal_command journal;
    const bool served = dir->IOCTL(journal);
    EXPECT_NE(dir->GetError().Code(), 0x4000eu);
    EXPECT_EQ(served, dir->GetError().Succeeded());

    dir.reset();
    std::remove(file.c_str());
    rmdir(base);
}

// Names are the system's bytes: a directory whose name is not UTF-8 is watched as itself,
// and a file in it opens by the name its listing gives.
TEST(SystemDirectoryNotifications, NamesThatAreNotUtf8AreWatchedAndOpened) {
    char base[] = "/tmp/dir_notification_testXXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    const std::string odd = std::string(base) + "/bad\xff";
    ASSERT_EQ(mkdir(odd.c_str(), 0700), 0);
    const std::string oddFile = odd + "/f\xfe";
    std::FILE* f = std::fopen(oddFile.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);

    Common::Error error;
    std::unique_ptr<File::rio_dir> dir = File::OpenSystemDir(File::NativeNameToWide(odd), error);
    ASSERT_TRUE(dir) << std::hex << error.Code();
    CallbackRef nothing([](File::i_dir&) {});
    EXPECT_TRUE(dir->EnableNotification(nothing.p)) << std::hex << dir->GetError().Code();
    EXPECT_TRUE(dir->EnableNotification(nullptr));
    auto file = File::OpenSystemFile(File::NativeNameToWide(oddFile), File::open_mode::read, error);
    EXPECT_TRUE(file) << std::hex << error.Code();

    dir.reset();
    file.reset();
    std::remove(oddFile.c_str());
    rmdir(odd.c_str());
    rmdir(base);
}

}  // namespace
