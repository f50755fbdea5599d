#pragma once

// Not API: the call cycle that every generated proxy method runs. Hosts call the
// proxies' methods instead.

#include <memory>
#include <utility>

#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace Binding {

// "Pointer is null.": a null request handed to the call cycle or a channel, or a channel
// that reported success without making a job. A usage error, reported by an assertion too.
inline constexpr std::uint32_t kErrorNullPointer = 0xb9000e;

// The call cycle of every proxy method: hands the request to the channel and, when the
// channel took it, runs the job and returns its outcome; otherwise the channel's reason.
// `request` is empty afterwards. A channel that reports success must have made a job; an
// empty `request`, or no job, is answered with kErrorNullPointer.
TL_API Common::Error ExecuteCall(RequestChannel& channel, std::unique_ptr<Request>& request);

// The error of a null pointer where the call cycle needs an object, with its assertion.
TL_API Common::Error NullPointerError(const Common::ErrorOrigin& origin, const char* expression);

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
