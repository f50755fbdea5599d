#include <tessel_link/file/usn_journal.h>

#include <algorithm>
#include <cstring>

#include <tessel_link/common/messages.h>

#include "file/system_error.h"
#include "file/usn_journal_impl.h"

namespace File {

namespace {

constexpr char kQueryCall[] = "DeviceIoControl(FSCTL_QUERY_USN_JOURNAL)";
constexpr char kReadCall[] = "DeviceIoControl(FSCTL_READ_USN_JOURNAL)";
constexpr char kEnumCall[] = "DeviceIoControl(FSCTL_ENUM_USN_DATA)";

// A damaged answer of `call`.
Common::Error Corrupted(const Common::ErrorOrigin& origin, const char* call) {
    return Common::Error::WithFunction(origin, kCorrupted.Code,
                                       Common::GetMessageRow(kCorrupted.Row), call);
}

// A failed control call: the volume's report of damage stays what it is, anything else is a
// failure to read.
Common::Error ControlFailed(const Common::ErrorOrigin& origin, const char* call,
                            const Platform::SystemError& failure) {
    const FileErrorCode fallback = failure.Windows == Platform::kFileCorrupt ? kCorrupted : kReadFailed;
    return MakeSystemError(origin, call, failure, fallback);
}

}  // namespace

std::u16string UsnRecordName(const USN_RECORD& record) {
    std::u16string name(record.FileNameLength / 2, u'\0');
    std::memcpy(name.data(), reinterpret_cast<const unsigned char*>(&record) + record.FileNameOffset,
                name.size() * sizeof(char16_t));
    return name;
}

bool IsWholeRecord(const unsigned char* at, std::size_t left) noexcept {
    if (left < kUsnRecordFixedSize) {
        return false;
    }
    const auto* record = reinterpret_cast<const USN_RECORD*>(at);
    const std::uint32_t length = record->RecordLength;
    if (length < kUsnRecordFixedSize || length > left || length % 8 != 0) {
        return false;
    }
    const std::uint32_t nameEnd =
        std::uint32_t{record->FileNameOffset} + std::uint32_t{record->FileNameLength};
    return record->FileNameOffset >= kUsnRecordFixedSize && nameEnd <= length;
}

UsnJournalReader::~UsnJournalReader() = default;
UsnJournal::~UsnJournal() = default;
FileRecordInfoReader::~FileRecordInfoReader() = default;

UsnFile::UsnFile(Platform::VolumeControl& volumes, const std::u16string& path)
    : volumes_(volumes) {
    std::u16string volume;
    Platform::SystemError failure = volumes_.VolumeNameOf(path, volume);
    if (failure.Failed()) {
        throw MakeSystemError(TL_ORIGIN("UsnFile::UsnFile"), "GetVolumeNameForVolumeMountPointW",
                              failure, kOpenFailed);
    }
    if (!volume.empty()) {
        volume.pop_back();  // the trailing separator
    }
    failure = volumes_.Open(volume, handle_);
    if (failure.Failed()) {
        throw MakeSystemError(TL_ORIGIN("UsnFile::UsnFile"), "CreateFileW", failure, kOpenFailed);
    }
}

UsnFile::~UsnFile() {
    volumes_.Close(handle_);
}

UsnJournalImpl::UsnJournalImpl(Platform::VolumeControl& volumes, const std::u16string& path)
    : UsnFile(volumes, path) {
    alignas(8) unsigned char answer[sizeof(USN_JOURNAL_DATA)];
    std::size_t returned = 0;
    const Platform::SystemError failure = volumes_.Control(
        handle_, FSCTL_QUERY_USN_JOURNAL, nullptr, 0, answer, sizeof answer, returned);
    if (failure.Failed()) {
        throw ControlFailed(TL_ORIGIN("UsnJournalImpl::UsnJournalImpl"), kQueryCall, failure);
    }
    if (returned != sizeof answer) {
        throw Corrupted(TL_ORIGIN("UsnJournalImpl::UsnJournalImpl"), kQueryCall);
    }
    std::memcpy(&data_, answer, sizeof data_);
}

Common::Error UsnJournalImpl::CreateReader(USN start, std::unique_ptr<UsnJournalReader>& reader) {
    try {
        reader = std::make_unique<UsnJournalReaderImpl>(volumes_, handle_, data_, start);
        return Common::ErrorSuccess;
    } catch (const Common::Error& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return MakeFileError(TL_ORIGIN("UsnJournalImpl::CreateReader"), kOutOfMemory);
    }
}

UsnJournalReaderImpl::UsnJournalReaderImpl(Platform::VolumeControl& volumes,
                                           Platform::VolumeHandle handle,
                                           const USN_JOURNAL_DATA& data, USN start)
    : volumes_(volumes), handle_(handle) {
    const USN oldest = std::max(data.LowestValidUsn, data.FirstUsn);
    if (start == 0) {
        start = oldest;
    } else if (start < oldest) {
        throw MakeFileError(TL_ORIGIN("UsnJournalReaderImpl::UsnJournalReaderImpl"), kUsnNoData);
    }
    request_.StartUsn = start;
    request_.ReasonMask = 0xffffffffu;
    request_.ReturnOnlyOnClose = 0;
    request_.Timeout = 0;
    request_.BytesToWaitFor = 0;
    request_.UsnJournalID = data.UsnJournalID;
    cursor_ = buffer_;
}

void UsnJournalReaderImpl::Fail(const Common::Error& error) {
    broken_ = error;
    left_ = 0;
    throw error;
}

void UsnJournalReaderImpl::Fetch() {
    std::size_t returned = 0;
    const Platform::SystemError failure = volumes_.Control(
        handle_, FSCTL_READ_USN_JOURNAL, &request_, sizeof request_, buffer_, sizeof buffer_, returned);
    if (failure.Failed()) {
        Fail(ControlFailed(TL_ORIGIN("UsnJournalReaderImpl::Read"), kReadCall, failure));
    }
    if (returned < sizeof(USN) || returned > sizeof buffer_) {
        Fail(Corrupted(TL_ORIGIN("UsnJournalReaderImpl::Read"), kReadCall));
    }
    const USN asked = request_.StartUsn;
    std::memcpy(&request_.StartUsn, buffer_, sizeof(USN));
    cursor_ = buffer_ + sizeof(USN);
    left_ = returned - sizeof(USN);

    // Nothing may be lost between two fetches: the records go on exactly where the last
    // fetch ended, or, with none, the journal's end is still where it was.
    const USN resumed = left_ != 0 ? CheckedRecord()->Usn : request_.StartUsn;
    if (resumed != asked) {
        Fail(MakeFileError(TL_ORIGIN("UsnJournalReaderImpl::Read"), kUsnEntryNotFound));
    }
    // Positions only grow: a journal whose records lead back to where they began would be
    // read forever.
    if (left_ != 0 && request_.StartUsn <= asked) {
        Fail(Corrupted(TL_ORIGIN("UsnJournalReaderImpl::Read"), kReadCall));
    }
}

const USN_RECORD* UsnJournalReaderImpl::CheckedRecord() {
    if (!IsWholeRecord(cursor_, left_)) {
        Fail(Corrupted(TL_ORIGIN("UsnJournalReaderImpl::Read"), kReadCall));
    }
    return reinterpret_cast<const USN_RECORD*>(cursor_);
}

const USN_RECORD* UsnJournalReaderImpl::Read() {
    if (broken_.Failed()) {
        throw broken_;
    }
    if (left_ == 0) {
        Fetch();
        if (left_ == 0) {
            return nullptr;  // the journal's present end
        }
    }
    const USN_RECORD* record = CheckedRecord();
    cursor_ += record->RecordLength;
    left_ -= record->RecordLength;
    return record;
}

USN UsnJournalReaderImpl::NextUsn() const {
    if (left_ >= offsetof(USN_RECORD, Usn) + sizeof(USN)) {
        USN usn;
        std::memcpy(&usn, cursor_ + offsetof(USN_RECORD, Usn), sizeof usn);
        return usn;
    }
    return request_.StartUsn;
}

FileRecordInfoReaderImpl::FileRecordInfoReaderImpl(Platform::VolumeControl& volumes,
                                                   const std::u16string& path)
    : UsnFile(volumes, path) {}

Common::Error FileRecordInfoReaderImpl::GetFileRecordInfo(std::uint64_t reference,
                                                          FileRecordInfo& info) {
    const MFT_ENUM_DATA request{reference, 0, 0x7fffffffffffffff};
    alignas(8) unsigned char answer[kBufferSize];
    std::size_t returned = 0;
    const Platform::SystemError failure = volumes_.Control(
        handle_, FSCTL_ENUM_USN_DATA, &request, sizeof request, answer, sizeof answer, returned);
    if (failure.Failed()) {
        return ControlFailed(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"), kEnumCall,
                             failure);
    }
    if (returned > sizeof answer) {
        return Corrupted(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"), kEnumCall);
    }
    if (returned <= sizeof(std::uint64_t)) {
        // No file from `reference` on.
        return MakeFileError(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"),
                             kUsnEntryNotFound);
    }
    const unsigned char* first = answer + sizeof(std::uint64_t);
    if (!IsWholeRecord(first, returned - sizeof(std::uint64_t))) {
        return Corrupted(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"), kEnumCall);
    }
    const auto* record = reinterpret_cast<const USN_RECORD*>(first);
    if (record->FileReferenceNumber != reference) {
        return MakeFileError(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"),
                             kUsnEntryNotFound);
    }
    try {
        info.Name = UsnRecordName(*record);
    } catch (const std::bad_alloc&) {
        return MakeFileError(TL_ORIGIN("FileRecordInfoReaderImpl::GetFileRecordInfo"),
                             kOutOfMemory);
    }
    info.ParentFileReferenceNumber = record->ParentFileReferenceNumber;
    return Common::ErrorSuccess;
}

std::unique_ptr<UsnJournal> OpenUsnJournal(const std::u16string& path) {
    return std::make_unique<UsnJournalImpl>(Platform::SystemVolumeControl(), path);
}

std::unique_ptr<FileRecordInfoReader> OpenFileRecordInfoReader(const std::u16string& path) {
    return std::make_unique<FileRecordInfoReaderImpl>(Platform::SystemVolumeControl(), path);
}

bool HandleJournalCommand(ioctl_command& command, const std::u16string& path,
                          Common::Error& error) {
    try {
        if (command.Code == usn_journal_command::kCode) {
            static_cast<usn_journal_command&>(command).Journal = OpenUsnJournal(path);
            return true;
        }
        if (command.Code == file_record_info_command::kCode) {
            static_cast<file_record_info_command&>(command).Reader = OpenFileRecordInfoReader(path);
            return true;
        }
    } catch (const Common::Error& failure) {
        error = failure;
        return true;
    } catch (const std::bad_alloc&) {
        error = MakeFileError(TL_ORIGIN("HandleJournalCommand"), kOutOfMemory);
        return true;
    }
    return false;
}

}  // namespace File
