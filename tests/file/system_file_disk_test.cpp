// The controls of the system file on real files: allocation maps of sparse files, holes,
// times, geometry, and unbuffered transfers.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "file/system_file.h"
#include "support/error_parts.h"
#include "support/fake_file_io.h"

namespace {

using Range = std::pair<std::uint64_t, std::uint64_t>;

std::vector<Range> RangesOf(const File::allocation_map_command& map) {
    std::vector<Range> ranges;
    for (std::uint64_t i = 0; i < map.RangeCount(); ++i) {
        ranges.emplace_back(map.RangeOffset(i), map.RangeLength(i));
    }
    return ranges;
}

// The allocated ranges as SEEK_DATA and SEEK_HOLE tell them.
std::vector<Range> SeekRanges(const std::string& path) {
    std::vector<Range> ranges;
    const int fd = ::open(path.c_str(), O_RDONLY);
    off_t at = 0;
    for (;;) {
        const off_t data = ::lseek(fd, at, SEEK_DATA);
        if (data < 0) {
            break;
        }
        const off_t hole = ::lseek(fd, data, SEEK_HOLE);
        ranges.emplace_back(data, hole - data);
        at = hole;
    }
    ::close(fd);
    return ranges;
}

using test_support::FailedFunction;

class SparseFile : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/tessel_sparse_XXXXXX";
        const int fd = ::mkstemp(name);
        ASSERT_GE(fd, 0);
        ::close(fd);
        path_ = name;
    }
    void TearDown() override { ::unlink(path_.c_str()); }

    std::unique_ptr<File::rio_file> Open(File::open_mode mode = File::open_mode::read_write) {
        Common::Error error;
        auto file = File::OpenSystemFile(Common::WidenLatin1(path_), mode, error);
        EXPECT_TRUE(file) << Common::Utf16ToUtf8(error.Text());
        return file;
    }

    // `blocks` blocks of 4 KiB data, one every 64 KiB, in a file of `size` bytes.
    void MakeSparse(int blocks, std::uint64_t size) {
        const int fd = ::open(path_.c_str(), O_WRONLY | O_TRUNC);
        ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(size)), 0);
        const std::string block(4096, 'd');
        for (int i = 0; i < blocks; ++i) {
            ASSERT_EQ(::pwrite(fd, block.data(), block.size(), off_t{i} * 65536 + 8192), 4096);
        }
        ::close(fd);
    }

    std::string path_;
};

TEST_F(SparseFile, AllocationMapMatchesSeekDataAfterRegrowth) {
    // More ranges than the first ask has room for.
    ASSERT_GT(40u, File::system_file::kFirstRangeCapacity);
    MakeSparse(40, 4 << 20);
    const std::vector<Range> expected = SeekRanges(path_);
    if (expected.size() < 2) {
        GTEST_SKIP() << "this file system keeps no holes";
    }
    auto file = Open(File::open_mode::read);
    file->Seek(12345);
    File::allocation_map_command map;
    ASSERT_TRUE(file->IOCTL(map)) << Common::Utf16ToUtf8(file->GetError().Text());
    EXPECT_EQ(RangesOf(map), expected);
    EXPECT_EQ(map.RangeCount(), 40u);
    EXPECT_EQ(file->SeekRel(0), 12345u);  // the map leaves the position alone

    // A window clips the ranges it cuts.
    File::allocation_map_command window;
    window.Start = 8192 + 100;
    window.Length = 65536;
    ASSERT_TRUE(file->IOCTL(window));
    EXPECT_EQ(RangesOf(window),
              (std::vector<Range>{{8192 + 100, 4096 - 100}, {65536 + 8192, 100}}));

    // Past the end there is nothing, and a file of holes has no ranges.
    File::allocation_map_command past;
    past.Start = 8 << 20;
    ASSERT_TRUE(file->IOCTL(past));
    EXPECT_EQ(past.RangeCount(), 0u);
    MakeSparse(0, 1 << 20);
    File::allocation_map_command none;
    ASSERT_TRUE(file->IOCTL(none));
    EXPECT_EQ(none.RangeCount(), 0u);
}

