#pragma once

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace CompatibilityManagement {

// Component 17.
class TL_API CompatibilityManager {
public:
    virtual ~CompatibilityManager();

    virtual Common::Error ProcessExternalAction() = 0;
};

}  // namespace CompatibilityManagement
