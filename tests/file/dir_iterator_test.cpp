#include <sys/stat.h>
#include <unistd.h>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "dir_test_tree.h"
#include "file/dir_iterator.h"
#include "file/nt_dir.h"
#include "support/error_parts.h"
#include "support/fake_dir_io.h"

namespace {

using test_support::FakeDirIo;
using test_support::OpenTree;
using test_support::TempTree;
using DirCall = FakeDirIo::Call;

using test_support::OriginFunction;

// Every name the iterator gives, as system bytes, checking that each comes once.
std::multiset<std::string> ListNames(File::i_dir::iterator& it) {
    std::multiset<std::string> names;
    for (; !it.Failed(); it.Next()) {
        names.insert(File::WideNameToNative(it.GetName()));
    }
    return names;
}

TEST(NativeNames, EveryByteStringComesBackExactly) {
    const std::string samples[] = {
        "plain",           "with space",        "line\nbreak",     "\xc3\xa9t\xc3\xa9",
        "\xf0\x9f\x98\x80", "\xff\xfe",          "\xc0\x80",        "\xed\xb2\x80",
        "cut\xe2\x82",     "back\\slash",       "\x80",            "\xf4\x90\x80\x80",
    };
    for (const std::string& s : samples) {
        EXPECT_EQ(File::WideNameToNative(File::NativeNameToWide(s)), s) << s;
    }
    EXPECT_EQ(File::NativeNameToWide("\xc3\xa9"), u"\u00e9");
    EXPECT_EQ(File::NativeNameToWide("\xf0\x9f\x98\x80"), u"\U0001F600");
    // Bytes that are not UTF-8 become lone low surrogates, one per byte.
    EXPECT_EQ(File::NativeNameToWide("a\xff"), std::u16string(u"a\xdcff"));
    EXPECT_EQ(File::NativeNameToWide("\xed\xb2\x80"), std::u16string(u"\xdced\xdcb2\xdc80"));
}

TEST(MatchMask, StarsAndQuestionMarks) {
    EXPECT_TRUE(File::MatchMask(u"*", u"anything"));
    EXPECT_TRUE(File::MatchMask(u"*.txt", u"a.txt"));
    EXPECT_TRUE(File::MatchMask(u"*.txt", u".txt"));
    EXPECT_FALSE(File::MatchMask(u"*.txt", u"a.txt.bak"));
    EXPECT_TRUE(File::MatchMask(u"a?c", u"abc"));
    EXPECT_FALSE(File::MatchMask(u"a?c", u"ac"));
    EXPECT_TRUE(File::MatchMask(u"*a*b*", u"xxaxxbxx"));
    EXPECT_FALSE(File::MatchMask(u"A*", u"abc"));  // names are compared exactly
    EXPECT_TRUE(File::MatchMask(u"", u""));
}

TEST(DirIterator, EmptyDirectoryStartsAtTheEnd) {
    TempTree tree;
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    ASSERT_TRUE(it);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
    EXPECT_EQ(it->GetName(), nullptr);
    EXPECT_FALSE(it->Next());
}

TEST(DirIterator, TwentyThousandEntriesAreEachSeenOnce) {
    TempTree tree;
    std::set<std::string> made;
    for (int i = 0; i < 20000; ++i) {
        const std::string name = "entry_" + std::to_string(i) + std::string(i % 37, 'x');
        const int fd = ::open(tree.At(name).c_str(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(fd, 0);
        ::close(fd);
        made.insert(name);
    }
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    const auto names = ListNames(*it);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
    EXPECT_EQ(names.size(), made.size());
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), made);
    // Blocks of 8 KiB: many reads, and none per entry.
    EXPECT_GT(io.Calls(DirCall::ReadEntries), 50);
    EXPECT_LT(io.Calls(DirCall::ReadEntries), 2000);
    EXPECT_EQ(io.Calls(DirCall::Status), 0);
    it.reset();
    dir.reset();
    EXPECT_EQ(io.openDirs, 0);
}

TEST(DirIterator, OddNamesComeExactlyAsTheSystemHasThem) {
    TempTree tree;
    const std::string names[] = {"with space", " lead", "new\nline", "tab\there",
                                 "\xff\xfe bytes", "back\\slash", "\xc3\xa9t\xc3\xa9",
                                 "\x01control", "*star?"};
    for (const std::string& n : names) {
        tree.Write(n, "content of " + n);
    }
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    std::set<std::string> seen;
    for (; !it->Failed(); it->Next()) {
        auto& ours = dynamic_cast<File::nt_dir_iterator&>(*it);
        const std::string native(ours.NativeName());
        EXPECT_EQ(File::WideNameToNative(it->GetName()), native);
        // Each opens by its position and by its wide name, and holds what was written.
        std::unique_ptr<File::rio_file> byPosition(dir->OpenI(*it));
        std::unique_ptr<File::rio_file> byName(dir->OpenI(it->GetName(), 0));
        ASSERT_TRUE(byPosition && byName) << native;
        EXPECT_EQ(byPosition->Size(), ("content of " + native).size());
        EXPECT_EQ(byName->Size(), byPosition->Size());
        seen.insert(native);
    }
    EXPECT_EQ(seen, std::set<std::string>(std::begin(names), std::end(names)));
}

TEST(DirIterator, AttributesOfAFileTellReadOnlyAndSparse) {
    TempTree tree;
    tree.Write("plain", "x");
    tree.Write("locked", "x");
    ASSERT_EQ(::chmod(tree.At("locked").c_str(), 0444), 0);
    tree.Write("holes", "");
    ASSERT_EQ(::truncate(tree.At("holes").c_str(), 1 << 20), 0);
    tree.Write(".hidden", "x");
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::map<std::u16string, std::uint32_t> attributes;
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    for (; !it->Failed(); it->Next()) {
        attributes[it->GetName()] = it->GetAttributes();
    }
    EXPECT_EQ(attributes[u"plain"], File::kAttributeNormal);
    EXPECT_EQ(attributes[u"locked"], File::kAttributeReadOnly);
    EXPECT_EQ(attributes[u"holes"], File::kAttributeSparse);
    EXPECT_EQ(attributes[u".hidden"], File::kAttributeHidden);
}

TEST(DirIterator, PropertiesComeOnDemandFromTheEntry) {
    TempTree tree;
    tree.Write("file", "12345");
    tree.MakeDir("sub");
    ASSERT_EQ(::symlink("../relative/target", tree.At("link").c_str()), 0);
    ASSERT_EQ(::link(tree.At("file").c_str(), tree.At("hard").c_str()), 0);
    ASSERT_EQ(::mkfifo(tree.At("fifo").c_str(), 0600), 0);
    struct timespec times[2] = {{1000, 0}, {1600000000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree.At("file").c_str(), times, 0), 0);
    struct stat st {};
    ASSERT_EQ(::stat(tree.At("file").c_str(), &st), 0);

    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    int visited = 0;
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    for (; !it->Failed(); it->Next(), ++visited) {
        const std::u16string name = it->GetName();
        if (name == u"file" || name == u"hard") {
            EXPECT_EQ(it->GetType(), File::entry_file);
            EXPECT_EQ(it->GetSize(), 5u);
            EXPECT_EQ(it->GetWriteTime(), 1600000000123);
            EXPECT_EQ(it->GetAccessTime(), 1000000);
            EXPECT_EQ(it->GetLinkCount(), 2u);
            EXPECT_EQ(it->GetUnixOwner(), ::getuid());
            EXPECT_EQ(it->GetUnixMode() & 07777, 0644u);
            EXPECT_EQ(it->GetInodeId(), st.st_ino);
            EXPECT_EQ(it->GetDeviceId(), st.st_dev);
            EXPECT_EQ(it->GetAttributes(), File::kAttributeNormal);
            EXPECT_EQ(it->GetSymLinkTarget(), nullptr);
        } else if (name == u"sub") {
            EXPECT_EQ(it->GetType(), File::entry_dir);
            EXPECT_EQ(it->GetAttributes(), File::kAttributeDirectory);
        } else if (name == u"link") {
            EXPECT_EQ(it->GetType(), File::entry_link);
            EXPECT_EQ(it->GetAttributes(), File::kAttributeReparsePoint);
            // A relative target comes back as the link holds it.
            EXPECT_EQ(std::u16string(it->GetSymLinkTarget()), u"../relative/target");
        } else if (name == u"fifo") {
            EXPECT_EQ(it->GetType(), File::entry_other);
        }
        EXPECT_EQ(std::u16string(it->GetFullPath()), tree.Wide() + u"/" + name);
    }
    EXPECT_EQ(visited, 5);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
    // One status call per entry asked about its size and times, however many of them were
    // read; types and link targets need none.
    EXPECT_EQ(io.Calls(DirCall::Status), 2);
}

TEST(DirIterator, ASymbolicLinkLoopIsListedButDoesNotOpen) {
    TempTree tree;
    ASSERT_EQ(::symlink("b", tree.At("a").c_str()), 0);
    ASSERT_EQ(::symlink("a", tree.At("b").c_str()), 0);
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    std::set<std::u16string> targets;
    for (; !it->Failed(); it->Next()) {
        EXPECT_EQ(it->GetType(), File::entry_link);
        targets.insert(it->GetSymLinkTarget());
    }
    EXPECT_EQ(targets, (std::set<std::u16string>{u"a", u"b"}));

    EXPECT_EQ(dir->OpenI(u"a", 0), nullptr);
    const Common::Error& e = dir->GetError();
    EXPECT_EQ(e.Code(), 0x40007u);
    EXPECT_EQ(OriginFunction(e), "nt_dir::OpenFile");
    EXPECT_STREQ(e.GetAnsi("function"), "openat");
    // A reason that Windows has no code for goes beneath as the system's own number.
    EXPECT_EQ(e.Cause().GetNumber("Errno"), static_cast<std::uint64_t>(ELOOP));
    EXPECT_EQ(dir->OpenDir(u"b"), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x40007u);
}

TEST(DirIterator, ADirectoryRemovedDuringIterationEndsCleanly) {
    TempTree tree;
    tree.MakeDir("doomed");
    std::set<std::string> made;
    for (int i = 0; i < 600; ++i) {
        tree.Write("doomed/f" + std::to_string(i), "");
        made.insert("f" + std::to_string(i));
    }
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::rio_dir> doomed(dir->OpenDir(u"doomed"));
    ASSERT_TRUE(doomed);
    std::unique_ptr<File::i_dir::iterator> it(doomed->GetIterator());
    ASSERT_FALSE(it->Failed());
    const std::string first = File::WideNameToNative(it->GetName());
    for (const std::string& name : made) {
        ASSERT_EQ(::unlink(tree.At("doomed/" + name).c_str()), 0);
    }
    ASSERT_EQ(::rmdir(tree.At("doomed").c_str()), 0);

    // The entry in hand is gone: its status fails with the system's reason.
    EXPECT_EQ(it->GetSize(), 0u);
    EXPECT_EQ(it->GetError().Code(), 0x40011u);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "fstatat");
    EXPECT_EQ(it->GetLinkCount(), 1u);
    it->ClearError();
    // The rest of the block read before the removal still comes; then the system says that
    // the directory is gone.
    std::set<std::string> seen{first};
    while (it->Next()) {
        EXPECT_TRUE(seen.insert(File::WideNameToNative(it->GetName())).second);
    }
    EXPECT_LT(seen.size(), made.size());
    EXPECT_EQ(it->GetError().Code(), 0x40011u);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "getdents64");
    for (const std::string& name : seen) {
        EXPECT_EQ(made.count(name), 1u);
    }
    // A new listing of the removed directory finds it gone.
    std::unique_ptr<File::i_dir::iterator> again(doomed->GetIterator());
    EXPECT_TRUE(again->Failed());
}

