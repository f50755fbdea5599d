#pragma once

#include <cstdint>
#include <map>
#include <string>

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

}  // namespace TestManagement
