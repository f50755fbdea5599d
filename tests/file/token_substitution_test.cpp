#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/file/token_substitution.h>

#include "file/system_file.h"
#include "file/token_substitution.h"
#include "support/error_parts.h"
#include "support/fake_file_io.h"
#include "support/fake_identity.h"

namespace {

using Platform::Credentials;
using test_support::FakeIdentity;

const Credentials kSelf{0, 0, {0}};
const Credentials kAlice{1000, 1000, {1000, 27}};
const Credentials kBob{2000, 2000, {2000}};

FakeIdentity MakeIdentity() {
    FakeIdentity identity;
    identity.thread = kSelf;
    identity.users[u"alice"] = {kAlice, u"secret", false};
    identity.users[u"CORP\\bob"] = {kBob, u"pw", true};
    return identity;
}

std::shared_ptr<File::SubstToken> Logon(FakeIdentity& identity, const std::u16string& user) {
    std::shared_ptr<File::SubstToken> token;
    const Common::Error error =
        File::CreateToken(identity, user, nullptr, Platform::LogonKind::NewCredentials,
                          "SubstToken::CreateLogonToken", token);
    EXPECT_TRUE(error.Succeeded()) << Common::Utf16ToUtf8(error.Text());
    return token;
}

using test_support::FailedFunction;

TEST(SubstToken, UserNamesSplitAtTheFirstBackslash) {
    std::u16string domain = u"x";
    std::u16string user;
    File::SplitUserName(u"host\\name", domain, user);
    EXPECT_EQ(domain, u"host");
    EXPECT_EQ(user, u"name");
    File::SplitUserName(u"name", domain, user);
    EXPECT_EQ(domain, u"");
    EXPECT_EQ(user, u"name");
    File::SplitUserName(u"a\\b\\c", domain, user);
    EXPECT_EQ(domain, u"a");
    EXPECT_EQ(user, u"b\\c");
}

TEST(SubstToken, LogonFormsAndTheirFailures) {
    FakeIdentity identity = MakeIdentity();
    std::shared_ptr<File::SubstToken> token;
    Common::Error error =
        File::CreateToken(identity, u"alice", u"secret", Platform::LogonKind::NewCredentials,
                          "SubstToken::CreateLogonToken", token);
    ASSERT_TRUE(error.Succeeded());
    ASSERT_TRUE(token);
    EXPECT_EQ(identity.lastDomain, u"");
    EXPECT_EQ(identity.lastUser, u"alice");
    EXPECT_TRUE(identity.lastHadPassword);
    EXPECT_EQ(token->User(), 1000u);
    EXPECT_EQ(token->Groups(), (std::vector<std::uint32_t>{1000, 27}));

    // A wrong password: "Invalid file handle." with the logon failure beneath, and no token.
    error = File::CreateToken(identity, u"alice", u"guess", Platform::LogonKind::NewCredentials,
                              "SubstToken::CreateLogonToken", token);
    EXPECT_FALSE(token);
    EXPECT_EQ(error.Code(), 0x40025u);
    EXPECT_EQ(error.Text(), u"Invalid file handle.");
    EXPECT_EQ(std::string(error.Origin().Func), "SubstToken::CreateLogonToken");
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x8007052eu);

    // The domain goes to the database; the interactive form also checks the account.
    error = File::CreateToken(identity, u"CORP\\bob", u"pw", Platform::LogonKind::NewCredentials,
                              "SubstToken::CreateLogonToken", token);
    EXPECT_TRUE(error.Succeeded());
    EXPECT_EQ(identity.lastDomain, u"CORP");
    EXPECT_EQ(identity.lastUser, u"bob");
    error = File::CreateToken(identity, u"CORP\\bob", u"pw", Platform::LogonKind::Interactive,
                              "SubstToken::CreateInteractiveLogonToken", token);
    EXPECT_FALSE(token);
    EXPECT_EQ(error.Code(), 0x40025u);
    EXPECT_EQ(std::string(error.Origin().Func), "SubstToken::CreateInteractiveLogonToken");
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x8007052fu);
}

