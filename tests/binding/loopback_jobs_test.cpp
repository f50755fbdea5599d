#include <tessel_link/binding/job_control.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/components/test_management.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "xidl/components/test_management_proxy.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A service whose GetData waits at a gate until the test opens it; sizes above 1000 pass
// at once. It counts the calls inside and those that returned.
class GatedManager : public TestManagement::TestManager {
public:
    Common::Error Test() override { return Common::ErrorSuccess; }
    Common::Error TestCancel() override { return Common::ErrorSuccess; }
    Common::Error ResumeCancel(std::map<std::string, std::u16string>&) override {
        return Common::ErrorSuccess;
    }
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override {
        std::unique_lock<std::mutex> lock(lock_);
        ++inside_;
        ++entered_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return open_ || size > 1000; });
        --inside_;
        ++returned_;
        maxInside_ = std::max(maxInside_, inside_ + 1);
        changed_.notify_all();
        result = hostname + "#" + std::to_string(size);
        return Common::ErrorSuccess;
    }

    void Open() {
        const std::lock_guard<std::mutex> lock(lock_);
        open_ = true;
        changed_.notify_all();
    }
    bool WaitEntered(int count) {
        std::unique_lock<std::mutex> lock(lock_);
        return changed_.wait_for(lock, 5s, [&] { return entered_ >= count; });
    }
    bool WaitReturned(int count) {
        std::unique_lock<std::mutex> lock(lock_);
        return changed_.wait_for(lock, 5s, [&] { return returned_ >= count; });
    }
    int Inside() {
        const std::lock_guard<std::mutex> lock(lock_);
        return inside_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool open_ = false;
    int inside_ = 0;
    int entered_ = 0;
    int returned_ = 0;
    int maxInside_ = 0;
};

// Records the ends it is told of. `OnFinished` runs inside the handler, on the job's thread.
class RecordingHandler : public JobManagement::JobHandler {
public:
    void OnJobStarted() override {}
    void OnJobProgress(double) override {}
    void OnJobPaused() override {}
    void OnJobResumed() override {}
    void OnJobMessage(const Common::Error&) override {}
    void OnJobFinished(const Common::Error& result) override {
        if (OnFinished) {
            OnFinished();
        }
        const std::lock_guard<std::mutex> lock(lock_);
        results_.push_back(result);
        thread_ = std::this_thread::get_id();
        ended_.notify_all();
    }

    bool WaitFinished(std::size_t count) {
        std::unique_lock<std::mutex> lock(lock_);
        return ended_.wait_for(lock, 5s, [&] { return results_.size() >= count; });
    }
    std::vector<Common::Error> Results() {
        const std::lock_guard<std::mutex> lock(lock_);
        return results_;
    }
    std::thread::id Thread() {
        const std::lock_guard<std::mutex> lock(lock_);
        return thread_;
    }

    std::function<void()> OnFinished;

private:
    std::mutex lock_;
    std::condition_variable ended_;
    std::vector<Common::Error> results_;
    std::thread::id thread_;
};

struct Loopback {
    explicit Loopback(unsigned maxWorkers = Binding::LoopbackChannel::kDefaultMaxWorkers)
        : Channel(std::make_shared<Binding::LoopbackChannel>(
              Binding::LoopbackChannel::PacketObserver(), maxWorkers)) {
        Channel->Register(std::make_unique<TestManagement::TestManager_Dispatcher>(Service));
    }

    std::unique_ptr<Binding::RequestJob> GetData(const std::string& host, std::uint32_t size,
                                                 std::string& result) {
        std::unique_ptr<Binding::RequestJob> job;
        EXPECT_TRUE(
            Channel->Send(TestManagement::MakeRequest_TestManager_GetData(host, size, result), job)
                .Succeeded());
        return job;
    }

    std::shared_ptr<GatedManager> Service = std::make_shared<GatedManager>();
    std::shared_ptr<Binding::LoopbackChannel> Channel;
};

