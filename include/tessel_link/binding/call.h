#pragma once

#include <memory>
#include <utility>

#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace Binding {

// The call cycle of every proxy method: hands the request to the channel and, when the
// channel took it, runs the job and returns its outcome; otherwise the channel's reason.
// `request` is empty afterwards. A channel that reports success must have made a job.
TL_API Common::Error ExecuteCall(RequestChannel& channel, std::unique_ptr<Request>& request);

namespace Detail {

// The body of a proxy method: builds the request with `makeRequest` and executes it. A
// Common::Error raised while building (copying an argument) is the method's result; any
// other exception passes to the caller.
template <class MakeRequest>
Common::Error CallRemote(RequestChannel& channel, MakeRequest&& makeRequest) {
    std::unique_ptr<Request> request;
    try {
        request = std::forward<MakeRequest>(makeRequest)();
    } catch (const Common::Error& error) {
        return error;
    }
    return ExecuteCall(channel, request);
}

}  // namespace Detail

}  // namespace Binding
