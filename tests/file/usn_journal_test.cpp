#include <unistd.h>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/usn_journal.h>

#include "file/change_notification.h"
#include "file/usn_journal_impl.h"
#include "file/watched_dir.h"
#include "platform/journal_image.h"
#include "support/fake_volume_control.h"
#include "support/journal_image_builder.h"

namespace {

using test_support::FakeVolumeControl;
using test_support::JournalImageBuilder;
using VolumeCall = FakeVolumeControl::Call;

constexpr char16_t kVolume[] = u"C:\\data";

std::u16string Name(const File::USN_RECORD& r) {
    return File::UsnRecordName(r);
}

// Every record from `reader` until its end, as (Usn, name).
std::vector<std::pair<File::USN, std::u16string>> ReadAllRecords(File::UsnJournalReader& reader) {
    std::vector<std::pair<File::USN, std::u16string>> out;
    while (const File::USN_RECORD* r = reader.Read()) {
        out.emplace_back(r->Usn, Name(*r));
    }
    return out;
}

std::uint32_t ThrownCode(const std::function<void()>& f) {
    try {
        f();
    } catch (const Common::Error& e) {
        return e.Code();
    }
    return 0;
}

class UsnJournalTest : public ::testing::Test {
protected:
    void Publish() { volumes.images[kVolume] = image.Image(); }

    std::unique_ptr<File::UsnJournalImpl> Open() {
        Publish();
        return std::make_unique<File::UsnJournalImpl>(volumes, kVolume);
    }

    std::unique_ptr<File::UsnJournalReader> Reader(File::UsnJournal& journal, File::USN start) {
        std::unique_ptr<File::UsnJournalReader> reader;
        const Common::Error e = journal.CreateReader(start, reader);
        EXPECT_TRUE(e.Succeeded()) << e.Code();
        return reader;
    }

    FakeVolumeControl volumes;
    JournalImageBuilder image;
};

TEST_F(UsnJournalTest, ReadsEveryRecordFromTheOldestOrAGivenStart) {
    const File::USN a = image.Add(100, 5, u"alpha.txt", 0x2, 0x20);
    const File::USN b = image.Add(101, 5, u"b");
    const File::USN c = image.Add(102, 100, u"a longer name for the third record");
    auto journal = Open();
    EXPECT_EQ(journal->GetJournalData().UsnJournalID, 77u);
    EXPECT_EQ(journal->GetJournalData().NextUsn, image.NextUsn());

    auto reader = Reader(*journal, 0);
    const File::USN_RECORD* first = reader->Read();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->Usn, a);
    EXPECT_EQ(first->FileReferenceNumber, 100u);
    EXPECT_EQ(first->ParentFileReferenceNumber, 5u);
    EXPECT_EQ(first->Reason, 0x2u);
    EXPECT_EQ(first->FileAttributes, 0x20u);
    EXPECT_EQ(Name(*first), u"alpha.txt");
    EXPECT_EQ(reader->NextUsn(), b);  // a caller that stops here resumes at the next record
    EXPECT_EQ(ReadAllRecords(*reader),
              (std::vector<std::pair<File::USN, std::u16string>>{
                  {b, u"b"}, {c, u"a longer name for the third record"}}));
    EXPECT_EQ(reader->NextUsn(), image.NextUsn());
    EXPECT_EQ(reader->Read(), nullptr);  // still at the end: one more empty fetch is fine

    auto fromB = Reader(*journal, b);
    EXPECT_EQ(ReadAllRecords(*fromB).size(), 2u);
}

TEST_F(UsnJournalTest, RecordsThatNoReasonSelectsAreSteppedOver) {
    // Records that the mask leaves out still advance the next USN, as the system's journal
    // does: at the end of the image it is the journal's own.
    const File::USN a = image.Add(100, 5, u"a");
    image.Add(101, 5, u"no reason", 0);
    const File::USN c = image.Add(102, 5, u"c");
    image.Add(103, 5, u"no reason either", 0);
    auto journal = Open();
    auto reader = Reader(*journal, 0);
    std::vector<std::pair<File::USN, std::u16string>> read;
    EXPECT_EQ(ThrownCode([&] { read = ReadAllRecords(*reader); }), 0u);
    EXPECT_EQ(read, (std::vector<std::pair<File::USN, std::u16string>>{{a, u"a"}, {c, u"c"}}));
    EXPECT_EQ(reader->NextUsn(), image.NextUsn());
}

