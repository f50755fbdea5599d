#include "facade/components/compatibility_manager.h"

#include <tessel_link/binding/call.h>
#include <tessel_link/binding/request_impl.h>

#include "facade/component_info_impl.h"
#include "facade/component_info_registry.h"

namespace CompatibilityManagement {

using Binding::Detail::CreateRequest;
using Core::Describe;

CompatibilityManager::~CompatibilityManager() = default;

CompatibilityManager_Proxy::CompatibilityManager_Proxy(
    std::shared_ptr<Binding::RequestChannel> channel)
    : channel_(std::move(channel)) {}

Common::Error CompatibilityManager_Proxy::ProcessExternalAction() {
    return Binding::Detail::CallRemote(*channel_,
                                       [&] { return MakeRequest_ProcessExternalAction(); });
}

std::unique_ptr<Binding::Request> MakeRequest_ProcessExternalAction() {
    return CreateRequest<void()>(Describe<17>(1, "ProcessExternalAction", 1));
}

namespace {
const Core::ComponentInfoRegistrar<Core::ComponentInfoImpl<17>> registrar;
}

}  // namespace CompatibilityManagement
