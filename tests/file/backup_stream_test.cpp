#include <cstring>

#include <gtest/gtest.h>

#include <tessel_link/common/assert.h>
#include <tessel_link/file/memory_file.h>

#include "file/backup_stream.h"
#include "file/backup_test_support.h"
#include "support/fake_backup_source.h"

namespace {

using namespace backup_test;
using test_support::FakeBackupSource;
using BackupCall = FakeBackupSource::Call;

constexpr std::uint64_t kSecond = 10000000;              // in 100 ns units
constexpr std::uint64_t k2020 = 132223104000000000ull;   // 2020-01-01 as a file time
constexpr std::int64_t k2020Ms = 1577836800000;

// Runs the chunker over `stream` with the given options and resume offset.
Common::Error RunChunker(const Bytes& stream, std::uint32_t options, Chunk& out,
                    std::uint64_t resume = 0) {
    RecordingStream consumer(out, 0);
    File::buf_ifile<unsigned char> input(stream.data(), stream.size());
    return File::ChunkNTBackupStream(consumer, input, options, nullptr, resume);
}

FakeBackupSource::File PlainFile(const Bytes& stream, std::uint64_t size = 1000) {
    FakeBackupSource::File file;
    file.Info.Attributes = 0x20;
    file.Info.Size = size;
    file.Info.CreationTime = k2020;
    file.Info.WriteTime = k2020 + 5 * kSecond;
    file.Stream = stream;
    return file;
}

TEST(BackupChunker, HeadersAloneAndBodiesInBlocksOf64KiB) {
    const Bytes data = Pattern(150000);
    StreamBuilder s;
    s.Add(1, u"", data).Add(4, u":ads", Pattern(10, 2)).Add(3, u"", Pattern(40, 3), 2);
    Chunk out;
    ASSERT_TRUE(RunChunker(s.bytes, 0, out).Succeeded());
    std::vector<std::size_t> sizes;
    for (const Bytes& b : out.Blocks) {
        sizes.push_back(b.size());
    }
    // The name and body of a stream share blocks; headers never share.
    EXPECT_EQ(sizes, (std::vector<std::size_t>{20, 65536, 65536, 18928, 20, 18, 20, 40}));
    EXPECT_EQ(out.Joined(), s.bytes);
}

TEST(BackupChunker, OptionsDropDataOrOtherStreams) {
    StreamBuilder data;
    data.Add(1, u"", Pattern(70000)).Sparse(1 << 20, Pattern(300, 4));
    StreamBuilder other;
    other.Add(4, u":x", Pattern(5)).Add(3, u"", Pattern(12));
    StreamBuilder all;
    all.bytes = data.bytes;
    all.bytes.insert(all.bytes.end(), other.bytes.begin(), other.bytes.end());

    Chunk noData;
    ASSERT_TRUE(RunChunker(all.bytes, File::backup_skip_data, noData).Succeeded());
    EXPECT_EQ(noData.Joined(), other.bytes);
    Chunk onlyData;
    ASSERT_TRUE(RunChunker(all.bytes, File::backup_data_only, onlyData).Succeeded());
    EXPECT_EQ(onlyData.Joined(), data.bytes);
}

TEST(BackupChunker, SparseOffsetCountsInNameReadingAndSkipping) {
    // A sparse block with a name: reading the name takes it and the 8-byte offset, the skip
    // takes the rest, and the next header is read where it starts.
    Bytes body(8 + 33);
    StreamBuilder s;
    s.Add(9, u"run", body).Add(4, u":after", Pattern(7));
    Chunk out;
    ASSERT_TRUE(RunChunker(s.bytes, File::backup_skip_data, out).Succeeded());
    StreamBuilder after;
    after.Add(4, u":after", Pattern(7));
    EXPECT_EQ(out.Joined(), after.bytes);

    // A sparse block too short to hold its offset is damage.
    StreamBuilder bad;
    bad.AddSized(9, u"", Bytes(4), 4);
    Chunk none;
    EXPECT_EQ(RunChunker(bad.bytes, File::backup_skip_data, none).Code(), 0x4000du);
}

TEST(BackupChunker, SizeZeroWithANameDeliversTheNameAlone) {
    StreamBuilder s;
    s.Add(4, u":empty", {});
    Chunk out;
    ASSERT_TRUE(RunChunker(s.bytes, 0, out).Succeeded());
    ASSERT_EQ(out.Blocks.size(), 2u);
    EXPECT_EQ(out.Blocks[1].size(), 12u);
    EXPECT_EQ(out.Joined(), s.bytes);
}

TEST(BackupChunker, DamagedStreamsAreRefused) {
    const std::uint32_t policy = Common::SetAssertionPolicy(Common::AssertionsOff);
    StreamBuilder s;
    s.Add(1, u"", Pattern(30));
    Bytes cut(s.bytes.begin(), s.bytes.begin() + 10);
    Chunk a;
    EXPECT_EQ(RunChunker(cut, 0, a).Code(), 0x4000du);

    for (const std::uint32_t id : {0u, 10u}) {
        StreamBuilder bad;
        bad.Add(id, u"", Pattern(3));
        Chunk b;
        EXPECT_EQ(RunChunker(bad.bytes, 0, b).Code(), 0x4000du) << id;
    }
    // A name far longer than the stream is read until the stream ends, never allocated.
    StreamBuilder named;
    named.AddSized(4, u"", Pattern(40), 2);
    std::memset(named.bytes.data() + 16, 0xf0, 4);
    Chunk unnamed;
    EXPECT_EQ(RunChunker(named.bytes, File::backup_data_only, unnamed).Code(), 0x4000du);

    // A body that ends early is a read of the end of the file.
    Bytes shortBody(s.bytes.begin(), s.bytes.end() - 5);
    Chunk c;
    const Common::Error e = RunChunker(shortBody, 0, c);
    EXPECT_EQ(e.Code(), 0x40001u);
    EXPECT_EQ(e.Cause().Code(), 0x40002u);
    // A skipped body that ends early cannot be sought over.
    Chunk d;
    EXPECT_EQ(RunChunker(shortBody, File::backup_skip_data, d).Code(), 0x40005u);
    Common::SetAssertionPolicy(policy);
}

TEST(BackupChunker, ResumeDeliversNothingBeforeTheOffset) {
    StreamBuilder s;
    s.Add(4, u":a", Pattern(100)).Add(1, u"", Pattern(200000));
    Chunk whole;
    ASSERT_TRUE(RunChunker(s.bytes, 0, whole).Succeeded());
    for (const std::uint64_t resume : {0ull, 20ull, 70000ull, 124ull + 20, 124ull}) {
        Chunk tail;
        ASSERT_TRUE(RunChunker(s.bytes, 0, tail, resume).Succeeded()) << resume;
        const Bytes expect(s.bytes.begin() + long(resume), s.bytes.end());
        EXPECT_EQ(tail.Joined(), expect) << resume;
    }
}

TEST(BackupChunker, ConsumerFailureAndCancel) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(100000));
    Chunk out;
    RecordingStream failing(out, 2);
    File::memory_file input(s.bytes);
    const Common::Error e = File::ChunkNTBackupStream(failing, input, 0, nullptr, 0);
    EXPECT_EQ(e.Code(), 0x40003u);
    EXPECT_EQ(e.Cause().Code(), 0x40004u);

    ScriptedUser user;
    user.cancelAfter = 2;
    File::BackupContext context(&user, u"/f", File::BackupContext::backing_up, nullptr);
    Chunk some;
    RecordingStream consumer(some, 0);
    File::memory_file again(s.bytes);
    EXPECT_EQ(File::ChunkNTBackupStream(consumer, again, 0, &context, 0).Code(), 0x4000fu);
    EXPECT_EQ(context.Total(), 20u + 65536u);
}

