// The ZIP reader over archives written byte by byte: the scan for the end record, the
// checks of the records, lookup by name, and the entries' reads up to their checksum.

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/memory_file.h>

#include "file/file_errors.h"
#include "file/zip_file.h"
#include "file/zip_builder.h"

namespace {

using test_support::BuildZip;
using test_support::BuiltZip;
using test_support::ZipMember;

// The directory's results, owned.
template <class T>
std::unique_ptr<T> Own(T* object) {
    return std::unique_ptr<T>(object);
}

std::unique_ptr<File::si_file> Entry(File::si_dir& dir, const char16_t* name) {
    return Own(dir.OpenI(name, 0));
}

std::unique_ptr<File::zip_file_impl> Open(const BuiltZip& zip, Common::Error& error) {
    return File::zip_file_impl::Open(zip.File(), error);
}

std::unique_ptr<File::zip_file_impl> Open(const BuiltZip& zip) {
    Common::Error error;
    auto archive = Open(zip, error);
    EXPECT_TRUE(archive) << "open failed with " << std::hex << error.Code();
    return archive;
}

std::uint32_t OpenFailure(const BuiltZip& zip) {
    Common::Error error;
    EXPECT_FALSE(Open(zip, error));
    return error.Code();
}

// Reads `file` in pieces of `piece` bytes up to and including the read that meets the end.
std::string ReadToEnd(File::i_file& file, std::size_t piece = 4096) {
    std::string out;
    std::vector<char> buffer(piece);
    for (;;) {
        std::uint64_t read = 0;
        file.Read(buffer.data(), piece, read);
        out.append(buffer.data(), static_cast<std::size_t>(read));
        if (read == 0 || file.Failed()) {
            return out;
        }
    }
}

std::string Text(std::size_t size, unsigned seed = 1) {
    std::string s;
    s.reserve(size);
    unsigned x = seed;
    static const char kWords[][8] = {"alpha ", "beta ", "gamma\n", "delta ", "eps, "};
    while (s.size() < size) {
        x = x * 1103515245 + 12345;
        s += kWords[(x >> 16) % 5];
        if ((x >> 8) % 7 == 0) {
            s += static_cast<char>(x >> 24);  // some bytes that don't compress well
        }
    }
    s.resize(size);
    return s;
}

std::vector<std::u16string> EntryNames(File::i_dir& dir) {
    std::vector<std::u16string> names;
    for (auto it = Own(dir.GetIterator()); it && !it->Failed(); it->Next()) {
        names.emplace_back(it->GetName());
    }
    return names;
}

// A memory file whose read number `failing` (from 0) fails, as a failing disk would. The
// archive reads the scan block, the end record, the directory, then for each opened entry
// its local header and its data.
class FailingFile : public File::memory_file {
public:
    FailingFile(const std::string& bytes, int failing)
        : memory_file(std::vector<unsigned char>(bytes.begin(), bytes.end())), failing_(failing) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        if (!Failed() && reads_++ == failing_) {
            read = 0;
            RecordError(File::MakeFileError(TL_ORIGIN("test"), File::kDriveNotReady));
            return false;
        }
        return memory_file::Read(buffer, count, read);
    }

private:
    int failing_;
    int reads_ = 0;
};

// ---- finding and checking the directory -------------------------------------------------

TEST(ZipOpen, ForeignDataInFrontIsCoveredByTheBase) {
    const std::string prefix(100, '#');
    const auto zip = BuildZip({{"a.txt", "first"}, {"b.txt", Text(5000), 8}}, "", prefix);
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    EXPECT_EQ(ReadToEnd(*Entry(*archive, u"a.txt")), "first");
    auto b = Entry(*archive, u"b.txt");
    EXPECT_EQ(ReadToEnd(*b), Text(5000));
    EXPECT_FALSE(b->Failed());
}

