#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace TestManagement {

// Component 188: calls for trying out a connection to the service.
class TL_API TestManager {
public:
    virtual ~TestManager();

    virtual Common::Error Test() = 0;
    virtual Common::Error TestCancel() = 0;
    virtual Common::Error GetData(const std::string& hostname, std::uint32_t size,
                                  std::string& result) = 0;
    virtual Common::Error ResumeCancel(std::map<std::string, std::u16string>& resume) = 0;
};

// The service side of component 188: serves the calls of TestManager proxies with a
// TestManager of the host's, for example through a Binding::LoopbackChannel.
class TL_API TestManager_Dispatcher final : public Binding::ComponentDispatcher<TestManager> {
public:
    explicit TestManager_Dispatcher(std::shared_ptr<TestManager> implementation);
};

}  // namespace TestManagement