TEST(DirIterator, MasksAndSingleNames) {
    TempTree tree;
    for (const char* n : {"a.txt", "b.txt", "c.log", "d.txt.bak"}) {
        tree.Write(n, "xy");
    }
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> txt(dir->GetIterator(u"*.txt"));
    EXPECT_EQ(ListNames(*txt), (std::multiset<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(txt->GetError().Code(), 0x40002u);

    std::unique_ptr<File::i_dir::iterator> all(dir->GetIterator(u"*"));
    EXPECT_EQ(ListNames(*all).size(), 4u);

    // A pattern that matches nothing names a missing file.
    std::unique_ptr<File::i_dir::iterator> none(dir->GetIterator(u"*.none"));
    EXPECT_EQ(none->GetError().Code(), 0x40011u);
    EXPECT_EQ(std::u16string(none->GetError().GetWide("path")), tree.Wide() + u"/*.none");

    // A plain name stands on that entry alone.
    std::unique_ptr<File::i_dir::iterator> one(dir->GetIterator(u"c.log"));
    ASSERT_FALSE(one->Failed());
    EXPECT_EQ(std::u16string(one->GetName()), u"c.log");
    EXPECT_EQ(one->GetSize(), 2u);
    EXPECT_FALSE(one->Next());
    EXPECT_EQ(one->GetError().Code(), 0x40002u);

    std::unique_ptr<File::i_dir::iterator> missing(dir->GetIterator(u"nothing"));
    EXPECT_EQ(missing->GetError().Code(), 0x40011u);
    EXPECT_EQ(OriginFunction(missing->GetError()), "nt_dir::GetIterator");

    // A path below the directory and an absolute one both reach the entry.
    tree.MakeDir("sub");
    tree.Write("sub/inner", "123");
    std::unique_ptr<File::i_dir::iterator> below(dir->GetIterator(u"sub/inner"));
    ASSERT_FALSE(below->Failed());
    EXPECT_EQ(below->GetSize(), 3u);
    EXPECT_EQ(std::u16string(below->GetFullPath()), tree.Wide() + u"/sub/inner");
    const std::u16string absolute = tree.Wide() + u"/sub/*";
    std::unique_ptr<File::i_dir::iterator> abs(dir->GetIterator(absolute.c_str()));
    EXPECT_EQ(ListNames(*abs), (std::multiset<std::string>{"inner"}));
}

TEST(DirIterator, SystemFailuresAreRecordedInTheIterator) {
    TempTree tree;
    for (int i = 0; i < 600; ++i) {
        tree.Write("name_" + std::to_string(i), "");
    }
    FakeDirIo io;
    auto dir = OpenTree(io, tree);

    // The second block fails to read: what came before stands, then the failure.
    io.FailOn(DirCall::ReadEntries, Platform::SystemError{1117, EIO}, 2);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    int count = 0;
    for (; !it->Failed(); it->Next()) {
        ++count;
    }
    EXPECT_GT(count, 0);
    EXPECT_LT(count, 600);
    EXPECT_EQ(it->GetError().Code(), 0x40001u);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "getdents64");
    EXPECT_EQ(it->GetError().Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(EIO));
    EXPECT_FALSE(it->Next());
    EXPECT_EQ(it->GetError().Code(), 0x40001u);
    EXPECT_EQ(it->GetName(), nullptr);

    // A directory that does not open gives a born-failed iterator.
    io.FailOn(DirCall::OpenDir, Platform::SystemError{5, EACCES});
    std::unique_ptr<File::i_dir::iterator> denied(dir->GetIterator());
    EXPECT_EQ(denied->GetError().Code(), 0x40014u);
    EXPECT_STREQ(denied->GetError().GetAnsi("function"), "openat");

    // A status that fails: the link count of an entry in error is 1, the owner unknown.
    std::unique_ptr<File::i_dir::iterator> third(dir->GetIterator());
    io.FailOn(DirCall::Status, Platform::SystemError{8, ENOMEM});
    EXPECT_EQ(third->GetLinkCount(), 1u);
    EXPECT_EQ(third->GetError().Code(), 0x40006u);
    EXPECT_EQ(third->GetUnixOwner(), ~std::uint64_t{0});

    // Blocks cut small still give every entry once.
    io.blockLimit = 100;
    std::unique_ptr<File::i_dir::iterator> small(dir->GetIterator());
    EXPECT_EQ(ListNames(*small).size(), 600u);
    EXPECT_EQ(small->GetError().Code(), 0x40002u);
}

TEST(DirIterator, LinkTargetFailureKeepsItsCall) {
    TempTree tree;
    ASSERT_EQ(::symlink("target", tree.At("link").c_str()), 0);
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    io.FailOn(DirCall::ReadLink, Platform::SystemError{5, EACCES});
    EXPECT_EQ(it->GetSymLinkTarget(), nullptr);
    EXPECT_EQ(it->GetError().Code(), 0x40014u);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "readlinkat");
    EXPECT_EQ(OriginFunction(it->GetError()), "nt_dir::iterator::GetSymLinkTarget");
}

}  // namespace
