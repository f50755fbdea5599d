#include "file/dir_iterator.h"

#include <sys/stat.h>
#include <algorithm>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <tessel_link/common/messages.h>
#include <tessel_link/file/system_dir.h>

#include "file/file_errors.h"
#include "file/system_error.h"
#include "platform/posix_status.h"

// The functions that run for every entry of a walk sit together in the hot text, so that a
// walk touches few pages and cache lines of code between its system calls.
#if defined(__GNUC__)
#define TL_WALK_HOT [[gnu::hot]]
#define TL_WALK_INLINE [[gnu::always_inline]] inline
#else
#define TL_WALK_HOT
#define TL_WALK_INLINE inline
#endif

namespace File {

namespace {

constexpr std::uint64_t kUnknown = ~std::uint64_t{0};

unsigned char TypeFromMode(std::uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return Platform::kTypeDir;
        case S_IFREG:
            return Platform::kTypeFile;
        case S_IFLNK:
            return Platform::kTypeLink;
        case S_IFCHR:
            return Platform::kTypeChar;
        case S_IFBLK:
            return Platform::kTypeBlock;
        case S_IFIFO:
            return Platform::kTypeFifo;
        case S_IFSOCK:
            return Platform::kTypeSocket;
        default:
            return Platform::kTypeUnknown;
    }
}

std::uint64_t Load64(const unsigned char* p) {
    std::uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

std::uint16_t Load16(const unsigned char* p) {
    std::uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// The length of the zero-ended name at `name`: at most `room` bytes, the name's share of
// its record. `readable` bytes from `name` on may be read, 16 at a time.
TL_WALK_INLINE std::size_t NameLength(const unsigned char* name, std::size_t room, std::size_t readable) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (i < room && readable - i >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name + i));
        const unsigned zeros = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero)));
        if (zeros != 0) {
            return std::min(i + static_cast<std::size_t>(__builtin_ctz(zeros)), room);
        }
        i += 16;
    }
#endif
    while (i < room && name[i] != 0) {
        ++i;
    }
    return std::min(i, room);
}

TL_WALK_INLINE bool WidenAscii(const char* name, std::size_t length, std::size_t readable,
                               char16_t* out) noexcept {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (i < length && readable - i >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name + i));
        unsigned high = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        if (length - i < 16) {
            high &= (1u << (length - i)) - 1;  // the bytes past the name do not count
        }
        if (high != 0) {
            return false;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
        i += 16;
    }
#endif
    for (; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (byte >= 0x80) {
            return false;
        }
        out[i] = byte;
    }
    out[length] = u'\0';
    return true;
}

// Widens the zero-ended name at `name`, of at most `room` bytes, into `out` followed by a
// zero unit, finding its end on the way: one pass over the bytes for the length and the
// widening. False at a byte that is not ASCII before the end, or when the name would not fit
// the `outRoom` units of `out` (which takes 16 units past the name). `readable` bytes from
// `name` on may be read.
TL_WALK_INLINE bool WidenAsciiZeroEnded(const char* name, std::size_t room, std::size_t readable,
                                        char16_t* out, std::size_t outRoom,
                                        std::size_t& length) noexcept {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (i < room && readable - i >= 16 && i + 16 < outRoom) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name + i));
        const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        unsigned ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero)));
        if (room - i < 16) {
            ends |= 1u << (room - i);  // the name ends with its record at the latest
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
        if (ends != 0) {
            const unsigned end = static_cast<unsigned>(__builtin_ctz(ends));
            if ((high & ((1u << end) - 1)) != 0) {
                return false;
            }
            i += end;
            out[i] = u'\0';
            length = i;
            return true;
        }
        if (high != 0) {
            return false;
        }
        i += 16;
    }
#endif
    for (; i < room && name[i] != 0; ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (byte >= 0x80 || i + 1 >= outRoom) {
            return false;
        }
        out[i] = byte;
    }
    out[i] = u'\0';
    length = i;
    return true;
}

}  // namespace

bool WidenAsciiName(const char* name, std::size_t length, std::size_t readable,
                    char16_t* out) noexcept {
    return WidenAscii(name, length, readable, out);
}

