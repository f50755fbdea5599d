#include <tessel_link/binding/job_control.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <tessel_link/common/messages.h>
#include <tessel_link/common/trace.h>

#include "binding/job_timeout_binding.h"

namespace JobManagement {

JobHandler::~JobHandler() = default;

}  // namespace JobManagement

namespace Binding {

namespace {

// "Operation has timed out."
constexpr std::uint32_t kRowTimedOut = 121;

Common::Error TimedOut() {
    return Common::Error(TL_ORIGIN("Binding::TimeLimitedJob::Run"), kErrorJobTimedOut,
                         Common::GetMessageRow(kRowTimedOut));
}

// A run of the inner job on a thread of its own, for a channel whose jobs cannot start in
// the background. The job that waits for it may give up and go before the run ends: the
// caller's handler is then no longer called, and the run keeps the inner job and destroys
// it when Run returns.
class ThreadRun final : public JobManagement::JobHandler {
public:
    explicit ThreadRun(JobManagement::JobHandler* handler) : forward_(handler) {}

    // Runs `job` on a new thread; false when no thread could be made.
    static bool Begin(const std::shared_ptr<ThreadRun>& run, RequestJob& job) {
        JobManagement::JobHandler* const handler = run->forward_ != nullptr ? run.get() : nullptr;
        try {
            std::thread([run, &job, handler] {
                const Common::Error result = job.Run(handler);
                std::unique_ptr<RequestJob> orphan;
                {
                    const std::lock_guard<std::mutex> lock(run->lock_);
                    run->result_ = result;
                    run->finished_ = true;
                    orphan = std::move(run->orphan_);
                }
                run->ended_.notify_all();
            }).detach();
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

    // The outcome, if the run ends within the limit.
    bool Wait(std::uint32_t milliseconds, Common::Error& result) {
        std::unique_lock<std::mutex> lock(lock_);
        if (!ended_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [this] { return finished_; })) {
            return false;
        }
        result = result_;
        return true;
    }

    // The caller goes: its handler hears no more, and the job, if still running, is the run's.
    void GiveUp(std::unique_ptr<RequestJob>& job) {
        {
            const std::lock_guard<std::mutex> lock(forwardLock_);
            forward_ = nullptr;
        }
        const std::lock_guard<std::mutex> lock(lock_);
        if (!finished_) {
            orphan_ = std::move(job);
        }
    }

private:
    template <class Call>
    void Forward(Call&& call) {
        const std::lock_guard<std::mutex> lock(forwardLock_);
        if (forward_ != nullptr) {
            call(*forward_);
        }
    }
    void OnJobStarted() override {
        Forward([](JobHandler& h) { h.OnJobStarted(); });
    }
    void OnJobProgress(double value) override {
        Forward([value](JobHandler& h) { h.OnJobProgress(value); });
    }
    void OnJobPaused() override {
        Forward([](JobHandler& h) { h.OnJobPaused(); });
    }
    void OnJobResumed() override {
        Forward([](JobHandler& h) { h.OnJobResumed(); });
    }
    void OnJobMessage(const Common::Error& message) override {
        Forward([&message](JobHandler& h) { h.OnJobMessage(message); });
    }
    void OnJobFinished(const Common::Error& result) override {
        Forward([&result](JobHandler& h) { h.OnJobFinished(result); });
    }

    std::mutex forwardLock_;
    JobManagement::JobHandler* forward_;
    std::mutex lock_;
    std::condition_variable ended_;
    bool finished_ = false;
    Common::Error result_;
    std::unique_ptr<RequestJob> orphan_;
};

// Runs the inner job in the background and waits for it at most the time limit. The
// wrapper is the inner job's handler; the inner job is stopped before the wrapper goes, so
// it is never called back into a dead object. A channel whose jobs cannot start in the
// background has the job run on a thread of the wrapper's, under the same limit.
class TimeLimitedJob final : public RequestJob, private JobManagement::JobHandler {
public:
    TimeLimitedJob(std::unique_ptr<RequestJob> inner, std::uint32_t milliseconds)
        : inner_(std::move(inner)), milliseconds_(milliseconds) {}

