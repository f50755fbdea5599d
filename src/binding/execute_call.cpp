#include <tessel_link/binding/call.h>
#include <tessel_link/common/assert.h>

namespace Binding {

Common::Error ExecuteCall(RequestChannel& channel, std::unique_ptr<Request>& request) {
    std::unique_ptr<Request> pending = std::move(request);
    std::unique_ptr<RequestJob> job;
    const Common::Error sent = channel.Send(std::move(pending), job);
    if (sent.Code() != Common::ErrorSuccess.Code()) {
        return sent;
    }
    TL_ASSERT(job != nullptr);
    return job->Run(nullptr);
}

}  // namespace Binding