TEST(BackupTimes, ConversionBothWays) {
    EXPECT_EQ(File::FileTimeToMilliseconds(0), 0);
    EXPECT_EQ(File::FileTimeToMilliseconds(k2020 + 12345), k2020Ms + 1);
    EXPECT_EQ(File::MillisecondsToFileTime(k2020Ms), k2020);
    EXPECT_EQ(File::MillisecondsToFileTime(0), 0u);
    EXPECT_EQ(File::MillisecondsToFileTime(-1), 116444736000000000ull - 10000);
    // A damaged times chunk: any value converts without overflow.
    EXPECT_EQ(File::MillisecondsToFileTime(INT64_MIN), 0u);
    EXPECT_EQ(File::MillisecondsToFileTime(INT64_MAX), UINT64_MAX);
}

TEST(BackupFile, ChunkOrderOfAPlainFile) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(1, u"", Pattern(1000)).Add(3, u"", Pattern(24), 2);
    io.files[u"/f"] = PlainFile(s.bytes);
    ScriptedUser user;
    RecordingWriter writer(0, &user);
    ASSERT_TRUE(File::BackupFile(io, u"/f", writer, nullptr).Succeeded());
    EXPECT_EQ(writer.Types(), (std::vector<std::uint32_t>{1, 2, 5}));
    EXPECT_EQ(writer.Of(1).Joined(), (Bytes{0x20, 0, 0, 0}));
    EXPECT_EQ(writer.Of(2).Joined(), s.bytes);
    Bytes times(16);
    const std::int64_t expect[2] = {k2020Ms, k2020Ms + 5000};
    std::memcpy(times.data(), expect, 16);
    EXPECT_EQ(writer.Of(5).Joined(), times);
    // Backup semantics, the link itself, read access; security asked for.
    ASSERT_FALSE(io.opens.empty());
    EXPECT_EQ(io.opens[0].Flags, 0x2200000u);
    EXPECT_EQ(io.opens[0].Access, 0x80000000u);
    EXPECT_EQ(user.positions.back(), 4u + s.bytes.size() + 16);
    EXPECT_EQ(io.ended, 1);

    // Option 1 reads without security; option 16 opens through reparse points.
    RecordingWriter plain(File::backup_no_security | File::backup_follow_reparse);
    ASSERT_TRUE(File::BackupFile(io, u"/f", plain, nullptr).Succeeded());
    EXPECT_EQ(io.opens.back().Flags, 0x2000000u);
}

