#pragma once

// Acting as another user. A SubstToken stands for a user who has logged on; a
// TokenSubstitutionExecutor is a short scope in which the calling thread's access to files
// is checked as that user's. Nothing is held between scopes, so a thread is never left
// acting for someone else. On Linux the token is the user's file-system identity (user,
// group and supplementary groups), and a scope changes those of the calling thread alone.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>

namespace File {

// A logged-on user whose file access a scope can take on.
class TL_API SubstToken : Common::NonCopyable {
public:
    // What the token holds; only the library makes one.
    struct State;

    // Logs `user` on for access to files: "DOMAIN\name" or "name". The user is looked up in
    // the user database; a `password`, when not null, is checked and then forgotten. Failure:
    // 0x40025 "Invalid file handle." with the system's reason (1326, unknown user or wrong
    // password; 1355, unknown domain) beneath, and `token` null.
    static Common::Error CreateLogonToken(const std::u16string& user, const char16_t* password,
                                          std::shared_ptr<SubstToken>& token);
    // The same for an interactive logon: the account must also be open for use now (not
    // expired or locked; 1327 otherwise).
    static Common::Error CreateInteractiveLogonToken(const std::u16string& user,
                                                     const char16_t* password,
                                                     std::shared_ptr<SubstToken>& token);

    explicit SubstToken(std::unique_ptr<State> state);  // made by the logon functions
    ~SubstToken();

    // The identity that a scope takes on.
    std::uint32_t User() const noexcept;
    std::uint32_t Group() const noexcept;  // the primary group
    const std::vector<std::uint32_t>& Groups() const noexcept;  // the supplementary groups

    const State& Get() const noexcept { return *state_; }  // the token's state, for the library

private:
    std::unique_ptr<State> state_;
};

// Splits "DOMAIN\name" at its first backslash; a name without one has an empty domain.
TL_API void SplitUserName(const std::u16string& given, std::u16string& domain,
                          std::u16string& user);

// While it lives, the calling thread's file access is that of `token`'s user; a null token
// changes nothing. Scopes nest on a thread, and leaving one gives the thread back the
// identity it had before. A scope belongs to the thread that made it and must end there. A
// thread started inside a scope starts with the identity in force, as Linux copies it.
class TL_API TokenSubstitutionExecutor : Common::NonCopyable {
public:
    // `error` tells whether the scope was entered: success, or a failure with the system's
    // reason, after which the caller must not do what the scope was for.
    TokenSubstitutionExecutor(const std::shared_ptr<SubstToken>& token, Common::Error& error);
    ~TokenSubstitutionExecutor();

private:
    enum class Saved : std::uint8_t { nothing, no_token, token };

    void Impersonate(const std::shared_ptr<SubstToken>& token, Common::Error& error);

    Saved saved_ = Saved::nothing;
    // The token tried, whose identity seam puts things back; the one that stood before.
    std::shared_ptr<SubstToken> entered_;
    std::shared_ptr<SubstToken> previous_;
};

}  // namespace File
