#pragma once

// Credentials travel as two wide strings, "UserName" then "Password", written as they stand.
// Between them and the packet stands one per-thread hook that a host may install to change
// what is sent or to take what is read.

#include <string>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Common {

// A user name and its password, as a record carries them.
struct Credentials {
    std::u16string UserName;  // the user
    std::u16string Password;  // the user's password, written as it stands

    // Same user and password.
    friend bool operator==(const Credentials&, const Credentials&) = default;
};

// The hook. Process is called with a copy of the credentials before they are written, and
// with the credentials just read.
class TL_API CredentialsHook {
public:
    virtual ~CredentialsHook();
    virtual void Process(Credentials& credentials) = 0;  // may change the credentials
};

// The calling thread's hook, or null. The library never installs one itself.
TL_API CredentialsHook* GetCredentialsHook();
// Installs `hook` for the calling thread (null removes it) and returns the previous one.
TL_API CredentialsHook* SetCredentialsHook(CredentialsHook* hook);

// Writes the credentials as they stand (neither is an obscured value), after the hook saw a
// copy.
TL_API Serialization::Serializer& operator<<(Serialization::Serializer& s, const Credentials& value);
// Reads the credentials and hands them to the hook.
TL_API Serialization::Deserializer& operator>>(Serialization::Deserializer& d, Credentials& value);

}  // namespace Common

namespace AccessManagement {

// The credentials of a resource, in the form of Common::Credentials.
class Logon {
public:
    Logon() = default;
    // Credentials of a user.
    Logon(std::u16string userName, std::u16string password)
        : credentials_{std::move(userName), std::move(password)} {}

    const std::u16string& UserName() const { return credentials_.UserName; }  // the user
    const std::u16string& Password() const { return credentials_.Password; }  // the password
    // Changes the user.
    void SetUserName(std::u16string value) { credentials_.UserName = std::move(value); }
    // Changes the password.
    void SetPassword(std::u16string value) { credentials_.Password = std::move(value); }

    // The credentials as a record carries them.
    const Common::Credentials& Credentials() const { return credentials_; }
    // The credentials as a record carries them.
    Common::Credentials& Credentials() { return credentials_; }

    friend bool operator==(const Logon&, const Logon&) = default;  // same credentials

private:
    Common::Credentials credentials_;
};

// Writes the credentials as Common::Credentials.
TL_API Serialization::Serializer& operator<<(Serialization::Serializer& s, const Logon& value);
// Reads the credentials as Common::Credentials.
TL_API Serialization::Deserializer& operator>>(Serialization::Deserializer& d, Logon& value);

}  // namespace AccessManagement