TEST(BackupFile, ZeroLengthFileAndDirectories) {
    FakeBackupSource io;
    StreamBuilder security;
    security.Add(3, u"", Pattern(24), 2);
    io.files[u"/empty"] = PlainFile(security.bytes, 0);
    RecordingWriter writer;
    ASSERT_TRUE(File::BackupFile(io, u"/empty", writer, nullptr).Succeeded());
    EXPECT_EQ(writer.Types(), (std::vector<std::uint32_t>{1, 2, 5}));
    EXPECT_EQ(writer.Of(2).Joined(), security.bytes);

    FakeBackupSource::File dir = PlainFile(security.bytes, 0);
    dir.Info.Attributes = 0x10;
    io.files[u"/d"] = dir;
    RecordingWriter dataOnly(File::backup_data_only);
    ASSERT_TRUE(File::BackupFile(io, u"/d", dataOnly, nullptr).Succeeded());
    EXPECT_TRUE(dataOnly.chunks.empty());
    // A file with option 8: its data alone, and no times.
    StreamBuilder both;
    both.Add(1, u"", Pattern(10)).Add(3, u"", Pattern(24), 2);
    io.files[u"/f"] = PlainFile(both.bytes);
    RecordingWriter fileData(File::backup_data_only);
    ASSERT_TRUE(File::BackupFile(io, u"/f", fileData, nullptr).Succeeded());
    EXPECT_EQ(fileData.Types(), (std::vector<std::uint32_t>{1, 2}));
    StreamBuilder data;
    data.Add(1, u"", Pattern(10));
    EXPECT_EQ(fileData.Of(2).Joined(), data.bytes);
}

TEST(BackupFile, ReadErrorResumesAtTheByteWhereItBroke) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(1, u"", Pattern(200000)).Add(4, u":x", Pattern(50));
    io.files[u"/f"] = PlainFile(s.bytes);
    io.BreakReadAt(70000, {1117, 5});
    ScriptedUser user;
    user.answers = {File::answer_retry};
    RecordingWriter writer(0, &user);
    ASSERT_TRUE(File::BackupFile(io, u"/f", writer, nullptr).Succeeded());
    ASSERT_EQ(user.errors.size(), 1u);
    EXPECT_EQ(user.errors[0].Code(), 0x40001u);
    EXPECT_EQ(user.errors[0].Cause().Code(), 0x40019u);  // the data part of the file
    EXPECT_EQ(user.errors[0].Cause().GetNumber("Hints"), 1u);
    // One attributes chunk and one stream chunk however often it was tried.
    EXPECT_EQ(writer.Types(), (std::vector<std::uint32_t>{1, 2, 5}));
    const Chunk& stream = writer.Of(2);
    EXPECT_EQ(stream.Joined(), s.bytes);
    std::size_t at = 0;
    std::size_t resumedAt = 0;
    for (const Bytes& b : stream.Blocks) {
        if (at == 70000) {
            resumedAt = at;
        }
        at += b.size();
    }
    EXPECT_EQ(resumedAt, 70000u);
    EXPECT_EQ(io.Calls(BackupCall::Open), 2);
}