TEST_F(UsnJournalTest, StartAtTheOldestWorksAndOneBeforeItIsRefused) {
    image.Add(1, 0, u"gone");
    const File::USN kept = image.Add(2, 0, u"kept");
    image.DropBefore(kept);
    image.Head().LowestValidUsn = kept - 64;  // the oldest is the larger of the two
    auto journal = Open();

    auto reader = Reader(*journal, kept);
    EXPECT_EQ(ReadAllRecords(*reader).size(), 1u);

    std::unique_ptr<File::UsnJournalReader> none;
    const Common::Error e = journal->CreateReader(kept - 1, none);
    EXPECT_EQ(e.Code(), 0x4002bu);
    EXPECT_EQ(e.Text(), u"The USN journal does not have the requested data.");
    EXPECT_EQ(none, nullptr);
}

TEST_F(UsnJournalTest, EmptyReadEndsAtOnceAndOneBufferIsFilledPerFetch) {
    auto journal = Open();  // no records: NextUsn is the first
    auto reader = Reader(*journal, 0);
    const int before = volumes.controls;
    EXPECT_EQ(reader->Read(), nullptr);
    EXPECT_EQ(volumes.controls, before + 1);
    EXPECT_EQ(reader->NextUsn(), image.NextUsn());

    // 1,000 records of 80 bytes: 409 fit the 32,768 record bytes of each fetch.
    for (int i = 0; i < 1000; ++i) {
        image.Add(static_cast<std::uint64_t>(i), 0, u"0123456789");
    }
    Publish();
    const int start = volumes.controls;
    std::size_t count = 0;
    while (reader->Read() != nullptr) {
        ++count;
    }
    EXPECT_EQ(count, 1000u);
    EXPECT_EQ(volumes.controls - start, 4);  // three full fetches and the empty one at the end
}

TEST_F(UsnJournalTest, ContinuityIsCheckedBetweenFetches) {
    // With no records, a next USN other than the one asked means the journal moved away.
    image.Add(1, 0, u"x");
    auto journal = Open();
    auto reader = Reader(*journal, image.NextUsn() + 8);  // past the end
    EXPECT_EQ(ThrownCode([&] { reader->Read(); }), 0x4002au);
    EXPECT_EQ(ThrownCode([&] { reader->Read(); }), 0x4002au);  // and stays broken

    // A journal that wrapped between two reads: the records resume later than asked.
    auto again = Reader(*journal, 0);
    EXPECT_EQ(ReadAllRecords(*again).size(), 1u);
    image.Add(2, 0, u"lost");
    const File::USN after = image.Add(3, 0, u"after");
    image.DropBefore(after);
    Publish();
    try {
        again->Read();
        FAIL() << "a wrapped journal was read on";
    } catch (const Common::Error& e) {
        EXPECT_EQ(e.Code(), 0x4002au);
        EXPECT_EQ(e.Text(), u"The requested USN journal entry is not found.");
    }
}

TEST_F(UsnJournalTest, ZeroLengthNameIsEmpty) {
    image.Add(9, 1, u"");
    auto journal = Open();
    auto reader = Reader(*journal, 0);
    const File::USN_RECORD* r = reader->Read();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->FileNameLength, 0u);
    EXPECT_EQ(Name(*r), u"");
}

// Damage in an image, found by the image's reader, and the same bytes handed to the
// journal's reader directly by a volume that doesn't check them.
struct Damage {
    const char* what;
    std::size_t field;  // offset in the second record
    std::size_t size;
    std::uint32_t value;
};

constexpr Damage kDamages[] = {
    {"record length 0", 0, 4, 0},
    {"record length past the buffer", 0, 4, 0x10000},
    {"record length below the fixed part", 0, 4, 56},
    {"record length not a multiple of 8", 0, 4, 76},
    {"name past its record", 56, 2, 200},
    {"name offset past its record", 58, 2, 400},
    {"name offset inside the fixed part", 58, 2, 8},
};