TEST(ZipOpen, CommentLengthsAroundTheScanLimit) {
    // The scan reaches 65,517 bytes behind its base, 18 bytes short of the end: an end record
    // with a comment of 65,513 bytes is the farthest one found.
    EXPECT_TRUE(Open(BuildZip({{"a", "x"}}, std::string(65513, 'c'))));
    EXPECT_EQ(OpenFailure(BuildZip({{"a", "x"}}, std::string(65514, 'c'))), 0x4000du);
    EXPECT_EQ(OpenFailure(BuildZip({{"a", "x"}}, std::string(65535, 'c'))), 0x4000du);
    // Around the seam of the first two 1,024-byte blocks, where a signature may straddle
    // it, and at the end of a short file where the last block is partial.
    for (std::size_t comment = 1015; comment <= 1032; ++comment) {
        EXPECT_TRUE(Open(BuildZip({{"a", "x"}}, std::string(comment, 'c')))) << comment;
    }
    for (std::size_t comment : {0, 1, 2, 3, 2042, 2043, 2044, 2045, 2046}) {
        EXPECT_TRUE(Open(BuildZip({{"a", "x"}}, std::string(comment, 'c')))) << comment;
    }
}

TEST(ZipOpen, TheSignatureNearestTheEndWins) {
    // A comment that carries a signature of its own hides the real record behind it.
    std::string comment = "see PK";
    comment += '\x05';
    comment += '\x06';
    comment += std::string(18, '\0');
    EXPECT_EQ(OpenFailure(BuildZip({{"a", "x"}}, comment)), 0x4000du);
}

TEST(ZipOpen, RecordsThatDoNotAddUpAreCorrupted) {
    const auto good = BuildZip({{"a", "x"}, {"b", "y"}});
    auto patched = [&](auto patch) {
        BuiltZip zip = good;
        patch(zip);
        return OpenFailure(zip);
    };
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.End + 4, 1); }), 0x4000du);   // disk
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.End + 6, 1); }), 0x4000du);   // directory disk
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.End + 8, 1); }), 0x4000du);   // entries here
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.End + 8, 3); z.Put16(z.End + 10, 3); }),
              0x4000du);  // more entries than the directory holds
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.End + 16, 1000); }), 0x4000du);  // offset
    // A size whose 32-bit sum with the offset wraps to something small.
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.End + 12, 0xfffffff0); z.Put32(z.End + 16, 0x20); }),
              0x4000du);
    // A name length that runs past the directory.
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.Central[1] + 28, 300); }), 0x4000du);

    // The empty archive is a corrupted one, and so is anything shorter than 24 bytes.
    EXPECT_EQ(OpenFailure(BuildZip({}, "")), 0x4000du);
    EXPECT_EQ(OpenFailure(BuildZip({}, std::string(40, ' '))), 0x4000du);
    BuiltZip tiny;
    tiny.Bytes = std::string("PK\x05\x06", 4) + std::string(19, '\0');
    EXPECT_EQ(OpenFailure(tiny), 0x4000du);
}

TEST(ZipOpen, Zip64MarkersAreRefusedBeforeAnyByteIsHandedOut) {
    // A stored member whose sizes claim the marker would otherwise read on into the next
    // member and the directory.
    const auto good = BuildZip({{"a", "first"}, {"b", "second"}});
    auto patched = [&](auto patch) {
        BuiltZip zip = good;
        patch(zip);
        return OpenFailure(zip);
    };
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Central[0] + 20, 0xffffffff); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Central[0] + 24, 0xffffffff); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Central[1] + 42, 0xffffffff); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) {
                  z.Put16(z.End + 8, 0xffff);
                  z.Put16(z.End + 10, 0xffff);
              }),
              0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.End + 12, 0xffffffff); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.End + 16, 0xffffffff); }), 0x4000du);

    // The marker in a local header behind a data descriptor: the entry fails, with nothing
    // read.
    BuiltZip local = BuildZip({{"a", "first", 0, 8}, {"b", "second"}});
    local.Put32(local.Local[0] + 18, 0xffffffff);
    local.Put32(local.Local[0] + 22, 0xffffffff);
    auto archive = Open(local);
    ASSERT_TRUE(archive);
    auto entry = Entry(*archive, u"a");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->GetError().Code(), 0x4000du);
    EXPECT_EQ(ReadToEnd(*entry), "");
}