TEST_F(SparseFile, ZeroingARangePunchesAHoleAndKeepsTheLength) {
    MakeSparse(1, 64 << 10);
    auto file = Open();
    const std::string data(64 << 10, 'x');
    std::uint64_t done = 0;
    ASSERT_TRUE(file->Write(data.data(), data.size(), done));
    File::set_sparse_command sparse;
    ASSERT_TRUE(file->IOCTL(sparse));
    File::zero_range_command zero;
    zero.Offset = 16 << 10;
    zero.Length = 16 << 10;
    ASSERT_TRUE(file->IOCTL(zero)) << Common::Utf16ToUtf8(file->GetError().Text());
    EXPECT_EQ(file->Size(), std::uint64_t{64 << 10});
    const std::vector<Range> after = SeekRanges(path_);
    if (after.size() > 1) {
        EXPECT_EQ(after, (std::vector<Range>{{0, 16 << 10}, {32 << 10, 32 << 10}}));
    }
    file->Seek((16 << 10) - 1);
    char got[3] = {};
    ASSERT_TRUE(file->ReadExact(got, 3));
    EXPECT_EQ(std::string(got, 3), std::string("x\0\0", 3));
}

TEST_F(SparseFile, TimesGeometryAndPhysicalPositions) {
    MakeSparse(1, 1 << 20);
    auto file = Open();

    // 2001-09-09 01:46:40.5 UTC as 100 ns since 1601; the access time is left alone.
    struct stat before {};
    ASSERT_EQ(::stat(path_.c_str(), &before), 0);
    File::set_times_command times;
    times.CreationTime = 1;  // Linux can't set it: ignored
    times.WriteTime = 116444736000000000ull + 1000000000ull * 10000000ull + 5000000ull;
    ASSERT_TRUE(file->IOCTL(times)) << Common::Utf16ToUtf8(file->GetError().Text());
    struct stat after {};
    ASSERT_EQ(::stat(path_.c_str(), &after), 0);
    EXPECT_EQ(after.st_mtim.tv_sec, 1000000000);
    EXPECT_EQ(after.st_mtim.tv_nsec, 500000000);
    EXPECT_EQ(after.st_atim.tv_sec, before.st_atim.tv_sec);

    File::sector_sizes_command sectors;
    if (file->IOCTL(sectors)) {
        EXPECT_GE(sectors.LogicalSector, 512u);
        EXPECT_EQ(sectors.LogicalSector & (sectors.LogicalSector - 1), 0u);
        EXPECT_GE(sectors.PhysicalSector, sectors.LogicalSector);
        EXPECT_GT(sectors.FileSystemBlock, 0u);
    } else {
        EXPECT_EQ(file->GetError().Code(), 0x4000eu);
        EXPECT_EQ(FailedFunction(file->GetError()), "NtQueryVolumeInformationFile");
        file->ClearError();
    }

    File::physical_offset_command data;
    data.Logical = 8192 + 10;
    if (file->IOCTL(data)) {
        EXPECT_NE(data.Physical, ~std::uint64_t{0});
        File::physical_offset_command hole;
        hole.Logical = 512 << 10;
        ASSERT_TRUE(file->IOCTL(hole));
        EXPECT_EQ(hole.Physical, ~std::uint64_t{0});
    } else {
        EXPECT_EQ(file->GetError().Code(), 0x4000eu);
        EXPECT_EQ(FailedFunction(file->GetError()), "FSCTL_GET_RETRIEVAL_POINTERS");
        file->ClearError();
    }

    // Compression is the business of few Linux file systems.
    struct statfs volume {};
    ASSERT_EQ(::statfs(path_.c_str(), &volume), 0);
    File::set_compression_command compress;
    if (static_cast<long>(volume.f_type) != 0x9123683e) {
        EXPECT_FALSE(file->IOCTL(compress));
        EXPECT_EQ(file->GetError().Code(), 0x4000eu);
        EXPECT_EQ(FailedFunction(file->GetError()), "FSCTL_SET_COMPRESSION");
        file->ClearError();
    }

    // A command no file knows goes to the base.
    File::ioctl_command unknown;
    unknown.Code = File::CommandCode("????");
    EXPECT_FALSE(file->IOCTL(unknown));
    EXPECT_EQ(file->GetError().Code(), 0x4000eu);
    EXPECT_EQ(std::string(file->GetError().Origin().Func), "file_object::IOCTL");
}