TEST_F(UsnJournalTest, DamagedImagesFailAsCorrupted) {
    for (const Damage& d : kDamages) {
        SCOPED_TRACE(d.what);
        JournalImageBuilder b;
        b.Add(1, 0, u"good");
        b.Add(2, 0, u"damaged");
        std::vector<unsigned char> bytes = b.Image();
        std::memcpy(bytes.data() + b.RecordOffset(1) + d.field, &d.value, d.size);
        volumes.images[kVolume] = bytes;
        File::UsnJournalImpl journal(volumes, kVolume);
        auto reader = Reader(journal, 0);
        try {
            reader->Read();
            FAIL() << "read on";
        } catch (const Common::Error& e) {
            EXPECT_EQ(e.Code(), 0x4000du);
            EXPECT_EQ(e.Text(), u"The file is corrupted.");
            EXPECT_STREQ(e.GetAnsi("function"), "DeviceIoControl(FSCTL_READ_USN_JOURNAL)");
        }

        // The same bytes as the answer of a volume: the reader's own checks hold.
        std::vector<unsigned char> answer(8);
        const File::USN next = 0x1000 + 152;
        std::memcpy(answer.data(), &next, 8);
        answer.insert(answer.end(), bytes.begin() + 56, bytes.end());
        auto direct = Reader(journal, 0);
        volumes.AnswerNext(answer);
        const File::USN_RECORD* good = direct->Read();
        ASSERT_NE(good, nullptr);
        EXPECT_EQ(Name(*good), u"good");
        EXPECT_EQ(ThrownCode([&] { direct->Read(); }), 0x4000du);
    }

    // Records that lead back to where the read began.
    JournalImageBuilder loop;
    loop.Add(1, 0, u"good");
    loop.Add(2, 0, u"damaged");
    std::vector<unsigned char> bytes = loop.Image();
    const File::USN back = 0x1000 - 80;
    std::memcpy(bytes.data() + loop.RecordOffset(1) + offsetof(File::USN_RECORD, Usn), &back, 8);
    volumes.images[kVolume] = bytes;
    {
        File::UsnJournalImpl journal(volumes, kVolume);
        auto reader = Reader(journal, 0);
        EXPECT_EQ(ThrownCode([&] { ReadAllRecords(*reader); }), 0x4000du);
    }

    // A head shorter than 56 bytes.
    volumes.images[kVolume] = std::vector<unsigned char>(55, 0);
    EXPECT_EQ(ThrownCode([&] { File::UsnJournalImpl j(volumes, kVolume); }), 0x4000du);
    // A read answer shorter than its next-USN word, or a query answer shorter than the head.
    Publish();
    File::UsnJournalImpl journal(volumes, kVolume);
    auto reader = Reader(journal, 0);
    volumes.AnswerNext({1, 2, 3});
    EXPECT_EQ(ThrownCode([&] { reader->Read(); }), 0x4000du);
    volumes.AnswerNext(std::vector<unsigned char>(40, 0));
    EXPECT_EQ(ThrownCode([&] { File::UsnJournalImpl j(volumes, kVolume); }), 0x4000du);
}

TEST_F(UsnJournalTest, SystemFailuresNameTheirCalls) {
    Publish();
    const auto failure = [&](VolumeCall call, const char* function, std::uint32_t code) {
        SCOPED_TRACE(function);
        volumes.FailNext(call, Platform::SystemError{1117, 5});
        try {
            File::UsnJournalImpl journal(volumes, kVolume);
            FAIL() << "opened";
        } catch (const Common::Error& e) {
            EXPECT_EQ(e.Code(), code);
            EXPECT_STREQ(e.GetAnsi("function"), function);
            EXPECT_EQ(e.Cause().GetNumber("code"), 0x8007045du);
        }
    };
    failure(VolumeCall::VolumeName, "GetVolumeNameForVolumeMountPointW", 0x40007);
    failure(VolumeCall::Open, "CreateFileW", 0x40007);
    failure(VolumeCall::Control, "DeviceIoControl(FSCTL_QUERY_USN_JOURNAL)", 0x40001);
    EXPECT_EQ(volumes.open, 0);  // a journal that failed to open leaves no handle behind

    File::UsnJournalImpl journal(volumes, kVolume);
    auto reader = Reader(journal, 0);
    volumes.FailNext(VolumeCall::Control, Platform::SystemError{1117, 5});
    try {
        reader->Read();
        FAIL() << "read";
    } catch (const Common::Error& e) {
        EXPECT_EQ(e.Code(), 0x40001u);
        EXPECT_STREQ(e.GetAnsi("function"), "DeviceIoControl(FSCTL_READ_USN_JOURNAL)");
    }
}

