#include "file/token_substitution.h"

#include <cerrno>

#include "common/thread_cache.h"
#include "file/file_errors.h"
#include "file/system_error.h"

namespace File {

namespace {

// The substitution of the calling thread: the token in force (null when the thread is
// itself) and the identity it has of its own, kept when the first scope began.
struct ThreadSubstitution {
    std::shared_ptr<SubstToken> Current;
    Platform::Credentials Self;
};

Common::Error LogonFailure(const char* origin, const Platform::SystemError& failure) {
    Common::Error error = MakeFileError(TL_ORIGIN(origin), kInvalidHandle);
    Common::Error cause;
    if (failure.Windows != 0) {
        cause.AddWindowsError(static_cast<int>(failure.Windows));
    }
    if (failure.Native != 0) {
        const Common::Error native =
            Common::Error::Errno(TL_ORIGIN(origin), Common::Error::kErrnoCode, failure.Native);
        if (cause.Empty()) {
            cause = native;
        } else {
            cause.AddCause(native);
        }
    }
    error.AddCause(cause);
    return error;
}

}  // namespace

void SplitUserName(const std::u16string& given, std::u16string& domain, std::u16string& user) {
    const std::size_t separator = given.find(u'\\');
    if (separator == std::u16string::npos) {
        domain.clear();
        user = given;
        return;
    }
    domain = given.substr(0, separator);
    user = given.substr(separator + 1);
}

Common::Error CreateToken(Platform::Identity& identity, const std::u16string& user,
                          const char16_t* password, Platform::LogonKind kind, const char* origin,
                          std::shared_ptr<SubstToken>& token) {
    token.reset();
    std::u16string domain;
    std::u16string name;
    SplitUserName(user, domain, name);
    auto state = std::make_unique<SubstToken::State>();
    state->Identity = &identity;
    const Platform::SystemError failure =
        identity.Logon(name, domain, password, kind, state->Credentials);
    if (failure.Failed()) {
        return LogonFailure(origin, failure);
    }
    token = std::make_shared<SubstToken>(std::move(state));
    return Common::ErrorSuccess;
}

Common::Error SubstToken::CreateLogonToken(const std::u16string& user, const char16_t* password,
                                           std::shared_ptr<SubstToken>& token) {
    return CreateToken(Platform::SystemIdentity(), user, password,
                       Platform::LogonKind::NewCredentials, "SubstToken::CreateLogonToken", token);
}

Common::Error SubstToken::CreateInteractiveLogonToken(const std::u16string& user,
                                                      const char16_t* password,
                                                      std::shared_ptr<SubstToken>& token) {
    return CreateToken(Platform::SystemIdentity(), user, password, Platform::LogonKind::Interactive,
                       "SubstToken::CreateInteractiveLogonToken", token);
}

SubstToken::SubstToken(std::unique_ptr<State> state) : state_(std::move(state)) {}

SubstToken::~SubstToken() = default;

std::uint32_t SubstToken::User() const noexcept {
    return state_->Credentials.User;
}

std::uint32_t SubstToken::Group() const noexcept {
    return state_->Credentials.Group;
}

const std::vector<std::uint32_t>& SubstToken::Groups() const noexcept {
    return state_->Credentials.Groups;
}

TokenSubstitutionExecutor::TokenSubstitutionExecutor(const std::shared_ptr<SubstToken>& token,
                                                     Common::Error& error) {
    Impersonate(token, error);
}

void TokenSubstitutionExecutor::Impersonate(const std::shared_ptr<SubstToken>& token,
                                            Common::Error& error) {
    error = Common::ErrorSuccess;
    if (!token) {
        return;
    }
    Platform::Identity& identity = *token->Get().Identity;
    ThreadSubstitution* kept = Common::ThreadCache<ThreadSubstitution>::Get();
    if (kept == nullptr) {
        // The thread is ending and keeps no record of its identity: without one the scope
        // could not be left again, so it is not entered.
        error = MakeSystemError(TL_ORIGIN("TokenSubstitutionExecutor::Impersonate"),
                                "OpenThreadToken", Platform::SystemError{0, ESRCH}, kAccessDenied);
        return;
    }
    ThreadSubstitution& thread = *kept;
    // What the thread is now: another token, to be put back, or itself.
    if (thread.Current) {
        previous_ = thread.Current;
        saved_ = Saved::token;
    } else {
        Platform::Credentials self;
        const Platform::SystemError failure = identity.ThreadCredentials(self);
        if (failure.Failed()) {
            error = MakeSystemError(TL_ORIGIN("TokenSubstitutionExecutor::Impersonate"),
                                    "OpenThreadToken", failure, kAccessDenied);
            return;
        }
        thread.Self = std::move(self);
        saved_ = Saved::no_token;
    }
    entered_ = token;
    // From here the thread counts as itself until the new identity is in force; a failure
    // half-way is put right when the scope ends.
    thread.Current.reset();
    const Platform::SystemError failure = identity.SetThreadCredentials(token->Get().Credentials);
    if (failure.Failed()) {
        error = MakeSystemError(TL_ORIGIN("TokenSubstitutionExecutor::Impersonate"),
                                "ImpersonateLoggedOnUser", failure, kAccessDenied);
        return;
    }
    thread.Current = token;
}

TokenSubstitutionExecutor::~TokenSubstitutionExecutor() {
    if (saved_ == Saved::nothing) {
        return;
    }
    // Entered, so the thread's record was there, and the thread cannot end within the scope.
    ThreadSubstitution& thread = *Common::ThreadCache<ThreadSubstitution>::Get();
    // Back to the thread's own identity, then to the token of the scope outside this one.
    // Going back to what the thread was allowed before cannot be refused.
    entered_->Get().Identity->SetThreadCredentials(thread.Self);
    thread.Current.reset();
    if (saved_ == Saved::token) {
        previous_->Get().Identity->SetThreadCredentials(previous_->Get().Credentials);
        thread.Current = std::move(previous_);
    }
}

}  // namespace File
