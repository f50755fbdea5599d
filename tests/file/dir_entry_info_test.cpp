// GetEntryInfo, the one call for name, type, size and modification time: the system
// directory's own answer agrees with its four getters for every kind of name and entry, a
// failure leaves what the getters would, and other iterators get the same from the default.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/unicode.h>

#include "dir_test_tree.h"
#include "file/nt_dir.h"
#include "support/fake_dir_io.h"

namespace {

using test_support::FakeDirIo;
using test_support::OpenTree;
using test_support::TempTree;

void SetWriteTime(const TempTree& tree, const std::string& name, time_t seconds, long ns) {
    const struct timespec times[2] = {{0, UTIME_OMIT}, {seconds, ns}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree.At(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0)
        << name;
}

TEST(DirEntryInfo, AgreesWithTheGettersForEveryKindOfNameAndEntry) {
    TempTree tree;
    std::vector<std::string> names;
    // ASCII names of every length around the 16 bytes read at once.
    for (std::size_t length = 1; length <= 40; ++length) {
        names.push_back(std::string(length, static_cast<char>('a' + length % 26)));
    }
    // Names that are not ASCII, or not UTF-8, at the start, inside and past 16 bytes, and the
    // longest name.
    names.insert(names.end(), {"\xc3\xa9t\xc3\xa9", "fifteen_bytes_\xff", "sixteen_bytes___\xff",
                               "\xf0\x9f\x98\x80", ".hidden", "..dots", std::string(255, 'L')});
    for (std::size_t i = 0; i < names.size(); ++i) {
        tree.Write(names[i], std::string(i % 9, 'x'));
    }
    tree.MakeDir("sub");
    ASSERT_EQ(::symlink("a/target", tree.At("link").c_str()), 0);
    ASSERT_EQ(::mkfifo(tree.At("fifo").c_str(), 0600), 0);
    // Times before 1970 and fractions of a millisecond round towards the past.
    SetWriteTime(tree, names[0], -2, 500000000);
    SetWriteTime(tree, names[1], 1, 999999999);
    SetWriteTime(tree, names[2], -1, 999999);

    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> byInfo(dir->GetIterator());
    std::unique_ptr<File::i_dir::iterator> byGetters(dir->GetIterator());
    std::size_t seen = 0;
    bool sawTimes = false;
    for (; !byInfo->Failed(); byInfo->Next(), byGetters->Next(), ++seen) {
        ASSERT_FALSE(byGetters->Failed());
        File::dir_entry_info info;
        ASSERT_TRUE(byInfo->GetEntryInfo(info));
        const std::u16string name = byGetters->GetName();
        ASSERT_NE(info.Name, nullptr);
        EXPECT_EQ(std::u16string(info.Name, info.NameLength), name);
        EXPECT_EQ(info.Name[info.NameLength], u'\0');
        EXPECT_EQ(info.Type, byGetters->GetType()) << File::WideNameToNative(name);
        EXPECT_EQ(info.Size, byGetters->GetSize()) << File::WideNameToNative(name);
        EXPECT_EQ(info.WriteTime, byGetters->GetWriteTime()) << File::WideNameToNative(name);
        // The getters still answer on the same position, from what the one call read.
        EXPECT_EQ(byInfo->GetName(), info.Name);
        EXPECT_EQ(byInfo->GetSize(), info.Size);
        if (name == File::NativeNameToWide(names[0])) {
            EXPECT_EQ(info.WriteTime, -1500);
            sawTimes = true;
        } else if (name == File::NativeNameToWide(names[1])) {
            EXPECT_EQ(info.WriteTime, 1999);
        } else if (name == File::NativeNameToWide(names[2])) {
            EXPECT_EQ(info.WriteTime, -1000);
        } else if (name == u"sub") {
            EXPECT_EQ(info.Type, File::entry_dir);
        } else if (name == u"link") {
            EXPECT_EQ(info.Type, File::entry_link);
            EXPECT_EQ(info.Size, 8u);  // the length of its target
        } else if (name == u"fifo") {
            EXPECT_EQ(info.Type, File::entry_other);
        }
    }
    EXPECT_TRUE(sawTimes);
    EXPECT_EQ(seen, names.size() + 3);
    EXPECT_TRUE(byGetters->Failed());

    // At the end there is no entry: false, with what the getters give there.
    File::dir_entry_info info;
    info.Size = 7;
    EXPECT_FALSE(byInfo->GetEntryInfo(info));
    EXPECT_EQ(info.Name, nullptr);
    EXPECT_EQ(info.NameLength, 0u);
    EXPECT_EQ(info.Type, File::entry_other);
    EXPECT_EQ(info.Size, 0u);
    EXPECT_EQ(byInfo->GetError().Code(), 0x40002u);
}

TEST(DirEntryInfo, AFailedStatusIsRecordedAndLeavesTheName) {
    TempTree tree;
    tree.Write("first", "abc");
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    ASSERT_FALSE(it->Failed());
    io.FailOn(FakeDirIo::Call::Status, Platform::SystemError{5, EACCES});
    File::dir_entry_info info;
    info.WriteTime = 9;
    EXPECT_FALSE(it->GetEntryInfo(info));
    EXPECT_EQ(std::u16string(info.Name, info.NameLength), u"first");
    EXPECT_EQ(info.Type, File::entry_file);
    EXPECT_EQ(info.Size, 0u);
    EXPECT_EQ(info.WriteTime, 0);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "fstatat");
    EXPECT_EQ(it->GetError().Cause().Cause().GetNumber("Errno"),
              static_cast<std::uint64_t>(EACCES));
    // Once in error, a second call reads nothing more.
    EXPECT_FALSE(it->GetEntryInfo(info));
    EXPECT_EQ(info.Name, nullptr);
    EXPECT_EQ(io.Calls(FakeDirIo::Call::Status), 1);
}

TEST(DirEntryInfo, AnEntryThatGoesDuringTheWalkDoesNotEndIt) {
    // Entries deleted after their block was read: each one's size fails where asked, and
    // the walk goes on to all the others and ends as any walk ends.
    TempTree tree;
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
        tree.Write(name, "xyz");
    }
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    ASSERT_FALSE(it->Failed());
    std::vector<std::u16string> seen;
    int vanished = 0;
    for (bool more = true; more; more = it->Next()) {
        const std::u16string name = it->GetName();
        seen.push_back(name);
        if (seen.size() % 3 == 1) {
            ASSERT_EQ(::unlink(tree.At(Common::Utf16ToUtf8(name)).c_str()), 0);
            EXPECT_EQ(it->GetSize(), 0u);
            EXPECT_EQ(it->GetError().Code(), 0x40011u);  // the file is gone
            ++vanished;
        } else {
            EXPECT_EQ(it->GetSize(), 3u);
            EXPECT_FALSE(it->Failed());
        }
    }
    EXPECT_EQ(seen.size(), 8u);
    EXPECT_EQ(vanished, 3);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
}