TEST(ZipOpen, ReadFailuresCarryTheFilesReasonAsCause) {
    const auto zip = BuildZip({{"a", Text(3000)}, {"b", "y"}});
    // In the scan, in the end record, and in the directory itself.
    for (int failing : {0, 1, 2}) {
        Common::Error error;
        auto archive = File::zip_file_impl::Open(std::make_unique<FailingFile>(zip.Bytes, failing), error);
        EXPECT_FALSE(archive);
        EXPECT_EQ(error.Code(), 0x40001u) << failing;
        EXPECT_EQ(error.Text(), u"Error occurred while reading the file.");
        EXPECT_EQ(error.Cause().Code(), 0x4000bu) << failing;
    }
    Common::Error error;
    EXPECT_TRUE(File::zip_file_impl::Open(std::make_unique<FailingFile>(zip.Bytes, 3), error));
}

// ---- iterating and looking up ------------------------------------------------------------

TEST(ZipDirectory, IteratesInDirectoryOrderWithBytesWidened) {
    const auto zip = BuildZip({{"z.txt", "1"}, {"dir/", ""}, {"caf\xc3\xa9", "2"}, {"\xe9t\xe9", "3"}});
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    const std::vector<std::u16string> expected{u"z.txt", u"dir/", u"caf\u00c3\u00a9", u"\u00e9t\u00e9"};
    EXPECT_EQ(EntryNames(*archive), expected);

    // Two iterators move on their own, and the last Next records the end.
    auto first = Own(archive->GetIterator());
    auto second = Own(archive->GetIterator());
    first->Next();
    EXPECT_EQ(std::u16string(first->GetName()), u"dir/");
    EXPECT_EQ(std::u16string(second->GetName()), u"z.txt");
    first->Next();
    first->Next();
    EXPECT_FALSE(first->Next());
    EXPECT_EQ(first->GetError().Code(), 0x40002u);
    EXPECT_EQ(first->GetName(), nullptr);
    EXPECT_EQ(Own(first->GetIdentifier()), nullptr);
    EXPECT_FALSE(first->Next());  // stays at its end
    EXPECT_EQ(second->GetSize(), 0u);  // properties the archive doesn't fill keep the defaults
}

TEST(ZipDirectory, LookupFoldsAsciiAndReadsBackslashOneWay) {
    const auto zip = BuildZip({{"docs/a.txt", "A"}, {"docs\\b.txt", "B"}, {"\xe9.txt", "E"}});
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    for (const char16_t* name : {u"docs/a.txt", u"docs/A.TXT", u"DOCS\\a.txt", u"docs\\A.txt"}) {
        auto found = Own(archive->GetIterator(name));
        ASSERT_TRUE(found) << std::string(name, name + std::char_traits<char16_t>::length(name));
        EXPECT_EQ(std::u16string(found->GetName()), u"docs/a.txt");
    }
    // Only ASCII folds: U+00C9 does not find the stored byte 0xE9.
    EXPECT_TRUE(Own(archive->GetIterator(u"\u00e9.TXT")));
    EXPECT_FALSE(Own(archive->GetIterator(u"\u00c9.txt")));
    // A stored backslash is found by no search, and a miss leaves the end of the entries.
    for (const char16_t* name : {u"docs\\b.txt", u"docs/b.txt", u"docs/a.tx", u"docs/a.txt2", u""}) {
        EXPECT_FALSE(Own(archive->GetIterator(name)));
        EXPECT_EQ(archive->GetError().Code(), 0x40002u);
        EXPECT_FALSE(Entry(*archive, name));
    }
    // A name ends at its first zero, as the terminated names it stands for.
    EXPECT_TRUE(Own(archive->GetIterator(u"docs/a.txt\0junk")));
}

