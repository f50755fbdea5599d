#include <tessel_link/serialize/credentials.h>

namespace Common {

namespace {

thread_local CredentialsHook* t_hook = nullptr;

const Serialization::MetaInfo& UserNameMeta() {
    static const Serialization::MetaInfo meta("UserName");
    return meta;
}
const Serialization::MetaInfo& PasswordMeta() {
    static const Serialization::MetaInfo meta("Password");
    return meta;
}

}  // namespace

CredentialsHook::~CredentialsHook() = default;

CredentialsHook* GetCredentialsHook() {
    return t_hook;
}

CredentialsHook* SetCredentialsHook(CredentialsHook* hook) {
    CredentialsHook* previous = t_hook;
    t_hook = hook;
    return previous;
}

Serialization::Serializer& operator<<(Serialization::Serializer& s, const Credentials& value) {
    if (CredentialsHook* hook = t_hook) {
        Credentials sent = value;
        hook->Process(sent);
        s.Write(UserNameMeta(), sent.UserName);
        s.Write(PasswordMeta(), sent.Password);
        return s;
    }
    s.Write(UserNameMeta(), value.UserName);
    s.Write(PasswordMeta(), value.Password);
    return s;
}

Serialization::Deserializer& operator>>(Serialization::Deserializer& d, Credentials& value) {
    // Read whole into a pair of its own, so that a missing password leaves the user name as
    // it was too.
    Credentials read;
    d.Read(UserNameMeta(), read.UserName);
    d.Read(PasswordMeta(), read.Password);
    if (CredentialsHook* hook = t_hook) {
        hook->Process(read);
    }
    value = std::move(read);
    return d;
}

}  // namespace Common

namespace AccessManagement {

Serialization::Serializer& operator<<(Serialization::Serializer& s, const Logon& value) {
    return s << value.Credentials();
}

Serialization::Deserializer& operator>>(Serialization::Deserializer& d, Logon& value) {
    return d >> value.Credentials();
}

}  // namespace AccessManagement