TEST(DirEntryInfo, AnEntryOfUnknownTypeTakesItsTypeFromTheStatus) {
    // File systems that leave the type out of their records make the status tell it.
    TempTree tree;
    tree.MakeDir("sub");
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    const std::uint16_t length = 24;  // the header, "sub" and its zero, to 8 bytes
    std::string block(length, '\0');
    std::memcpy(block.data() + Platform::DirRecordLayout::kLength, &length, sizeof length);
    block[Platform::DirRecordLayout::kType] = static_cast<char>(Platform::kTypeUnknown);
    std::memcpy(block.data() + Platform::DirRecordLayout::kName, "sub", 3);
    io.blocks = {block, ""};
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    File::dir_entry_info info;
    ASSERT_TRUE(it->GetEntryInfo(info));
    EXPECT_EQ(std::u16string(info.Name, info.NameLength), u"sub");
    EXPECT_EQ(info.Type, File::entry_dir);
    EXPECT_EQ(io.Calls(FakeDirIo::Call::Status), 1);
}

// An iterator of a single entry with only the required slots, to see the default.
class one_entry_iterator final : public File::i_dir::iterator {
public:
    bool Next() override {
        done_ = true;
        return false;
    }
    File::file_identifier* GetIdentifier() override { return nullptr; }
    const char16_t* GetName() override { return done_ ? nullptr : u"only one"; }
    std::uint32_t GetAttributes() override { return 0; }
    std::uint32_t GetType() override { return done_ ? File::entry_other : File::entry_file; }
    std::uint64_t GetSize() override { return done_ ? 0 : 42; }

private:
    bool done_ = false;
};

TEST(DirEntryInfo, TheDefaultAsksTheGetters) {
    one_entry_iterator it;
    File::dir_entry_info info;
    info.WriteTime = 5;
    EXPECT_TRUE(it.GetEntryInfo(info));
    EXPECT_EQ(std::u16string(info.Name), u"only one");
    EXPECT_EQ(info.NameLength, 8u);
    EXPECT_EQ(info.Type, File::entry_file);
    EXPECT_EQ(info.Size, 42u);
    EXPECT_EQ(info.WriteTime, 0);  // the default of GetWriteTime
    it.Next();
    EXPECT_TRUE(it.GetEntryInfo(info));  // this iterator records no error at its end
    EXPECT_EQ(info.Name, nullptr);
    EXPECT_EQ(info.NameLength, 0u);
}

}  // namespace
