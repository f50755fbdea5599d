#include "file/zip_file.h"

#include <algorithm>
#include <functional>
#include <new>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/zip_archive.h>

#include "file/file_errors.h"
#include "file/file_in_zip.h"
#include "file/zip_format.h"

namespace File {

using namespace zip_format;

namespace {

// The end record lies within the last 65,535 bytes or so: the scan reads 1,024-byte blocks
// backwards from the end, each overlapping the previous one by the 4 bytes of a signature.
constexpr std::size_t kScanBlock = 1024;
constexpr std::uint64_t kScanStep = kScanBlock - 4;
constexpr std::uint64_t kScanLimit = 65517;

char16_t FoldAscii(char16_t c) {
    return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - (u'a' - u'A')) : c;
}

// The lookup rule: ASCII letters fold to upper case on both sides; a '\' sought matches a
// '/' stored; a '\' stored matches nothing, so that such an entry is never found by name.
// Both names end at their first zero unit: a match ends on both at the same place.
bool NamesMatch(const char16_t* sought, const char16_t* stored) {
    for (;; ++sought, ++stored) {
        if (*stored == u'\\') {
            return false;
        }
        const char16_t wanted = *sought == u'\\' ? u'/' : *sought;
        if (FoldAscii(wanted) != FoldAscii(*stored)) {
            return false;
        }
        if (wanted == 0) {
            return true;
        }
    }
}

}  // namespace

// ---- records and state -----------------------------------------------------------------

zip_central_entry zip_central_entry::At(const unsigned char* record) noexcept {
    zip_central_entry entry;
    entry.Method = U16(record + kCentralMethod);
    entry.Crc32 = U32(record + kCentralCrc);
    entry.CompressedSize = U32(record + kCentralCompressed);
    entry.Size = U32(record + kCentralUncompressed);
    entry.LocalHeaderOffset = U32(record + kCentralLocalOffset);
    entry.Name = std::string_view(reinterpret_cast<const char*>(record + kCentralSize),
                                  U16(record + kCentralNameLength));
    return entry;
}

bool zip_file_state::IsPosition(const unsigned char* record, std::uint32_t left) const noexcept {
    if (directory == nullptr || left == 0 || left > entry_count) {
        return false;
    }
    // Compared as addresses: `record` may come from another archive's directory.
    const auto start = reinterpret_cast<std::uintptr_t>(directory.get());
    const auto at = reinterpret_cast<std::uintptr_t>(record);
    return at >= start && at - start < directory_size &&
           record_offsets[entry_count - left] == at - start;
}

Common::Error TakeReadFailure(const Common::ErrorOrigin& origin, ri_file& file) {
    Common::Error error = MakeFileError(origin, kReadFailed);
    if (file.Failed()) {
        error.AddCause(file.GetError());
        file.ClearError();
    }
    return error;
}

// ---- identifier and iterator -----------------------------------------------------------

std::unique_ptr<file_identifier> zip_identifier::Clone() const {
    return std::make_unique<zip_identifier>(*this);
}

zip_iterator::zip_iterator(std::shared_ptr<zip_file_state> state, const unsigned char* record,
                           std::uint32_t left)
    : state_(std::move(state)), record_(record), left_(left) {
    BuildName();
}

void zip_iterator::BuildName() {
    name_ = Common::WidenLatin1(zip_central_entry::At(record_).Name);
}

bool zip_iterator::Next() {
    if (Failed()) {
        return false;
    }
    if (left_ > 1) {
        record_ += CentralRecordLength(record_);
        --left_;
        BuildName();
        return true;
    }
    RecordError(MakeFileError(TL_ORIGIN("zip_iterator::Next"), kEndOfFile));
    return false;
}

file_identifier* zip_iterator::GetIdentifier() {
    if (Failed()) {
        return nullptr;
    }
    return new zip_identifier(record_, left_);
}

const char16_t* zip_iterator::GetName() {
    return Failed() ? nullptr : name_.c_str();
}

// ---- opening the archive ---------------------------------------------------------------

std::unique_ptr<zip_file_impl> zip_file_impl::Open(std::unique_ptr<ri_file> archive,
                                                   Common::Error& error) {
    std::unique_ptr<zip_file_impl> directory;
    try {
        directory.reset(new zip_file_impl(std::move(archive)));
    } catch (const std::bad_alloc&) {
        error = MakeFileError(TL_ORIGIN("zip_file_impl::Open"), kOutOfMemory);
        return nullptr;
    }
    if (directory->Failed()) {
        error = directory->GetError();
        return nullptr;
    }
    error = Common::ErrorSuccess;
    return directory;
}

