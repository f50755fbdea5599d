#include <tessel_link/impl/binding/call.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/common/messages.h>

namespace Binding {

namespace {
// "Pointer is null."
constexpr std::uint32_t kRowPointerIsNull = 349;
}  // namespace

Common::Error NullPointerError(const Common::ErrorOrigin& origin, const char* expression) {
    TL_ASSERT_TEXT(false, expression);
    return Common::Error(origin, kErrorNullPointer, Common::GetMessageRow(kRowPointerIsNull));
}

Common::Error ExecuteCall(RequestChannel& channel, std::unique_ptr<Request>& request) {
    if (request == nullptr) {
        return NullPointerError(TL_ORIGIN("Binding::ExecuteCall"), "request != nullptr");
    }
    std::unique_ptr<Request> pending = std::move(request);
    std::unique_ptr<RequestJob> job;
    const Common::Error sent = channel.Send(std::move(pending), job);
    if (sent.Code() != Common::ErrorSuccess.Code()) {
        return sent;
    }
    if (job == nullptr) {
        return NullPointerError(TL_ORIGIN("Binding::ExecuteCall"), "job != nullptr");
    }
    return job->Run(nullptr);
}

}  // namespace Binding
