#pragma once

// File objects: the common base with its sticky error, and the reading, writing and seeking
// interfaces.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace File {

// The argument of IOCTL: a record whose first field is a command code of four ASCII letters
// in memory order. Commands with arguments derive from it and add their fields.
struct ioctl_command {
    std::uint32_t Code = 0;  // the four letters, first letter in the low byte
};

// The one virtual base of every file and directory object.
//
// Operations never throw. A failure is recorded in the object, where it sticks until it is
// cleared, and the caller reads the result from the value returned and the reason from
// GetError(). Once an object is in error, most operations return at once without doing
// anything, so a sequence of calls can be checked once at its end.
class TL_API file_object {
public:
    file_object() = default;
    file_object(const file_object&) = delete;
    file_object& operator=(const file_object&) = delete;
    virtual ~file_object();

    // Handles a command that the class knows and hands any other to its base. This default
    // knows none: it records 0x4000e, unless the object is already in error.
    virtual bool IOCTL(ioctl_command& command);

    // The failure recorded, or success.
    const Common::Error& GetError() const noexcept { return error_; }
    // Whether a failure is recorded; a clean object answers without a call.
    bool Failed() const noexcept { return !error_.Empty() && error_.Failed(); }
    // Forgets a recorded failure, for a caller that retries.
    void ClearError() noexcept { error_ = Common::ErrorSuccess; }

protected:
    // Replaces whatever was recorded.
    void SetError(const Common::Error& error) noexcept { error_ = error; }
    // Records `error` only on a clean object, so that the first reason is kept.
    void RecordError(const Common::Error& error) noexcept;
    // Records 0x4000e "The operation is not supported." made at `origin`, unless the object
    // is already in error.
    void RecordNotSupported(const Common::ErrorOrigin& origin) noexcept;

private:
    Common::Error error_;
};

// Sequential input.
class TL_API i_file : public virtual file_object {
public:
    // Reads up to `count` bytes. Reading at the end gives 0 bytes and no error; a count of 0
    // returns at once. Returns false when the object is in error afterwards.
    virtual bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) = 0;

    // One Read that must deliver all `count` bytes: a short read records 0x40002 "The end of
    // the file has been reached." (origin "i_file::Read"), unless the read itself failed.
    bool ReadExact(void* buffer, std::uint64_t count);
};

// Sequential output.
class TL_API o_file : public virtual file_object {
public:
    // Writes up to `count` bytes; `written` says how many went.
    virtual bool Write(const void* buffer, std::uint64_t count, std::uint64_t& written) = 0;
    // Pushes buffered data to the medium. The default has nothing to push.
    virtual bool Flush();
};

// A file whose length is known and that can start over.
class TL_API sized_file : public virtual file_object {
public:
    virtual bool Rewind() = 0;  // back to the start
    virtual std::uint64_t Size() = 0;  // the length in bytes
};

class TL_API si_file : public i_file, public virtual sized_file {};

// Random access: positions, and the locks that only some media have.
class TL_API raccess_file : public virtual sized_file {
public:
    // Each returns the new position.
    virtual std::uint64_t Seek(std::uint64_t position) = 0;
    // Moves by `delta` from the current position.
    virtual std::uint64_t SeekRel(std::int64_t delta) = 0;
    virtual std::uint64_t SeekEnd(std::int64_t delta) = 0;  // moves to `delta` from the end
    // Releases a lock taken by LockShared or LockExclusive. The default records 0x4000e
    // unless the object is already in error.
    virtual bool Unlock(std::uint64_t offset, std::uint64_t length);

    // Seek(0).
    bool Rewind() override;
    // The length, found by seeking to the end; the position is left where it was.
    std::uint64_t Size() override;
};

// A file that can be read at any position.
class TL_API ri_file : public si_file, public virtual raccess_file {
public:
    // The default records 0x4000e unless the object is already in error.
    virtual bool LockShared(std::uint64_t offset, std::uint64_t length);
};

// A file that can be written at any position.
class TL_API ro_file : public o_file, public virtual raccess_file {
public:
    // Ends the file at the current position.
    virtual bool Truncate() = 0;
    // The default records 0x4000e unless the object is already in error.
    virtual bool LockExclusive(std::uint64_t offset, std::uint64_t length);
};

class TL_API rio_file : public ri_file, public ro_file {};

}  // namespace File