TEST(TokenSubstitutionExecutor, NestedScopesRestoreTheOuterIdentity) {
    FakeIdentity identity = MakeIdentity();
    const auto alice = Logon(identity, u"alice");
    identity.users[u"bob"] = {kBob, u"", false};
    const auto bob = Logon(identity, u"bob");
    {
        Common::Error error;
        File::TokenSubstitutionExecutor outer(alice, error);
        ASSERT_TRUE(error.Succeeded());
        EXPECT_EQ(identity.thread, kAlice);
        {
            File::TokenSubstitutionExecutor inner(bob, error);
            ASSERT_TRUE(error.Succeeded());
            EXPECT_EQ(identity.thread, kBob);
            {
                // No token: nothing happens to the thread.
                File::TokenSubstitutionExecutor none(nullptr, error);
                EXPECT_TRUE(error.Succeeded());
                EXPECT_EQ(identity.thread, kBob);
            }
        }
        EXPECT_EQ(identity.thread, kAlice);
    }
    EXPECT_EQ(identity.thread, kSelf);
    // In, in, back to self, back to the outer token, back to self.
    EXPECT_EQ(identity.history, (std::vector<Credentials>{kAlice, kBob, kSelf, kAlice, kSelf}));
}

TEST(TokenSubstitutionExecutor, FailuresToEnterAreReportedAndPutRight) {
    FakeIdentity identity = MakeIdentity();
    const auto alice = Logon(identity, u"alice");
    {
        identity.FailSet(1, {5, EPERM});
        Common::Error error;
        File::TokenSubstitutionExecutor scope(alice, error);
        EXPECT_EQ(error.Code(), 0x40014u);
        EXPECT_EQ(FailedFunction(error), "ImpersonateLoggedOnUser");
        EXPECT_EQ(error.Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(EPERM));
    }
    // A failure half-way still ends with the thread as itself.
    EXPECT_EQ(identity.history, (std::vector<Credentials>{kSelf}));

    identity.history.clear();
    identity.readFailure = {0, ENOMEM};
    {
        Common::Error error;
        File::TokenSubstitutionExecutor scope(alice, error);
        EXPECT_TRUE(error.Failed());
        EXPECT_EQ(FailedFunction(error), "OpenThreadToken");
    }
    EXPECT_TRUE(identity.history.empty());  // nothing was changed, nothing put back
}

TEST(TokenSubstitutionExecutor, FilesRunEachOperationInAScope) {
    FakeIdentity identity = MakeIdentity();
    const auto alice = Logon(identity, u"alice");
    test_support::FakeFileIo io;
    io.files[u"f"].data = {'a', 'b', 'c'};
    Common::Error error;
    auto file = File::OpenFile(io, u"f", File::open_mode::read_write, error, alice);
    ASSERT_TRUE(file);
    EXPECT_EQ(identity.history, (std::vector<Credentials>{kAlice, kSelf}));
    char buffer[3];
    std::uint64_t read = 0;
    ASSERT_TRUE(file->Read(buffer, 3, read));
    EXPECT_EQ(identity.history.size(), 4u);
    EXPECT_EQ(identity.thread, kSelf);

    // A scope that can't be entered keeps the system call from being made.
    identity.FailSet(1);
    file->Seek(0);
    EXPECT_EQ(file->GetError().Code(), 0x40014u);
    EXPECT_EQ(io.Calls(test_support::FakeFileIo::Call::Seek), 0);
    EXPECT_EQ(identity.thread, kSelf);

    // An open that can't enter its scope fails before the system is asked.
    identity.FailSet(1);
    const int opens = io.Calls(test_support::FakeFileIo::Call::Open);
    EXPECT_FALSE(File::OpenFile(io, u"f", File::open_mode::read, error, alice));
    EXPECT_EQ(error.Code(), 0x40014u);
    EXPECT_EQ(io.Calls(test_support::FakeFileIo::Call::Open), opens);
}