TEST(ZipDirectory, IdentifiersNameOneEntryOfOneArchive) {
    const auto zip = BuildZip({{"a", "first"}, {"b", "second"}});
    auto archive = Open(zip);
    auto other = Open(zip);
    ASSERT_TRUE(archive && other);
    auto it = Own(archive->GetIterator());
    it->Next();
    const auto id = Own(it->GetIdentifier());
    const auto copy = id->Clone();
    EXPECT_EQ(archive->Compare(*id, *copy), 0);
    EXPECT_NE(archive->Compare(*id, *Own(Own(archive->GetIterator())->GetIdentifier())), 0);
    EXPECT_EQ(std::u16string(Own(archive->GetIterator(*id))->GetName()), u"b");
    EXPECT_EQ(ReadToEnd(*Own(archive->OpenI(*copy))), "second");

    // Another archive's identifier or iterator: the open fails with 0x40007, the lookup
    // with 0x40011.
    EXPECT_FALSE(Own(other->OpenI(*id)));
    EXPECT_EQ(other->GetError().Code(), 0x40007u);
    EXPECT_FALSE(Own(other->GetIterator(*id)));
    EXPECT_EQ(other->GetError().Code(), 0x40011u);
    EXPECT_FALSE(Own(archive->OpenI(*Own(other->GetIterator()))));
    EXPECT_EQ(archive->GetError().Code(), 0x40007u);
    // An iterator at its end opens nothing.
    it->Next();
    archive->ClearError();
    EXPECT_FALSE(Own(archive->OpenI(*it)));
    EXPECT_EQ(archive->GetError().Code(), 0x40007u);
}

TEST(ZipDirectory, OnlyDotOpensAsDirectoryAndSharesTheState) {
    const auto zip = BuildZip({{"a", "first"}, {"sub/", ""}});
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    Own(archive->GetIterator(u"missing"));
    ASSERT_TRUE(archive->Failed());
    auto dot = Own(archive->OpenDir(u"."));
    ASSERT_TRUE(dot);
    EXPECT_FALSE(archive->Failed());  // "." clears the error
    EXPECT_EQ(archive->Compare(*dot), 0);
    auto self = Own(archive->OpenSelf());
    ASSERT_TRUE(self);
    EXPECT_EQ(EntryNames(*self), EntryNames(*archive));

    // A name ending in '/' is an entry like any other, not a directory.
    EXPECT_FALSE(Own(archive->OpenDir(u"sub/")));
    EXPECT_EQ(archive->GetError().Code(), 0x4000eu);
    EXPECT_EQ(archive->Compare(*Open(zip)), 2);

    // The entries outlive every directory object of their archive.
    auto entry = Own(dot->OpenI(u"a", 0));
    archive.reset();
    dot.reset();
    self.reset();
    EXPECT_EQ(ReadToEnd(*entry), "first");
    EXPECT_FALSE(entry->Failed());
}

// ---- reading entries -------------------------------------------------------------------

TEST(ZipEntry, StoredAndDeflatedReadWholeInAnyPieces) {
    const std::string big = Text(200000, 7);
    const auto zip = BuildZip({{"stored", big}, {"deflated", big, 8}, {"descriptor", big, 8, 8},
                               {"empty-deflated", "", 8}});
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    for (const char16_t* name : {u"stored", u"deflated", u"descriptor"}) {
        for (std::size_t piece : {std::size_t{1} << 20, std::size_t{32768}, std::size_t{4093},
                                  std::size_t{1}}) {
            if (piece == 1 && std::u16string_view(name) != u"deflated") {
                continue;  // one byte at a time is slow; one kind is enough
            }
            auto entry = Entry(*archive, name);
            ASSERT_TRUE(entry);
            EXPECT_EQ(entry->Size(), big.size());
            EXPECT_EQ(ReadToEnd(*entry, piece), big) << piece;
            EXPECT_FALSE(entry->Failed()) << piece;
        }
    }
    auto empty = Entry(*archive, u"empty-deflated");
    EXPECT_EQ(ReadToEnd(*empty), "");
    EXPECT_FALSE(empty->Failed());

    auto entry = Entry(*archive, u"deflated");
    std::uint64_t read = 7;
    char c;
    EXPECT_TRUE(entry->Read(&c, 0, read));  // a count of 0 returns at once
    EXPECT_EQ(read, 0u);
    EXPECT_FALSE(entry->Rewind());
    EXPECT_EQ(entry->GetError().Code(), 0x4000eu);
    EXPECT_FALSE(entry->Read(&c, 1, read));  // and the error sticks
}