bool MatchMask(std::u16string_view mask, std::u16string_view name) noexcept {
    // Greedy matching with one point to return to: the last '*' seen.
    std::size_t m = 0, n = 0, star = std::u16string_view::npos, resume = 0;
    while (n < name.size()) {
        if (m < mask.size() && (mask[m] == u'?' || mask[m] == name[n])) {
            ++m;
            ++n;
        } else if (m < mask.size() && mask[m] == u'*') {
            star = m++;
            resume = n;
        } else if (star != std::u16string_view::npos) {
            m = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (m < mask.size() && mask[m] == u'*') {
        ++m;
    }
    return m == mask.size();
}

nt_dir_iterator::~nt_dir_iterator() {
    CloseDirectory();
}

void nt_dir_iterator::CloseDirectory() {
    if (fd_ != Platform::kNoDir) {
        io_->CloseDir(fd_);
        fd_ = Platform::kNoDir;
    }
    reading_ = false;
}

bool nt_dir_iterator::Open(Platform::DirHandle at, const std::string& dirName,
                           const char* function) {
    const Platform::SystemError failure = io_->OpenDir(at, dirName, fd_);
    if (failure.Failed()) {
        RecordError(
            MakeSystemError(TL_ORIGIN(function), "openat", dirPath_.c_str(), failure, kReadFailed));
        return false;
    }
    return true;
}

void nt_dir_iterator::Start(Platform::DirHandle at, const std::string& dirName,
                            std::u16string dirPath, std::u16string mask) {
    mode_ = Mode::Listing;
    dirPath_ = std::move(dirPath);
    mask_ = mask == u"*" ? std::u16string() : std::move(mask);
    plainListing_ = mask_.empty();
    fullPath_.reserve(dirPath_.size() + 256);  // room for any name: no allocation per entry
    if (!Open(at, dirName, "nt_dir::GetIterator")) {
        return;
    }
    reading_ = true;
    if (!Fetch()) {
        return;
    }
    Load();
    if (!Matches()) {
        Next();
    } else {
        matchedAny_ = true;
    }
}

void nt_dir_iterator::StartAt(Platform::DirHandle at, const std::string& dirName,
                              std::u16string dirPath, std::string name) {
    mode_ = Mode::Single;
    dirPath_ = std::move(dirPath);
    if (!Open(at, dirName, "nt_dir::GetIterator")) {
        return;
    }
    single_ = std::move(name);
    Platform::EntryStatus status;
    const Platform::SystemError failure = io_->Status(fd_, single_.c_str(), false, status);
    if (failure.Failed()) {
        const std::u16string full = dirPath_ + NativeNameToWide(single_);
        RecordError(MakeSystemError(TL_ORIGIN("nt_dir::GetIterator"), "fstatat", full.c_str(),
                                    failure, kOpenFailed));
        return;
    }
    hasCurrent_ = true;
    name_ = single_.data();
    nameLength_ = single_.size();
    nameInBlock_ = false;
    type_ = TypeFromMode(status.Mode());
    inode_ = status.Inode();
    status_ = status;
    statusReady_ = true;
}

void nt_dir_iterator::StartSelf(Platform::DirHandle at, const std::string& dirName,
                                std::u16string dirPath, std::u16string displayName,
                                bool volume) {
    mode_ = volume ? Mode::Volume : Mode::Self;
    dirPath_ = std::move(dirPath);
    if (!Open(at, dirName, "nt_dir::GetSelfIterator")) {
        return;
    }
    Platform::EntryStatus status;
    const Platform::SystemError failure = io_->Status(fd_, "", false, status);
    if (failure.Failed()) {
        RecordError(MakeSystemError(TL_ORIGIN("nt_dir::GetSelfIterator"), "fstatat",
                                    dirPath_.c_str(), failure, kOpenFailed));
        return;
    }
    hasCurrent_ = true;
    single_.clear();  // the status is asked of the descriptor itself
    name_ = single_.data();
    nameLength_ = 0;
    nameInBlock_ = false;
    type_ = TypeFromMode(status.Mode());
    inode_ = status.Inode();
    status_ = status;
    statusReady_ = true;
    displayName_ = std::move(displayName);
    wide_ = displayName_;
    wideName_ = wide_.c_str();
    wideLength_ = wide_.size();
    wideReady_ = true;
}

bool nt_dir_iterator::Fetch() {
    if (InError() || !reading_) {
        Finish();
        RecordError(MakeFileError(TL_ORIGIN("nt_dir::iterator::Next"), kEndOfFile));
        return false;
    }
    std::size_t got = 0;
    const Platform::SystemError failure = io_->ReadEntries(fd_, buffer_, kBlockSize, got);
    if (failure.Failed()) {
        Finish();
        RecordError(MakeSystemError(TL_ORIGIN("nt_dir::iterator::Next"), "getdents64",
                                    dirPath_.c_str(), failure, kReadFailed));
        return false;
    }
    if (got == 0) {
        Finish();
        if (!mask_.empty() && !matchedAny_) {
            // Nothing matched the pattern: the pattern names a file that is not there.
            const std::u16string full = dirPath_ + mask_;
            RecordError(Common::Error::WithFunctionAndPath(
                TL_ORIGIN("nt_dir::GetIterator"), kFileNotFound.Code,
                Common::GetMessageRow(kFileNotFound.Row), "getdents64", full.c_str()));
        } else {
            RecordError(MakeFileError(TL_ORIGIN("nt_dir::iterator::Next"), kEndOfFile));
        }
        return false;
    }
    filled_ = got;
    pos_ = 0;
    return true;
}

void nt_dir_iterator::ForgetEntry() {
    wideReady_ = false;
    statusReady_ = false;
    targetReady_ = false;
    fullPathReady_ = false;
}

void nt_dir_iterator::Finish() {
    hasCurrent_ = false;
    name_ = nullptr;
    nameLength_ = 0;
    ForgetEntry();
    CloseDirectory();
}

TL_WALK_INLINE void nt_dir_iterator::Load() {
    const unsigned char* record = buffer_ + pos_;
    inode_ = Load64(record + Platform::DirRecordLayout::kInode);
    type_ = record[Platform::DirRecordLayout::kType];
    name_ = reinterpret_cast<const char*>(record + Platform::DirRecordLayout::kName);
    const std::size_t length = Load16(record + Platform::DirRecordLayout::kLength);
    // The name ends within its record, and a record that claims more than the block holds
    // is read no further than the block's filled part.
    const std::size_t start = pos_ + Platform::DirRecordLayout::kName;
    const std::size_t room = std::min(
        length > Platform::DirRecordLayout::kName ? length - Platform::DirRecordLayout::kName : 0,
        filled_ - start);
    nameRoom_ = room;
    nameLength_ = kLengthUnknown;
    nameInBlock_ = true;
    hasCurrent_ = true;
    ForgetEntry();
}

TL_WALK_INLINE bool nt_dir_iterator::IsDotEntry() const noexcept {
    // "." and "..", told apart from longer names without the length.
    return nameRoom_ > 0 && name_[0] == '.' &&
           (nameRoom_ == 1 || name_[1] == '\0' ||
            (name_[1] == '.' && (nameRoom_ == 2 || name_[2] == '\0')));
}

TL_WALK_INLINE bool nt_dir_iterator::Matches() {
    if (IsDotEntry()) {
        return false;
    }
    return mask_.empty() || MatchMask(mask_, GetName());
}

TL_WALK_HOT bool nt_dir_iterator::Next() {
    // The common step of a listing without a mask: from one entry of the block to the next,
    // which is not "." or "..". It needs no frame of its own.
    if (hasCurrent_ && plainListing_ && Clean()) {
        const std::size_t length = Load16(buffer_ + pos_ + Platform::DirRecordLayout::kLength);
        const std::size_t next = pos_ + length;
        if (length != 0 && next + Platform::DirRecordLayout::kName < filled_) {
            pos_ = next;
            Load();
            if (!IsDotEntry()) {
                matchedAny_ = true;
                return true;
            }
        }
    }
    return Step();
}

[[gnu::noinline]] bool nt_dir_iterator::Step() {
    if (InError()) {
        if (!entryFailed_) {
            return false;
        }
        ClearError();
        entryFailed_ = false;
    }
    if (mode_ != Mode::Listing) {
        Finish();
        RecordError(MakeFileError(TL_ORIGIN(mode_ == Mode::Volume
                                                ? "nt_dir::volume_self_iterator::Next"
                                                : "nt_dir::iterator::Next"),
                                  kEndOfFile));
        return false;
    }
    for (;;) {
        if (!hasCurrent_) {
            if (!Fetch()) {
                return false;
            }
        } else {
            const std::size_t length = Load16(buffer_ + pos_ + Platform::DirRecordLayout::kLength);
            pos_ += length;
            // A record that claims no room, or more than the block holds, ends the block.
            if (length == 0 || pos_ + Platform::DirRecordLayout::kName >= filled_) {
                hasCurrent_ = false;
                if (!Fetch()) {
                    return false;
                }
            }
        }
        if (pos_ + Platform::DirRecordLayout::kName >= filled_) {
            hasCurrent_ = false;
            continue;
        }
        Load();
        if (Matches()) {
            matchedAny_ = true;
            return true;
        }
    }
}

std::size_t nt_dir_iterator::NameSize() const noexcept {
    if (nameLength_ == kLengthUnknown) {
        const auto* name = reinterpret_cast<const unsigned char*>(name_);
        nameLength_ = NameLength(name, nameRoom_, kBlockSize - static_cast<std::size_t>(name - buffer_));
    }
    return nameLength_;
}

std::string_view nt_dir_iterator::NativeName() const noexcept {
    return hasCurrent_ && !InError() ? std::string_view(name_, NameSize()) : std::string_view();
}

TL_WALK_INLINE bool nt_dir_iterator::WidenShortName() noexcept {
    // An ASCII name of fewer than 16 bytes in the block (nearly every name), not asked for
    // yet, widened with its end found in the same 16 bytes; false leaves it to WideName.
#if defined(__SSE2__)
    const auto* name = reinterpret_cast<const unsigned char*>(name_);
    if (nameLength_ != kLengthUnknown ||
        kBlockSize - static_cast<std::size_t>(name - buffer_) < 16) {
        return false;
    }
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(name));
    const unsigned ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero))) |
                          (1u << std::min<std::size_t>(nameRoom_, 16));
    const unsigned end = static_cast<unsigned>(__builtin_ctz(ends));
    const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(bytes));
    if (end >= 16 || (high & ((1u << end) - 1)) != 0) {
        return false;
    }
    _mm_store_si128(reinterpret_cast<__m128i*>(asciiWide_), _mm_unpacklo_epi8(bytes, zero));
    _mm_store_si128(reinterpret_cast<__m128i*>(asciiWide_ + 8), _mm_unpackhi_epi8(bytes, zero));
    asciiWide_[end] = u'\0';
    nameLength_ = end;
    wideName_ = asciiWide_;
    wideLength_ = end;
    wideReady_ = true;
    return true;
