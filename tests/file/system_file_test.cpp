#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "file/system_error.h"
#include "file/system_file.h"
#include "support/error_parts.h"
#include "support/fake_file_io.h"

namespace {

using test_support::FakeFileIo;
using FileCall = FakeFileIo::Call;

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

// The file "f" of `io`, opened for reading and writing, holding `size` bytes 0, 1, 2, ...
std::unique_ptr<File::rio_file> OpenFilled(FakeFileIo& io, std::size_t size) {
    auto& data = io.files[u"f"].data;
    data.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<unsigned char>(i);
    }
    Common::Error error;
    return File::OpenFile(io, u"f", File::open_mode::read_write, error);
}

using test_support::FailedFunction;

TEST(SystemFileRead, NoResourcesHalvesThePieceDownTo4096) {
    FakeFileIo io;
    auto file = OpenFilled(io, 64 * 1024);
    ASSERT_TRUE(file);
    std::vector<unsigned char> buffer(8192);
    std::uint64_t read = 0;
    io.Fail(FileCall::Read, {1450, ENOMEM}, 3);  // the third read runs short of resources
    ASSERT_TRUE(file->Read(buffer.data(), 8192, read));
    ASSERT_TRUE(file->Read(buffer.data(), 8192, read));
    ASSERT_TRUE(file->Read(buffer.data(), 8192, read));
    EXPECT_EQ(read, 8192u);
    EXPECT_EQ(io.reads, (std::vector<std::size_t>{8192, 8192, 8192, 4096, 4096}));
    EXPECT_EQ(buffer[0], static_cast<unsigned char>(16384 % 256));
    EXPECT_EQ(buffer[4096], static_cast<unsigned char>((16384 + 4096) % 256));

    // An odd piece rounds up, and 4,096 is as small as it gets.
    io.reads.clear();
    io.Fail(FileCall::Read, {1450, ENOMEM}, 1, 2);
    EXPECT_FALSE(file->Read(buffer.data(), 8191, read));
    EXPECT_EQ(io.reads, (std::vector<std::size_t>{8191, 4096}));
    EXPECT_EQ(read, 0u);
    const Common::Error& e = file->GetError();
    EXPECT_EQ(e.Code(), 0x40001u);
    EXPECT_EQ(e.Text(), u"Error occurred while reading the file.");
    EXPECT_EQ(FailedFunction(e), "ReadFile");
    EXPECT_EQ(std::string(e.Origin().Func), "system_file::Read");
    EXPECT_EQ(e.Cause().GetNumber("code"), 0x800705aau);
    EXPECT_EQ(e.Cause().Cause().GetNumber("Errno"), static_cast<std::uint64_t>(ENOMEM));
}

TEST(SystemFileRead, LockViolationIsRetriedOnceAtOnce) {
    FakeFileIo io;
    auto file = OpenFilled(io, 100);
    char buffer[40];
    std::uint64_t read = 0;
    io.Fail(FileCall::Read, {33, EAGAIN});
    ASSERT_TRUE(file->Read(buffer, 40, read));
    EXPECT_EQ(read, 40u);
    EXPECT_EQ(io.reads, (std::vector<std::size_t>{40, 40}));

    // After a good transfer the next violation gets its own retry.
    io.Fail(FileCall::Read, {33, EAGAIN});
    ASSERT_TRUE(file->Read(buffer, 40, read));

    // Twice in a row is final, and the system's reason names the error.
    io.Fail(FileCall::Read, {33, EAGAIN}, 1, 2);
    EXPECT_FALSE(file->Read(buffer, 40, read));
    EXPECT_EQ(file->GetError().Code(), 0x40017u);
    EXPECT_EQ(FailedFunction(file->GetError()), "ReadFile");
}

