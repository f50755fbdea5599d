#include <tessel_link/file/file_object.h>

#include <tessel_link/common/messages.h>

#include "file/file_errors.h"

namespace File {

Common::Error MakeFileError(const Common::ErrorOrigin& origin, FileErrorCode code) {
    return Common::Error(origin, code.Code, Common::GetMessageRow(code.Row));
}

file_object::~file_object() = default;

void file_object::RecordError(const Common::Error& error) noexcept {
    if (!Failed()) {
        error_ = error;
    }
}

void file_object::RecordNotSupported(const Common::ErrorOrigin& origin) noexcept {
    if (!Failed()) {
        error_ = MakeFileError(origin, kNotSupported);
    }
}

bool file_object::IOCTL(ioctl_command&) {
    RecordNotSupported(TL_ORIGIN("file_object::IOCTL"));
    return false;
}

bool i_file::ReadExact(void* buffer, std::uint64_t count) {
    std::uint64_t read = 0;
    Read(buffer, count, read);
    if (Failed()) {
        return false;
    }
    if (read < count) {
        SetError(MakeFileError(TL_ORIGIN("i_file::Read"), kEndOfFile));
        return false;
    }
    return true;
}

bool o_file::Flush() {
    return !Failed();
}

bool raccess_file::Unlock(std::uint64_t, std::uint64_t) {
    RecordNotSupported(TL_ORIGIN("raccess_file::Unlock"));
    return false;
}

bool raccess_file::Rewind() {
    Seek(0);
    return !Failed();
}

std::uint64_t raccess_file::Size() {
    const std::uint64_t position = SeekRel(0);
    if (Failed()) {
        return 0;
    }
    const std::uint64_t size = SeekEnd(0);
    Seek(position);
    return Failed() ? 0 : size;
}

bool ri_file::LockShared(std::uint64_t, std::uint64_t) {
    RecordNotSupported(TL_ORIGIN("ri_file::LockShared"));
    return false;
}

bool ro_file::LockExclusive(std::uint64_t, std::uint64_t) {
    RecordNotSupported(TL_ORIGIN("ro_file::LockExclusive"));
    return false;
}

}  // namespace File