TEST(LoopbackJobs, StartServesOnAWorkerAndReportsTheEnd) {
    Loopback loopback;
    loopback.Service->Open();
    std::string result = "before";
    RecordingHandler handler;
    auto job = loopback.GetData("host", 7, result);
    ASSERT_TRUE(job->Start(&handler).Succeeded());
    ASSERT_TRUE(handler.WaitFinished(1));
    EXPECT_TRUE(handler.Results()[0].Succeeded());
    EXPECT_EQ(result, "host#7");
    EXPECT_NE(handler.Thread(), std::this_thread::get_id());
    // A job runs once, in one way or the other.
    EXPECT_TRUE(job->Start(&handler).Failed());
    EXPECT_TRUE(job->Run(nullptr).Failed());

    // A call for a component nobody serves ends with the channel's error.
    std::unique_ptr<Binding::RequestJob> unknown;
    ASSERT_TRUE(loopback.Channel
                    ->Send(Binding::Detail::CreateRequest<void()>(
                               Binding::MethodDescriptor{999, 1, "Nobody", "Call", 1, 1, ~0ull}),
                           unknown)
                    .Succeeded());
    ASSERT_TRUE(unknown->Start(&handler).Succeeded());
    ASSERT_TRUE(handler.WaitFinished(2));
    EXPECT_EQ(handler.Results()[1].Code(), Binding::kErrorUnknownComponent);
}

TEST(LoopbackJobs, AJobServesOnceWhicheverWayItIsUsed) {
    Loopback loopback;
    loopback.Service->Open();
    RecordingHandler handler;
    std::string result = "before";
    auto ran = loopback.GetData("ran", 1, result);
    ASSERT_TRUE(ran->Run(nullptr).Succeeded());
    EXPECT_EQ(result, "ran#1");
    result = "after";
    EXPECT_TRUE(ran->Run(nullptr).Failed());
    EXPECT_TRUE(ran->Start(&handler).Failed());
    EXPECT_TRUE(ran->Stop().Succeeded());
    EXPECT_EQ(result, "after");

    // Stopped before it was used, a job neither runs nor starts.
    auto stopped = loopback.GetData("stopped", 2, result);
    EXPECT_TRUE(stopped->Stop().Succeeded());
    EXPECT_TRUE(stopped->Run(nullptr).Failed());
    EXPECT_TRUE(stopped->Start(&handler).Failed());
    EXPECT_EQ(result, "after");
    EXPECT_TRUE(handler.Results().empty());
}

// Start and Stop of one job, Run and Stop of another, each pair on two threads at once:
// whichever comes first, the job serves at most once and the out argument is either
// untouched or complete.
TEST(LoopbackJobs, StartOrRunRacingStopServesAtMostOnce) {
    Loopback loopback;
    loopback.Service->Open();
    for (int round = 0; round < 100; ++round) {
        RecordingHandler handler;
        std::string started = "before";
        std::string ran = "before";
        auto background = loopback.GetData("started", 2000, started);
        auto direct = loopback.GetData("ran", 2001, ran);
        Common::Error startOutcome;
        Common::Error runOutcome;
        std::thread user([&] {
            startOutcome = background->Start(&handler);
            runOutcome = direct->Run(nullptr);
        });
        EXPECT_TRUE(background->Stop().Succeeded());
        EXPECT_TRUE(direct->Stop().Succeeded());
        user.join();
        background.reset();
        EXPECT_TRUE(started == "before" || started == "started#2000") << started;
        EXPECT_EQ(runOutcome.Succeeded(), ran == "ran#2001") << ran;
        EXPECT_LE(handler.Results().size(), startOutcome.Succeeded() ? 1u : 0u);
    }
}

TEST(LoopbackJobs, StopNeverWaitsForTheServiceAndDropsItsReply) {
    Loopback loopback;
    RecordingHandler handler;
    auto result = std::make_unique<std::string>("before");
    auto job = loopback.GetData("host", 1, *result);
    ASSERT_TRUE(job->Start(&handler).Succeeded());
    ASSERT_TRUE(loopback.Service->WaitEntered(1));

    const auto start = Clock::now();
    EXPECT_TRUE(job->Stop().Succeeded());
    job.reset();
    EXPECT_LT(Clock::now() - start, 200ms);
    // The out argument may go right after Stop: the late reply must not reach it.
    result.reset();
    loopback.Service->Open();
    ASSERT_TRUE(loopback.Service->WaitReturned(1));
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(handler.Results().empty());

    // A job stopped before its worker took it never reaches the service.
    std::string unused;
    auto early = loopback.GetData("early", 2000, unused);
    ASSERT_TRUE(early->Stop().Succeeded());
    EXPECT_TRUE(early->Start(&handler).Failed());
}

