#pragma once

#include <string>

#include "platform/file_system.h"

namespace Platform {

// Checks `password` for `user` through PAM; `account` also asks whether the account may be
// used now (not expired, not locked). Failures are Windows logon codes.
SystemError CheckPassword(const std::string& user, const std::string& password, bool account);

}  // namespace Platform