TEST_F(UsnJournalTest, FileRecordInfoFindsTheLastRecordOfAReference) {
    image.Add(40, 5, u"old name");
    image.Add(41, 5, u"other");
    image.Add(40, 6, u"new name");
    image.Add(42, 6, u"");
    Publish();
    File::FileRecordInfoReaderImpl files(volumes, kVolume);
    File::FileRecordInfo info;
    ASSERT_TRUE(files.GetFileRecordInfo(40, info).Succeeded());
    EXPECT_EQ(info.ParentFileReferenceNumber, 6u);
    EXPECT_EQ(info.Name, u"new name");
    ASSERT_TRUE(files.GetFileRecordInfo(42, info).Succeeded());
    EXPECT_EQ(info.Name, u"");

    EXPECT_EQ(files.GetFileRecordInfo(43, info).Code(), 0x4002au);  // no such file

    // A volume that answers with the next file instead.
    std::vector<unsigned char> answer(8);
    JournalImageBuilder other;
    other.Add(44, 1, u"next");
    const auto bytes = other.Image();
    answer.insert(answer.end(), bytes.begin() + 56, bytes.end());
    volumes.AnswerNext(answer);
    EXPECT_EQ(files.GetFileRecordInfo(43, info).Code(), 0x4002au);
    // Damaged: the name runs past the record.
    answer[8 + 56] = 0xff;
    volumes.AnswerNext(answer);
    EXPECT_EQ(files.GetFileRecordInfo(44, info).Code(), 0x4000du);

    volumes.FailNext(VolumeCall::Control, Platform::SystemError{1117, 5});
    const Common::Error e = files.GetFileRecordInfo(40, info);
    EXPECT_EQ(e.Code(), 0x40001u);
    EXPECT_STREQ(e.GetAnsi("function"), "DeviceIoControl(FSCTL_ENUM_USN_DATA)");
}

// Reads of an image file go on where the last one ended; they must give what a read from the
// image's start would, including after a reader starts over elsewhere.
TEST(UsnJournalImages, ReadsOfALargeImageFileGoOnInOrder) {
    JournalImageBuilder image;
    std::vector<File::USN> usns;
    for (int i = 0; i < 3000; ++i) {
        usns.push_back(image.Add(static_cast<std::uint64_t>(i), 1,
                                 i % 7 == 0 ? u"" : u"name " + std::u16string(i % 40, u'x')));
    }
    const auto bytes = image.Image();
    char path[] = "/tmp/usn_journal_testXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    const auto journal = File::OpenUsnJournal(Common::Utf8ToUtf16Lenient(path));
    std::remove(path);
    for (const std::size_t from : {std::size_t{0}, std::size_t{1234}, std::size_t{0}}) {
        std::unique_ptr<File::UsnJournalReader> reader;
        ASSERT_TRUE(journal->CreateReader(usns[from], reader).Succeeded());
        std::size_t next = from;
        while (const File::USN_RECORD* r = reader->Read()) {
            ASSERT_LT(next, usns.size());
            EXPECT_EQ(r->Usn, usns[next]);
            EXPECT_EQ(r->FileReferenceNumber, next);
            ++next;
        }
        EXPECT_EQ(next, usns.size());
    }
}

TEST(UsnJournalCommands, DirectoryCommandsOpenImagesOnDisk) {
    JournalImageBuilder image;
    image.Add(7, 3, u"on disk");
    const auto bytes = image.Image();
    char path[] = "/tmp/usn_journal_testXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    const std::u16string image_path = Common::Utf8ToUtf16Lenient(path);

    // Through the directory object of the image's path, as a backup asks for them.
    File::watched_dir dir(image_path, File::SystemNotifications());
    File::usn_journal_command journal;
    ASSERT_TRUE(dir.IOCTL(journal)) << dir.GetError().Code();
    std::unique_ptr<File::UsnJournalReader> reader;
    ASSERT_TRUE(journal.Journal->CreateReader(0, reader).Succeeded());
    const File::USN_RECORD* r = reader->Read();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(Name(*r), u"on disk");

    File::file_record_info_command files;
    ASSERT_TRUE(dir.IOCTL(files));
    File::FileRecordInfo info;
    ASSERT_TRUE(files.Reader->GetFileRecordInfo(7, info).Succeeded());
    EXPECT_EQ(info.ParentFileReferenceNumber, 3u);
    std::remove(path);

    // Failures are the directory's error; other commands go to the base class.
    File::usn_journal_command missing;
    EXPECT_FALSE(dir.IOCTL(missing));
    EXPECT_EQ(dir.GetError().Code(), 0x40011u);  // the image is gone
    EXPECT_EQ(missing.Journal, nullptr);
    dir.ClearError();
    File::ioctl_command other{File::CommandCode("STME")};
    EXPECT_FALSE(dir.IOCTL(other));
    EXPECT_EQ(dir.GetError().Code(), 0x4000eu);
    EXPECT_EQ(std::string(dir.GetError().Origin().Func), "i_dir::IOCTL");
}

}  // namespace