TEST(LoopbackJobs, AHandlerMayStopItsOwnJob) {
    Loopback loopback;
    loopback.Service->Open();
    RecordingHandler handler;
    std::string result;
    std::unique_ptr<Binding::RequestJob> job = loopback.GetData("self", 3, result);
    // Stop, and even destruction of the job, from inside its handler must not wait for the
    // handler itself.
    handler.OnFinished = [&] {
        EXPECT_TRUE(job->Stop().Succeeded());
        job.reset();
    };
    ASSERT_TRUE(job->Start(&handler).Succeeded());
    ASSERT_TRUE(handler.WaitFinished(1));
    EXPECT_EQ(result, "self#3");
}

TEST(LoopbackJobs, StopWaitsForAHandlerRunningOnAnotherThread) {
    Loopback loopback;
    loopback.Service->Open();
    RecordingHandler handler;
    std::mutex gate;
    std::condition_variable inHandler;
    bool entered = false;
    bool handlerDone = false;
    handler.OnFinished = [&] {
        {
            std::lock_guard<std::mutex> lock(gate);
            entered = true;
        }
        inHandler.notify_all();
        std::this_thread::sleep_for(100ms);
        std::lock_guard<std::mutex> lock(gate);
        handlerDone = true;
    };
    std::string result;
    auto job = loopback.GetData("wait", 4, result);
    ASSERT_TRUE(job->Start(&handler).Succeeded());
    {
        std::unique_lock<std::mutex> lock(gate);
        ASSERT_TRUE(inHandler.wait_for(lock, 5s, [&] { return entered; }));
    }
    // What Stop answers here depends on how far the handler got; the handler's end is the point.
    static_cast<void>(job->Stop());
    std::lock_guard<std::mutex> lock(gate);
    EXPECT_TRUE(handlerDone);
}

TEST(LoopbackJobs, WorkersAreBoundedAndJobsWaitInOrder) {
    Loopback loopback(2);
    RecordingHandler handler;
    std::vector<std::string> results(6);
    std::vector<std::unique_ptr<Binding::RequestJob>> jobs;
    for (std::uint32_t i = 0; i < 6; ++i) {
        jobs.push_back(loopback.GetData("pool", i, results[i]));
        ASSERT_TRUE(jobs.back()->Start(&handler).Succeeded());
    }
    ASSERT_TRUE(loopback.Service->WaitEntered(2));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(loopback.Service->Inside(), 2);
    EXPECT_EQ(loopback.Channel->WorkerCount(), 2u);
    loopback.Service->Open();
    ASSERT_TRUE(handler.WaitFinished(6));
    for (std::uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(results[i], "pool#" + std::to_string(i));
    }
    EXPECT_EQ(loopback.Channel->WorkerCount(), 2u);
}

TEST(LoopbackJobs, DestroyingTheChannelDropsWaitingJobsAndJoinsRunningOnes) {
    auto loopback = std::make_unique<Loopback>(1);
    RecordingHandler handler;
    std::string first;
    std::string second;
    auto running = loopback->GetData("running", 1, first);
    auto waiting = loopback->GetData("waiting", 2, second);
    ASSERT_TRUE(running->Start(&handler).Succeeded());
    ASSERT_TRUE(waiting->Start(&handler).Succeeded());
    ASSERT_TRUE(loopback->Service->WaitEntered(1));
    auto service = loopback->Service;
    std::thread opener([&] {
        std::this_thread::sleep_for(50ms);
        service->Open();
    });
    // The jobs hold no reference to the channel; the host drops its last one.
    loopback.reset();
    opener.join();
    EXPECT_EQ(handler.Results().size(), 1u);
    EXPECT_EQ(first, "running#1");
    EXPECT_EQ(second, "");
    running.reset();
    waiting.reset();
}

TEST(LoopbackJobs, TimeLimitStopsAJobThatDoesNotEnd) {
    Loopback loopback;
    std::string result = "before";
    auto limited = Binding::WithTimeLimit(loopback.GetData("slow", 5, result), 200);
    const auto start = Clock::now();
    const Common::Error error = limited->Run(nullptr);
    const auto took = Clock::now() - start;
    EXPECT_EQ(error.Code(), Binding::kErrorJobTimedOut);
    EXPECT_EQ(error.Text(), u"Operation has timed out.");
    EXPECT_GE(took, 200ms);
    EXPECT_LT(took, 700ms);
    limited.reset();
    loopback.Service->Open();
    ASSERT_TRUE(loopback.Service->WaitReturned(1));
    EXPECT_EQ(result, "before");

    // A job that ends in time gives its own outcome, out arguments included.
    auto fast = Binding::SetJobTimeout(loopback.GetData("fast", 6, result), 500);
    EXPECT_TRUE(fast->Run(nullptr).Succeeded());
    EXPECT_EQ(result, "fast#6");
    EXPECT_EQ(Binding::SetJobTimeout(nullptr, 500), nullptr);
}