#else
    return false;
#endif
}

TL_WALK_HOT const char16_t* nt_dir_iterator::GetName() {
    if (hasCurrent_ && !wideReady_ && Clean() && WidenShortName()) {
        return asciiWide_;
    }
    return WideName();
}

[[gnu::noinline]] const char16_t* nt_dir_iterator::WideName() {
    if (InError() || !hasCurrent_) {
        return nullptr;
    }
    if (!wideReady_) {
        // A name in the block may be read 16 bytes at a time up to the block's end.
        const std::size_t readable =
            nameInBlock_ ? kBlockSize - static_cast<std::size_t>(
                                            reinterpret_cast<const unsigned char*>(name_) - buffer_)
                         : nameLength_;
        std::size_t length = 0;
        if (nameLength_ == kLengthUnknown &&
            WidenAsciiZeroEnded(name_, nameRoom_, readable, asciiWide_, kAsciiRoom, length)) {
            nameLength_ = length;
            wideName_ = asciiWide_;
            wideLength_ = nameLength_;
        } else if (NameSize() + 16 <= kAsciiRoom &&
                   WidenAscii(name_, nameLength_, readable, asciiWide_)) {
            wideName_ = asciiWide_;
            wideLength_ = nameLength_;
        } else {
            WidenNativeName(std::string_view(name_, nameLength_), wide_);
            wideName_ = wide_.c_str();
            wideLength_ = wide_.size();
        }
        wideReady_ = true;
    }
    return wideName_;
}

