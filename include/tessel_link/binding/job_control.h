#pragma once

// Jobs that run in the background: the handler a started job reports to, and the host
// function that puts a time limit on a job.

#include <cstdint>
#include <memory>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace JobManagement {

// Told of the course of a job that was started with RequestJob::Start. A channel calls the
// handler on a thread of its own; it must not call it any more once the job's Stop has
// returned. The library's own handlers look only at OnJobFinished.
class TL_API JobHandler {
public:
    virtual ~JobHandler();
    virtual void OnJobStarted() = 0;  // the job has started
    virtual void OnJobProgress(double done) = 0;  // `done` of the work is done, from 0 to 1
    virtual void OnJobPaused() = 0;  // the job waits
    virtual void OnJobResumed() = 0;  // the job goes on
    // The call has ended with `result`; on success the reply's out arguments stand in the
    // request's targets.
    virtual void OnJobFinished(const Common::Error& result) = 0;
    // A message of the job's on its way.
    virtual void OnJobMessage(const Common::Error& message) = 0;
    virtual void OnJobSuspending() {}  // the job is about to be suspended
    virtual void OnJobSuspended() {}  // the job is suspended
};

}  // namespace JobManagement

namespace Binding {

// "Operation has timed out.": a job wrapped with a time limit did not end in time; it was
// stopped.
inline constexpr std::uint32_t kErrorJobTimedOut = 0xb90020;

// The host transport's function that wraps a job in one whose Run gives up after a time.
// The library looks for it by the name kSetJobTimeoutName, first in the process and then in
// the library configured as "ipc_client" (see README, late binding); a host that has none
// gets the library's own wrapper. Arguments: the job, whose ownership moves to the call;
// the time limit in milliseconds; where to put the wrapping job; the time limit again;
// and 0. When `*wrapped` stays null the job is dropped and nothing runs.
using SetJobTimeoutFunction = void(std::unique_ptr<RequestJob> job, std::uint32_t milliseconds,
                                   std::unique_ptr<RequestJob>* wrapped,
                                   std::uint32_t millisecondsAgain, int reserved);
// The name the host exports the function under.
inline constexpr const char kSetJobTimeoutName[] = "IPCClient_SetJobTimeout";

// The library's own wrapper: Run starts `job` in the background and waits for its end at
// most `milliseconds`; then it stops the job and answers kErrorJobTimedOut. A job that
// cannot be started is run on the calling thread instead, without a limit. Stop and the
// wrapper's destructor stop the inner job.
TL_API std::unique_ptr<RequestJob> WithTimeLimit(std::unique_ptr<RequestJob> job,
                                                 std::uint32_t milliseconds);

// The job wrapped with a time limit: through the host's function when the process or the
// configured transport library has one, otherwise with WithTimeLimit. Null for a null job,
// or when the host's function made no wrapping job.
TL_API std::unique_ptr<RequestJob> SetJobTimeout(std::unique_ptr<RequestJob> job,
                                                 std::uint32_t milliseconds);

}  // namespace Binding
