#include <tessel_link/common/assert.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include "common/mutex.h"
#include "common/random.h"
#include "common/recursive_lock.h"
#include "common/semaphore.h"
#include "common/thread.h"
#include "common/tls.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/random_source.h"

namespace {

// The expressions of the assertions reported while an instance lives.
class AssertionLog {
public:
    AssertionLog() {
        seen().clear();
        previous_ = Common::SetAssertionObserver(
            [](const char* expression, const char*, int) { seen().push_back(expression); });
    }
    ~AssertionLog() { Common::SetAssertionObserver(previous_); }
    static std::vector<std::string>& seen() {
        static std::vector<std::string> expressions;
        return expressions;
    }

private:
    Common::AssertionObserver previous_;
};

TEST(Guid, TextFormAndParsing) {
    Common::Guid g;
    g.Data1 = 0x0123abcd;
    g.Data2 = 0x0a0b;
    g.Data3 = 0x4c0d;
    const std::uint8_t tail[8] = {0x8e, 0x0f, 0x10, 0x11, 0x12, 0x13, 0x14, 0xff};
    std::memcpy(g.Data4, tail, 8);
    EXPECT_EQ(Common::ToString(g), "0123ABCD-0A0B-4C0D-8E0F-1011121314FF");

    Common::Guid parsed;
    EXPECT_TRUE(Common::FromString("0123abcd-0a0b-4c0d-8e0f-1011121314ff", parsed));
    EXPECT_EQ(parsed, g);
    Common::Guid untouched;
    EXPECT_FALSE(Common::FromString("{0123ABCD-0A0B-4C0D-8E0F-1011121314FF}", untouched));
    EXPECT_FALSE(Common::FromString("0123ABCD-0A0B-4C0D-8E0F-1011121314", untouched));
    EXPECT_TRUE(untouched.IsNull());
    EXPECT_FALSE(Common::FromString("0123ABCD-0A0B-4C0D-8E0F-10111213G4FF", untouched));
    EXPECT_TRUE(untouched.IsNull());
    // What the usual form leaves aside reads as the general form reads it: blanks before
    // it, text behind it, and fields with fewer digits.
    for (const char* text : {" 0123ABCD-0A0B-4C0D-8E0F-1011121314FF", "0123ABCD-0A0B-4C0D-8E0F-1011121314FF}",
                             "123ABCD-A0B-4C0D-8E0F-1011121314FF"}) {
        parsed = Common::Guid();
        EXPECT_TRUE(Common::FromString(text, parsed)) << text;
        EXPECT_EQ(parsed.Data4[7], 0xff) << text;
        EXPECT_EQ(parsed.Data1, g.Data1 & 0x0fffffff) << text;
    }

    AssertionLog log;
    EXPECT_FALSE(Common::FromString(nullptr, untouched));
    EXPECT_EQ(AssertionLog::seen(), std::vector<std::string>{"text != nullptr"});
}

TEST(Guid, CreateMakesVersionFourIdentifiers) {
    Common::Guid a, b;
    ASSERT_TRUE(Common::Create(a));
    ASSERT_TRUE(Common::Create(b));
    EXPECT_NE(a, b);
    EXPECT_EQ(a.Data3 >> 12, 4);
    EXPECT_EQ(a.Data4[0] & 0xc0, 0x80);
    EXPECT_EQ(Common::ToString(a)[14], '4');

    AssertionLog log;
    EXPECT_FALSE(Common::Create(a, 1));
    EXPECT_EQ(AssertionLog::seen(), std::vector<std::string>{"false"});
}

TEST(Random, FillsTheWholeBuffer) {
    // 64 zero bytes in a row from a working source would be a fault, not chance.
    unsigned char bytes[64] = {};
    ASSERT_TRUE(Common::GetRandomBytes(bytes, sizeof bytes, true));
    int zeros = 0;
    for (unsigned char b : bytes) {
        zeros += b == 0 ? 1 : 0;
    }
    EXPECT_LT(zeros, 16);
}

TEST(Random, FailingSourceAssertsAndFallsBackUnlessStrict) {
    AssertionLog log;
    const Platform::RandomSource previous =
        Platform::SetRandomSource([](void*, std::size_t) { return false; });
    unsigned char bytes[256] = {};
    EXPECT_FALSE(Common::GetRandomBytes(bytes, sizeof bytes, true));
    EXPECT_TRUE(Common::GetRandomBytes(bytes, sizeof bytes, false));
    Platform::SetRandomSource(previous);
    EXPECT_EQ(AssertionLog::seen(), std::vector<std::string>(2, "false"));
    int zeros = 0;
    for (unsigned char b : bytes) {
        zeros += b == 0 ? 1 : 0;
    }
    EXPECT_LT(zeros, 32);  // filled from the fallback generator
}

TEST(RecursiveLock, OwnerReentersAndOthersWait) {
    Common::RecursiveLock lock;
    lock.Lock();
    lock.Lock();
    EXPECT_EQ(lock.Owner(), Common::CurrentThreadId());
    EXPECT_EQ(lock.RecursionCount(), 2u);

    struct Probe {
        Common::RecursiveLock* lock;
        bool gotIt;
    } probe{&lock, true};
    const auto tryFromOtherThread = [](void* p) -> unsigned {
        auto* probe = static_cast<Probe*>(p);
        probe->gotIt = probe->lock->TryLock();
        // Not the owner: unlocking is refused.
        return probe->lock->Unlock() ? 1 : 0;
    };
    std::uintptr_t t = Common::BeginThread(0, tryFromOtherThread, &probe);
    ASSERT_NE(t, 0u);
    EXPECT_EQ(Common::JoinThread(t), 0u);
    EXPECT_FALSE(probe.gotIt);

    EXPECT_TRUE(lock.Unlock());
    EXPECT_EQ(lock.Owner(), Common::CurrentThreadId());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_EQ(lock.Owner(), 0u);
    EXPECT_FALSE(lock.Unlock());
}

struct Counter {
    Common::RecursiveLock lock;
    long value = 0;
};

unsigned CountUnderLock(void* p) {
    auto* counter = static_cast<Counter*>(p);
    for (int i = 0; i < 20000; ++i) {
        Common::ScopedLock<Common::RecursiveLock> hold(counter->lock);
        Common::ScopedLock<Common::RecursiveLock> again(counter->lock);
        counter->value = counter->value + 1;
    }
    return 0;
}

TEST(RecursiveLock, ExcludesUnderContention) {
    Counter counter;
    std::vector<std::uintptr_t> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(Common::BeginThread(0, CountUnderLock, &counter));
        ASSERT_NE(threads.back(), 0u);
    }
    for (std::uintptr_t t : threads) {
        Common::JoinThread(t);
    }
    EXPECT_EQ(counter.value, 80000);
    EXPECT_EQ(counter.lock.Owner(), 0u);
}