file_identifier* nt_dir_iterator::GetIdentifier() {
    const char16_t* name = GetName();
    if (name == nullptr) {
        return nullptr;
    }
    return new the_identifier(name, name_, NameSize());
}

const char16_t* nt_dir_iterator::GetFullPath() {
    const char16_t* name = GetName();
    if (name == nullptr) {
        return nullptr;
    }
    if (!fullPathReady_) {
        // Built in the storage of the one before, so that asking costs no allocation.
        fullPath_.assign(dirPath_);
        if (mode_ != Mode::Self && mode_ != Mode::Volume) {
            fullPath_.append(name);
        }
        fullPathReady_ = true;
    }
    return fullPath_.c_str();
}

TL_WALK_INLINE const Platform::EntryStatus* nt_dir_iterator::StatusInPlace() {
    if (statusReady_ && !InError()) {
        return &status_;
    }
    if (InError() || !hasCurrent_) {
        return nullptr;
    }
    const Platform::SystemError failure = systemIo_
                                              ? Platform::SystemStatus(fd_, name_, false, status_)
                                              : io_->Status(fd_, name_, false, status_);
    if (failure.Failed()) {
        RecordStatusFailure(failure);
        return nullptr;
    }
    statusReady_ = true;
    return &status_;
}

[[gnu::noinline]] const Platform::EntryStatus* nt_dir_iterator::LoadStatus() {
    return StatusInPlace();
}

