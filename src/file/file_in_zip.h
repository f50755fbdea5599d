#pragma once

#include <cstdint>
#include <memory>

#include <zlib.h>

#include "file/zip_file.h"

namespace File {

// An opened archive entry, stored or deflated, read front to back. It cannot rewind or seek.
// Each read takes the archive's lock and seeks to where this entry stopped, so that several
// entries of one archive may be read at once.
class file_in_zip final : public si_file {
public:
    // Checks the entry's local header against its central record; a failure stays recorded
    // in the new entry.
    file_in_zip(std::shared_ptr<zip_file_state> state, const unsigned char* record);
    ~file_in_zip() override;

    // Delivers up to `count` bytes. The read after the last byte compares the checksum: a
    // difference records 0x4000d "The file is corrupted.".
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override;
    // Always 0x4000e "The operation is not supported.".
    bool Rewind() override;
    // The entry's uncompressed size.
    std::uint64_t Size() override { return size_; }

private:
    // Size of the compressed input buffer of a deflated entry.
    static constexpr std::uint32_t kInputBlock = 32768;

    void ReadLocalHeader();
    void StartInflate();
    std::uint64_t ReadStored(unsigned char* to, std::uint64_t want);
    std::uint64_t ReadDeflated(unsigned char* to, std::uint64_t want);

    std::shared_ptr<zip_file_state> state_;
    zip_central_entry entry_;
    std::unique_ptr<z_stream> stream_;  // null for a stored entry
    std::unique_ptr<unsigned char[]> input_;
    std::int64_t header_position_ = 0;
    std::uint64_t data_position_ = 0;
    std::uint32_t crc_ = 0;
    std::uint64_t compressed_left_ = 0;
    std::uint64_t uncompressed_left_ = 0;
    std::uint64_t size_ = 0;
};

}  // namespace File
