// The per-entry path of a directory walk: names widened 16 bytes at a time, names read from
// raw records at the edges of a block, and a status kept for its entry only while the
// iterator is clean.

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dir_test_tree.h"
#include "file/dir_iterator.h"
#include "file/nt_dir.h"
#include "support/fake_dir_io.h"

namespace {

using test_support::FakeDirIo;
using test_support::OpenTree;
using test_support::TempTree;

TEST(NativeNames, AsciiWideningAgreesWithTheGeneralDecoder) {
    constexpr std::size_t kLongest = 300;
    // What lies past a name: bytes with the high bit set and zeros, which must not count.
    std::vector<char> bytes(kLongest + 16, '\x9c');
    for (std::size_t i = 0; i < bytes.size(); i += 5) {
        bytes[i] = '\0';
    }
    std::vector<char16_t> out(kLongest + 16);
    for (std::size_t length = 0; length <= kLongest; ++length) {
        for (std::size_t i = 0; i < length; ++i) {
            bytes[i] = static_cast<char>(' ' + (i * 7 + length) % 95);
        }
        const std::string_view name(bytes.data(), length);
        std::u16string expected;
        File::WidenNativeName(name, expected);
        // Read with the bytes behind the name readable, and with nothing past the name: a
        // copy of exactly its length, so that an address sanitizer sees any read beyond.
        const std::unique_ptr<char[]> exact(new char[length + 1]);
        std::memcpy(exact.get(), name.data(), length);
        for (const auto& [from, readable] :
             {std::pair<const char*, std::size_t>{bytes.data(), bytes.size()},
              {exact.get(), length}}) {
            ASSERT_TRUE(File::WidenAsciiName(from, length, readable, out.data())) << length;
            EXPECT_EQ(std::u16string(out.data(), length), expected) << length;
            EXPECT_EQ(out[length], u'\0') << length;
        }
        // One byte that is not ASCII anywhere in the name sends it to the general decoder.
        for (std::size_t at = 0; at < length; ++at) {
            const char kept = bytes[at];
            bytes[at] = '\xc3';
            EXPECT_FALSE(File::WidenAsciiName(bytes.data(), length, bytes.size(), out.data()))
                << length << " at " << at;
            bytes[at] = kept;
        }
    }
}

// Appends one raw entry record: inode, position, length, type, the name and its zero, then
// padding to 8 bytes made of bytes that are neither zero nor ASCII.
void AppendRecord(std::string& block, std::uint64_t inode, unsigned char type,
                  const std::string& name) {
    const std::size_t length = (Platform::DirRecordLayout::kName + name.size() + 1 + 7) / 8 * 8;
    std::string record(length, '\xee');
    std::memcpy(record.data() + Platform::DirRecordLayout::kInode, &inode, sizeof inode);
    const std::uint64_t position = block.size();
    std::memcpy(record.data() + 8, &position, sizeof position);
    const auto length16 = static_cast<std::uint16_t>(length);
    std::memcpy(record.data() + Platform::DirRecordLayout::kLength, &length16, sizeof length16);
    record[Platform::DirRecordLayout::kType] = static_cast<char>(type);
    std::memcpy(record.data() + Platform::DirRecordLayout::kName, name.data(), name.size());
    record[Platform::DirRecordLayout::kName + name.size()] = '\0';
    block += record;
}

std::vector<std::string> NativeNames(File::i_dir::iterator& it) {
    std::vector<std::string> names;
    for (; !it.Failed(); it.Next()) {
        auto& ours = dynamic_cast<File::nt_dir_iterator&>(it);
        names.emplace_back(ours.NativeName());
        EXPECT_EQ(File::WideNameToNative(it.GetName()), names.back());
    }
    return names;
}

TEST(DirIterator, NamesAtTheEdgesOfABlockComeWhole) {
    TempTree tree;
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    constexpr std::size_t kBlock = File::nt_dir_iterator::kBlockSize;

    // A full block: the dot entries, names that only start like them, names around the
    // widths read at once, the longest name, one that is not UTF-8, names to fill the
    // block, and a last name whose zero is the block's last byte.
    std::string first;
    AppendRecord(first, 1, Platform::kTypeDir, ".");
    AppendRecord(first, 2, Platform::kTypeDir, "..");
    std::vector<std::string> expected = {".a", "...", "..x"};
    for (const std::size_t width : {15, 16, 17, 31, 32, 33}) {
        expected.push_back(std::string(width, 'n'));
    }
    expected.push_back(std::string(255, 'L'));
    expected.push_back("caf\xc3\xa9 \xff");
    for (const std::string& name : expected) {
        AppendRecord(first, 10 + first.size(), Platform::kTypeFile, name);
    }
    while (kBlock - first.size() > 200) {
        expected.push_back("fill_" + std::to_string(first.size()) + std::string(30, 'f'));
        AppendRecord(first, 10 + first.size(), Platform::kTypeFile, expected.back());
    }
    expected.push_back(std::string(kBlock - first.size() - Platform::DirRecordLayout::kName - 1,
                                   'z'));
    AppendRecord(first, 9999, Platform::kTypeFile, expected.back());
    ASSERT_EQ(first.size(), kBlock);

    // A block cut short: its last record claims more room than the block holds and its name
    // has no end; the name stops where the block does.
    std::string second;
    AppendRecord(second, 400, Platform::kTypeLink, "after");
    std::string cut;
    AppendRecord(cut, 401, Platform::kTypeFile, std::string(40, 'c'));
    second += cut.substr(0, Platform::DirRecordLayout::kName + 20);
    expected.push_back("after");
    expected.push_back(std::string(20, 'c'));

    io.blocks = {first, second, ""};
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    EXPECT_EQ(NativeNames(*it), expected);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
}

TEST(DirIterator, AStatusServesItsEntryOnlyWhileTheIteratorIsClean) {
    TempTree tree;
    ASSERT_EQ(::symlink("some/target", tree.At("link").c_str()), 0);
    FakeDirIo io;
    auto dir = OpenTree(io, tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    ASSERT_FALSE(it->Failed());
    EXPECT_EQ(it->GetSize(), 11u);  // a link's size is its target's length
    EXPECT_NE(it->GetWriteTime(), 0);
    EXPECT_EQ(io.Calls(FakeDirIo::Call::Status), 1);
    // A later failure on the same entry: what was read before is no longer given.
    io.FailOn(FakeDirIo::Call::ReadLink, Platform::SystemError{5, EACCES});
    EXPECT_EQ(it->GetSymLinkTarget(), nullptr);
    EXPECT_EQ(it->GetSize(), 0u);
    EXPECT_EQ(it->GetWriteTime(), 0);
    EXPECT_EQ(it->GetLinkCount(), 1u);
    EXPECT_EQ(it->GetName(), nullptr);
    EXPECT_EQ(io.Calls(FakeDirIo::Call::Status), 1);
}

TEST(DirIterator, AStatusOfTheSystemThatFailsIsRecorded) {
    // The system's own directories take the status without the seam; its failure is
    // recorded like any other.
    TempTree tree;
    tree.Write("gone", "abc");
    auto dir = OpenTree(Platform::SystemDirIo(), tree);
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    ASSERT_FALSE(it->Failed());
    ASSERT_EQ(::unlink(tree.At("gone").c_str()), 0);
    EXPECT_EQ(it->GetSize(), 0u);
    EXPECT_TRUE(it->Failed());
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "fstatat");
    EXPECT_EQ(it->GetError().Cause().Cause().GetNumber("Errno"),
              static_cast<std::uint64_t>(ENOENT));
    EXPECT_EQ(it->GetWriteTime(), 0);
}

}  // namespace
