#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "facade/event_fake_service.h"

namespace {

using namespace EventTesting;

constexpr std::uint32_t kTypes = 10;
constexpr int kThreads = 8;
constexpr int kSinks = 100;
constexpr std::uint32_t kEventsPerType = 150;

// A churning sink notes, per subscription, the sequence numbers it received.
struct ChurnSink : EventManagement::EventDispatcher {
    std::uint32_t Type = 0;
    std::mutex Lock;
    std::vector<std::vector<std::uint32_t>> Rounds;
    std::vector<std::uint32_t> WrongTypes;
    Common::Error Dispatch(const std::shared_ptr<EventManagement::Event>& event) override {
        const std::lock_guard<std::mutex> lock(Lock);
        if (event->Type != Type) {
            WrongTypes.push_back(event->Type);
        }
        Rounds.back().push_back(event->SubType);
        return Common::ErrorSuccess;
    }
};

// Eight threads subscribe and unsubscribe a hundred sinks over ten types while events of
// every type flow. Types 0 to 4 also have a steady sink each, subscribed for the whole run,
// so their dispatchers live throughout; types 5 to 9 lose their last sink again and again,
// so their queues are closed and made anew under the traffic.
//
// Every steady sink gets every event of its type exactly once, in order. No sink gets an
// event twice or one of a type it did not subscribe to, and while a sink stays subscribed
// it misses nothing: the events it got in one subscription follow each other without gap.
TEST(EventThreads, EightThreadsChurnAHundredSinksWhileEventsFlow) {
    // Sinks outlive the proxy that calls them.
    std::vector<RecordingSink> steady(5);
    std::vector<ChurnSink> sinks(kSinks);
    EventRig rig;
    ASSERT_NE(rig.Manager, nullptr);

    for (std::uint32_t type = 0; type < 5; ++type) {
        ASSERT_TRUE(rig.Manager->Subscribe(type, &steady[type]).Succeeded());
    }
    ASSERT_TRUE(rig.Service->WaitAbsorbing(5));

    for (int i = 0; i < kSinks; ++i) {
        sinks[i].Type = static_cast<std::uint32_t>(i) % kTypes;
    }

    std::atomic<bool> raising{true};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(static_cast<unsigned>(t) * 7919u + 1u);
            while (raising.load()) {
                for (int i = t; i < kSinks; i += kThreads) {
                    ChurnSink& sink = sinks[i];
                    {
                        const std::lock_guard<std::mutex> lock(sink.Lock);
                        sink.Rounds.emplace_back();
                    }
                    failures += rig.Manager->Subscribe(sink.Type, &sink).Failed() ? 1 : 0;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
                for (int i = t; i < kSinks; i += kThreads) {
                    failures += rig.Manager->Unsubscribe(sinks[i].Type, &sinks[i]).Failed() ? 1 : 0;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
            }
        });
    }

    for (std::uint32_t sequence = 1; sequence <= kEventsPerType; ++sequence) {
        for (std::uint32_t type = 0; type < kTypes; ++type) {
            rig.Service->Raise(MakeEvent(type, sequence));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(1000));
    }
    for (std::uint32_t type = 0; type < 5; ++type) {
        EXPECT_TRUE(steady[type].WaitCount(kEventsPerType)) << "type " << type;
    }
    raising = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);

    std::vector<std::uint32_t> all(kEventsPerType);
    for (std::uint32_t i = 0; i < kEventsPerType; ++i) {
        all[i] = i + 1;
    }
    for (std::uint32_t type = 0; type < 5; ++type) {
        EXPECT_EQ(steady[type].Sequence(), all) << "type " << type;
        for (const auto& event : steady[type].Events()) {
            EXPECT_EQ(event->Type, type);
        }
    }
    int delivered = 0;
    for (ChurnSink& sink : sinks) {
        const std::lock_guard<std::mutex> lock(sink.Lock);
        EXPECT_TRUE(sink.WrongTypes.empty());
        std::set<std::uint32_t> seen;
        for (const auto& round : sink.Rounds) {
            for (std::size_t i = 0; i < round.size(); ++i) {
                EXPECT_TRUE(seen.insert(round[i]).second) << "event " << round[i] << " twice";
                if (i > 0) {
                    EXPECT_EQ(round[i], round[i - 1] + 1) << "a gap while subscribed";
                }
            }
            delivered += static_cast<int>(round.size());
        }
    }
    // The churn really overlapped the traffic.
    EXPECT_GT(delivered, 0);
    EXPECT_GT(rig.Service->CountCalls("DestroyQueue"), 0);

    for (std::uint32_t type = 0; type < 5; ++type) {
        EXPECT_TRUE(rig.Manager->Unsubscribe(type, &steady[type]).Succeeded());
    }
    EXPECT_EQ(rig.Service->QueueCount(), 0u);
}

}  // namespace