TEST(SystemFileRead, EndCountZeroAndTheLargestPiece) {
    FakeFileIo io;
    auto file = OpenFilled(io, 10);
    char buffer[16];
    std::uint64_t read = 7;
    EXPECT_TRUE(file->Read(buffer, 0, read));
    EXPECT_EQ(read, 0u);
    EXPECT_TRUE(io.reads.empty());
    EXPECT_TRUE(file->Read(buffer, 16, read));
    EXPECT_EQ(read, 10u);
    EXPECT_TRUE(file->Read(buffer, 16, read));  // at the end: nothing, and no error
    EXPECT_EQ(read, 0u);
    EXPECT_FALSE(file->Failed());
    EXPECT_FALSE(file->ReadExact(buffer, 1));
    EXPECT_EQ(file->GetError().Code(), 0x40002u);

    // 3 GiB take two calls, the first at the cap: the most one call of the kernel moves,
    // since a shorter piece than asked means the end of the file. The buffer is reserved,
    // never touched.
    FakeFileIo big;
    big.files[u"f"].virtualSize = 3ull << 30;
    Common::Error error;
    auto large = File::OpenFile(big, u"f", File::open_mode::read, error);
    ASSERT_TRUE(large);
    void* space = ::mmap(nullptr, 3ull << 30, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(space, MAP_FAILED);
    EXPECT_TRUE(large->Read(space, 3ull << 30, read));
    ::munmap(space, 3ull << 30);
    EXPECT_EQ(read, 3ull << 30);
    EXPECT_EQ(big.reads, (std::vector<std::size_t>{0x7ffff000u, 0x40001000u}));
}

TEST(SystemFileWrite, DiskFullHalvesThePieceAndGoesOn) {
    FakeFileIo io;
    auto file = OpenFilled(io, 0);
    const std::string text(1000, 'w');
    std::uint64_t written = 0;
    io.Fail(FileCall::Write, {112, ENOSPC});  // once: space came free
    ASSERT_TRUE(file->Write(text.data(), text.size(), written));
    EXPECT_EQ(written, 1000u);
    EXPECT_EQ(io.writes, (std::vector<std::size_t>{1000, 500, 500}));
    EXPECT_EQ(io.files[u"f"].data.size(), 1000u);

    // Other codes of the rule: access denied, write protected, the handle's disk full, and an
    // invalid parameter. Any other failure is final at once.
    for (const std::uint32_t code : {5u, 19u, 39u, 87u}) {
        io.writes.clear();
        io.Fail(FileCall::Write, {code, 0});
        EXPECT_TRUE(file->Write("abcd", 4, written)) << code;
        EXPECT_EQ(io.writes, (std::vector<std::size_t>{4, 2, 2})) << code;
    }
    io.writes.clear();
    io.Fail(FileCall::Write, {1117, EIO});
    EXPECT_FALSE(file->Write("abcd", 4, written));
    EXPECT_EQ(io.writes.size(), 1u);
    EXPECT_EQ(file->GetError().Code(), 0x40003u);
    EXPECT_EQ(file->GetError().Text(), u"Error occurred while writing to the file.");
    EXPECT_EQ(FailedFunction(file->GetError()), "WriteFile");
}

TEST(SystemFileWrite, AFullDiskEndsWhenNothingMovesAtOneByte) {
    FakeFileIo io;
    io.diskCapacity = 10;
    auto file = OpenFilled(io, 0);
    std::uint64_t written = 0;
    EXPECT_FALSE(file->Write("0123456789abcdef", 16, written));
    EXPECT_EQ(written, 10u);
    // 16 gives 10; 6 fails after progress and halves; 3 and 1 fail without it.
    EXPECT_EQ(io.writes, (std::vector<std::size_t>{16, 6, 3, 1}));
    EXPECT_EQ(file->GetError().Code(), 0x40004u);
    EXPECT_EQ(file->GetError().Text(), u"The disk is full.");
    EXPECT_EQ(FailedFunction(file->GetError()), "WriteFile");
    EXPECT_EQ(file->GetError().Cause().GetNumber("code"), 0x80070070u);
}

TEST(SystemFileWrite, UnbufferedPiecesKeepTheAlignment) {
    FakeFileIo io;
    io.files[u"f"];
    Common::Error error;
    auto file = File::OpenNoCacheFile(io, u"f", File::open_mode::read_write, error);
    ASSERT_TRUE(file);
    EXPECT_TRUE(io.unbufferedOpened);
    EXPECT_EQ(static_cast<File::nocache_file&>(*file).Alignment(), 512u);
    const std::vector<unsigned char> block(4096, 7);
    std::uint64_t written = 0;

    // An I/O device error is retried here: (4096 + 512) / 2 rounded down to 512s.
    io.Fail(FileCall::Write, {1117, EIO});
    ASSERT_TRUE(file->Write(block.data(), 4096, written));
    EXPECT_EQ(io.writes, (std::vector<std::size_t>{4096, 2048, 2048}));

    // The working-set quota grows the working set once and retries the same piece.
    io.writes.clear();
    io.Fail(FileCall::Write, {1453, 0});
    ASSERT_TRUE(file->Write(block.data(), 4096, written));
    EXPECT_EQ(io.writes, (std::vector<std::size_t>{4096, 4096}));
    EXPECT_EQ(io.workingSetGrown, 1);

    // No resources, down to one sector, where it is final.
    io.writes.clear();
    io.Fail(FileCall::Write, {1450, ENOMEM}, 1, 10);
    EXPECT_FALSE(file->Write(block.data(), 1536, written));
    EXPECT_EQ(io.writes, (std::vector<std::size_t>{1536, 1024, 768 / 512 * 512}));
    EXPECT_EQ(file->GetError().Code(), 0x40003u);
    EXPECT_EQ(FailedFunction(file->GetError()), "WriteFileNoCache");

    // A volume that tells no sector size gets a page.
    FakeFileIo blind;
    blind.files[u"g"];
    blind.Fail(FileCall::Sectors, {50, EOPNOTSUPP});
    auto paged = File::OpenNoCacheFile(blind, u"g", File::open_mode::read, error);
    ASSERT_TRUE(paged);
    EXPECT_EQ(static_cast<File::nocache_file&>(*paged).Alignment(), 4096u);
}

TEST(SystemFileFailures, EachOperationRecordsItsFailureOnce) {
    FakeFileIo io;
    auto file = OpenFilled(io, 4);

    struct Case {
        FileCall call;
        std::uint32_t code;
        const char* function;
    };
    const Case cases[] = {
        {FileCall::Seek, 0x40005, "SetFilePointer"},   {FileCall::Resize, 0x40003, "SetEndOfFile"},
        {FileCall::Sync, 0x40003, "FlushFileBuffers"}, {FileCall::Lock, 0x40017, "LockFileEx"},
        {FileCall::Unlock, 0x40017, "UnlockFileEx"},
    };
    for (const Case& c : cases) {
        file->ClearError();
        io.Fail(c.call, {1117, EIO});
        switch (c.call) {
            case FileCall::Seek:
                EXPECT_EQ(file->Seek(1), 0u);  // the position stays
                break;
            case FileCall::Resize:
                EXPECT_FALSE(file->Truncate());
                break;
            case FileCall::Sync:
                EXPECT_FALSE(file->Flush());
                break;
            case FileCall::Lock:
                EXPECT_FALSE(file->LockShared(0, 1));
                break;
            default:
                EXPECT_FALSE(file->Unlock(0, 1));
                break;
        }
        EXPECT_EQ(file->GetError().Code(), c.code) << c.function;
        EXPECT_EQ(FailedFunction(file->GetError()), c.function);
        EXPECT_EQ(std::u16string(file->GetError().GetWide("path")), u"f");
    }

    // Sticky: later calls do nothing and keep the first reason.
    std::uint64_t written = 0;
    EXPECT_FALSE(file->Write("x", 1, written));
    EXPECT_EQ(written, 0u);
    EXPECT_TRUE(io.writes.empty());
    EXPECT_EQ(file->GetError().Code(), 0x40017u);

    // A position past the signed range is refused before the system is asked.
    file->ClearError();
    const int seeks = io.Calls(FileCall::Seek);
    file->Seek(~std::uint64_t{0});
    EXPECT_EQ(file->GetError().Code(), 0x40005u);
    EXPECT_EQ(io.Calls(FileCall::Seek), seeks);
}

TEST(SystemFileFailures, OpenFailuresAreTranslated) {
    FakeFileIo io;
    Common::Error error;
    EXPECT_FALSE(File::OpenFile(io, u"missing", File::open_mode::read, error));
    EXPECT_EQ(error.Code(), 0x40011u);
    EXPECT_EQ(FailedFunction(error), "CreateFileW");
    io.files[u"there"];
    EXPECT_FALSE(File::OpenFile(io, u"there", File::open_mode::create_new, error));
    EXPECT_EQ(error.Code(), 0x40013u);
    io.Fail(FileCall::Open, Platform::SystemError{0, 4242});
    EXPECT_FALSE(File::OpenFile(io, u"there", File::open_mode::create, error));
    EXPECT_EQ(error.Code(), 0x4000au);  // the operation's own code
    auto file = File::OpenFile(io, u"there", File::open_mode::read, error);
    EXPECT_TRUE(file);
    EXPECT_TRUE(error.Succeeded());
    EXPECT_FALSE(io.unbufferedOpened);
    file.reset();
    EXPECT_EQ(io.closed, 1);
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
    // A file opened for reading refuses writes as access denied, as Windows answers them.
    EXPECT_EQ(reader->GetError().Code(), 0x40014u);
    EXPECT_EQ(reader->GetError().Cause().GetNumber("code"), 0x80070005u);
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
