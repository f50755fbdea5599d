#pragma once

// Users and a thread identity in memory, whose calls fail when a test says so, for the
// failure paths and the nesting of token substitution.

#include <map>
#include <string>
#include <vector>

#include "platform/identity.h"

namespace test_support {

class FakeIdentity final : public Platform::Identity {
public:
    struct User {
        Platform::Credentials credentials;
        std::u16string password;
        bool expired = false;
    };

    // Users by "name" or "DOMAIN\name" as the database knows them.
    std::map<std::u16string, User> users;
    // The thread's identity as the fake keeps it, and every identity it was given.
    Platform::Credentials thread{0, 0, {0}};
    std::vector<Platform::Credentials> history;
    // The last logon asked for.
    std::u16string lastUser;
    std::u16string lastDomain;
    bool lastHadPassword = false;
    // The `nth` next SetThreadCredentials (1: the very next) fails with `failure`.
    void FailSet(int nth, Platform::SystemError failure = {5, 1}) {
        failSetAt_ = sets_ + nth;
        setFailure_ = failure;
    }
    // Makes ThreadCredentials fail while set.
    Platform::SystemError readFailure{};

    Platform::SystemError Logon(const std::u16string& user, const std::u16string& domain,
                                const char16_t* password, Platform::LogonKind kind,
                                Platform::Credentials& credentials) override {
        lastUser = user;
        lastDomain = domain;
        lastHadPassword = password != nullptr;
        const auto it = users.find(domain.empty() ? user : domain + u"\\" + user);
        if (it == users.end()) {
            return {Platform::kErrorLogonFailure, 2};
        }
        if (password != nullptr && it->second.password != password) {
            return {Platform::kErrorLogonFailure, 13};
        }
        if (kind == Platform::LogonKind::Interactive && it->second.expired) {
            return {Platform::kErrorAccountRestriction, 1};
        }
        credentials = it->second.credentials;
        return {};
    }
    Platform::SystemError ThreadCredentials(Platform::Credentials& credentials) override {
        if (readFailure.Failed()) {
            return readFailure;
        }
        credentials = thread;
        return {};
    }
    Platform::SystemError SetThreadCredentials(const Platform::Credentials& credentials) override {
        ++sets_;
        if (sets_ == failSetAt_) {
            return setFailure_;
        }
        thread = credentials;
        history.push_back(credentials);
        return {};
    }

private:
    int sets_ = 0;
    int failSetAt_ = 0;
    Platform::SystemError setFailure_;
};

}  // namespace test_support