TEST(BackupFile, AFileThatChangesBetweenAttemptsFails) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(1, u"", Pattern(100000));
    io.files[u"/f"] = PlainFile(s.bytes);
    io.BreakReadAt(70000, {1117, 5});
    io.onAttributes = [](int call, Platform::BackupFileInfo& info) {
        if (call == 2) {
            info.WriteTime += kSecond;
        }
    };
    ScriptedUser user;
    user.answers = {File::answer_retry, File::answer_retry};
    RecordingWriter writer(0, &user);
    const Common::Error e = File::BackupFile(io, u"/f", writer, nullptr);
    EXPECT_EQ(e.Code(), 0x40026u);
    EXPECT_EQ(user.errors.size(), 1u);  // no further retry is offered
    EXPECT_EQ(io.Calls(BackupCall::Attributes), 2);

    // The size is compared, and the attributes.
    for (const int field : {0, 1}) {
        FakeBackupSource other;
        other.files[u"/f"] = PlainFile(s.bytes);
        other.BreakReadAt(70000, {1117, 5});
        other.onAttributes = [field](int call, Platform::BackupFileInfo& info) {
            if (call == 2) {
                if (field == 0) {
                    info.Size += 1;
                } else {
                    info.Attributes += 1;
                }
            }
        };
        ScriptedUser again;
        again.answers = {File::answer_retry};
        RecordingWriter w(0, &again);
        EXPECT_EQ(File::BackupFile(other, u"/f", w, nullptr).Code(), 0x40026u) << field;
    }
}

TEST(BackupFile, UserAnswersAndTheArchiveSide) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(1, u"", Pattern(1000));
    io.files[u"/f"] = PlainFile(s.bytes);

    // Abort: canceled, over the error that was shown.
    io.BreakReadAt(500, {1117, 5});
    ScriptedUser aborting;
    RecordingWriter w1(0, &aborting);
    Common::Error e = File::BackupFile(io, u"/f", w1, nullptr);
    EXPECT_EQ(e.Code(), 0x4000fu);
    EXPECT_EQ(e.Cause().Code(), 0x40001u);
    // Ignore: the error stands as it is.
    io.BreakReadAt(500, {1117, 5});
    ScriptedUser ignoring;
    ignoring.answers = {File::answer_ignore};
    RecordingWriter w2(0, &ignoring);
    EXPECT_EQ(File::BackupFile(io, u"/f", w2, nullptr).Code(), 0x40001u);
    // No callback: the first error.
    io.BreakReadAt(500, {1117, 5});
    RecordingWriter w3;
    EXPECT_EQ(File::BackupFile(io, u"/f", w3, nullptr).Code(), 0x40001u);

    // A chunk that cannot be made or written is not retried.
    ScriptedUser retrying;
    retrying.answers = {1, 1, 1};
    RecordingWriter noStream(0, &retrying);
    noStream.failCreateOf = File::chunk_stream;
    e = File::BackupFile(io, u"/f", noStream, nullptr);
    EXPECT_EQ(e.Code(), 0x40003u);
    EXPECT_EQ(e.Cause().Code(), 0x40004u);
    RecordingWriter badWrite(0, &retrying);
    badWrite.failWriteOf = File::chunk_stream;
    badWrite.failWriteAt = 2;
    EXPECT_EQ(File::BackupFile(io, u"/f", badWrite, nullptr).Code(), 0x40003u);
    RecordingWriter noAttributes(0, &retrying);
    noAttributes.failCreateOf = File::chunk_attributes;
    EXPECT_EQ(File::BackupFile(io, u"/f", noAttributes, nullptr).Code(), 0x40003u);
    EXPECT_TRUE(retrying.errors.empty());

    // A missing file names the call that failed.
    RecordingWriter missing;
    e = File::BackupFile(io, u"/nothing", missing, nullptr);
    EXPECT_EQ(e.Code(), 0x40001u);
    EXPECT_STREQ(e.GetAnsi("function"), "GetFileAttributesExW");
}

TEST(BackupFile, CancelAtEachStage) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(100000));
    // Progress reports before the cancel: the attributes, the stream's header and two
    // blocks, then the times.
    const struct {
        int after;
        std::vector<std::uint32_t> chunks;
    } stages[] = {{0, {1}}, {1, {1, 2}}, {3, {1, 2}}, {4, {1, 2, 5}}};
    for (const auto& stage : stages) {
        FakeBackupSource io;
        io.files[u"/f"] = PlainFile(s.bytes);
        ScriptedUser user;
        user.cancelAfter = stage.after;
        user.answers = {1, 1};
        RecordingWriter writer(0, &user);
        EXPECT_EQ(File::BackupFile(io, u"/f", writer, nullptr).Code(), 0x4000fu) << stage.after;
        EXPECT_EQ(writer.Types(), stage.chunks) << stage.after;
        EXPECT_TRUE(user.errors.empty());
    }
}

