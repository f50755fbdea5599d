#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <tessel_link/common/unicode.h>

#include "dir_test_tree.h"
#include "file/nt_dir.h"
#include "file/system_file.h"
#include "support/error_parts.h"
#include "support/fake_dir_io.h"

namespace {

using test_support::FakeDirIo;
using test_support::OpenTree;
using test_support::TempTree;
using DirCall = FakeDirIo::Call;

using test_support::OriginFunction;

bool Exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::string ReadContents(File::i_file& file) {
    std::string out(4096, '\0');
    std::uint64_t got = 0;
    file.Read(out.data(), out.size(), got);
    out.resize(got);
    return out;
}

TEST(SystemDir, CreatesWritesReadsRenamesAndRemoves) {
    TempTree tree;
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    ASSERT_TRUE(dir->CreateDir(u"sub", 0));
    std::unique_ptr<File::rio_dir> sub(dir->OpenDir(u"sub"));
    ASSERT_TRUE(sub);
    {
        std::unique_ptr<File::rio_file> file(sub->CreateRIO(u"data", 0));
        ASSERT_TRUE(file);
        std::uint64_t written = 0;
        EXPECT_TRUE(file->Write("hello", 5, written));
    }
    std::unique_ptr<File::ri_file> in(sub->OpenI(u"data", 0));
    ASSERT_TRUE(in);
    EXPECT_EQ(ReadContents(*in), "hello");

    // Renaming the directory above does not lose the open one: names resolve against it.
    ASSERT_TRUE(dir->Rename(u"sub", u"moved"));
    std::unique_ptr<File::ri_file> again(sub->OpenI(u"data", 0));
    ASSERT_TRUE(again);
    EXPECT_TRUE(Exists(tree.At("moved/data")));

    ASSERT_TRUE(sub->CreateHardLink(u"data", u"second"));
    struct stat st {};
    ASSERT_EQ(::stat(tree.At("moved/data").c_str(), &st), 0);
    EXPECT_EQ(st.st_nlink, 2u);
    ASSERT_TRUE(sub->CreateSymLink(u"data", u"soft"));
    char target[64] = {};
    ASSERT_EQ(::readlink(tree.At("moved/soft").c_str(), target, sizeof target - 1), 4);
    EXPECT_STREQ(target, "data");
    std::unique_ptr<File::ri_file> viaLink(sub->OpenI(u"soft", 0));
    ASSERT_TRUE(viaLink);
    EXPECT_EQ(ReadContents(*viaLink), "hello");

    ASSERT_TRUE(sub->SetUnixPermissions(u"data", 0600));
    ASSERT_EQ(::stat(tree.At("moved/data").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);

    // A directory with entries can't go; after its entries it can.
    EXPECT_FALSE(dir->RemoveDir(u"moved"));
    EXPECT_EQ(dir->GetError().Code(), 0x40008u);
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::RemoveDir");
    EXPECT_STREQ(dir->GetError().GetAnsi("function"), "unlinkat");
    for (const char16_t* n : {u"data", u"second", u"soft"}) {
        EXPECT_TRUE(sub->Remove(n));
    }
    EXPECT_TRUE(dir->RemoveDir(u"moved"));
    EXPECT_FALSE(Exists(tree.At("moved")));
}

TEST(SystemDir, FailuresCarryTheSystemReason) {
    TempTree tree;
    tree.Write("file", "x");
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    EXPECT_FALSE(dir->CreateDir(u"file", 0));
    EXPECT_EQ(dir->GetError().Code(), 0x40013u);  // already exists
    EXPECT_EQ(std::u16string(dir->GetError().GetWide("path")), tree.Wide() + u"/file");

    EXPECT_FALSE(dir->Remove(u"missing"));
    EXPECT_EQ(dir->GetError().Code(), 0x40011u);
    EXPECT_EQ(dir->OpenI(u"missing", 0), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x40011u);
    EXPECT_EQ(dir->OpenDir(u"file"), nullptr);  // not a directory
    EXPECT_EQ(dir->GetError().Code(), 0x4002du);
    EXPECT_EQ(dir->OpenI(static_cast<const char16_t*>(nullptr), 0), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x40007u);
    EXPECT_FALSE(dir->Rename(u"missing", u"other"));
    EXPECT_EQ(dir->GetError().Code(), 0x40011u);
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::Rename");

    // A later success doesn't need the error cleared, and a later failure replaces it.
    std::unique_ptr<File::rio_file> ok(dir->OpenI(u"file", 0));
    EXPECT_TRUE(ok);
    EXPECT_FALSE(dir->CreateHardLink(u"missing", u"new"));
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::CreateHardLink");

    Common::Error error;
    EXPECT_EQ(File::OpenSystemDir(tree.Wide() + u"/nothing", error), nullptr);
    EXPECT_EQ(error.Code(), 0x40011u);
}

TEST(SystemDir, ChangesFailThroughTheSeam) {
    TempTree tree;
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    io.FailOn(DirCall::MakeDir, Platform::SystemError{112, ENOSPC});
    EXPECT_FALSE(dir->CreateDir(u"d", 0));
    EXPECT_EQ(dir->GetError().Code(), 0x40004u);  // the disk is full
    EXPECT_STREQ(dir->GetError().GetAnsi("function"), "mkdirat");
    EXPECT_EQ(dir->GetError().Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(ENOSPC));

    // By name, a read-write open creates the file or empties it.
    tree.Write("old", "eleven byte");
    std::unique_ptr<File::rio_file> made(dir->OpenRIO(u"new", 0));
    ASSERT_TRUE(made);
    std::unique_ptr<File::rio_file> emptied(dir->OpenRIO(u"old", 0));
    ASSERT_TRUE(emptied);
    EXPECT_EQ(emptied->Size(), 0u);

    io.FailOn(DirCall::OpenFile, Platform::SystemError{19, EROFS});
    EXPECT_EQ(dir->CreateRIO(u"f", 0), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x4000cu);  // read-only

    io.FailOn(DirCall::SymLink, Platform::SystemError{50, EPERM});
    EXPECT_FALSE(dir->CreateSymLink(u"t", u"l"));
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::CreateSymLink");
    io.FailOn(DirCall::Rename, Platform::SystemError{32, EBUSY});
    EXPECT_FALSE(dir->Rename(u"a", u"b"));
    EXPECT_EQ(dir->GetError().Code(), 0x40017u);
    io.FailOn(DirCall::Space, Platform::SystemError{21, ENODEV});
    std::uint64_t total = 1, free = 1, available = 1;
    EXPECT_FALSE(dir->GetDriveSize(total, free, available));
    EXPECT_EQ(total + free + available, 0u);
    EXPECT_EQ(dir->GetError().Code(), 0x4000bu);

    ASSERT_TRUE(dir->GetDriveSize(total, free, available));
    EXPECT_GT(total, 0u);
    EXPECT_LE(available, total);
}

TEST(SystemDir, PathsIdentifiersAndComparison) {
    TempTree tree;
    tree.MakeDir("a");
    tree.MakeDir("a/b");
    tree.Write("a/b/leaf", "leafy");
    auto dir = OpenTree(Platform::SystemDirIo(), tree);

    const char16_t* path = u"a/b/leaf";
    std::unique_ptr<File::rio_dir> parent(dir->OpenPath(path));
    ASSERT_TRUE(parent);
    EXPECT_EQ(std::u16string(path), u"leaf");
    std::unique_ptr<File::ri_file> leaf(parent->OpenI(path, 0));
    ASSERT_TRUE(leaf);
    EXPECT_EQ(ReadContents(*leaf), "leafy");

    const char16_t* bare = u"leaf";
    std::unique_ptr<File::rio_dir> self(dir->OpenPath(bare));
    ASSERT_TRUE(self);
    EXPECT_EQ(std::u16string(bare), u"leaf");
    EXPECT_EQ(dir->Compare(*self), 0);
    EXPECT_EQ(dir->Compare(*parent), 1);
    EXPECT_EQ(parent->Compare(*dir), 2);
    EXPECT_EQ(dir->Compare(*dir), 0);

    // An identifier from a listing opens its entry, even with bytes that are not UTF-8.
    tree.Write("a/b/\xff", "odd");
    std::unique_ptr<File::i_dir::iterator> it(parent->GetIterator(u"*"));
    bool found = false;
    for (; !it->Failed(); it->Next()) {
        std::unique_ptr<File::file_identifier> id(it->GetIdentifier());
        ASSERT_TRUE(id);
        std::unique_ptr<File::ri_file> f(parent->OpenI(*id));
        ASSERT_TRUE(f);
        found = found || ReadContents(*f) == "odd";
        std::unique_ptr<File::i_dir::iterator> back(parent->GetIterator(*id));
        EXPECT_EQ(std::u16string(back->GetName()), std::u16string(it->GetName()));
        EXPECT_EQ(parent->Compare(*id, *std::unique_ptr<File::file_identifier>(id->Clone())), 0);
    }
    EXPECT_TRUE(found);

    std::unique_ptr<File::i_dir::iterator> subdirs(dir->GetIterator());
    ASSERT_FALSE(subdirs->Failed());
    std::unique_ptr<File::rio_dir> a(dir->OpenDir(*subdirs));
    ASSERT_TRUE(a);
    EXPECT_EQ(dynamic_cast<File::nt_dir&>(*a).Path(), tree.Wide() + u"/a/");
}

TEST(SystemDir, OpensPastTheCacheThroughItsNoCachePart) {
    TempTree tree;
    tree.Write("file", "cached");
    FakeDirIo io;
    io.bufferedOnly = true;  // the test's files may live where unbuffered opens are refused
    auto dir = OpenTree(io, tree);
    File::nocache_dir_command part;
    ASSERT_TRUE(dir->IOCTL(part));
    ASSERT_NE(part.Dir, nullptr);

    // Each open asks for the file past the cache, and hands out the unbuffered file.
    std::unique_ptr<File::rio_file> existing(part.Dir->OpenNoCache(u"file", File::open_mode::read));
    ASSERT_TRUE(existing) << Common::Utf16ToUtf8(dir->GetError().Text());
    EXPECT_TRUE(io.lastOpenUnbuffered);
    EXPECT_NE(dynamic_cast<File::nocache_file*>(existing.get()), nullptr);
    EXPECT_EQ(existing->Size(), 6u);
    std::unique_ptr<File::rio_file> made(
        part.Dir->OpenNoCache(u"new", File::open_mode::create_new));
    ASSERT_TRUE(made);
    EXPECT_EQ(::access(tree.At("new").c_str(), F_OK), 0);

    // By identifier, from an iterator of the directory.
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    while (!it->Failed() && std::u16string(it->GetName()) != u"file") {
        it->Next();
    }
    ASSERT_FALSE(it->Failed());
    std::unique_ptr<File::file_identifier> id(it->GetIdentifier());
    std::unique_ptr<File::rio_file> byId(part.Dir->OpenNoCache(*id, File::open_mode::read_write));
    ASSERT_TRUE(byId);

    // Failures are recorded on the directory, as its other opens record them.
    EXPECT_EQ(part.Dir->OpenNoCache(u"missing", File::open_mode::read), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x40011u);
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::OpenNoCache");
    EXPECT_STREQ(dir->GetError().GetAnsi("function"), "openat");
    io.FailOn(DirCall::OpenFile, Platform::SystemError{19, EROFS});
    EXPECT_EQ(part.Dir->OpenNoCache(u"other", File::open_mode::create), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x4000cu);  // read-only
    EXPECT_EQ(part.Dir->OpenNoCache(nullptr, File::open_mode::read), nullptr);
    EXPECT_EQ(dir->GetError().Code(), 0x40007u);
}

TEST(SystemDir, CommandsWithASubjectHereAndThoseWithout) {
    TempTree tree;
    tree.Write("file", "x");
    ASSERT_EQ(::symlink("some/where", tree.At("link").c_str()), 0);
    auto dir = OpenTree(Platform::SystemDirIo(), tree);

    File::set_entry_times_command times;
    times.Name = u"file";
    times.Write = 1234567890123;
    ASSERT_TRUE(dir->IOCTL(times));
    struct stat st {};
    ASSERT_EQ(::stat(tree.At("file").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(st.st_mtim.tv_nsec, 123000000);
    // A time that doesn't fit the system's nanoseconds is refused, and the file keeps its own.
    times.Write = std::numeric_limits<std::int64_t>::max();
    EXPECT_FALSE(dir->IOCTL(times));
    EXPECT_STREQ(dir->GetError().GetAnsi("function"), "utimensat");
    ASSERT_EQ(::stat(tree.At("file").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 1234567890);
    times.Write = 1234567890123;
    times.Name = u"missing";
    EXPECT_FALSE(dir->IOCTL(times));
    EXPECT_EQ(dir->GetError().Code(), 0x40011u);
    EXPECT_STREQ(dir->GetError().GetAnsi("function"), "utimensat");

    char buffer[32];
    File::reparse_point_command reparse;
    reparse.Name = u"link";
    reparse.Buffer = buffer;
    reparse.Size = sizeof buffer;
    ASSERT_TRUE(dir->IOCTL(reparse));
    EXPECT_EQ(std::string(buffer, reparse.Returned), "some/where");
    reparse.Size = 4;
    EXPECT_FALSE(dir->IOCTL(reparse));
    EXPECT_EQ(dir->GetError().Code(), 0x40001u);
    EXPECT_EQ(reparse.Returned, 10u);
    // A missing entry is a read failure too, the system's reason beneath it.
    reparse.Name = u"missing";
    reparse.Size = sizeof buffer;
    EXPECT_FALSE(dir->IOCTL(reparse));
    EXPECT_EQ(dir->GetError().Code(), 0x40001u);
    EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::GetReparsePointIoctl");

    // A backup open takes the file, never what a link points at; success clears the error.
    File::open_backup_command backup;
    backup.Name = u"link";
    EXPECT_FALSE(dir->IOCTL(backup));
    EXPECT_FALSE(backup.File);
    backup.Name = u"file";
    ASSERT_TRUE(dir->IOCTL(backup));
    EXPECT_TRUE(backup.File);
    EXPECT_FALSE(dir->Failed());

    File::file_system_info_command info;
    ASSERT_TRUE(dir->IOCTL(info));
    EXPECT_FALSE(info.Name.empty());
    EXPECT_GE(info.MaxNameLength, 255u);

    for (const std::uint32_t code :
         {File::kShortNameCommand, File::kEncryptCommand, File::kPendingRenameCommand,
          File::kSecurityRequestCommand}) {
        File::ioctl_command c;
        c.Code = code;
        EXPECT_FALSE(dir->IOCTL(c));
        EXPECT_EQ(dir->GetError().Code(), 0x4000eu);
        EXPECT_EQ(OriginFunction(dir->GetError()), "nt_dir::IOCTL");
    }
    dir->ClearError();

    // Only btrfs compresses what carries the flag: elsewhere compression is not supported,
    // rather than a flag set for nothing.
    struct statfs volume {};
    ASSERT_EQ(::statfs(tree.At("file").c_str(), &volume), 0);
    if (volume.f_type != 0x9123683e) {
        File::entry_compression_command compress;
        compress.Name = u"file";
        EXPECT_FALSE(dir->IOCTL(compress));
        EXPECT_EQ(dir->GetError().Code(), 0x4000eu);
        dir->ClearError();
    }
    File::ioctl_command unknown;
    unknown.Code = File::CommandCode("ZZZZ");
    EXPECT_FALSE(dir->IOCTL(unknown));
    EXPECT_EQ(OriginFunction(dir->GetError()), "i_dir::IOCTL");

    // Compression is refused where the file system has none, with the not-supported code.
    FakeDirIo io;
    auto faked = OpenTree(io, tree);
    io.FailOn(DirCall::SetCompression, Platform::SystemError{50, EOPNOTSUPP});
    File::entry_compression_command compress;
    compress.Name = u"file";
    EXPECT_FALSE(faked->IOCTL(compress));
    EXPECT_EQ(faked->GetError().Code(), 0x4000eu);
}

}  // namespace