    ~TimeLimitedJob() override {
        (void)inner_->Stop();
        if (threadRun_ != nullptr) {
            threadRun_->GiveUp(inner_);
        }
        inner_.reset();
    }

    Common::Error Run(JobManagement::JobHandler* handler) override {
        if (inner_->Start(this).Failed()) {
            return RunOnThread(handler);
        }
        std::unique_lock<std::mutex> lock(lock_);
        if (ended_.wait_for(lock, std::chrono::milliseconds(milliseconds_),
                            [this] { return finished_; })) {
            return result_;
        }
        lock.unlock();
        (void)inner_->Stop();
        lock.lock();
        // The job may have ended while it was being stopped.
        if (finished_) {
            return result_;
        }
        return TimedOut();
    }

    Common::Error Start(JobManagement::JobHandler* handler) override {
        return inner_->Start(handler);
    }

    Common::Error Stop() override { return inner_->Stop(); }

private:
    Common::Error RunOnThread(JobManagement::JobHandler* handler) {
        auto run = std::make_shared<ThreadRun>(handler);
        if (!ThreadRun::Begin(run, *inner_)) {
            return inner_->Run(handler);  // no thread to spare: the call runs here
        }
        threadRun_ = run;
        Common::Error result;
        if (run->Wait(milliseconds_, result)) {
            return result;
        }
        (void)inner_->Stop();
        // The job may have ended while it was being stopped.
        if (run->Wait(0, result)) {
            return result;
        }
        std::unique_ptr<RequestJob> none;
        run->GiveUp(none);  // the caller's handler hears no more
        return TimedOut();
    }

    void OnJobStarted() override {}
    void OnJobProgress(double) override {}
    void OnJobPaused() override {}
    void OnJobResumed() override {}
    void OnJobMessage(const Common::Error&) override {}
    void OnJobFinished(const Common::Error& result) override {
        {
            const std::lock_guard<std::mutex> lock(lock_);
            result_ = result;
            finished_ = true;
        }
        ended_.notify_all();
    }

    std::unique_ptr<RequestJob> inner_;
    const std::uint32_t milliseconds_;
    std::mutex lock_;
    std::condition_variable ended_;
    bool finished_ = false;
    Common::Error result_;
    std::shared_ptr<ThreadRun> threadRun_;
};

}  // namespace

namespace Detail {

SetJobTimeoutFunction* ResolveSetJobTimeout(Platform::LateBinding& binding) {
    if (void* function = binding.InProcess(kSetJobTimeoutName)) {
        return reinterpret_cast<SetJobTimeoutFunction*>(function);
    }
    if (!binding.Configured(kTransportLibrary)) {
        return nullptr;
    }
    try {
        return reinterpret_cast<SetJobTimeoutFunction*>(
            binding.Function(kTransportLibrary, kSetJobTimeoutName));
    } catch (const Common::Error& error) {
        Common::TraceError(2, error);
        return nullptr;
    }
}

SetJobTimeoutFunction* HostSetJobTimeout() {
    static SetJobTimeoutFunction* const bound = ResolveSetJobTimeout(Platform::ProcessLateBinding());
    return bound;
}

}  // namespace Detail

std::unique_ptr<RequestJob> WithTimeLimit(std::unique_ptr<RequestJob> job,
                                          std::uint32_t milliseconds) {
    if (job == nullptr) {
        return nullptr;
    }
    return std::make_unique<TimeLimitedJob>(std::move(job), milliseconds);
}

std::unique_ptr<RequestJob> SetJobTimeout(std::unique_ptr<RequestJob> job,
                                          std::uint32_t milliseconds) {
    if (job == nullptr) {
        return nullptr;
    }
    if (SetJobTimeoutFunction* host = Detail::HostSetJobTimeout()) {
        std::unique_ptr<RequestJob> wrapped;
        host(std::move(job), milliseconds, &wrapped, milliseconds, 0);
        return wrapped;
    }
    return WithTimeLimit(std::move(job), milliseconds);
}

}  // namespace Binding
