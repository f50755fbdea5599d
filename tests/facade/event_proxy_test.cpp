#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "facade/event_fake_service.h"

namespace {

using namespace EventTesting;
using Clock = std::chrono::steady_clock;

// Passes calls on to the loopback, but can refuse to send fetches (method 4).
class RefusingChannel : public Binding::RequestChannel {
public:
    explicit RefusingChannel(std::shared_ptr<Binding::RequestChannel> inner)
        : inner_(std::move(inner)) {}

    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>& job) override {
        if (RefuseFetches && request->GetMethodNumber() == 4) {
            ++Refused;
            return Common::Error(TL_ORIGIN("RefusingChannel::Send"), 0x840010, u"line down");
        }
        return inner_->Send(std::move(request), job);
    }

    std::atomic<bool> RefuseFetches{false};
    std::atomic<int> Refused{0};

private:
    std::shared_ptr<Binding::RequestChannel> inner_;
};

std::vector<std::string> Without(const std::vector<std::string>& calls, const std::string& prefix) {
    std::vector<std::string> kept;
    for (const std::string& call : calls) {
        if (call.rfind(prefix, 0) != 0) {
            kept.push_back(call);
        }
    }
    return kept;
}

TEST(EventProxy, OneQueueAndOneFetchPerTypeAndOneSharedCopyPerEvent) {
    // Sinks outlive the proxy that calls them.
    RecordingSink first;
    RecordingSink second;
    EventRig rig;
    ASSERT_NE(rig.Manager, nullptr);
    ASSERT_TRUE(rig.Manager->Subscribe(7, &first).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    ASSERT_TRUE(rig.Manager->Subscribe(7, &second).Succeeded());
    EXPECT_EQ(rig.Service->Calls(), (std::vector<std::string>{"CreateQueue 7", "AbsorbQueue 1"}));

    rig.Service->Raise(MakeEvent(7, 1));
    ASSERT_TRUE(first.WaitCount(1));
    ASSERT_TRUE(second.WaitCount(1));
    rig.Service->Raise(MakeEvent(7, 2));
    ASSERT_TRUE(first.WaitCount(2));
    ASSERT_TRUE(second.WaitCount(2));
    const auto a = first.Events();
    const auto b = second.Events();
    // Both sinks hold the same object of an event; each event is a new object.
    EXPECT_EQ(a[0].get(), b[0].get());
    EXPECT_EQ(a[1].get(), b[1].get());
    EXPECT_NE(a[0].get(), a[1].get());
    EXPECT_EQ(a[0]->SubType, 1u);
    EXPECT_EQ(a[1]->SubType, 2u);
    EXPECT_EQ(a[1]->Message, u"event 2");
    EXPECT_EQ(rig.Service->CountCalls("CreateQueue"), 1);
}

TEST(EventProxy, TwoTypesHaveIndependentQueues) {
    RecordingSink jobs;
    RecordingSink tasks;
    EventRig rig;
    ASSERT_TRUE(rig.Manager->Subscribe(1, &jobs).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(2, &tasks).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(2));
    EXPECT_EQ(rig.Service->QueueCount(), 2u);

    rig.Service->Raise(MakeEvent(2, 5));
    ASSERT_TRUE(tasks.WaitCount(1));
    EXPECT_TRUE(jobs.Events().empty());
    // Closing one type leaves the other fetching.
    ASSERT_TRUE(rig.Manager->Unsubscribe(2, &tasks).Succeeded());
    EXPECT_EQ(rig.Service->QueueCount(), 1u);
    rig.Service->Raise(MakeEvent(1, 6));
    ASSERT_TRUE(jobs.WaitCount(1));
    EXPECT_EQ(jobs.Sequence(), std::vector<std::uint32_t>{6});
}

TEST(EventProxy, LastUnsubscribeStopsTheFetchThenCancelsThenDestroys) {
    RecordingSink sink;
    RecordingSink other;
    EventRig rig;
    // Unknown types and sinks are no error.
    EXPECT_TRUE(rig.Manager->Unsubscribe(3, &sink).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(3, &sink).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(3, &sink).Succeeded());
    EXPECT_TRUE(rig.Manager->Unsubscribe(3, &other).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));

    // A sink subscribed twice gets every event twice.
    rig.Service->Raise(MakeEvent(3, 1));
    ASSERT_TRUE(sink.WaitCount(2));
    EXPECT_EQ(sink.Sequence(), (std::vector<std::uint32_t>{1, 1}));

    ASSERT_TRUE(rig.Manager->Unsubscribe(3, &sink).Succeeded());
    EXPECT_EQ(rig.Service->CountCalls("CancelQueueAbsorbing"), 0);
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    ASSERT_TRUE(rig.Manager->Unsubscribe(3, &sink).Succeeded());
    EXPECT_EQ(Without(rig.Service->Calls(), "AbsorbQueue"),
              (std::vector<std::string>{"CreateQueue 3", "CancelQueueAbsorbing 1",
                                        "DestroyQueue 1"}));
    // The fetch that blocked in the service was freed by the cancel.
    EXPECT_TRUE(rig.Service->WaitNoneAbsorbing());
    EXPECT_EQ(rig.Service->QueueCount(), 0u);

    // A new subscription makes a new queue.
    ASSERT_TRUE(rig.Manager->Subscribe(3, &sink).Succeeded());
    EXPECT_EQ(rig.Service->CountCalls("CreateQueue"), 2);
}