TEST(Mutex, OwnerChecksAreAssertions) {
    AssertionLog log;
    Common::Mutex mutex;
    mutex.Lock();
    const auto unlockElsewhere = [](void* m) -> unsigned {
        static_cast<Common::Mutex*>(m)->Unlock();
        return 0;
    };
    Common::JoinThread(Common::BeginThread(0, unlockElsewhere, &mutex));
    ASSERT_EQ(AssertionLog::seen().size(), 1u);
    EXPECT_EQ(AssertionLog::seen()[0],
              "*reinterpret_cast<DWORD*>(&MUTEX_DATA.OwningThread) == GetCurrentThreadId() || "
              "(GetVersion() & 0x80000000)");
    {
        // The foreign unlock changed nothing: the owner still holds the mutex.
        Common::MutexLock again(mutex);
    }
    {
        Common::Mutex held;
        held.Lock();
    }
    ASSERT_EQ(AssertionLog::seen().size(), 2u);
    EXPECT_EQ(AssertionLog::seen()[1], "MUTEX_DATA.OwningThread == 0 || (GetVersion() & 0x80000000)");
    mutex.Unlock();
    EXPECT_EQ(AssertionLog::seen().size(), 2u);
}

TEST(Semaphore, CountsAcrossThreads) {
    Common::Semaphore ready(0);
    const auto signalTwice = [](void* s) -> unsigned {
        static_cast<Common::Semaphore*>(s)->Signal();
        static_cast<Common::Semaphore*>(s)->Signal();
        return 0;
    };
    std::uintptr_t t = Common::BeginThread(0, signalTwice, &ready);
    ready.Wait();
    ready.Wait();
    Common::JoinThread(t);
}

