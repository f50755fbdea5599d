#pragma once

// The iterator of system directories. It reads the directory one 8 KiB block of raw
// records at a time and answers name, type and inode from the block; everything else that
// an entry has (size, times, link count, owner, link target) costs a call and is asked for
// only when wanted, once per position.

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/file/dir_object.h>

#include "file/token_scoped_dir_io.h"
#include "platform/dir_io.h"

namespace File {

class nt_dir_iterator final : public i_dir::iterator {
public:
    static constexpr std::size_t kBlockSize = 8192;

    // `io` is shared with the directory that made the iterator, which may go first.
    explicit nt_dir_iterator(SharedDirIo io)
        : io_(std::move(io)), systemIo_(io_.get() == &Platform::SystemDirIo()) {}
    explicit nt_dir_iterator(Platform::DirIo& io)
        : io_(Unowned(io)), systemIo_(&io == &Platform::SystemDirIo()) {}
    ~nt_dir_iterator() override;

    // Opens the directory `dirName` relative to `at` and stands on its first entry that
    // matches `mask` ("*" and "?" wildcards; empty or "*" matches all). `dirPath` is the
    // directory's path ending in '/', for messages and full paths.
    void Start(Platform::DirHandle at, const std::string& dirName, std::u16string dirPath,
               std::u16string mask);
    // Stands on the one entry `name` of the directory (no wildcards). A missing entry
    // records 0x40011 with the name.
    void StartAt(Platform::DirHandle at, const std::string& dirName, std::u16string dirPath,
                 std::string name);
    // Stands on the directory itself, as entry `displayName`; `volume` when the directory
    // is the root of a mount.
    void StartSelf(Platform::DirHandle at, const std::string& dirName, std::u16string dirPath,
                   std::u16string displayName, bool volume);

    bool Next() override;
    file_identifier* GetIdentifier() override;
    const char16_t* GetName() override;
    std::uint32_t GetAttributes() override;
    const char16_t* GetFullPath() override;
    std::uint32_t GetType() override;
    std::uint64_t GetSize() override;
    std::int64_t GetCreationTime() override;
    std::int64_t GetAccessTime() override;
    std::int64_t GetWriteTime() override;
    std::uint64_t GetLinkCount() override;
    std::uint64_t GetUnixMode() override;
    std::uint64_t GetUnixOwner() override;
    std::uint64_t GetUnixGroup() override;
    std::uint64_t GetRawDevice() override;
    const char16_t* GetSymLinkTarget() override;
    const char16_t* GetExtendedName() override;
    std::uint64_t GetInodeId() override;
    std::uint64_t GetDeviceId() override;
    bool GetEntryInfo(dir_entry_info& info) override;

    // Bytes of storage of the entry (0 when unknown or in error).
    std::uint64_t GetAllocatedSize();
    // The current entry's name as the system has it; empty at the end or in error.
    std::string_view NativeName() const noexcept;
    // The directory's descriptor, against which NativeName resolves; kNoDir after the end.
    Platform::DirHandle Directory() const noexcept { return fd_; }
    const std::u16string& DirectoryPath() const noexcept { return dirPath_; }
    bool HasEntry() const noexcept { return hasCurrent_; }

private:
    enum class Mode { Listing, Single, Self, Volume };

