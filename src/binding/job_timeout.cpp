#include <tessel_link/binding/job_control.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
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

// Runs the inner job in the background and waits for it at most the time limit. The
// wrapper is the inner job's handler; the inner job is stopped before the wrapper goes, so
// it is never called back into a dead object.
class TimeLimitedJob final : public RequestJob, private JobManagement::JobHandler {
public:
    TimeLimitedJob(std::unique_ptr<RequestJob> inner, std::uint32_t milliseconds)
        : inner_(std::move(inner)), milliseconds_(milliseconds) {}

    ~TimeLimitedJob() override {
        (void)inner_->Stop();
        inner_.reset();
    }

    Common::Error Run(JobManagement::JobHandler* handler) override {
        if (inner_->Start(this).Failed()) {
            // A channel without a background form: the call runs here, without a limit.
            return inner_->Run(handler);
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
        return Common::Error(TL_ORIGIN("Binding::TimeLimitedJob::Run"), kErrorJobTimedOut,
                             Common::GetMessageRow(kRowTimedOut));
    }

    Common::Error Start(JobManagement::JobHandler* handler) override {
        return inner_->Start(handler);
    }

    Common::Error Stop() override { return inner_->Stop(); }

private:
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