// The call's code, the function in the origin, and the system's errno as the cause.
void ExpectSemaphoreError(const Common::Error& e, std::uint32_t code, const char* func,
                          int errnum) {
    EXPECT_EQ(e.Code(), code);
    EXPECT_STREQ(e.GetNames(), "$module");
    EXPECT_STREQ(e.Origin().Func, func);
    EXPECT_STREQ(e.Cause().GetNames(), "Errno,$module");
    EXPECT_EQ(e.Cause().GetNumber("Errno"), static_cast<std::uint64_t>(errnum));
}

TEST(Semaphore, FailuresRaiseErrorsWithTheSystemCause) {
    try {
        Common::Semaphore bad(-1);
        ADD_FAILURE() << "a negative count was accepted";
    } catch (const Common::Error& e) {
        ExpectSemaphoreError(e, 20, "Semaphore::Semaphore", EINVAL);
    }
    Common::Semaphore full(0x7fffffff);
    try {
        full.Signal();
        ADD_FAILURE() << "the count went beyond its maximum";
    } catch (const Common::Error& e) {
        ExpectSemaphoreError(e, 21, "Semaphore::Signal", EOVERFLOW);
    }
}

std::vector<std::uintptr_t> g_detached;
void RecordDetach(void* value) {
    g_detached.push_back(reinterpret_cast<std::uintptr_t>(value));
}

TEST(Tls, SlotsArePerThreadAndTheCallbackSeesTheLastValue) {
    AssertionLog log;
    g_detached.clear();
    const Common::Tls::Key key = Common::Tls::Allocate(RecordDetach);
    ASSERT_NE(key, Common::Tls::OUT_OF_INDEXES);
    EXPECT_TRUE(Common::Tls::Set(key, reinterpret_cast<void*>(1)));

    struct Slot {
        Common::Tls::Key key;
        void* seenBefore;
    } slot{key, nullptr};
    const auto useSlot = [](void* p) -> unsigned {
        auto* slot = static_cast<Slot*>(p);
        slot->seenBefore = Common::Tls::Get(slot->key);
        Common::Tls::Set(slot->key, reinterpret_cast<void*>(7));
        return 0;
    };
    Common::JoinThread(Common::BeginThread(0, useSlot, &slot));
    EXPECT_EQ(slot.seenBefore, nullptr);
    EXPECT_EQ(g_detached, std::vector<std::uintptr_t>{7});
    EXPECT_EQ(Common::Tls::Get(key), reinterpret_cast<void*>(1));

    // A thread that leaves its slot empty is not reported.
    const auto nothing = [](void*) -> unsigned { return 0; };
    Common::JoinThread(Common::BeginThread(0, nothing, nullptr));
    EXPECT_EQ(g_detached.size(), 1u);

    // One callback per process.
    const Common::Tls::Key second = Common::Tls::Allocate(RecordDetach);
    EXPECT_NE(second, Common::Tls::OUT_OF_INDEXES);
    EXPECT_EQ(AssertionLog::seen(), std::vector<std::string>{"_Callback == 0"});
    Common::Tls::Free(second);
    Common::Tls::Free(key);
    // Once freed, the callback may be given again.
    const Common::Tls::Key third = Common::Tls::Allocate(RecordDetach);
    EXPECT_EQ(AssertionLog::seen().size(), 1u);
    Common::Tls::Free(third);
}

TEST(Tls, TheInvalidKeyIsAnAssertion) {
    AssertionLog log;
    EXPECT_EQ(Common::Tls::Get(Common::Tls::OUT_OF_INDEXES), nullptr);
    EXPECT_FALSE(Common::Tls::Set(Common::Tls::OUT_OF_INDEXES, nullptr));
    EXPECT_EQ(AssertionLog::seen(),
              std::vector<std::string>(2, "key != Common::Tls::OUT_OF_INDEXES"));
}

TEST(Thread, StartsJoinsAndTellsItsId) {
    struct Start {
        std::uint32_t id = 0;
    } start;
    const auto body = [](void* p) -> unsigned {
        static_cast<Start*>(p)->id = Common::CurrentThreadId();
        return 42;
    };
    std::uint32_t id = 0;
    const std::uintptr_t t = Common::BeginThread(256 * 1024, body, &start, &id);
    ASSERT_NE(t, 0u);
    EXPECT_EQ(Common::JoinThread(t), 42u);
    EXPECT_EQ(start.id, id);
    EXPECT_NE(id, Common::CurrentThreadId());

    errno = 0;
    EXPECT_EQ(Common::BeginThread(0, nullptr, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
