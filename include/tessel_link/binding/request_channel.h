#pragma once

// The channel a host gives its proxies: where every call is sent and how its job runs.

#include <memory>

#include <tessel_link/binding/request.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace JobManagement {
class JobHandler;
}

namespace Binding {

// One request under way, made by the host's channel.
class TL_API RequestJob {
public:
    virtual ~RequestJob() = default;
    // Blocks until the call is complete. On success the channel has called ReadReply and
    // the out arguments stand in the caller's variables. Proxy calls pass no handler.
    virtual Common::Error Run(JobManagement::JobHandler* handler) = 0;
    // Starts the job in the background and returns at once; the handler is told when the
    // call has ended (the event proxy's fetches run this way). A channel without a
    // background form answers with an error.
    virtual Common::Error Start(JobManagement::JobHandler* handler) = 0;
    // Ends a started job: from its return on, the job no longer calls its handler and no
    // longer touches the request's out arguments. It must not wait for a service call that
    // blocks.
    virtual Common::Error Stop() = 0;
};

// The host's transport. Every proxy shares the channel it was created with; a channel
// must accept concurrent Send calls.
//
// Send takes the request over and fills `job`, null on entry, with the job of the call, or
// returns why the call could not be started. After the job's Run has returned the channel
// must not touch the request any more: its out arguments point into the caller's frame.
// A channel writes the request with the constants and reads the reply with the function of
// reply_reading.h.
class TL_API RequestChannel {
public:
    virtual ~RequestChannel() = default;
    // Takes `request` and, on success, sets `job` to the job that runs the call; otherwise the
    // reason the channel refused it.
    virtual Common::Error Send(std::unique_ptr<Request> request,
                               std::unique_ptr<RequestJob>& job) = 0;
};

}  // namespace Binding