// A job of a channel without a background form: Start refuses, and Run blocks until the job
// is stopped or its time is up; the job says when it is gone.
class ForegroundJob : public Binding::RequestJob {
public:
    struct Trace {
        std::mutex Lock;
        std::condition_variable Changed;
        bool Stopped = false;
        bool Destroyed = false;
        bool WaitDestroyed(std::chrono::milliseconds limit) {
            std::unique_lock<std::mutex> lock(Lock);
            return Changed.wait_for(lock, limit, [this] { return Destroyed; });
        }
    };
    ForegroundJob(std::shared_ptr<Trace> trace, std::chrono::milliseconds runs, bool stoppable)
        : trace_(std::move(trace)), runs_(runs), stoppable_(stoppable) {}
    ~ForegroundJob() override {
        const std::lock_guard<std::mutex> lock(trace_->Lock);
        trace_->Destroyed = true;
        trace_->Changed.notify_all();
    }
    Common::Error Run(JobManagement::JobHandler* handler) override {
        {
            std::unique_lock<std::mutex> lock(trace_->Lock);
            trace_->Changed.wait_for(lock, runs_, [this] { return stoppable_ && trace_->Stopped; });
        }
        if (handler != nullptr) {
            handler->OnJobFinished(Common::ErrorSuccess);
        }
        return Common::ErrorSuccess;
    }
    Common::Error Start(JobManagement::JobHandler*) override {
        return Common::Error(TL_ORIGIN("ForegroundJob::Start"), Binding::kErrorJobTimedOut);
    }
    Common::Error Stop() override {
        const std::lock_guard<std::mutex> lock(trace_->Lock);
        trace_->Stopped = true;
        trace_->Changed.notify_all();
        return Common::ErrorSuccess;
    }

private:
    std::shared_ptr<Trace> trace_;
    std::chrono::milliseconds runs_;
    bool stoppable_;
};

TEST(LoopbackJobs, TimeLimitHoldsForJobsThatCannotStartInTheBackground) {
    // In time: the job's own outcome, and the caller's handler hears its end.
    {
        auto trace = std::make_shared<ForegroundJob::Trace>();
        RecordingHandler handler;
        auto limited =
            Binding::WithTimeLimit(std::make_unique<ForegroundJob>(trace, 20ms, false), 2000);
        EXPECT_TRUE(limited->Run(&handler).Succeeded());
        EXPECT_EQ(handler.Results().size(), 1u);
        limited.reset();
        EXPECT_TRUE(trace->WaitDestroyed(0ms));
    }
    // A job that a stop ends: stopped at the limit; the caller has its outcome if it ended
    // while being stopped, the time-out otherwise, and the job goes when its run ends.
    {
        auto trace = std::make_shared<ForegroundJob::Trace>();
        auto limited =
            Binding::WithTimeLimit(std::make_unique<ForegroundJob>(trace, 5000ms, true), 100);
        const auto start = Clock::now();
        const Common::Error outcome = limited->Run(nullptr);
        EXPECT_TRUE(outcome.Succeeded() || outcome.Code() == Binding::kErrorJobTimedOut);
        EXPECT_LT(Clock::now() - start, 2000ms);
        EXPECT_TRUE(trace->Stopped);
        limited.reset();
        EXPECT_TRUE(trace->WaitDestroyed(2000ms));
    }
    // A job that ignores the stop: the caller gets the time-out at the limit and goes; its
    // handler hears nothing more, and the job is destroyed once its run ends.
    {
        auto trace = std::make_shared<ForegroundJob::Trace>();
        RecordingHandler handler;
        auto limited =
            Binding::WithTimeLimit(std::make_unique<ForegroundJob>(trace, 3000ms, false), 100);
        const auto start = Clock::now();
        EXPECT_EQ(limited->Run(&handler).Code(), Binding::kErrorJobTimedOut);
        limited.reset();
        EXPECT_LT(Clock::now() - start, 2000ms);
        EXPECT_FALSE(trace->WaitDestroyed(0ms));
        EXPECT_TRUE(trace->WaitDestroyed(5000ms));
        EXPECT_TRUE(handler.Results().empty());
    }
}

}  // namespace
