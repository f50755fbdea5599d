#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/facade/test_manager.h>

#include "facade/component_traits.h"
#include "facade/proxy_component.h"

template <>
struct Core::ComponentTraits<188> {
    static constexpr const char* kInterfaceName = "TestManager";
    static constexpr std::uint32_t kInterfaceVersion = 1;
    static constexpr std::int32_t kMethodCount = 4;
};

namespace TestManagement {

class TestManager_Proxy : public TestManager {
public:
    explicit TestManager_Proxy(std::shared_ptr<Binding::RequestChannel> channel);

    Common::Error Test() override;
    Common::Error TestCancel() override;
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override;
    Common::Error ResumeCancel(std::map<std::string, std::u16string>& resume) override;

private:
    std::shared_ptr<Binding::RequestChannel> channel_;
};

class TestManager_ProxyComponent final
    : public Core::ProxyComponent<TestManager_Proxy, TestManager, 188> {
public:
    using ProxyComponent::ProxyComponent;
};

std::unique_ptr<Binding::Request> MakeRequest_Test();
std::unique_ptr<Binding::Request> MakeRequest_TestCancel();
std::unique_ptr<Binding::Request> MakeRequest_GetData(const std::string& hostname,
                                                      std::uint32_t size, std::string& result);
std::unique_ptr<Binding::Request> MakeRequest_ResumeCancel(
    std::map<std::string, std::u16string>& resume);

}  // namespace TestManagement