TEST(BackupFile, ReparsePointsAndDeduplicatedFiles) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(8, u"", Pattern(20));
    FakeBackupSource::File link = PlainFile(s.bytes);
    link.Info.Attributes = 0x400 | 0x2 | 0x4;
    link.ReparseTag = 0xa000001d;
    io.files[u"/l"] = link;
    RecordingWriter writer;
    ASSERT_TRUE(File::BackupFile(io, u"/l", writer, nullptr).Succeeded());
    EXPECT_EQ(io.opens.size(), 1u);

    // A deduplicated file is opened again for its real data.
    io.files[u"/l"].ReparseTag = 0x80000013;
    RecordingWriter dedup;
    ASSERT_TRUE(File::BackupFile(io, u"/l", dedup, nullptr).Succeeded());
    ASSERT_EQ(io.opens.size(), 3u);
    EXPECT_EQ(io.opens[2].Flags, 0x2000000u);

    // Followed, the attributes come from the handle without hidden and system.
    RecordingWriter followed(File::backup_follow_reparse);
    ASSERT_TRUE(File::BackupFile(io, u"/l", followed, nullptr).Succeeded());
    EXPECT_EQ(followed.Of(1).Joined(), (Bytes{0x00, 0x04, 0, 0}));

    io.Fail(BackupCall::ReparseTag, {1, 0});
    RecordingWriter failing;
    const Common::Error e = File::BackupFile(io, u"/l", failing, nullptr);
    EXPECT_EQ(e.Code(), 0x40001u);
    EXPECT_STREQ(e.GetAnsi("function"), "FSCTL_GET_REPARSE_POINT");
}

TEST(BackupFile, EncryptedFilesRawOrDecrypted) {
    FakeBackupSource io;
    FakeBackupSource::File secret = PlainFile({});
    secret.Info.Attributes = 0x4000;
    secret.Raw = Pattern(2500);
    secret.Plain = Pattern(70000, 9);
    io.files[u"/s"] = secret;
    RecordingWriter raw;
    ASSERT_TRUE(File::BackupFile(io, u"/s", raw, nullptr).Succeeded());
    EXPECT_EQ(raw.Types(), (std::vector<std::uint32_t>{1, 3, 5}));
    EXPECT_EQ(raw.Of(3).Blocks.size(), 3u);  // the system's blocks as they came
    EXPECT_EQ(raw.Of(3).Joined(), secret.Raw);
    EXPECT_TRUE(io.opens.empty());

    RecordingWriter plain(File::backup_decrypted);
    ASSERT_TRUE(File::BackupFile(io, u"/s", plain, nullptr).Succeeded());
    EXPECT_EQ(plain.Types(), (std::vector<std::uint32_t>{1, 2, 5}));

    // Denied a normal handle, the decrypted backup goes by the raw form.
    io.Fail(BackupCall::Open, {5, 13});
    RecordingWriter denied(File::backup_decrypted);
    ASSERT_TRUE(File::BackupFile(io, u"/s", denied, nullptr).Succeeded());
    EXPECT_EQ(denied.Types(), (std::vector<std::uint32_t>{1, 4, 5}));
    EXPECT_EQ(denied.Of(4).Joined(), secret.Plain);

    io.Fail(BackupCall::OpenRaw, {50, 0});
    RecordingWriter unsupported;
    const Common::Error e = File::BackupFile(io, u"/s", unsupported, nullptr);
    EXPECT_EQ(e.Code(), 0x40019u);
    EXPECT_EQ(e.GetNumber("Hints"), 3u);
    EXPECT_EQ(e.Cause().Code(), 0x4000eu);
    EXPECT_STREQ(e.Cause().GetAnsi("function"), "OpenEncryptedFileRawW");
}

TEST(BackupPrivileges, FailuresNameTheStep) {
    FakeBackupSource io;
    io.privileges.clear();
    const Common::Error e = File::EnablePrivilege(io, "SeRestorePrivilege");
    EXPECT_EQ(e.Code(), 0x40014u);
    EXPECT_STREQ(e.GetAnsi("function"), "AdjustTokenPrivileges");
    EXPECT_EQ(e.Cause().GetNumber("code"), 0x80070514u);
}

// Restore ----------------------------------------------------------------------------------

std::vector<Chunk> Chunks(std::uint32_t attributes, const Bytes& stream, std::int64_t creation,
                          std::int64_t write) {
    Chunk a{1, {Bytes(4)}};
    std::memcpy(a.Blocks[0].data(), &attributes, 4);
    Chunk s{2, {stream}};
    Chunk t{5, {Bytes(16)}};
    std::memcpy(t.Blocks[0].data(), &creation, 8);
    std::memcpy(t.Blocks[0].data() + 8, &write, 8);
    return {a, s, t};
}

