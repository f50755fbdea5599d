#include <unistd.h>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "file/system_error.h"
#include "file/system_file.h"
#include "support/fake_file_system.h"

namespace {

using test_support::FakeFileSystem;
using Call = FakeFileSystem::Call;

TEST(SystemErrors, TranslationKeepsTheSystemCodesAsCauses) {
    const Common::Error e = File::MakeSystemError(TL_ORIGIN("F"), "open", u"/x",
                                                  Platform::SystemError{2, 2}, File::kOpenFailed);
    EXPECT_EQ(e.Code(), 0x40011u);
    EXPECT_EQ(e.Text(), u"The specified file does not exist.");
    EXPECT_STREQ(e.GetAnsi("function"), "open");
    EXPECT_EQ(std::u16string(e.GetWide("path")), u"/x");
    const Common::Error system = e.Cause();
    EXPECT_EQ(system.GetNumber("code"), 0x80070002u);
    EXPECT_EQ(system.Code(), Common::Error::kSystemCode);
    EXPECT_EQ(system.Cause().GetNumber("Errno"), 2u);
    // The deepest record says what it is: the errno record, not the head's code again.
    EXPECT_EQ(system.Cause().Code(), Common::Error::kErrnoCode);
    EXPECT_TRUE(system.Cause().Cause().Empty());

    // Without a translation the caller's code stands; the causes are still there.
    const Common::Error io = File::MakeSystemError(
        TL_ORIGIN("F"), "read", Platform::SystemError{1117, 5}, File::kReadFailed);
    EXPECT_EQ(io.Code(), 0x40001u);
    EXPECT_EQ(io.Cause().GetNumber("code"), 0x8007045du);

    // An errno value without a Windows counterpart is kept on its own.
    const Common::Error odd = File::MakeSystemError(
        TL_ORIGIN("F"), "read", Platform::SystemError{0, 4242}, File::kReadFailed);
    EXPECT_EQ(odd.Code(), 0x40001u);
    EXPECT_EQ(odd.Cause().GetNumber("Errno"), 4242u);
    EXPECT_EQ(odd.Cause().Code(), Common::Error::kErrnoCode);
}

TEST(SystemErrors, TableCoversTheSystemCodes) {
    const std::pair<std::uint32_t, std::uint32_t> table[] = {
        {18, 0x40002},   {38, 0x40002},   {39, 0x40004},   {112, 0x40004},  {8, 0x40006},
        {123, 0x40009},  {21, 0x4000b},   {19, 0x4000c},   {1, 0x4000e},    {50, 0x4000e},
        {1005, 0x4000e}, {1223, 0x4000f}, {2, 0x40011},    {183, 0x40013},  {5, 0x40014},
        {86, 0x40014},   {1219, 0x40014}, {1326, 0x40014}, {1330, 0x40014}, {1331, 0x40014},
        {53, 0x40015},   {67, 0x40015},   {1203, 0x40015}, {1231, 0x40015}, {1232, 0x40015},
        {32, 0x40017},   {33, 0x40017},   {3, 0x4002d},
    };
    for (const auto& [system, file] : table) {
        const auto translated = File::TranslateSystemCode(system);
        ASSERT_TRUE(translated) << system;
        EXPECT_EQ(translated->Code, file) << system;
    }
    EXPECT_EQ(File::TranslateSystemCode(0x80070005)->Code, 0x40014u);  // HRESULT of Win32
    EXPECT_FALSE(File::TranslateSystemCode(0x80040005));               // another facility
    EXPECT_FALSE(File::TranslateSystemCode(87));
}

TEST(SystemFileFailures, EachOperationRecordsItsFailureOnce) {
    FakeFileSystem fs;
    fs.files[u"f"] = {'a', 'b', 'c', 'd'};
    Common::Error error;
    auto file = File::OpenFile(fs, u"f", File::open_mode::read_write, error);
    ASSERT_TRUE(file);

    char buffer[4];
    std::uint64_t read = 0;
    fs.FailNext(Call::Read, Platform::SystemError{1117, 5}, 2);
    EXPECT_FALSE(file->Read(buffer, 4, read));
    EXPECT_EQ(read, 2u);  // what arrived before the failure is reported
    EXPECT_EQ(file->GetError().Code(), 0x40001u);
    EXPECT_EQ(std::string(file->GetError().Origin().Func), "system_file::Read");
    // Sticky: later calls do nothing and keep the first reason.
    std::uint64_t written = 0;
    EXPECT_FALSE(file->Write("x", 1, written));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(file->GetError().Code(), 0x40001u);
    EXPECT_EQ(fs.files[u"f"].size(), 4u);

    file->ClearError();
    fs.FailNext(Call::Write, Platform::SystemError{112, 28}, 1);
    EXPECT_FALSE(file->Write("xyz", 3, written));
    EXPECT_EQ(written, 1u);
    EXPECT_EQ(file->GetError().Code(), 0x40004u);

    file->ClearError();
    fs.FailNext(Call::Lock, Platform::SystemError{33, 11});
    EXPECT_FALSE(file->LockExclusive(0, 1));
    EXPECT_EQ(file->GetError().Code(), 0x40017u);

    file->ClearError();
    fs.FailNext(Call::Seek, Platform::SystemError{87, 22});
    EXPECT_EQ(file->Seek(1), 3u);  // the position stays
    EXPECT_EQ(file->GetError().Code(), 0x40005u);
}

TEST(SystemFileFailures, OpenFailuresAreTranslated) {
    FakeFileSystem fs;
    Common::Error error;
    EXPECT_FALSE(File::OpenFile(fs, u"missing", File::open_mode::read, error));
    EXPECT_EQ(error.Code(), 0x40011u);
    fs.files[u"there"] = {};
    EXPECT_FALSE(File::OpenFile(fs, u"there", File::open_mode::create_new, error));
    EXPECT_EQ(error.Code(), 0x40013u);
    fs.FailNext(Call::Open, Platform::SystemError{0, 4242});
    EXPECT_FALSE(File::OpenFile(fs, u"there", File::open_mode::create, error));
    EXPECT_EQ(error.Code(), 0x4000au);  // the operation's own code
    auto file = File::OpenFile(fs, u"there", File::open_mode::read, error);
    EXPECT_TRUE(file);
    EXPECT_TRUE(error.Succeeded());
    file.reset();
    EXPECT_EQ(fs.closed, 1);
}

class DiskFile : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/tessel_file_XXXXXX";
        const int fd = ::mkstemp(name);
        ASSERT_GE(fd, 0);
        ::close(fd);
        path_ = name;
    }
    void TearDown() override { std::remove(path_.c_str()); }
    std::u16string Path() const { return Common::WidenLatin1(path_); }

    std::string path_;
};

