#pragma once

// The change journal of a volume: what changed since a known position, with proof that no
// record was lost between two reads, and the name and parent of a file reference.
//
// The structures are the little-endian layouts that the volume's control codes exchange.
// Records handed out by a reader point into the reader's buffer and stay valid until its
// next fetch.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>
#include <tessel_link/file/file_object.h>

namespace File {

static_assert(std::endian::native == std::endian::little,
              "the journal's structures are read in place, in little-endian order");

using USN = std::int64_t;  // an update sequence number: a position in the journal

// The control codes of the journal: query it, read it, enumerate the volume's files.
inline constexpr std::uint32_t FSCTL_QUERY_USN_JOURNAL = 0x900f4;
inline constexpr std::uint32_t FSCTL_READ_USN_JOURNAL = 0x900bb;
inline constexpr std::uint32_t FSCTL_ENUM_USN_DATA = 0x900b3;

// What the journal query answers.
struct USN_JOURNAL_DATA {
    std::uint64_t UsnJournalID;  // the journal's identity; a new one after a reset
    USN FirstUsn;  // the oldest record kept
    USN NextUsn;  // where the next record will go
    USN LowestValidUsn;  // the lowest position a reader may start at
    USN MaxUsn;  // the highest position the journal can reach
    std::uint64_t MaximumSize;  // the size the journal is kept under
    std::uint64_t AllocationDelta;  // what is freed when it grows past that
};
static_assert(sizeof(USN_JOURNAL_DATA) == 56);

// What a journal read is asked with.
struct READ_USN_JOURNAL_DATA {
    USN StartUsn;  // where to start
    std::uint32_t ReasonMask;  // the change reasons wanted
    std::uint32_t ReturnOnlyOnClose;  // nonzero: only records of closed files
    std::uint64_t Timeout;  // how long to wait for new records
    std::uint64_t BytesToWaitFor;  // how many bytes to wait for
    std::uint64_t UsnJournalID;  // the journal the read is meant for
};
static_assert(sizeof(READ_USN_JOURNAL_DATA) == 40);

// What a file enumeration is asked with.
struct MFT_ENUM_DATA {
    std::uint64_t StartFileReferenceNumber;  // where to start
    USN LowUsn;  // the lowest position wanted
    USN HighUsn;  // the highest position wanted
};
static_assert(sizeof(MFT_ENUM_DATA) == 24);

// A record of version 2. FileName is the first of FileNameLength / 2 UTF-16 units, which
// start FileNameOffset bytes from the record's start and are not terminated.
struct USN_RECORD {
    std::uint32_t RecordLength;  // the record's size in bytes
    std::uint16_t MajorVersion;  // 2
    std::uint16_t MinorVersion;  // 0
    std::uint64_t FileReferenceNumber;  // the file's reference
    std::uint64_t ParentFileReferenceNumber;  // its directory's reference
    USN Usn;  // the record's position
    std::int64_t TimeStamp;  // when, as FILETIME
    std::uint32_t Reason;  // the change reasons
    std::uint32_t SourceInfo;  // where the change came from
    std::uint32_t SecurityId;  // the file's security ID
    std::uint32_t FileAttributes;  // the file's attributes
    std::uint16_t FileNameLength;  // the name's size in bytes
    std::uint16_t FileNameOffset;  // where the name starts
    char16_t FileName[1];  // the name's first unit
};
static_assert(offsetof(USN_RECORD, FileName) == 60);

// The bytes of a record before its name; no valid record is shorter.
inline constexpr std::uint32_t kUsnRecordFixedSize = offsetof(USN_RECORD, FileName);

// The record's name as a string.
TL_API std::u16string UsnRecordName(const USN_RECORD& record);

// Where a file is: its parent's reference and its own name.
struct FileRecordInfo {
    std::uint64_t ParentFileReferenceNumber = 0;  // its directory's reference
    std::u16string Name;  // its name
};

// Reads forward through the journal from the position it was made at.
class TL_API UsnJournalReader {
public:
    virtual ~UsnJournalReader();
    // The next record, or null at the journal's present end. Throws Common::Error when the
    // volume can't be read (0x40001), when the journal was wrapped or reset since the last
    // fetch (0x4002a), or when what came back is damaged (0x4000d).
    virtual const USN_RECORD* Read() = 0;
    // The position to go on from in a later session.
    virtual USN NextUsn() const = 0;
};

// The journal of one volume, as it was when opened.
class TL_API UsnJournal {
public:
    virtual ~UsnJournal();
    virtual const USN_JOURNAL_DATA& GetJournalData() const = 0;  // the journal's state when opened
    // A reader from `start` (0: the oldest record still kept). A start before the oldest
    // record gives 0x4002b: the earlier records are gone and the caller must scan in full.
    virtual Common::Error CreateReader(USN start, std::unique_ptr<UsnJournalReader>& reader) = 0;
};

// Finds the name and parent of a file by its reference.
class TL_API FileRecordInfoReader {
public:
    // The name and parent of `reference`.
    virtual Common::Error GetFileRecordInfo(std::uint64_t reference, FileRecordInfo& info) = 0;
    virtual ~FileRecordInfoReader();
};

// The journal of the volume that holds `path`. Throws Common::Error: 0x40007 when the volume
// can't be opened, 0x40001 when its journal can't be queried, 0x4000d when the answer is
// damaged.
TL_API std::unique_ptr<UsnJournal> OpenUsnJournal(const std::u16string& path);
// A reader of file references on the volume that holds `path`; throws as OpenUsnJournal.
TL_API std::unique_ptr<FileRecordInfoReader> OpenFileRecordInfoReader(const std::u16string& path);

// Directory commands, with the four letters of their code in memory order.
constexpr std::uint32_t CommandCode(const char (&letters)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(letters[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[3])) << 24;
}

// Opens the journal of the directory's volume.
struct usn_journal_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("USNJ");  // the command's code
    usn_journal_command() { Code = kCode; }
    std::unique_ptr<UsnJournal> Journal;  // the journal, on success
};

// Opens a reader of file references on the directory's volume.
struct file_record_info_command : ioctl_command {
    static constexpr std::uint32_t kCode = CommandCode("FREI");  // the command's code
    file_record_info_command() { Code = kCode; }
    std::unique_ptr<FileRecordInfoReader> Reader;  // the reader, on success
};

// The part of a directory's IOCTL that serves the two journal commands for the directory at
// `path`. Returns false, with `error` untouched, for any other command, which the directory
// hands to its base; otherwise true, with `error` set on failure.
TL_API bool HandleJournalCommand(ioctl_command& command, const std::u16string& path,
                                 Common::Error& error);

}  // namespace File