[[gnu::cold]] void nt_dir_iterator::RecordStatusFailure(Platform::SystemError failure) {
    entryFailed_ = true;
    RecordError(MakeSystemError(TL_ORIGIN("nt_dir::iterator::GetStatus"), "fstatat",
                                GetFullPath(), failure, kOpenFailed));
}

namespace {

// The entry class of each type of record.
constexpr std::uint8_t kEntryClass[16] = {
    entry_other, entry_other, entry_other, entry_other, entry_dir,   entry_other,
    entry_other, entry_other, entry_file,  entry_other, entry_link,  entry_other,
    entry_other, entry_other, entry_other, entry_other};

}  // namespace

TL_WALK_HOT std::uint32_t nt_dir_iterator::GetType() {
    if (hasCurrent_ && type_ != Platform::kTypeUnknown && type_ < 16 && Clean()) {
        return kEntryClass[type_];
    }
    return TypeOfStatus();
}

[[gnu::noinline]] std::uint32_t nt_dir_iterator::TypeOfStatus() {
    if (InError() || !hasCurrent_) {
        return entry_other;
    }
    unsigned char type = type_;
    if (type == Platform::kTypeUnknown) {
        const Platform::EntryStatus* s = Status();
        type = s != nullptr ? TypeFromMode(s->Mode()) : static_cast<unsigned char>(Platform::kTypeUnknown);
    }
    switch (type) {
        case Platform::kTypeFile:
            return entry_file;
        case Platform::kTypeDir:
            return entry_dir;
        case Platform::kTypeLink:
            return entry_link;
        default:
            return entry_other;
    }
}

std::uint32_t nt_dir_iterator::GetAttributes() {
    if (InError() || !hasCurrent_) {
        return 0;
    }
    std::uint32_t attributes = 0;
    switch (GetType()) {
        case entry_dir:
            attributes = kAttributeDirectory;
            break;
        case entry_link:
            attributes = kAttributeReparsePoint;
            break;
        case entry_file:
            // What the system's record tells of a file beyond its class comes from its status:
            // read-only when no one may write it, sparse when it takes less than its length.
            if (const Platform::EntryStatus* s = Status()) {
                if ((s->Mode() & 0222) == 0) {
                    attributes |= kAttributeReadOnly;
                }
                if (s->Allocated() < s->Size()) {
                    attributes |= kAttributeSparse;
                }
            }
            break;
        default:
            break;
    }
    if (NameSize() > 0 && name_[0] == '.') {
        attributes |= kAttributeHidden;
    }
    return attributes == 0 ? kAttributeNormal : attributes;  // "normal" stands only alone
}

