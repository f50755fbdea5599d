#include "facade/components/test_manager.h"

#include <tessel_link/binding/call.h>
#include <tessel_link/binding/request_impl.h>
#include <tessel_link/binding/service_method.h>

#include "facade/component_info_impl.h"
#include "facade/component_info_registry.h"

namespace TestManagement {

using Binding::ArgumentKind;
using Binding::Detail::CreateRequest;
using Core::Describe;

TestManager::~TestManager() = default;

TestManager_Proxy::TestManager_Proxy(std::shared_ptr<Binding::RequestChannel> channel)
    : channel_(std::move(channel)) {}

Common::Error TestManager_Proxy::Test() {
    return Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_Test(); });
}

Common::Error TestManager_Proxy::TestCancel() {
    return Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_TestCancel(); });
}

Common::Error TestManager_Proxy::GetData(const std::string& hostname, std::uint32_t size,
                                         std::string& result) {
    return Binding::Detail::CallRemote(*channel_,
                                       [&] { return MakeRequest_GetData(hostname, size, result); });
}

Common::Error TestManager_Proxy::ResumeCancel(std::map<std::string, std::u16string>& resume) {
    return Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_ResumeCancel(resume); });
}

std::unique_ptr<Binding::Request> MakeRequest_Test() {
    return CreateRequest<void()>(Describe<188>(1, "Test", 1));
}

std::unique_ptr<Binding::Request> MakeRequest_TestCancel() {
    return CreateRequest<void()>(Describe<188>(2, "TestCancel", 1));
}

std::unique_ptr<Binding::Request> MakeRequest_GetData(const std::string& hostname,
                                                      std::uint32_t size, std::string& result) {
    return CreateRequest<void(const std::string&, std::uint32_t, std::string&)>(
        Describe<188>(3, "GetData", 1), {hostname, "hostname", ArgumentKind::Default},
        {size, "size", ArgumentKind::Default}, {result, "result", ArgumentKind::Out});
}

std::unique_ptr<Binding::Request> MakeRequest_ResumeCancel(
    std::map<std::string, std::u16string>& resume) {
    return CreateRequest<void(std::map<std::string, std::u16string>&)>(
        Describe<188>(4, "ResumeCancel", 1), {resume, "resume", ArgumentKind::Default});
}

TestManager_Dispatcher::TestManager_Dispatcher(std::shared_ptr<TestManager> implementation)
    : ComponentDispatcher(
          188, Core::ComponentTraits<188>::kInterfaceName,
          Core::ComponentTraits<188>::kInterfaceVersion, std::move(implementation),
          {Binding::Serve<TestManager, &TestManager::Test>(1, "Test", 1),
           Binding::Serve<TestManager, &TestManager::TestCancel>(2, "TestCancel", 1),
           Binding::Serve<TestManager, &TestManager::GetData>(
               3, "GetData", 1,
               {{"hostname", ArgumentKind::Default},
                {"size", ArgumentKind::Default},
                {"result", ArgumentKind::Out}}),
           Binding::Serve<TestManager, &TestManager::ResumeCancel>(
               4, "ResumeCancel", 1, {{"resume", ArgumentKind::Default}})}) {}

namespace {
const Core::ComponentInfoRegistrar<Core::ComponentInfoImpl<188>> registrar;
}

}  // namespace TestManagement