TEST(RestoreFile, StreamTimesAndDispositions) {
    FakeBackupSource io;
    StreamBuilder s;
    s.Add(1, u"", Pattern(150000));
    ScriptedUser user;
    ChunkSource source(Chunks(0x20, s.bytes, k2020Ms, k2020Ms + 1000), 0, &user);
    ASSERT_TRUE(File::RestoreFile(io, u"/r", source, nullptr).Succeeded());
    const auto& file = io.files[u"/r"];
    EXPECT_EQ(file.Written, s.bytes);
    EXPECT_EQ(file.SetCreation, k2020);
    EXPECT_EQ(file.SetWrite, k2020 + 10000000);
    ASSERT_EQ(io.opens.size(), 1u);
    EXPECT_EQ(io.opens[0].Access, 0xC10C0000u);
    EXPECT_EQ(io.opens[0].Disposition, Platform::FileDisposition::CreateAlways);
    EXPECT_EQ(io.opens[0].Flags, 0x2200000u);
    EXPECT_EQ(user.positions.back(), 4u + s.bytes.size() + 16);

    // Without security: read and write only. Option 2 skips the times.
    FakeBackupSource plain;
    ChunkSource noSecurity(Chunks(0x20, s.bytes, k2020Ms, k2020Ms),
                           File::backup_no_security | File::backup_decrypted);
    ASSERT_TRUE(File::RestoreFile(plain, u"/r", noSecurity, nullptr).Succeeded());
    EXPECT_EQ(plain.opens[0].Access, 0xC0000000u);
    EXPECT_FALSE(plain.files[u"/r"].TimesSet);
    EXPECT_FALSE(plain.writeSecurity.front());

    // A read-only target loses the bit first; an empty source is nothing to do.
    FakeBackupSource ro;
    ro.files[u"/r"].Info.Attributes = 0x21;
    ChunkSource empty(std::vector<Chunk>{});
    ASSERT_TRUE(File::RestoreFile(ro, u"/r", empty, nullptr).Succeeded());
    EXPECT_EQ(ro.files[u"/r"].Info.Attributes, 0x20u);
}

TEST(RestoreFile, Directories) {
    FakeBackupSource io;
    ChunkSource source(Chunks(0x10, {}, 0, k2020Ms));
    ASSERT_TRUE(File::RestoreFile(io, u"/d", source, nullptr).Succeeded());
    EXPECT_EQ(io.Calls(BackupCall::CreateDirectory), 1);
    EXPECT_EQ(io.opens[0].Disposition, Platform::FileDisposition::OpenExisting);

    // An existing encrypted directory restored from a backup that is not: decrypted.
    io.files[u"/d"].Info.Attributes = 0x4010;
    ChunkSource again(Chunks(0x10, {}, 0, k2020Ms));
    ASSERT_TRUE(File::RestoreFile(io, u"/d", again, nullptr).Succeeded());
    EXPECT_TRUE(io.files[u"/d"].Decrypted);

    io.Fail(BackupCall::CreateDirectory, {3, 2});
    ChunkSource failing(Chunks(0x10, {}, 0, 0));
    const Common::Error e = File::RestoreFile(io, u"/x/d", failing, nullptr);
    EXPECT_EQ(e.Code(), 0x4001au);
    EXPECT_STREQ(e.GetAnsi("function"), "CreateDirectoryW");
}

TEST(RestoreFile, TimesThatCannotBeSet) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(10));
    // "Invalid parameter": a file system without those times; success.
    FakeBackupSource io;
    io.Fail(BackupCall::SetTimes, {87, 22});
    ChunkSource a(Chunks(0x20, s.bytes, 0, k2020Ms));
    EXPECT_TRUE(File::RestoreFile(io, u"/r", a, nullptr).Succeeded());
    io.Fail(BackupCall::SetTimes, {5, 1});
    ChunkSource b(Chunks(0x20, s.bytes, 0, k2020Ms));
    const Common::Error e = File::RestoreFile(io, u"/r", b, nullptr);
    EXPECT_EQ(e.Code(), 0x4001au);
    EXPECT_STREQ(e.Cause().GetAnsi("function"), "SetFileTime");

    // Times alone: the target is opened for its attributes; when that fails and the times
    // are already those wanted, there is nothing to do.
    FakeBackupSource only;
    only.files[u"/t"].Info.WriteTime = File::MillisecondsToFileTime(k2020Ms);
    std::vector<Chunk> chunks = Chunks(0x20, {}, 0, k2020Ms);
    chunks.erase(chunks.begin() + 1);
    only.Fail(BackupCall::Open, {5, 13});
    ChunkSource c(chunks);
    EXPECT_TRUE(File::RestoreFile(only, u"/t", c, nullptr).Succeeded());
    EXPECT_EQ(only.opens[0].Access, 0x100u);
    // Times that differ cannot be left as they are.
    std::vector<Chunk> later = Chunks(0x20, {}, 0, k2020Ms + 1);
    later.erase(later.begin() + 1);
    only.Fail(BackupCall::Open, {5, 13});
    ChunkSource d(later);
    EXPECT_EQ(File::RestoreFile(only, u"/t", d, nullptr).Cause().Code(), 0x40014u);
}