TEST_F(DiskFile, WritesReadsSeeksAndTruncates) {
    Common::Error error;
    auto file = File::OpenSystemFile(Path(), File::open_mode::create, error);
    ASSERT_TRUE(file) << std::string(error.Text().begin(), error.Text().end());
    std::uint64_t done = 0;
    ASSERT_TRUE(file->Write("0123456789", 10, done));
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(file->SeekRel(-4), 6u);
    EXPECT_EQ(file->Size(), 10u);
    EXPECT_EQ(file->SeekRel(0), 6u);  // Size left the position alone
    EXPECT_TRUE(file->Truncate());
    EXPECT_TRUE(file->LockExclusive(0, 6));
    EXPECT_TRUE(file->Unlock(0, 6));
    EXPECT_TRUE(file->Flush());
    file->Rewind();
    char buffer[16] = {};
    std::uint64_t read = 0;
    EXPECT_TRUE(file->Read(buffer, sizeof buffer, read));
    EXPECT_EQ(std::string(buffer, read), "012345");
    EXPECT_FALSE(file->Failed());
    file.reset();

    auto reader = File::OpenSystemFile(Path(), File::open_mode::read, error);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->Size(), 6u);
    EXPECT_FALSE(reader->Write("x", 1, done));
    // EBADF has no file-layer meaning: the write's own code, with the reason beneath.
    EXPECT_EQ(reader->GetError().Code(), 0x40003u);
    EXPECT_EQ(reader->GetError().Cause().GetNumber("code"), 0x80070006u);
}

TEST_F(DiskFile, MissingFilesAndDirectoriesAreRefused) {
    Common::Error error;
    std::remove(path_.c_str());
    EXPECT_FALSE(File::OpenSystemFile(Path(), File::open_mode::read, error));
    EXPECT_EQ(error.Code(), 0x40011u);
    EXPECT_EQ(error.Cause().Cause().GetNumber("Errno"), 2u);
    EXPECT_FALSE(File::OpenSystemFile(u"/tmp", File::open_mode::read, error));
    EXPECT_EQ(error.Code(), 0x40014u);
    EXPECT_FALSE(File::OpenSystemFile(u"/nonexistent-dir/x", File::open_mode::create, error));
    EXPECT_EQ(error.Code(), 0x40011u);
}

}  // namespace
