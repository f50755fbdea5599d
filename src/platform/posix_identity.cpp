// Identities on Linux: users from the user database, and the file-system identity of one
// thread (setfsuid, setfsgid, and the supplementary groups set by the raw system call, which
// changes the calling thread alone where the C library would change every thread).

#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <string>
#include <vector>

#include <tessel_link/common/unicode.h>

#include "platform/identity.h"
#include "platform/pam_logon.h"
#include "platform/posix_errors.h"

namespace Platform {

namespace {

char AsciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameName(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiLower(a[i]) != AsciiLower(b[i])) {
            return false;
        }
    }
    return true;
}

bool IsThisMachine(const std::string& domain) {
    if (domain == ".") {
        return true;
    }
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) != 0) {
        return false;
    }
    std::string name = host;
    return SameName(domain, name) || SameName(domain, name.substr(0, name.find('.')));
}

// The database entry of `name`: 0 when found, ENOENT when unknown, else the reason.
int FindUser(const std::string& name, Credentials& credentials, std::string& found) {
    std::vector<char> buffer(1024);
    struct passwd entry {};
    struct passwd* result = nullptr;
    int status;
    while ((status = ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &result)) ==
           ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (status != 0) {
        return status;
    }
    if (result == nullptr) {
        return ENOENT;
    }
    credentials.User = entry.pw_uid;
    credentials.Group = entry.pw_gid;
    found = entry.pw_name;
    int count = 16;
    std::vector<gid_t> groups;
    for (;;) {
        groups.resize(static_cast<std::size_t>(count));
        int asked = count;
        if (::getgrouplist(entry.pw_name, entry.pw_gid, groups.data(), &asked) >= 0) {
            groups.resize(static_cast<std::size_t>(asked));
            break;
        }
        count = asked > count ? asked : count * 2;
    }
    credentials.Groups.assign(groups.begin(), groups.end());
    return 0;
}

class PosixIdentity final : public Identity {
public:
    SystemError Logon(const std::u16string& user, const std::u16string& domain,
                      const char16_t* password, LogonKind kind, Credentials& credentials) override {
        credentials = {};
        const std::string name = Common::Utf16ToUtf8(user);
        const std::string realm = Common::Utf16ToUtf8(domain);
        if (name.empty() || name.find('\0') != std::string::npos) {
            return {kErrorLogonFailure, EINVAL};
        }
        std::string found;
        int status;
        if (realm.empty() || IsThisMachine(realm)) {
            status = FindUser(name, credentials, found);
        } else {
            // A directory service shows its users to the database as "DOMAIN\user".
            status = FindUser(realm + "\\" + name, credentials, found);
            if (status == ENOENT) {
                return {kErrorNoSuchDomain, ENOENT};
            }
        }
        if (status == ENOENT) {
            return {kErrorLogonFailure, ENOENT};
        }
        if (status != 0) {
            return FromErrno(status);
        }
        if (password != nullptr) {
            std::string secret = Common::Utf16ToUtf8(password);
            const SystemError checked =
                CheckPassword(found, secret, kind == LogonKind::Interactive);
            // The password is held only for the call.
            volatile char* wipe = secret.data();
            for (std::size_t i = 0; i < secret.size(); ++i) {
                wipe[i] = 0;
            }
            if (checked.Failed()) {
                credentials = {};
                return checked;
            }
        }
        return {};
    }

    SystemError ThreadCredentials(Credentials& credentials) override {
        // An id of -1 is refused, and the answer is the id in force.
        credentials.User = static_cast<std::uint32_t>(::setfsuid(static_cast<uid_t>(-1)));
        credentials.Group = static_cast<std::uint32_t>(::setfsgid(static_cast<gid_t>(-1)));
        const int count = ::getgroups(0, nullptr);
        if (count < 0) {
            return FromErrno(errno);
        }
        std::vector<gid_t> groups(static_cast<std::size_t>(count));
        const int got = ::getgroups(count, groups.data());
        if (got < 0) {
            return FromErrno(errno);
        }
        credentials.Groups.assign(groups.begin(), groups.begin() + got);
        return {};
    }

    SystemError SetThreadCredentials(const Credentials& credentials) override {
        Credentials now;
        if (const SystemError failure = ThreadCredentials(now); failure.Failed()) {
            return failure;
        }
        if (now.Groups != credentials.Groups) {
            const std::vector<gid_t> groups(credentials.Groups.begin(), credentials.Groups.end());
            if (::syscall(SYS_setgroups, groups.size(), groups.data()) != 0) {
                return FromErrno(errno);
            }
        }
        // Neither call tells of a failure except by leaving the id as it was.
        ::setfsgid(static_cast<gid_t>(credentials.Group));
        if (static_cast<std::uint32_t>(::setfsgid(static_cast<gid_t>(-1))) != credentials.Group) {
            return FromErrno(EPERM);
        }
        ::setfsuid(static_cast<uid_t>(credentials.User));
        if (static_cast<std::uint32_t>(::setfsuid(static_cast<uid_t>(-1))) != credentials.User) {
            return FromErrno(EPERM);
        }
        return {};
    }
};

}  // namespace

Identity& SystemIdentity() {
    static PosixIdentity instance;
    return instance;
}

}  // namespace Platform
