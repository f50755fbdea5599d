#pragma once

// A backup kept in one file: its chunks as records of type (u32, little-endian), length
// (u64, little-endian) and bytes. The writer makes such a file from a backup; the reader
// checks a whole file's framing before anything is restored from it, so that a damaged
// file is refused before a target is touched.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/file_object.h>

namespace File {

inline constexpr std::size_t kChunkRecordHeader = 12;
// The largest chunk type that a backup has.
inline constexpr std::uint32_t kLastChunkType = chunk_open_7;

// Writes the chunks of a backup to `out`, which must be able to seek back: a record's
// length is filled in when its chunk closes.
class chunk_file_writer final : public file_backup_writer {
public:
    chunk_file_writer(rio_file& out, std::uint32_t options, backup_user_callback* callback)
        : out_(out), options_(options), callback_(callback) {}

    std::unique_ptr<file_backup_stream> CreateStream(std::uint32_t type) override;
    Common::Error GetError() const override;
    std::uint32_t Options() const override { return options_; }
    backup_user_callback* Callback() const override { return callback_; }

private:
    rio_file& out_;
    std::uint32_t options_;
    backup_user_callback* callback_;
    Common::Error error_;
};

struct chunk_record {
    std::uint32_t Type = 0;
    std::uint64_t Offset = 0;  // of the bytes, behind the record's header
    std::uint64_t Length = 0;
};

// The records of a whole file of `size` bytes. Refused with 0x4000d "The file is corrupted."
// (and a text of what is wrong beneath): a short record, a length past the end, an unknown
// type, and a file whose first chunk is not a 4-byte attributes chunk.
Common::Error ScanChunkRecords(ri_file& file, std::uint64_t size, std::vector<chunk_record>& records);

struct stream_header_entry {
    std::uint32_t Id = 0;
    std::uint32_t Attributes = 0;
    std::uint64_t Size = 0;
    std::u16string Name;
};

// The stream headers of a backup stream of `length` bytes read from `chunk`: each header
// must lie whole inside it, with an id from 1 to 9 and its name and body inside too.
Common::Error ListStreamHeaders(i_file& chunk, std::uint64_t length,
                                std::vector<stream_header_entry>& headers);

// The chunks of a file whose records have been scanned, one at a time.
class chunk_file_source final : public file_restore_source {
public:
    chunk_file_source(ri_file& file, std::vector<chunk_record> records, std::uint32_t options,
                      backup_user_callback* callback)
        : file_(file), records_(std::move(records)), options_(options), callback_(callback) {}

    std::unique_ptr<i_file> NextChunk(std::uint32_t& type) override;
    Common::Error GetError() const override { return Common::ErrorSuccess; }
    std::uint32_t Options() const override { return options_; }
    backup_user_callback* Callback() const override { return callback_; }

private:
    ri_file& file_;
    std::vector<chunk_record> records_;
    std::size_t next_ = 0;
    std::uint32_t options_;
    backup_user_callback* callback_;
};

// A part of a file, read as a file of its own.
std::unique_ptr<ri_file> OpenChunkWindow(ri_file& file, std::uint64_t offset, std::uint64_t length);

}  // namespace File