std::unique_ptr<si_dir> OpenZipArchive(std::unique_ptr<ri_file> archive, Common::Error& error) {
    return zip_file_impl::Open(std::move(archive), error);
}

zip_file_impl::zip_file_impl(std::unique_ptr<ri_file> archive)
    : state_(std::make_shared<zip_file_state>(std::move(archive))) {
    ReadCentralDir();
}

std::uint64_t zip_file_impl::SearchCentralDir() {
    ri_file& file = *state_->file;
    const std::uint64_t size = file.Size();
    if (file.Failed()) {
        SetError(TakeReadFailure(TL_ORIGIN("zip_file_impl::SearchCentralDir"), file));
        return 0;
    }
    // The scan base is where the signature of an end record without comment would end.
    std::uint64_t scanBase = 0;
    std::uint64_t limit = 0;
    if (size >= 19) {
        scanBase = size - 18;
        limit = std::min<std::uint64_t>(size - 19, kScanLimit);
    }
    if (limit < 5) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::SearchCentralDir"), kCorrupted));
        return 0;
    }
    unsigned char block[kScanBlock];
    std::uint64_t back = 4;
    for (;;) {
        back = std::min(back + kScanStep, limit);
        const std::uint64_t start = scanBase - back;
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(back, kScanBlock));
        file.Seek(start);
        if (!file.ReadExact(block, length)) {
            SetError(TakeReadFailure(TL_ORIGIN("zip_file_impl::SearchCentralDir"), file));
            return 0;
        }
        // The match nearest the end wins.
        for (std::size_t i = length - 3; i-- > 0;) {
            if (U32(block + i) == kEndSignature) {
                ClearError();
                return start + i;
            }
        }
        if (back >= limit) {
            SetError(MakeFileError(TL_ORIGIN("zip_file_impl::SearchCentralDir"), kCorrupted));
            return 0;
        }
    }
}

void zip_file_impl::ReadCentralDir() {
    const std::uint64_t position = SearchCentralDir();
    if (position == 0) {
        return;
    }
    zip_file_state& state = *state_;
    ri_file& file = *state.file;
    unsigned char end[kEndSize];
    file.Seek(position);
    if (!file.ReadExact(end, kEndSize)) {
        SetError(TakeReadFailure(TL_ORIGIN("zip_file_impl::zip_file_impl"), file));
        return;
    }
    const std::uint16_t entries = U16(end + kEndEntries);
    const std::uint32_t directorySize = U32(end + kEndDirectorySize);
    const std::uint32_t directoryOffset = U32(end + kEndDirectoryOffset);
    // One disk only, a count that agrees with itself, at least one entry, and a directory
    // that ends before the end record. The sum is taken in 32 bits as the fields are; a
    // directory larger than everything in front of the end record can't be there either.
    const bool zip64 = entries == kZip64Marker16 || directorySize == kZip64Marker32 ||
                       directoryOffset == kZip64Marker32;
    const bool plausible = !zip64 && U16(end + kEndEntriesOnDisk) == entries &&
                           U16(end + kEndDisk) == 0 &&
                           U16(end + kEndDirectoryDisk) == 0 && entries != 0 &&
                           position >= static_cast<std::uint32_t>(directorySize + directoryOffset) &&
                           position >= directorySize;
    if (!plausible) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::zip_file_impl"), kCorrupted));
        return;
    }
    const std::uint64_t actual = position - directorySize;
    const auto base = static_cast<std::int64_t>(actual) - static_cast<std::int64_t>(directoryOffset);

    // The directory size is bounded by the file, since the directory lies in front of the
    // end record.
    std::unique_ptr<unsigned char[]> directory(new (std::nothrow)
                                                   unsigned char[std::max<std::uint32_t>(directorySize, 1)]);
    if (!directory) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::zip_file_impl"), kOutOfMemory));
        return;
    }
    file.Seek(actual);
    if (!file.ReadExact(directory.get(), directorySize)) {
        SetError(TakeReadFailure(TL_ORIGIN("zip_file_impl::zip_file_impl"), file));
        return;
    }

    // Every record must lie inside the directory, so that iterators can walk it unchecked.
    std::vector<std::uint32_t> offsets;
    offsets.reserve(entries);
    std::uint64_t offset = 0;
    for (std::uint32_t i = 0; i < entries; ++i) {
        if (offset + kCentralSize > directorySize ||
            offset + CentralRecordLength(directory.get() + offset) > directorySize) {
            SetError(MakeFileError(TL_ORIGIN("zip_file_impl::zip_file_impl"), kCorrupted));
            return;
        }
        const zip_central_entry entry = zip_central_entry::At(directory.get() + offset);
        if (entry.CompressedSize == kZip64Marker32 || entry.Size == kZip64Marker32 ||
            entry.LocalHeaderOffset == kZip64Marker32) {
            SetError(MakeFileError(TL_ORIGIN("zip_file_impl::zip_file_impl"), kCorrupted));
            return;
        }
        offsets.push_back(static_cast<std::uint32_t>(offset));
        offset += CentralRecordLength(directory.get() + offset);
    }

    state.base = base;
    state.entry_count = entries;
    state.directory_size = directorySize;
    state.directory = std::move(directory);
    state.record_offsets = std::move(offsets);
}

