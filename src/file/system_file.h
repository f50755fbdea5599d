#pragma once

#include <string>

#include <tessel_link/file/file_object.h>

#include <tessel_link/file/system_file.h>

#include "file/file_errors.h"
#include "platform/file_system.h"

namespace File {

// A file of the operating system, through the platform's FileSystem.
class system_file final : public rio_file {
public:
    // Takes over `handle`, which `files` opened for `path`.
    system_file(Platform::FileSystem& files, Platform::FileHandle handle, std::u16string path)
        : files_(files), handle_(handle), path_(std::move(path)) {}
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

    const std::u16string& Path() const noexcept { return path_; }

private:
    std::uint64_t Move(std::int64_t offset, Platform::SeekOrigin origin, const char* function);
    // Records the failure of the system call `call`, made in `function`.
    bool Fail(const char* function, const char* call, const Platform::SystemError& failure,
              FileErrorCode fallback);

    Platform::FileSystem& files_;
    Platform::FileHandle handle_;
    std::u16string path_;
    std::uint64_t position_ = 0;
};

// Opens `path` through `files`; null with `error` set on failure.
std::unique_ptr<rio_file> OpenFile(Platform::FileSystem& files, const std::u16string& path,
                                   open_mode mode, Common::Error& error);

}  // namespace File