TEST_F(SparseFile, UnbufferedTransfersKeepToTheSectors) {
    Common::Error error;
    auto file =
        File::OpenSystemFileNoCache(Common::WidenLatin1(path_), File::open_mode::create, error);
    if (!file) {
        GTEST_SKIP() << "no unbuffered files here: " << Common::Utf16ToUtf8(error.Text());
    }
    const std::uint32_t alignment = static_cast<File::nocache_file&>(*file).Alignment();
    ASSERT_GE(alignment, 512u);
    void* block = std::aligned_alloc(4096, 8192);
    std::memset(block, 'u', 8192);
    std::uint64_t done = 0;
    EXPECT_TRUE(file->Write(block, 8192, done)) << Common::Utf16ToUtf8(file->GetError().Text());
    EXPECT_EQ(done, 8192u);
    file->Seek(0);
    std::memset(block, 0, 8192);
    EXPECT_TRUE(file->Read(block, 8192, done));
    EXPECT_EQ(done, 8192u);
    EXPECT_EQ(static_cast<char*>(block)[8191], 'u');

    // Less than a sector can't be written past the cache, and can't be cut smaller.
    file->Seek(0);
    EXPECT_FALSE(file->Write(block, 100, done));
    EXPECT_EQ(file->GetError().Code(), 0x40003u);
    EXPECT_EQ(FailedFunction(file->GetError()), "WriteFileNoCache");
    EXPECT_EQ(file->GetError().Cause().Cause().GetNumber("Errno"),
              static_cast<std::uint64_t>(EINVAL));
    std::free(block);
}

TEST_F(SparseFile, LocksOfTwoOpensMeetOnlyWhereTheirRangesOverlap) {
    auto one = Open();
    auto two = Open();
    ASSERT_TRUE(one && two);
    ASSERT_TRUE(one->LockExclusive(0, 100));
    EXPECT_FALSE(two->LockExclusive(50, 10));
    EXPECT_EQ(two->GetError().Code(), 0x40017u);
    two->ClearError();
    EXPECT_TRUE(two->LockExclusive(100, 10));
    // A range of no bytes holds nothing: it meets no lock, and no lock meets it.
    EXPECT_TRUE(two->LockExclusive(10, 0));
    EXPECT_TRUE(one->LockExclusive(200, 0));
    EXPECT_TRUE(two->LockExclusive(300, 10));
    EXPECT_TRUE(one->Unlock(0, 100));
    EXPECT_TRUE(two->LockExclusive(50, 10));
}

TEST(AllocationMap, GrowsUntilEveryRangeFitsAndFailsAsNotSupported) {
    test_support::FakeFileIo io;
    auto& ranges = io.files[u"f"].ranges;
    for (std::uint64_t i = 0; i < 40; ++i) {
        ranges.push_back({i * 100, 10});
    }
    Common::Error error;
    auto file = File::OpenFile(io, u"f", File::open_mode::read, error);
    File::allocation_map_command map;
    ASSERT_TRUE(file->IOCTL(map));
    EXPECT_EQ(io.capacities, (std::vector<std::size_t>{16, 32, 64}));
    ASSERT_EQ(map.RangeCount(), 40u);
    EXPECT_EQ(map.RangeOffset(39), 3900u);
    EXPECT_EQ(map.RangeLength(39), 10u);

    // Whatever the reason, the map is "not supported", with the reason beneath.
    io.Fail(test_support::FakeFileIo::Call::Ranges, {5, EACCES});
    File::allocation_map_command refused;
    EXPECT_FALSE(file->IOCTL(refused));
    EXPECT_FALSE(refused.Map);
    EXPECT_EQ(file->GetError().Code(), 0x4000eu);
    EXPECT_EQ(file->GetError().Text(), u"The operation is not supported.");
    EXPECT_EQ(FailedFunction(file->GetError()), "FSCTL_QUERY_ALLOCATED_RANGES");
    EXPECT_EQ(file->GetError().Cause().GetNumber("code"), 0x80070005u);
}

}  // namespace
