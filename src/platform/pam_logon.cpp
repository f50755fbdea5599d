// Password checks through PAM, under the service name "tessel_link" (a system without a
// configuration of that name applies its "other" rules). PAM is bound by name on the first
// check, so that the library itself depends on no more than it must and a host that never
// logs anyone on never loads it.

#include "platform/pam_logon.h"

#include <security/pam_appl.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <tessel_link/common/error.h>

#include "platform/identity.h"
#include "platform/late_binding.h"

namespace Platform {

namespace {

// Answers every prompt for a secret with the password; messages are let go.
int Converse(int count, const struct pam_message** messages, struct pam_response** responses,
             void* data) {
    if (count <= 0) {
        return PAM_CONV_ERR;
    }
    const char* password = static_cast<const char*>(data);
    auto* replies = static_cast<struct pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(struct pam_response)));
    if (replies == nullptr) {
        return PAM_BUF_ERR;
    }
    for (int i = 0; i < count; ++i) {
        const int style = messages[i]->msg_style;
        if (style == PAM_PROMPT_ECHO_OFF || style == PAM_PROMPT_ECHO_ON) {
            replies[i].resp = ::strdup(password);
            if (replies[i].resp == nullptr) {
                for (int j = 0; j < i; ++j) {
                    std::free(replies[j].resp);
                }
                std::free(replies);
                return PAM_BUF_ERR;
            }
        }
    }
    *responses = replies;
    return PAM_SUCCESS;
}

SystemError LogonError(int status) {
    switch (status) {
        case PAM_SUCCESS:
            return {};
        case PAM_ACCT_EXPIRED:
        case PAM_NEW_AUTHTOK_REQD:
        case PAM_PERM_DENIED:
            return {kErrorAccountRestriction, EPERM};
        default:
            return {kErrorLogonFailure, EACCES};
    }
}

// The PAM functions a check uses, bound once.
struct PamFunctions {
    decltype(&::pam_start) Start;
    decltype(&::pam_authenticate) Authenticate;
    decltype(&::pam_acct_mgmt) AccountManagement;
    decltype(&::pam_end) End;
};

constexpr const char kPamLibrary[] = "libpam.so.0";

// Throws the late-binding error when PAM cannot be loaded or lacks a function.
const PamFunctions& Pam() {
    static const PamFunctions functions = [] {
        LateBinding& binding = ProcessLateBinding();
        return PamFunctions{
            reinterpret_cast<decltype(&::pam_start)>(binding.Function(kPamLibrary, "pam_start")),
            reinterpret_cast<decltype(&::pam_authenticate)>(
                binding.Function(kPamLibrary, "pam_authenticate")),
            reinterpret_cast<decltype(&::pam_acct_mgmt)>(
                binding.Function(kPamLibrary, "pam_acct_mgmt")),
            reinterpret_cast<decltype(&::pam_end)>(binding.Function(kPamLibrary, "pam_end"))};
    }();
    return functions;
}

}  // namespace

SystemError CheckPassword(const std::string& user, const std::string& password, bool account) {
    struct pam_conv conversation {
        Converse, const_cast<char*>(password.c_str())
    };
    const PamFunctions* pam = nullptr;
    try {
        pam = &Pam();
    } catch (const Common::Error&) {
        // Without PAM no password can be checked: the logon fails for want of a library.
        return {kErrorLogonFailure, ELIBACC};
    }
    pam_handle_t* handle = nullptr;
    int status = pam->Start("tessel_link", user.c_str(), &conversation, &handle);
    if (status != PAM_SUCCESS) {
        return LogonError(status);
    }
    status = pam->Authenticate(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    if (status == PAM_SUCCESS && account) {
        status = pam->AccountManagement(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    }
    pam->End(handle, status);
    return LogonError(status);
}

}  // namespace Platform