// Real identities: the process must be root to act for another user.
class OtherUser : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0 || ::getpwnam("nobody") == nullptr) {
            GTEST_SKIP() << "needs root and the user nobody";
        }
        char name[] = "/tmp/tessel_token_XXXXXX";
        ASSERT_TRUE(::mkdtemp(name));
        dir_ = name;
        ASSERT_EQ(::chmod(dir_.c_str(), 0755), 0);
        secret_ = dir_ + "/root-only";
        open_ = dir_ + "/everyone";
        for (const auto& [path, mode] : {std::pair{secret_, 0600}, std::pair{open_, 0644}}) {
            const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, mode);
            ASSERT_GE(fd, 0);
            ASSERT_EQ(::write(fd, "data", 4), 4);
            ::close(fd);
            ASSERT_EQ(::chmod(path.c_str(), static_cast<mode_t>(mode)), 0);
        }
        const Common::Error error = File::SubstToken::CreateLogonToken(u"nobody", nullptr, token_);
        ASSERT_TRUE(error.Succeeded()) << Common::Utf16ToUtf8(error.Text());
    }
    void TearDown() override {
        if (!dir_.empty()) {
            ::unlink(secret_.c_str());
            ::unlink(open_.c_str());
            ::rmdir(dir_.c_str());
        }
    }

    static bool Opens(const std::string& path,
                      const std::shared_ptr<File::SubstToken>& token = nullptr) {
        Common::Error error;
        return File::OpenSystemFile(Common::WidenLatin1(path), File::open_mode::read, error,
                                    token) != nullptr;
    }

    std::string dir_;
    std::string secret_;
    std::string open_;
    std::shared_ptr<File::SubstToken> token_;
};

TEST_F(OtherUser, ARootOnlyFileIsDeniedUnderAnotherUsersToken) {
    EXPECT_EQ(token_->User(), ::getpwnam("nobody")->pw_uid);
    Common::Error error;
    auto denied =
        File::OpenSystemFile(Common::WidenLatin1(secret_), File::open_mode::read, error, token_);
    EXPECT_FALSE(denied);
    EXPECT_EQ(error.Code(), 0x40014u);
    EXPECT_EQ(error.Text(), u"Access to the file is denied.");
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x80070005u);
    EXPECT_EQ(error.Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(EACCES));

    // Without the token it opens; a file that the user may read opens with it, and reads.
    EXPECT_TRUE(Opens(secret_));
    auto shared =
        File::OpenSystemFile(Common::WidenLatin1(open_), File::open_mode::read, error, token_);
    ASSERT_TRUE(shared) << Common::Utf16ToUtf8(error.Text());
    char buffer[4];
    EXPECT_TRUE(shared->ReadExact(buffer, 4));
    // Writing is the owner's: the open for writing is refused under the token.
    EXPECT_FALSE(File::OpenSystemFile(Common::WidenLatin1(open_), File::open_mode::read_write,
                                      error, token_));
    EXPECT_EQ(error.Code(), 0x40014u);
    EXPECT_TRUE(Opens(secret_));  // and the thread is itself again
}