    // The whole of Next, GetName and GetType, for what their quick paths leave.
    bool Step();
    const char16_t* WideName();
    bool WidenShortName() noexcept;
    bool EntryInfoByGetters(dir_entry_info& info);
    std::uint32_t TypeOfStatus();
    bool Open(Platform::DirHandle at, const std::string& dirName, const char* function);
    // Reads the next block; false at the end or on failure, with the reason recorded.
    bool Fetch();
    // Takes the record at pos_ as the current entry.
    void Load();
    bool Matches();
    bool IsDotEntry() const noexcept;
    // The length of the current name.
    std::size_t NameSize() const noexcept;
    static constexpr std::size_t kLengthUnknown = ~std::size_t{0};
    void Finish();  // no current entry and no more reads
    void ForgetEntry();
    // The status of the current entry, asked for once per position; null in error.
    const Platform::EntryStatus* Status() {
        return statusReady_ && !InError() ? &status_ : LoadStatus();
    }
    const Platform::EntryStatus* LoadStatus();
    // The same, made in the caller's frame: the getters that a walk uses most take the
    // status straight from the system call, without a frame to return through after it.
    const Platform::EntryStatus* StatusInPlace();
    void RecordStatusFailure(Platform::SystemError failure);
    void CloseDirectory();

    // Whether no error at all is recorded: the quick paths take only a clean iterator.
    bool Clean() const noexcept { return GetError().Empty(); }
    // Whether a failure is recorded; a clean iterator answers without a call.
    bool InError() const noexcept {
        const Common::Error& error = GetError();
        return !error.Empty() && error.Failed();
    }

    // What every entry touches comes first, in few cache lines: the system call for the
    // status of an entry evicts much of what the walk had in the caches.
    SharedDirIo io_;
    bool systemIo_ = false;  // io_ is the system's own, which the status call may bypass
    Platform::DirHandle fd_ = Platform::kNoDir;
    Mode mode_ = Mode::Listing;
    bool plainListing_ = false;  // a listing without a mask, which Next steps through quickly
    bool reading_ = false;  // more blocks to read
    bool hasCurrent_ = false;
    bool matchedAny_ = false;
    // The current entry.
    bool nameInBlock_ = false;  // name_ points into buffer_
    unsigned char type_ = 0;
    // Filled on demand for the current entry. An ASCII name (nearly all of them) is widened
    // into asciiWide_, any other into wide_; wideName_ points at the one in use.
    bool wideReady_ = false;
    bool statusReady_ = false;
    // The recorded error is the status of the current entry failing (the entry may have gone
    // since its block was read): it tells the caller, and does not end the walk.
    bool entryFailed_ = false;
    bool targetReady_ = false;
    bool fullPathReady_ = false;
    std::size_t filled_ = 0;
    std::size_t pos_ = 0;
    const char* name_ = nullptr;
    // The length of a name in the block is found when first wanted, often while widening it:
    // a walk that only asks for the status never scans the name.
    mutable std::size_t nameLength_ = 0;
    std::size_t nameRoom_ = 0;  // bytes that the name in the block may take
    std::uint64_t inode_ = 0;
    const char16_t* wideName_ = nullptr;
    std::size_t wideLength_ = 0;  // of wideName_, in units
    Platform::EntryStatus status_;
    std::u16string mask_;
    std::u16string fullPath_;
    static constexpr std::size_t kAsciiRoom = 256 + 16;
    alignas(16) char16_t asciiWide_[kAsciiRoom];

    std::u16string dirPath_;
    std::string single_;  // the name when not in the buffer
    std::u16string displayName_;
    std::u16string wide_;
    std::u16string target_;
    alignas(16) unsigned char buffer_[kBlockSize];
};

// Replaces `out` with the wide form of the system name `name` (see NativeNameToWide),
// reusing its storage.
void WidenNativeName(std::string_view name, std::u16string& out);

// Widens the `length` bytes at `name` into `out` followed by a zero unit, when they are all
// ASCII; false (with `out` overwritten) at the first byte that is not. `readable` bytes from
// `name` on may be read (at least `length`): the bytes go 16 at a time where a whole block of
// 16 is readable, and what lies past the name is ignored. `out` has room for `length` + 16
// units.
bool WidenAsciiName(const char* name, std::size_t length, std::size_t readable,
                    char16_t* out) noexcept;

// True when `name` matches `mask`: '*' any run of characters, '?' one character.
bool MatchMask(std::u16string_view mask, std::u16string_view name) noexcept;

}  // namespace File
