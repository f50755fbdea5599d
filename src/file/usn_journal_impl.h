#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <tessel_link/common/non_copyable.h>
#include <tessel_link/file/usn_journal.h>

#include "file/file_errors.h"
#include "platform/volume_control.h"

namespace File {

inline constexpr FileErrorCode kUsnEntryNotFound{
    0x4002a, 567};  // "The requested USN journal entry is not found."
inline constexpr FileErrorCode kUsnNoData{
    0x4002b, 566};  // "The USN journal does not have the requested data."

// Owns the handle of the volume that holds a path. Throws Common::Error 0x40007 when the
// volume can't be found or opened.
class UsnFile : public Common::NonCopyable {
public:
    UsnFile(Platform::VolumeControl& volumes, const std::u16string& path);
    virtual ~UsnFile();

protected:
    Platform::VolumeControl& volumes_;
    Platform::VolumeHandle handle_ = 0;
};

class UsnJournalImpl final : public UsnFile, public UsnJournal {
public:
    // Opens the volume and queries its journal.
    UsnJournalImpl(Platform::VolumeControl& volumes, const std::u16string& path);

    const USN_JOURNAL_DATA& GetJournalData() const override { return data_; }
    Common::Error CreateReader(USN start, std::unique_ptr<UsnJournalReader>& reader) override;

private:
    USN_JOURNAL_DATA data_{};
};

// Reads through the volume handle of the journal that made it, which must outlive it.
class UsnJournalReaderImpl final : public Common::NonCopyable, public UsnJournalReader {
public:
    static constexpr std::size_t kBufferSize = 32776;  // the next USN, then 32,768 of records

    // Throws 0x4002b when `start` lies before the oldest record that `data` still has.
    UsnJournalReaderImpl(Platform::VolumeControl& volumes, Platform::VolumeHandle handle,
                         const USN_JOURNAL_DATA& data, USN start);

    const USN_RECORD* Read() override;
    USN NextUsn() const override;

private:
    void Fetch();
    // The record at the cursor, checked to lie whole inside the bytes left.
    const USN_RECORD* CheckedRecord();
    [[noreturn]] void Fail(const Common::Error& error);

    Platform::VolumeControl& volumes_;
    Platform::VolumeHandle handle_;
    READ_USN_JOURNAL_DATA request_{};
    std::size_t left_ = 0;
    const unsigned char* cursor_ = nullptr;
    // A failed reader keeps failing: what it would read next can't be trusted.
    Common::Error broken_;
    alignas(8) unsigned char buffer_[kBufferSize];
};

class FileRecordInfoReaderImpl final : public UsnFile, public FileRecordInfoReader {
public:
    static constexpr std::size_t kBufferSize = 4096;

    FileRecordInfoReaderImpl(Platform::VolumeControl& volumes, const std::u16string& path);

    Common::Error GetFileRecordInfo(std::uint64_t reference, FileRecordInfo& info) override;
};

// The checks that a record at `at`, with `left` bytes from it to the end of what the volume
// returned, lies whole in those bytes: its fixed part, its length (a multiple of 8, so that
// the next record stands aligned) and its name.
bool IsWholeRecord(const unsigned char* at, std::size_t left) noexcept;

}  // namespace File