TEST(ZipEntry, ZeroLengthStoredEntryNeedsAZeroChecksum) {
    auto zip = BuildZip({{"empty", ""}, {"claims", ""}});
    zip.Put32(zip.Central[1] + 16, 0x12345678);
    zip.Put32(zip.Local[1] + 14, 0x12345678);
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    auto empty = Entry(*archive, u"empty");
    char c;
    std::uint64_t read = 9;
    EXPECT_TRUE(empty->Read(&c, 1, read));
    EXPECT_EQ(read, 0u);
    EXPECT_FALSE(empty->Failed());
    auto claims = Entry(*archive, u"claims");
    EXPECT_FALSE(claims->Read(&c, 1, read));
    EXPECT_EQ(claims->GetError().Code(), 0x4000du);
}

TEST(ZipEntry, ShortDataFailsAfterWhatThereIs) {
    // A stored entry whose compressed size is smaller than its size: the smaller count
    // comes, then 0x4000d.
    auto zip = BuildZip({{"short", "0123456789"}});
    zip.Put32(zip.Central[0] + 20, 4);
    zip.Put32(zip.Local[0] + 18, 4);
    auto archive = Open(zip);
    auto entry = Entry(*archive, u"short");
    char buffer[16];
    std::uint64_t read = 0;
    EXPECT_TRUE(entry->Read(buffer, sizeof buffer, read));
    EXPECT_EQ(std::string(buffer, read), "0123");
    EXPECT_FALSE(entry->Read(buffer, sizeof buffer, read));
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(entry->GetError().Code(), 0x4000du);

    // Deflated data whose compressed size stops short: inflate runs dry, and what came
    // before stands.
    const std::string text = Text(100000, 3);
    auto cut = BuildZip({{"cut", text, 8}});
    cut.Put32(cut.Central[0] + 20, 1000);
    cut.Put32(cut.Local[0] + 18, 1000);
    auto cutArchive = Open(cut);
    ASSERT_TRUE(cutArchive);
    auto cutEntry = Entry(*cutArchive, u"cut");
    const std::string got = ReadToEnd(*cutEntry);
    EXPECT_GT(got.size(), 0u);
    EXPECT_LT(got.size(), text.size());
    EXPECT_EQ(got, text.substr(0, got.size()));
    EXPECT_EQ(cutEntry->GetError().Code(), 0x4000du);
}

TEST(ZipEntry, WrongChecksumFailsOnTheReadAfterTheData) {
    const std::string text = Text(70000, 5);
    for (std::uint16_t method : {0, 8}) {
        auto zip = BuildZip({{"m", text, method, 8}});
        zip.Put32(zip.Central[0] + 16, test_support::Crc32(text) ^ 1);
        auto archive = Open(zip);
        auto entry = Entry(*archive, u"m");
        std::string buffer(text.size(), '\0');
        std::uint64_t read = 0;
        ASSERT_TRUE(entry->ReadExact(buffer.data(), buffer.size())) << method;
        EXPECT_EQ(buffer, text);
        EXPECT_FALSE(entry->Read(buffer.data(), 1, read));
        EXPECT_EQ(entry->GetError().Code(), 0x4000du) << method;
    }
    // Damaged deflate data: whatever came before, then 0x4000d.
    auto zip = BuildZip({{"m", text, 8}});
    for (std::size_t i = 0; i < 40; ++i) {
        zip.Bytes[zip.Local[0] + 31 + 200 + i] ^= 0x5a;
    }
    auto archive = Open(zip);
    auto entry = Entry(*archive, u"m");
    EXPECT_NE(ReadToEnd(*entry), text);
    EXPECT_EQ(entry->GetError().Code(), 0x4000du);
}