TEST(RestoreFile, SecurityNegotiation) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(10)).Add(3, u"", Pattern(24), 2);
    // The open with security rights fails, the plain one works: the user decides.
    for (const int answer : {0, 1, 2}) {
        FakeBackupSource io;
        io.Fail(BackupCall::Open, {5, 13});
        ScriptedUser user;
        user.answers = {answer};
        ChunkSource source(Chunks(0x20, s.bytes, 0, 0), 0, &user);
        const Common::Error e = File::RestoreFile(io, u"/r", source, nullptr);
        ASSERT_EQ(user.errors.size(), 1u);
        EXPECT_EQ(user.errors[0].Code(), 0x40023u);
        if (answer == 0) {
            EXPECT_EQ(e.Code(), 0x4001au);
            EXPECT_EQ(e.Cause().Code(), 0x4000fu);
        } else {
            EXPECT_TRUE(e.Succeeded());
            EXPECT_EQ(io.writeSecurity.front(), answer == 1);
        }
    }
    // Writing the security fails: answer 2 goes on without it.
    FakeBackupSource io;
    io.Fail(BackupCall::BackupWrite, {1307, 1});
    ScriptedUser user;
    user.answers = {2};
    ChunkSource source(Chunks(0x20, s.bytes, 0, 0), 0, &user);
    ASSERT_TRUE(File::RestoreFile(io, u"/r", source, nullptr).Succeeded());
    EXPECT_EQ(io.writeSecurity, (std::vector<bool>{true, false}));
    // Without a callback the answer is 2 as well.
    FakeBackupSource quiet;
    quiet.Fail(BackupCall::BackupWrite, {5, 13});
    ChunkSource silent(Chunks(0x20, s.bytes, 0, 0));
    ASSERT_TRUE(File::RestoreFile(quiet, u"/r", silent, nullptr).Succeeded());
    EXPECT_EQ(quiet.writeSecurity, (std::vector<bool>{true, false}));
}

TEST(RestoreFile, AlternateStreamsAndFullDisks) {
    StreamBuilder s;
    s.Add(4, u":x", Pattern(10));
    {
        FakeBackupSource io;
        io.Fail(BackupCall::BackupWrite, {3, 95});
        ScriptedUser user;
        user.answers = {2};
        ChunkSource source(Chunks(0x20, s.bytes, 0, 0), 0, &user);
        ASSERT_TRUE(File::RestoreFile(io, u"/r", source, nullptr).Succeeded());
        EXPECT_EQ(user.errors[0].Code(), 0x40024u);
    }
    {
        FakeBackupSource io;
        io.Fail(BackupCall::BackupWrite, {3, 95});
        ScriptedUser user;
        ChunkSource source(Chunks(0x20, s.bytes, 0, 0), 0, &user);
        const Common::Error e = File::RestoreFile(io, u"/r", source, nullptr);
        EXPECT_EQ(e.Cause().Code(), 0x4000fu);
    }
    {
        FakeBackupSource io;
        io.Fail(BackupCall::BackupWrite, {112, 28});
        ScriptedUser user;
        user.answers = {1};
        ChunkSource source(Chunks(0x20, s.bytes, 0, 0), 0, &user);
        ASSERT_TRUE(File::RestoreFile(io, u"/r", source, nullptr).Succeeded());
        EXPECT_EQ(io.files[u"/r"].Written, s.bytes);
    }
    {
        FakeBackupSource io;
        io.Fail(BackupCall::BackupWrite, {1117, 5});
        ChunkSource source(Chunks(0x20, s.bytes, 0, 0));
        const Common::Error e = File::RestoreFile(io, u"/r", source, nullptr);
        EXPECT_EQ(e.Code(), 0x4001au);
        EXPECT_EQ(e.GetNumber("Hints"), 1u);
        EXPECT_STREQ(e.Cause().GetAnsi("function"), "BackupWrite");
    }
}

