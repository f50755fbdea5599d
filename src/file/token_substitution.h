#pragma once

#include <memory>
#include <string>

#include <tessel_link/file/token_substitution.h>

#include "platform/identity.h"

namespace File {

struct SubstToken::State {
    Platform::Credentials Credentials;
    Platform::Identity* Identity = nullptr;
};

// Logs `user` on through `identity`; `origin` names the operation in a failure.
Common::Error CreateToken(Platform::Identity& identity, const std::u16string& user,
                          const char16_t* password, Platform::LogonKind kind, const char* origin,
                          std::shared_ptr<SubstToken>& token);

}  // namespace File