TEST(EventProxy, RemovalAgainstASilentServiceTakesAboutOneSecond) {
    RecordingSink sink;
    EventRig rig;
    ASSERT_TRUE(rig.Manager->Subscribe(4, &sink).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    rig.Service->Silence();

    const auto start = Clock::now();
    EXPECT_TRUE(rig.Manager->Unsubscribe(4, &sink).Succeeded());
    const auto took = Clock::now() - start;
    // Two requests, 500 milliseconds each, neither answered.
    EXPECT_GE(took, std::chrono::milliseconds(950));
    EXPECT_LT(took, std::chrono::milliseconds(1500));
    EXPECT_EQ(Without(rig.Service->Calls(), "AbsorbQueue"),
              (std::vector<std::string>{"CreateQueue 4", "CancelQueueAbsorbing 1",
                                        "DestroyQueue 1"}));
    // The stopped fetch never delivers, whatever comes later.
    rig.Service->Speak();
    EXPECT_TRUE(rig.Service->WaitNoneAbsorbing());
    EXPECT_TRUE(sink.Events().empty());
}

TEST(EventProxy, ASinkMayUnsubscribeItselfOnTheJobThread) {
    RecordingSink leaving;
    RecordingSink staying;
    std::thread::id dispatchThread;
    EventRig rig;
    leaving.OnDispatch = [&](const std::shared_ptr<EventManagement::Event>&) {
        dispatchThread = std::this_thread::get_id();
        EXPECT_TRUE(rig.Manager->Unsubscribe(5, &leaving).Succeeded());
    };
    ASSERT_TRUE(rig.Manager->Subscribe(5, &leaving).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(5, &staying).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    rig.Service->Raise(MakeEvent(5, 1));
    // The sink after the leaving one still gets the event, and later ones.
    ASSERT_TRUE(staying.WaitCount(1));
    rig.Service->Raise(MakeEvent(5, 2));
    ASSERT_TRUE(staying.WaitCount(2));
    EXPECT_EQ(leaving.Sequence(), std::vector<std::uint32_t>{1});
    EXPECT_NE(dispatchThread, std::this_thread::get_id());

    // The last sink leaving from inside Dispatch closes the queue from the job thread.
    staying.OnDispatch = [&](const std::shared_ptr<EventManagement::Event>&) {
        EXPECT_TRUE(rig.Manager->Unsubscribe(5, &staying).Succeeded());
    };
    rig.Service->Raise(MakeEvent(5, 3));
    ASSERT_TRUE(staying.WaitCount(3));
    ASSERT_TRUE(rig.Service->WaitLogged("DestroyQueue 1"));
    EXPECT_TRUE(rig.Service->WaitNoneAbsorbing());
    EXPECT_EQ(rig.Service->QueueCount(), 0u);
}

TEST(EventProxy, FailuresOfTheServiceAndOfSinks) {
    RecordingSink sink;
    RecordingSink failing;
    EventRig rig;
    failing.Result = Common::Error(TL_ORIGIN("Sink"), 0x840020, u"sink is full");

    // A failing CreateQueue leaves nothing behind.
    rig.Service->FailCreate = true;
    EXPECT_EQ(rig.Manager->Subscribe(6, &sink).Code(), 0x840001u);
    EXPECT_TRUE(rig.Manager->Unsubscribe(6, &sink).Succeeded());
    EXPECT_EQ(rig.Service->CountCalls("AbsorbQueue"), 0);
    EXPECT_EQ(rig.Service->CountCalls("CancelQueueAbsorbing"), 0);
    rig.Service->FailCreate = false;

    // A failed fetch counts as an empty one; the next starts at once. A sink's failure
    // keeps the event from no other sink.
    ASSERT_TRUE(rig.Manager->Subscribe(6, &failing).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(6, &sink).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    rig.Service->FailNextAbsorbs(2);
    ASSERT_TRUE(rig.Service->WaitLogged("AbsorbQueue 1"));
    rig.Service->Raise(MakeEvent(6, 1));
    ASSERT_TRUE(sink.WaitCount(1));
    EXPECT_GE(rig.Service->CountCalls("AbsorbQueue"), 3);
    rig.Service->Raise(MakeEvent(6, 2));
    ASSERT_TRUE(sink.WaitCount(2));
    EXPECT_EQ(failing.Sequence(), (std::vector<std::uint32_t>{1, 2}));
}

TEST(EventProxy, AFetchThatCannotBeSentWaitsForTheFirstSinkAnew) {
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    auto refusing = std::make_shared<RefusingChannel>(loopback);
    RecordingSink sink;
    RecordingSink second;
    EventRig rig(refusing);
    // The rig's own loopback is not used; this one serves the same service.
    loopback->Register(std::make_unique<EventManagement::EventManager_Dispatcher>(rig.Service));
    refusing->RefuseFetches = true;
    ASSERT_TRUE(rig.Manager->Subscribe(8, &sink).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(8, &second).Succeeded());
    EXPECT_EQ(refusing->Refused, 1);
    refusing->RefuseFetches = false;
    rig.Service->Raise(MakeEvent(8, 1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(rig.Service->CountCalls("AbsorbQueue"), 0);

    // Only when the sinks are gone and one is added again does the fetching start.
    ASSERT_TRUE(rig.Manager->Unsubscribe(8, &second).Succeeded());
    ASSERT_TRUE(rig.Manager->Unsubscribe(8, &sink).Succeeded());
    ASSERT_TRUE(rig.Manager->Subscribe(8, &sink).Succeeded());
    rig.Service->Raise(MakeEvent(8, 2));
    ASSERT_TRUE(sink.WaitCount(1));
    EXPECT_EQ(sink.Sequence(), std::vector<std::uint32_t>{2});
    rig.Component.reset();
}

TEST(EventProxy, EventsArrivingDuringDeliveryWaitForTheNextFetch) {
    RecordingSink sink;
    std::mutex gate;
    std::condition_variable moved;
    bool inside = false;
    bool open = false;
    EventRig rig;
    sink.OnDispatch = [&](const std::shared_ptr<EventManagement::Event>& event) {
        if (event->SubType != 1) {
            return;
        }
        std::unique_lock<std::mutex> lock(gate);
        inside = true;
        moved.notify_all();
        moved.wait(lock, [&] { return open; });
    };
    ASSERT_TRUE(rig.Manager->Subscribe(9, &sink).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    rig.Service->Raise(MakeEvent(9, 1));
    {
        std::unique_lock<std::mutex> lock(gate);
        ASSERT_TRUE(moved.wait_for(lock, std::chrono::seconds(5), [&] { return inside; }));
    }
    rig.Service->Raise(MakeEvent(9, 2));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    // No fetch runs while the first batch is delivered; the event waits in the queue.
    EXPECT_EQ(rig.Service->Pending(1), 1u);
    EXPECT_EQ(rig.Service->CountCalls("AbsorbQueue"), 1);
    {
        std::lock_guard<std::mutex> lock(gate);
        open = true;
    }
    moved.notify_all();
    ASSERT_TRUE(sink.WaitCount(2));
    EXPECT_EQ(sink.Sequence(), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_GE(rig.Service->CountCalls("AbsorbQueue"), 2);
}

TEST(EventProxy, ShutdownAndDestructionCloseEveryQueue) {
    {
        RecordingSink sink;
        EventRig rig;
        ASSERT_TRUE(rig.Manager->Subscribe(1, &sink).Succeeded());
        ASSERT_TRUE(rig.Manager->Subscribe(2, &sink).Succeeded());
        ASSERT_TRUE(rig.Service->WaitAbsorbing(2));
        rig.Component->OnShutdown();
        EXPECT_EQ(rig.Service->CountCalls("CancelQueueAbsorbing"), 2);
        EXPECT_EQ(rig.Service->CountCalls("DestroyQueue"), 2);
        EXPECT_EQ(rig.Service->QueueCount(), 0u);
        EXPECT_TRUE(rig.Service->WaitNoneAbsorbing());
        // A second shutdown, and the destructor after it, find nothing left to do.
        rig.Component->OnShutdown();
        rig.Component.reset();
        EXPECT_EQ(rig.Service->CountCalls("DestroyQueue"), 2);
    }
    RecordingSink sink;
    EventRig rig;
    ASSERT_TRUE(rig.Manager->Subscribe(1, &sink).Succeeded());
    ASSERT_TRUE(rig.Service->WaitAbsorbing(1));
    rig.Component.reset();
    EXPECT_EQ(Without(rig.Service->Calls(), "AbsorbQueue"),
              (std::vector<std::string>{"CreateQueue 1", "CancelQueueAbsorbing 1",
                                        "DestroyQueue 1"}));
}

TEST(EventProxy, SynchronousAbsorbHandsEachEventToTheSink) {
    EventRig rig;
    std::uint32_t id = 0;
    ASSERT_TRUE(rig.Manager->CreateQueue(11, id).Succeeded());
    rig.Service->Raise(MakeEvent(11, 1));
    rig.Service->Raise(MakeEvent(11, 2));
    RecordingSink sink;
    EXPECT_TRUE(rig.Manager->AbsorbQueue(id, &sink).Succeeded());
    EXPECT_EQ(sink.Sequence(), (std::vector<std::uint32_t>{1, 2}));
    const auto events = sink.Events();
    EXPECT_NE(events[0].get(), events[1].get());
    // The remote outcome is the result.
    rig.Service->FailNextAbsorbs(1);
    EXPECT_EQ(rig.Manager->AbsorbQueue(id, &sink).Code(), 0x840002u);
    EXPECT_EQ(sink.Events().size(), 2u);
    EXPECT_TRUE(rig.Manager->DestroyQueue(id).Succeeded());
}

}  // namespace