TEST(RestoreFile, AnUnopenableTargetThatIsAlreadyThere) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(100000));
    FakeBackupSource io;
    io.files[u"/r"] = PlainFile(s.bytes);
    io.Fail(BackupCall::Open, {5, 13}, 1, 2);
    ChunkSource same(Chunks(0x20, s.bytes, 0, 0));
    EXPECT_TRUE(File::RestoreFile(io, u"/r", same, nullptr).Succeeded());
    EXPECT_TRUE(io.files[u"/r"].Written.empty());

    StreamBuilder other;
    other.Add(1, u"", Pattern(100000, 7));
    io.Fail(BackupCall::Open, {5, 13}, 1, 2);
    ChunkSource different(Chunks(0x20, other.bytes, 0, 0));
    const Common::Error e = File::RestoreFile(io, u"/r", different, nullptr);
    EXPECT_EQ(e.Code(), 0x4001au);
    EXPECT_EQ(e.Cause().Code(), 0x40014u);

    // Only the security differs: compared once more without it, the target is the same.
    StreamBuilder mine;
    mine.Add(1, u"", Pattern(1000)).Add(3, u"", Pattern(24, 1), 2);
    StreamBuilder theirs;
    theirs.Add(1, u"", Pattern(1000)).Add(3, u"", Pattern(24, 2), 2);
    io.files[u"/s"] = PlainFile(mine.bytes);
    io.Fail(BackupCall::Open, {5, 13}, 1, 2);
    ChunkSource secured(Chunks(0x20, theirs.bytes, 0, 0));
    EXPECT_TRUE(File::RestoreFile(io, u"/s", secured, nullptr).Succeeded());
    EXPECT_TRUE(io.files[u"/s"].Written.empty());
}

TEST(RestoreFile, EncryptedAndPlainChunks) {
    FakeBackupSource io;
    Chunk a{1, {Bytes{0, 0x40, 0, 0}}};
    Chunk raw{3, {Pattern(2000)}};
    Chunk t{5, {Bytes(16)}};
    ChunkSource source(std::vector<Chunk>{a, raw, t});
    ASSERT_TRUE(File::RestoreFile(io, u"/s", source, nullptr).Succeeded());
    EXPECT_EQ(io.files[u"/s"].RawWritten, raw.Blocks[0]);
    EXPECT_EQ(io.rawFlags.back(), 1u);

    Chunk plain{4, {Pattern(70000)}};
    ChunkSource decrypted(std::vector<Chunk>{a, plain});
    ASSERT_TRUE(File::RestoreFile(io, u"/p", decrypted, nullptr).Succeeded());
    EXPECT_EQ(io.files[u"/p"].PlainWritten, plain.Blocks[0]);

    // The raw form on a system without it.
    io.Fail(BackupCall::OpenRaw, {50, 0});
    ChunkSource refused(std::vector<Chunk>{a, raw});
    const Common::Error e = File::RestoreFile(io, u"/s", refused, nullptr);
    EXPECT_EQ(e.Code(), 0x4001au);
    EXPECT_EQ(e.GetNumber("Hints"), 3u);
    EXPECT_EQ(e.Cause().Code(), 0x4000eu);

    // Chunks 6 and 7 only open the target; a short attributes chunk is an error.
    ChunkSource opens(std::vector<Chunk>{Chunk{1, {Bytes(4)}}, Chunk{6, {}}, Chunk{7, {}}});
    ASSERT_TRUE(File::RestoreFile(io, u"/o", opens, nullptr).Succeeded());
    EXPECT_EQ(io.opens.back().Path, u"/o");
    ChunkSource cut(std::vector<Chunk>{Chunk{1, {Bytes(3)}}});
    EXPECT_EQ(File::RestoreFile(io, u"/c", cut, nullptr).Cause().Code(), 0x40002u);
}

TEST(RestoreFile, CancelAtEachStage) {
    StreamBuilder s;
    s.Add(1, u"", Pattern(100000));
    for (const int after : {0, 1, 2, 3}) {
        FakeBackupSource io;
        ScriptedUser user;
        user.cancelAfter = after;
        ChunkSource source(Chunks(0x20, s.bytes, 0, k2020Ms), 0, &user);
        const Common::Error e = File::RestoreFile(io, u"/r", source, nullptr);
        EXPECT_EQ(e.Code(), 0x4001au) << after;
        EXPECT_EQ(e.Cause().Code(), 0x4000fu) << after;
        EXPECT_FALSE(io.files[u"/r"].TimesSet);
    }
}

}  // namespace
