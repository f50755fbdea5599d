#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/common/messages.h>
#include <tessel_link/file/file_identifier.h>
#include <tessel_link/file/memory_file.h>

#include "file/file_errors.h"
#include "support/error_parts.h"

namespace {

using test_support::OriginFunction;

// A file object with the defaults only, to see what they do.
class BareFile : public File::rio_file {
public:
    bool Read(void*, std::uint64_t, std::uint64_t& read) override { return read = 0, true; }
    bool Write(const void*, std::uint64_t, std::uint64_t& written) override {
        return written = 0, true;
    }
    std::uint64_t Seek(std::uint64_t p) override { return p; }
    std::uint64_t SeekRel(std::int64_t) override { return 0; }
    std::uint64_t SeekEnd(std::int64_t) override { return 0; }
    bool Truncate() override { return true; }
    using File::file_object::SetError;
};

TEST(FileDefaults, UnsupportedOperationsNameTheirFunction) {
    struct Case {
        bool (*op)(BareFile&);
        const char* function;
    };
    const Case cases[] = {
        {[](BareFile& f) { return f.LockShared(0, 1); }, "ri_file::LockShared"},
        {[](BareFile& f) { return f.LockExclusive(0, 1); }, "ro_file::LockExclusive"},
        {[](BareFile& f) { return f.Unlock(0, 1); }, "raccess_file::Unlock"},
        {[](BareFile& f) {
             File::ioctl_command command{0x54534554};
             return f.IOCTL(command);
         },
         "file_object::IOCTL"},
    };
    for (const Case& c : cases) {
        BareFile file;
        EXPECT_FALSE(c.op(file));
        EXPECT_EQ(file.GetError().Code(), 0x4000eu);
        EXPECT_EQ(file.GetError().Text(), u"The operation is not supported.");
        EXPECT_EQ(OriginFunction(file.GetError()), c.function);

        // An error that is already there stays as it was.
        BareFile failed;
        const Common::Error earlier(TL_ORIGIN("test"), 0x40001);
        failed.SetError(earlier);
        EXPECT_FALSE(c.op(failed));
        EXPECT_EQ(failed.GetError().Identity(), earlier.Identity()) << c.function;
    }
    BareFile file;
    EXPECT_TRUE(file.Flush());
    EXPECT_FALSE(file.Failed());
}

TEST(FileDefaults, ReadExactRecordsTheEndOfTheFile) {
    const char data[] = "abcdef";
    File::buf_ifile<char> file(data, 6);
    char buffer[10];
    EXPECT_FALSE(file.ReadExact(buffer, 10));
    EXPECT_EQ(file.GetError().Code(), 0x40002u);
    EXPECT_EQ(file.GetError().Text(), u"The end of the file has been reached.");
    EXPECT_EQ(OriginFunction(file.GetError()), "i_file::Read");
    // Sticky: nothing more is read until the error is cleared.
    std::uint64_t read = 99;
    file.Seek(0);
    EXPECT_FALSE(file.Read(buffer, 1, read));
    EXPECT_EQ(read, 0u);
    file.ClearError();
    file.Seek(0);
    EXPECT_TRUE(file.ReadExact(buffer, 6));
    EXPECT_EQ(std::memcmp(buffer, "abcdef", 6), 0);
    EXPECT_TRUE(file.ReadExact(buffer, 0));
}

TEST(MemoryFiles, ReadOnlyViewSeeksWithinItsBytes) {
    const char data[] = "0123456789";
    File::buf_ifile<char> file(data, 10);
    EXPECT_EQ(file.Data(), data);  // not copied
    EXPECT_EQ(file.Seek(3), 3u);
    EXPECT_EQ(file.Size(), 10u);
    EXPECT_EQ(file.Position(), 3u);
    EXPECT_EQ(file.SeekRel(-1), 2u);
    EXPECT_EQ(file.SeekEnd(-2), 8u);
    char buffer[4] = {};
    std::uint64_t read = 0;
    EXPECT_TRUE(file.Read(buffer, 4, read));
    EXPECT_EQ(read, 2u);
    EXPECT_TRUE(file.Read(buffer, 4, read));
    EXPECT_EQ(read, 0u);  // the end is no error
    EXPECT_FALSE(file.Failed());
    file.SeekEnd(1);
    EXPECT_EQ(file.GetError().Code(), 0x40005u);
    EXPECT_EQ(file.Position(), 10u);

    const char16_t wide[] = u"ab";
    File::buf_ifile<char16_t> words(wide, 2);
    EXPECT_EQ(words.Size(), 4u);
}

TEST(MemoryFiles, WritableFileGrowsFillsGapsAndTruncates) {
    File::memory_file file;
    std::uint64_t done = 0;
    EXPECT_TRUE(file.Write("hello", 5, done));
    EXPECT_EQ(file.Seek(8), 8u);
    EXPECT_TRUE(file.Write("!", 1, done));
    EXPECT_EQ(file.Size(), 9u);
    EXPECT_EQ(std::string(file.Content().begin(), file.Content().end()),
              std::string("hello\0\0\0!", 9));
    file.Seek(2);
    EXPECT_TRUE(file.Truncate());
    EXPECT_EQ(file.Size(), 2u);
    file.SeekRel(-1);
    char c = 0;
    EXPECT_TRUE(file.ReadExact(&c, 1));
    EXPECT_EQ(c, 'e');
    file.SeekRel(-5);
    EXPECT_EQ(file.GetError().Code(), 0x40005u);
    EXPECT_EQ(file.Position(), 2u);
}

TEST(FileErrors, CodesCarryTheirTexts) {
    const std::pair<File::FileErrorCode, const char16_t*> rows[] = {
        {File::kReadFailed, u"Error occurred while reading the file."},
        {File::kEndOfFile, u"The end of the file has been reached."},
        {File::kWriteFailed, u"Error occurred while writing to the file."},
        {File::kDiskFull, u"The disk is full."},
        {File::kSeekFailed, u"Error occurred while searching in the file."},
        {File::kOutOfMemory, u"Not enough memory to complete the operation."},
        {File::kOpenFailed, u"Error occurred while opening the file."},
        {File::kDeleteFailed, u"Error occurred while deleting the file."},
        {File::kRenameFailed, u"Error occurred while renaming the file."},
        {File::kCreateFailed, u"Error occurred while creating the file."},
        {File::kDriveNotReady, u"The drive is not ready."},
        {File::kReadOnly, u"The file is read-only."},
        {File::kCorrupted, u"The file is corrupted."},
        {File::kNotSupported, u"The operation is not supported."},
        {File::kCanceled, u"Canceled."},
        {File::kFileNotFound, u"The specified file does not exist."},
        {File::kAlreadyExists, u"The file (folder) already exists."},
        {File::kAccessDenied, u"Access to the file is denied."},
        {File::kNetworkDown, u"Network disconnected."},
        {File::kLockFailed, u"Failed to lock the file."},
        {File::kInvalidHandle, u"Invalid file handle."},
        {File::kPathNotFound, u"The specified file path does not exist."},
    };
    for (const auto& [code, text] : rows) {
        ASSERT_NE(Common::GetMessageRow(code.Row), nullptr);
        EXPECT_EQ(std::u16string(Common::GetMessageRow(code.Row)), text) << std::hex << code.Code;
    }
}

TEST(FileIdentifiers, EmptyIdentifiersShareOneStaticRecord) {
    File::the_identifier a;
    const std::uint32_t base = a.UseCount();
    {
        File::the_identifier b(u"", nullptr, 0);
        EXPECT_TRUE(a.SharesRecordWith(b));
        EXPECT_EQ(a.UseCount(), base + 1);
        auto clone = b.Clone();
        EXPECT_EQ(a.UseCount(), base + 2);
    }
    EXPECT_EQ(a.UseCount(), base);
    EXPECT_TRUE(a.Name().empty());
    EXPECT_EQ(a.Blob(), nullptr);
}

TEST(FileIdentifiers, CopiesShareTheNameAndBlob) {
    const unsigned char blob[] = {1, 2, 3};
    File::the_identifier id(u"name.txt", blob, 3);
    EXPECT_EQ(id.UseCount(), 1u);
    auto clone = id.Clone();
    auto* copy = dynamic_cast<File::the_identifier*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->SharesRecordWith(id));
    EXPECT_EQ(id.UseCount(), 2u);
    EXPECT_EQ(copy->Name(), u"name.txt");
    ASSERT_EQ(copy->BlobSize(), 3u);
    EXPECT_EQ(copy->Blob()[2], 3);
    File::the_identifier other;
    other = id;
    EXPECT_EQ(id.UseCount(), 3u);
    clone.reset();
    EXPECT_EQ(id.UseCount(), 2u);
}

}  // namespace
