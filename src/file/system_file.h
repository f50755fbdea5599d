#pragma once

#include <memory>
#include <string>

#include <tessel_link/file/file_object.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/file/token_substitution.h>

#include "file/file_errors.h"
#include "platform/file_io.h"

namespace File {

// A file of the operating system over an open handle. Transfers are cut at 0x7ffff000 bytes
// and retried in smaller pieces when the system runs short, so that a backup on a loaded
// machine finishes instead of failing at the first refusal.
class system_file : public rio_file {
public:
    // The largest piece of one transfer: the most that one read or write of the kernel moves
    // (a larger one comes back short, and a short read is the end of the file). A multiple
    // of every sector size.
    static constexpr std::uint64_t kLargestTransfer = 0x7ffff000u;
    // The smallest piece that a read runs short of resources is halved to.
    static constexpr std::uint64_t kSmallestReadPiece = 4096;
    // Ranges that the first ask for the allocation map has room for.
    static constexpr std::size_t kFirstRangeCapacity = 16;

    // Takes over `handle`, which `io` opened for `path`. With a `token`, every system call
    // runs in a scope of that user.
    system_file(Platform::FileIo& io, Platform::FileHandle handle, std::u16string path,
                std::shared_ptr<SubstToken> token = nullptr)
        : io_(io), handle_(handle), token_(std::move(token)), path_(std::move(path)) {}
    ~system_file() override;

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override;
    bool Write(const void* buffer, std::uint64_t count, std::uint64_t& written) override;
    bool Flush() override;
    std::uint64_t Seek(std::uint64_t position) override;
    std::uint64_t SeekRel(std::int64_t delta) override;
    std::uint64_t SeekEnd(std::int64_t delta) override;
    bool Truncate() override;
    bool LockShared(std::uint64_t offset, std::uint64_t length) override;
    bool LockExclusive(std::uint64_t offset, std::uint64_t length) override;
    bool Unlock(std::uint64_t offset, std::uint64_t length) override;
    bool IOCTL(ioctl_command& command) override;

    // The allocated ranges that meet [start, start + length) as an owned block: a count word
    // and that many (offset, length) pairs. Null with the error recorded on failure.
    std::unique_ptr<std::uint64_t[]> GetAllocationMap(std::uint64_t start, std::uint64_t length);
    bool SetCompressAttributes(bool compressed);

    const std::u16string& Path() const noexcept { return path_; }

protected:
    // The rules of a write: pieces are multiples of `alignment`, and `unbuffered` adds the
    // failures of unbuffered handles to those that are retried.
    bool WritePieces(const void* buffer, std::uint64_t count, std::uint64_t& written,
                     std::uint64_t alignment, bool unbuffered, const char* function);
    // Records the failure of the system call named `function`.
    bool Fail(const char* origin, const char* function, const Platform::SystemError& failure,
              FileErrorCode fallback);

    // The scope of the file's token for one operation; false when it could not be entered,
    // with the reason recorded in the file.
    class scope {
    public:
        explicit scope(system_file& file) : executor_(file.token_, entered_) {
            if (entered_.Failed()) {
                file.RecordError(entered_);
            }
        }
        explicit operator bool() const noexcept { return !entered_.Failed(); }

    private:
        Common::Error entered_;
        TokenSubstitutionExecutor executor_;
    };

    Platform::FileIo& io_;
    Platform::FileHandle handle_;
    std::shared_ptr<SubstToken> token_;

private:
    std::uint64_t Move(std::int64_t offset, Platform::SeekOrigin origin, const char* origin_name);
    bool FailFixed(const char* origin, const char* function, const Platform::SystemError& failure,
                   FileErrorCode code);

    std::u16string path_;
    std::uint64_t position_ = 0;
};

// A system file opened past the cache: writes go in multiples of the sector size.
class nocache_file final : public system_file {
public:
    nocache_file(Platform::FileIo& io, Platform::FileHandle handle, std::u16string path,
                 std::uint32_t alignment, std::shared_ptr<SubstToken> token = nullptr)
        : system_file(io, handle, std::move(path), std::move(token)), alignment_(alignment) {}

    bool Write(const void* buffer, std::uint64_t count, std::uint64_t& written) override;
    std::uint32_t Alignment() const noexcept { return alignment_; }

private:
    std::uint32_t alignment_;
};

// The alignment of unbuffered transfers where the medium tells none.
inline constexpr std::uint32_t kDefaultNoCacheAlignment = 4096;

// How a file is opened in each mode, and the code of its failure.
struct OpenRule {
    Platform::FileAccess Access = Platform::FileAccess::ReadWrite;
    Platform::FileDisposition Disposition = Platform::FileDisposition::OpenExisting;
    FileErrorCode Fallback = kOpenFailed;
};
OpenRule RuleOf(open_mode mode);

// The unbuffered file over `handle`, opened past the cache, with the alignment its medium
// asks for.
std::unique_ptr<nocache_file> MakeNoCacheFile(Platform::FileIo& io, Platform::FileHandle handle,
                                              const std::u16string& path,
                                              const std::shared_ptr<SubstToken>& token);

// Opens `path` through `io`, as the user of `token` when there is one; null with `error` set
// on failure.
std::unique_ptr<rio_file> OpenFile(Platform::FileIo& io, const std::u16string& path, open_mode mode,
                                   Common::Error& error,
                                   const std::shared_ptr<SubstToken>& token = nullptr);
std::unique_ptr<rio_file> OpenNoCacheFile(Platform::FileIo& io, const std::u16string& path,
                                          open_mode mode, Common::Error& error,
                                          const std::shared_ptr<SubstToken>& token = nullptr);

}  // namespace File