TEST(ZipEntry, LocalHeaderMustAgreeWithTheDirectory) {
    const auto good = BuildZip({{"m", "content", 8}});
    auto entryError = [](const BuiltZip& zip) {
        auto archive = Open(zip);
        auto entry = Entry(*archive, u"m");
        EXPECT_TRUE(entry);  // the entry comes back, in error
        return entry ? entry->GetError().Code() : 0;
    };
    auto patched = [&](auto patch) {
        BuiltZip zip = good;
        patch(zip);
        return entryError(zip);
    };
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Local[0], 0x04034b51); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put16(z.Local[0] + 8, 0); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Local[0] + 14, 1); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Local[0] + 18, 1); }), 0x4000du);
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Local[0] + 22, 1); }), 0x4000du);
    // With a data descriptor the header's checksum and sizes don't count.
    EXPECT_EQ(patched([](BuiltZip& z) {
                  z.Put16(z.Local[0] + 6, 8);
                  z.Put32(z.Local[0] + 14, 1);
              }),
              0u);
    // A header offset outside the file is a read failure, with the file's reason as cause.
    EXPECT_EQ(patched([](BuiltZip& z) { z.Put32(z.Central[0] + 42, 0x7fff0000); }), 0x40001u);
    // Methods other than stored and deflated, bit 3 of the number included.
    EXPECT_EQ(entryError(BuildZip({{"m", "x", 12}})), 0x4000eu);
    EXPECT_EQ(entryError(BuildZip({{"m", "x", 9}})), 0x4000eu);
}

TEST(ZipEntry, ReadFailureInTheDataBelongsToTheEntry) {
    const auto zip = BuildZip({{"a", Text(50000, 9)}, {"b", "bee"}});
    Common::Error error;
    // The second piece of the data fails.
    auto archive = File::zip_file_impl::Open(std::make_unique<FailingFile>(zip.Bytes, 5), error);
    ASSERT_TRUE(archive);
    auto a = Entry(*archive, u"a");
    EXPECT_FALSE(ReadToEnd(*a, 1000).empty());
    EXPECT_EQ(a->GetError().Code(), 0x40001u);
    EXPECT_EQ(a->GetError().Cause().Code(), 0x4000bu);
    // The archive itself is not spoilt for the other entries.
    auto b = Entry(*archive, u"b");
    ASSERT_TRUE(b);
    EXPECT_FALSE(b->Failed());
}

TEST(ZipEntry, EntriesOfOneArchiveReadFromSeveralThreads) {
    std::vector<ZipMember> members;
    for (unsigned i = 0; i < 8; ++i) {
        members.push_back({"m" + std::to_string(i), Text(150000 + i * 1000, i), std::uint16_t(i % 2 ? 8 : 0)});
    }
    const auto zip = BuildZip(members);
    auto archive = Open(zip);
    ASSERT_TRUE(archive);
    std::vector<std::string> got(members.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < members.size(); ++i) {
        auto entry = Entry(*archive, Common::WidenLatin1(members[i].Name).c_str());
        threads.emplace_back([&got, i, e = std::shared_ptr<File::si_file>(std::move(entry))] {
            got[i] = ReadToEnd(*e, 1000 + 97 * i);  // small pieces interleave the threads
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    for (std::size_t i = 0; i < members.size(); ++i) {
        EXPECT_EQ(got[i], members[i].Data) << i;
    }
}

}  // namespace