// ---- directory operations --------------------------------------------------------------

std::unique_ptr<zip_iterator> zip_file_impl::Entries() {
    if (state_->directory == nullptr) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::GetIterator"), kCorrupted));
        return nullptr;
    }
    return std::make_unique<zip_iterator>(state_, state_->directory.get(), state_->entry_count);
}

i_dir::iterator* zip_file_impl::GetIterator() {
    return Entries().release();
}

i_dir::iterator* zip_file_impl::GetIterator(const file_identifier& id) {
    const auto* entry = dynamic_cast<const zip_identifier*>(&id);
    if (entry == nullptr || !state_->IsPosition(entry->Record(), entry->Left())) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::GetIterator"), kFileNotFound));
        return nullptr;
    }
    return new zip_iterator(state_, entry->Record(), entry->Left());
}

std::unique_ptr<zip_iterator> zip_file_impl::Find(const char16_t* name) {
    std::unique_ptr<zip_iterator> position = Entries();
    if (!position) {
        return nullptr;
    }
    do {
        if (NamesMatch(name != nullptr ? name : u"", position->GetName())) {
            return position;
        }
    } while (position->Next());
    SetError(position->GetError());
    return nullptr;
}

i_dir::iterator* zip_file_impl::GetIterator(const char16_t* name) {
    return Find(name).release();
}

i_dir::iterator* zip_file_impl::GetSelfIterator() {
    SetError(MakeFileError(TL_ORIGIN("zip_file_impl::GetSelfIterator"), kNotSupported));
    return nullptr;
}

int zip_file_impl::Compare(i_dir& other) {
    const auto* archive = dynamic_cast<const zip_file_impl*>(&other);
    return archive != nullptr && archive->state_ == state_ ? 0 : 2;
}

int zip_file_impl::Compare(const file_identifier& a, const file_identifier& b) {
    const auto* first = dynamic_cast<const zip_identifier*>(&a);
    const auto* second = dynamic_cast<const zip_identifier*>(&b);
    return first != nullptr && second != nullptr && *first == *second ? 0 : 1;
}

si_file* zip_file_impl::OpenAt(const unsigned char* record) {
    try {
        // The entry keeps its own failures (a bad local header, an unknown method).
        return new file_in_zip(state_, record);
    } catch (const std::bad_alloc&) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenI"), kOutOfMemory));
        return nullptr;
    }
}

si_file* zip_file_impl::OpenI(const file_identifier& id) {
    const auto* entry = dynamic_cast<const zip_identifier*>(&id);
    if (entry == nullptr || !state_->IsPosition(entry->Record(), entry->Left())) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenI"), kOpenFailed));
        return nullptr;
    }
    return OpenAt(entry->Record());
}

si_file* zip_file_impl::OpenI(iterator& position) {
    auto* entry = dynamic_cast<zip_iterator*>(&position);
    if (entry == nullptr || entry->Failed() || entry->State() != state_.get()) {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenI"), kOpenFailed));
        return nullptr;
    }
    return OpenAt(entry->Record());
}

si_file* zip_file_impl::OpenI(const char16_t* name, std::uint32_t) {
    const std::unique_ptr<zip_iterator> position = Find(name);
    return position ? OpenAt(position->Record()) : nullptr;
}

i_dir* zip_file_impl::OpenDir(const file_identifier&) {
    SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenDir"), kNotSupported));
    return nullptr;
}

i_dir* zip_file_impl::OpenDir(iterator&) {
    SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenDir"), kNotSupported));
    return nullptr;
}

i_dir* zip_file_impl::OpenDir(const char16_t* name) {
    if (name == nullptr || std::u16string_view(name) != u".") {
        SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenDir"), kNotSupported));
        return nullptr;
    }
    ClearError();
    return new zip_file_impl(state_);
}

i_dir* zip_file_impl::OpenPath(const char16_t*&) {
    SetError(MakeFileError(TL_ORIGIN("zip_file_impl::OpenPath"), kNotSupported));
    return nullptr;
}

i_dir* zip_file_impl::OpenSelf() {
    return new zip_file_impl(state_);
}

}  // namespace File