TEST_F(OtherUser, ADirectoryLoggedOnAsTheUserOpensAndListsWithItsAccess) {
    const std::string hidden = dir_ + "/private";
    ASSERT_EQ(::mkdir(hidden.c_str(), 0700), 0);
    Common::Error error;
    auto dir = File::OpenSystemDir(Common::WidenLatin1(dir_), error);
    ASSERT_TRUE(dir) << Common::Utf16ToUtf8(error.Text());
    std::unique_ptr<File::ri_file> file(dir->OpenI(u"root-only", 0));
    EXPECT_TRUE(file);  // the process's own access, before the logon

    File::logon_command logon;
    logon.User = u"nobody";
    ASSERT_TRUE(dir->IOCTL(logon)) << Common::Utf16ToUtf8(dir->GetError().Text());
    File::token_command given;
    ASSERT_TRUE(dir->IOCTL(given));
    ASSERT_TRUE(given.Token);
    EXPECT_EQ(given.Token->User(), ::getpwnam("nobody")->pw_uid);

    file.reset(dir->OpenI(u"root-only", 0));
    EXPECT_FALSE(file);
    EXPECT_EQ(dir->GetError().Code(), 0x40014u);
    EXPECT_EQ(dir->GetError().Cause().Cause().GetNumber("Errno"),
              static_cast<std::uint64_t>(EACCES));
    file.reset(dir->OpenI(u"everyone", 0));
    EXPECT_TRUE(file);
    std::unique_ptr<File::i_dir::iterator> listing(dir->GetIterator(u"private/*"));
    ASSERT_TRUE(listing);
    EXPECT_TRUE(listing->Failed());
    EXPECT_EQ(listing->GetError().Cause().Cause().GetNumber("Errno"),
              static_cast<std::uint64_t>(EACCES));

    // A failed logon leaves the directory acting as before.
    logon.User = u"no-such-user-here";
    EXPECT_FALSE(dir->IOCTL(logon));
    EXPECT_EQ(dir->GetError().Code(), 0x40025u);
    ASSERT_TRUE(dir->IOCTL(given));
    EXPECT_EQ(given.Token->User(), ::getpwnam("nobody")->pw_uid);

    // Opened with the token from the start, the directory is the user's from its first call.
    dir = File::OpenSystemDir(Common::WidenLatin1(hidden), token_, error);
    EXPECT_FALSE(dir);
    EXPECT_EQ(error.Code(), 0x40014u);
    ::rmdir(hidden.c_str());
}

TEST_F(OtherUser, AScopeChangesTheCallingThreadAlone) {
    // The other thread is there before the scope begins: a thread made inside a scope
    // starts with the identity of the thread that made it.
    const int groupsBefore = ::getgroups(0, nullptr);
    std::promise<void> entered;
    bool otherOpens = false;
    int otherGroups = -1;
    std::thread other([&, ready = entered.get_future()]() mutable {
        ready.wait();
        otherOpens = Opens(secret_);
        otherGroups = ::getgroups(0, nullptr);
    });
    {
        Common::Error error;
        File::TokenSubstitutionExecutor scope(token_, error);
        EXPECT_TRUE(error.Succeeded()) << Common::Utf16ToUtf8(error.Text());
        EXPECT_FALSE(Opens(secret_));
        EXPECT_EQ(static_cast<std::size_t>(::getgroups(0, nullptr)), token_->Groups().size());
        entered.set_value();
        other.join();
    }
    EXPECT_TRUE(otherOpens);
    EXPECT_EQ(otherGroups, groupsBefore);
    EXPECT_EQ(::getgroups(0, nullptr), groupsBefore);
    EXPECT_TRUE(Opens(secret_));
}

TEST_F(OtherUser, LogonsOfUnknownUsersDomainsAndWrongPasswords) {
    std::shared_ptr<File::SubstToken> token;
    Common::Error error = File::SubstToken::CreateLogonToken(u"no-such-user-here", nullptr, token);
    EXPECT_EQ(error.Code(), 0x40025u);
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x8007052eu);
    EXPECT_FALSE(token);
    error = File::SubstToken::CreateLogonToken(u"NOWHERE-DOMAIN\\nobody", nullptr, token);
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x8007054bu);  // no such domain
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    error =
        File::SubstToken::CreateLogonToken(Common::WidenLatin1(host) + u"\\nobody", nullptr, token);
    EXPECT_TRUE(error.Succeeded());
    error = File::SubstToken::CreateLogonToken(u".\\nobody", nullptr, token);
    EXPECT_TRUE(error.Succeeded());
    // The account has no password that could be right.
    // PAM itself said no (bound at run time: a missing PAM would leave ELIBACC instead).
    error = File::SubstToken::CreateInteractiveLogonToken(u"nobody", u"not it", token);
    EXPECT_EQ(error.Code(), 0x40025u);
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x8007052eu);
    EXPECT_EQ(error.Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(EACCES));
    EXPECT_FALSE(token);
}

}  // namespace
