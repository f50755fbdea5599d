// Directories that carry a token: every system call of the directory, of its iterators and of
// what is opened from it runs as the token's user, also after the directory itself is gone.

#include <cerrno>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_dir.h>

#include "dir_test_tree.h"
#include "file/nt_dir.h"
#include "file/token_substitution.h"
#include "support/fake_dir_io.h"
#include "support/fake_identity.h"

namespace {

using test_support::FakeDirIo;
using test_support::FakeIdentity;
using DirCall = FakeDirIo::Call;

const Platform::Credentials kThreadCredentials{0, 0, {0}};
const Platform::Credentials kAliceCredentials{1000, 1000, {1000}};

struct Fixture {
    Fixture() {
        tree.Write("f", "abc");
        tree.MakeDir("sub");
        tree.Write("sub/g", "");
        identity.thread = kThreadCredentials;
        identity.users[u"alice"] = {kAliceCredentials, u"", false};
        const Common::Error error =
            File::CreateToken(identity, u"alice", nullptr, Platform::LogonKind::NewCredentials,
                              "SubstToken::CreateLogonToken", alice);
        EXPECT_TRUE(error.Succeeded());
        // Who the thread was at every call the directories made.
        io.onCall = [this](DirCall call) { seen.push_back({call, identity.thread.User}); };
    }

    std::unique_ptr<File::nt_dir> Open(const std::shared_ptr<File::SubstToken>& token) {
        Common::Error error;
        auto dir = File::nt_dir::Open(File::Unowned(io), tree.Wide(), token, error);
        EXPECT_TRUE(dir) << error.Code();
        return dir;
    }
    std::set<std::uint32_t> UsersSeen() const {
        std::set<std::uint32_t> users;
        for (const auto& [call, user] : seen) {
            users.insert(user);
        }
        return users;
    }

    test_support::TempTree tree;
    FakeIdentity identity;
    FakeDirIo io;
    std::shared_ptr<File::SubstToken> alice;
    std::vector<std::pair<DirCall, std::uint32_t>> seen;
};

std::set<std::string> NamesStatingEach(File::i_dir::iterator& it) {
    std::set<std::string> names;
    for (; !it.Failed(); it.Next()) {
        names.insert(File::WideNameToNative(it.GetName()));
        it.GetSize();  // a status call per entry
    }
    return names;
}

TEST(TokenDirectory, EverythingMadeFromItActsAsItsUser) {
    Fixture f;
    auto dir = f.Open(f.alice);
    std::unique_ptr<File::i_dir::iterator> listing(dir->GetIterator());
    std::unique_ptr<File::rio_dir> sub(dir->OpenDir(u"sub"));
    ASSERT_TRUE(sub);
    std::unique_ptr<File::rio_file> file(dir->OpenI(u"f", 0));
    ASSERT_TRUE(file);
    File::token_command given;
    ASSERT_TRUE(dir->IOCTL(given));
    EXPECT_EQ(given.Token, f.alice);

    // The directory goes first; what it made keeps its way to the system and its user.
    dir.reset();
    EXPECT_EQ(NamesStatingEach(*listing), (std::set<std::string>{"f", "sub"}));
    std::unique_ptr<File::i_dir::iterator> inner(sub->GetIterator());
    EXPECT_EQ(NamesStatingEach(*inner), (std::set<std::string>{"g"}));
    const auto before = f.identity.history.size();
    char buffer[3];
    std::uint64_t read = 0;
    ASSERT_TRUE(file->Read(buffer, 3, read));
    EXPECT_GT(f.identity.history.size(), before);  // the file's read ran in a scope too

    ASSERT_FALSE(f.seen.empty());
    EXPECT_EQ(f.UsersSeen(), (std::set<std::uint32_t>{kAliceCredentials.User}));
    for (DirCall call :
         {DirCall::OpenDir, DirCall::ReadEntries, DirCall::Status, DirCall::OpenFile}) {
        EXPECT_GT(f.io.Calls(call), 0) << static_cast<int>(call);
    }
    EXPECT_EQ(f.identity.thread, kThreadCredentials);  // and the thread is itself between calls
}

TEST(TokenDirectory, ATokenSetLaterAppliesFromThenOn) {
    Fixture f;
    auto dir = f.Open(nullptr);
    std::unique_ptr<File::i_dir::iterator> before(dir->GetIterator());
    dir->SetToken(f.alice);
    std::unique_ptr<File::i_dir::iterator> after(dir->GetIterator());
    f.seen.clear();
    NamesStatingEach(*before);
    EXPECT_EQ(f.UsersSeen(), (std::set<std::uint32_t>{kThreadCredentials.User}));
    f.seen.clear();
    NamesStatingEach(*after);
    EXPECT_EQ(f.UsersSeen(), (std::set<std::uint32_t>{kAliceCredentials.User}));

    // Back to the process's own access.
    dir->SetToken(nullptr);
    File::token_command given;
    ASSERT_TRUE(dir->IOCTL(given));
    EXPECT_FALSE(given.Token);
    f.seen.clear();
    std::unique_ptr<File::rio_dir> sub(dir->OpenDir(u"sub"));
    EXPECT_EQ(f.UsersSeen(), (std::set<std::uint32_t>{kThreadCredentials.User}));
}

TEST(TokenDirectory, AScopeThatCannotBeEnteredKeepsTheCallFromBeingMade) {
    Fixture f;
    auto dir = f.Open(f.alice);
    const int opens = f.io.Calls(DirCall::OpenDir);
    f.identity.FailSet(1, {1314, EPERM});
    EXPECT_EQ(dir->OpenDir(u"sub"), nullptr);
    EXPECT_EQ(f.io.Calls(DirCall::OpenDir), opens);
    const Common::Error error = dir->GetError();
    EXPECT_EQ(error.Code(), 0x40007u);
    EXPECT_EQ(error.Cause().GetNumber("code"), 0x80070522u);
    EXPECT_EQ(error.Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(EPERM));
    EXPECT_EQ(f.identity.thread, kThreadCredentials);

    // The next call enters its scope again.
    std::unique_ptr<File::rio_dir> sub(dir->OpenDir(u"sub"));
    EXPECT_TRUE(sub);

    // Opening the directory itself under a token that can't be taken on fails the same way.
    f.identity.FailSet(1, {1314, EPERM});
    Common::Error opened;
    EXPECT_FALSE(File::nt_dir::Open(File::Unowned(f.io), f.tree.Wide(), f.alice, opened));
    EXPECT_EQ(opened.Code(), 0x40007u);
}

}  // namespace
