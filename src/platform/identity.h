#pragma once

// Who a thread is to the file system, and how it becomes someone else: the user database,
// the password check, and the thread's own file-system identity. Each platform has one
// implementation; tests put a fake in its place.

#include <cstdint>
#include <string>
#include <vector>

#include "platform/file_system.h"

namespace Platform {

// What the file system checks a thread's access against.
struct Credentials {
    std::uint32_t User = 0;
    std::uint32_t Group = 0;
    std::vector<std::uint32_t> Groups;  // the supplementary groups

    bool operator==(const Credentials&) const = default;
};

// Windows codes of logon failures.
inline constexpr std::uint32_t kErrorNoSuchDomain = 1355;
inline constexpr std::uint32_t kErrorLogonFailure = 1326;
inline constexpr std::uint32_t kErrorAccountRestriction = 1327;

enum class LogonKind {
    NewCredentials,  // a password, when given, must be right
    Interactive,     // the account must also be open for use now
};

class Identity {
public:
    virtual ~Identity() = default;

    // The credentials of `user` from the user database. `domain` is empty for none; it names
    // this machine or a directory service that the database knows by "DOMAIN\user". A
    // `password`, when given, is checked. Failures are logon failures (1326), an unknown
    // domain (1355) and refused accounts (1327).
    virtual SystemError Logon(const std::u16string& user, const std::u16string& domain,
                              const char16_t* password, LogonKind kind,
                              Credentials& credentials) = 0;
    // The calling thread's file-system identity.
    virtual SystemError ThreadCredentials(Credentials& credentials) = 0;
    // Makes `credentials` the calling thread's file-system identity; other threads keep theirs.
    virtual SystemError SetThreadCredentials(const Credentials& credentials) = 0;
};

// The implementation of this platform, for the life of the process.
Identity& SystemIdentity();

}  // namespace Platform