TL_WALK_HOT bool nt_dir_iterator::GetEntryInfo(dir_entry_info& info) {
    // The common case in one pass: a clean iterator on an entry of the block whose record
    // tells its type.
    if (hasCurrent_ && type_ != Platform::kTypeUnknown && type_ < 16 && Clean()) {
        if (wideReady_ || WidenShortName()) {
            info.Name = wideName_;
            info.NameLength = wideLength_;
        } else {
            info.Name = WideName();
            info.NameLength = wideLength_;
        }
        info.Type = kEntryClass[type_];
        if (!statusReady_) {
            const Platform::SystemError failure =
                systemIo_ ? Platform::SystemStatus(fd_, name_, false, status_)
                          : io_->Status(fd_, name_, false, status_);
            if (failure.Failed()) {
                RecordStatusFailure(failure);
                info.Size = 0;
                info.WriteTime = 0;
                return false;
            }
            statusReady_ = true;
        }
        info.Size = status_.Size();
        info.WriteTime = status_.WriteMs();
        return true;
    }
    return EntryInfoByGetters(info);
}

[[gnu::noinline]] bool nt_dir_iterator::EntryInfoByGetters(dir_entry_info& info) {
    // The getters of this final class, called without the virtual dispatch.
    info.Name = GetName();
    info.NameLength = info.Name != nullptr ? wideLength_ : 0;
    info.Type = GetType();
    const Platform::EntryStatus* s = StatusInPlace();
    info.Size = s != nullptr ? s->Size() : 0;
    info.WriteTime = s != nullptr ? s->WriteMs() : 0;
    return !InError();
}

TL_WALK_HOT std::uint64_t nt_dir_iterator::GetSize() {
    if (statusReady_ && Clean()) {
        return status_.Size();
    }
    const Platform::EntryStatus* s = StatusInPlace();
    return s != nullptr ? s->Size() : 0;
}

std::uint64_t nt_dir_iterator::GetAllocatedSize() {
    const Platform::EntryStatus* s = StatusInPlace();
    return s != nullptr ? s->Allocated() : 0;
}

std::int64_t nt_dir_iterator::GetCreationTime() {
    const Platform::EntryStatus* s = StatusInPlace();
    return s != nullptr ? s->BirthMs() : 0;
}

std::int64_t nt_dir_iterator::GetAccessTime() {
    const Platform::EntryStatus* s = StatusInPlace();
    return s != nullptr ? s->AccessMs() : 0;
}

TL_WALK_HOT std::int64_t nt_dir_iterator::GetWriteTime() {
    if (statusReady_ && Clean()) {
        return status_.WriteMs();
    }
    const Platform::EntryStatus* s = LoadStatus();
    return s != nullptr ? s->WriteMs() : 0;
}

std::uint64_t nt_dir_iterator::GetLinkCount() {
    // With an error present the count is 1, the count of an ordinary file.
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->Links() : 1;
}

std::uint64_t nt_dir_iterator::GetUnixMode() {
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->Mode() : kUnknown;
}

std::uint64_t nt_dir_iterator::GetUnixOwner() {
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->Owner() : kUnknown;
}

std::uint64_t nt_dir_iterator::GetUnixGroup() {
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->Group() : kUnknown;
}

std::uint64_t nt_dir_iterator::GetRawDevice() {
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->RawDevice() : kUnknown;
}

const char16_t* nt_dir_iterator::GetSymLinkTarget() {
    if (InError() || !hasCurrent_ || GetType() != entry_link) {
        return nullptr;
    }
    if (!targetReady_) {
        std::string target;
        const Platform::SystemError failure =
            io_->ReadLink(fd_, std::string(name_, NameSize()), target);
        if (failure.Failed()) {
            entryFailed_ = true;
            RecordError(MakeSystemError(TL_ORIGIN("nt_dir::iterator::GetSymLinkTarget"),
                                        "readlinkat", GetFullPath(), failure, kOpenFailed));
            return nullptr;
        }
        // A relative target stays relative: it is kept exactly as the link holds it.
        target_ = NativeNameToWide(target);
        targetReady_ = true;
    }
    return target_.c_str();
}

const char16_t* nt_dir_iterator::GetExtendedName() {
    return nullptr;
}

std::uint64_t nt_dir_iterator::GetInodeId() {
    return InError() || !hasCurrent_ ? 0 : inode_;
}

std::uint64_t nt_dir_iterator::GetDeviceId() {
    const Platform::EntryStatus* s = Status();
    return s != nullptr ? s->Device() : 0;
}

}  // namespace File
