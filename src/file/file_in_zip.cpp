#include "file/file_in_zip.h"

#include <algorithm>
#include <limits>
#include <new>

#include "file/file_errors.h"
#include "file/zip_format.h"

namespace File {

using namespace zip_format;

namespace {

// zlib counts in 32 bits: one call moves at most this much.
constexpr std::uint64_t kLargestInflate = std::uint64_t{1} << 30;

}  // namespace

file_in_zip::file_in_zip(std::shared_ptr<zip_file_state> state, const unsigned char* record)
    : state_(std::move(state)), entry_(zip_central_entry::At(record)) {
    header_position_ = static_cast<std::int64_t>(entry_.LocalHeaderOffset) + state_->base;
    ReadLocalHeader();
    if (Failed()) {
        return;
    }
    if (entry_.Method == kMethodDeflated) {
        StartInflate();
    }
    compressed_left_ = entry_.CompressedSize;
    uncompressed_left_ = entry_.Size;
    size_ = entry_.Size;
}

file_in_zip::~file_in_zip() {
    if (stream_) {
        inflateEnd(stream_.get());
    }
}

void file_in_zip::ReadLocalHeader() {
    // Stored (0) and deflated (8) only: the method less bit 3 must be 0.
    if ((entry_.Method & ~0x8u) != 0) {
        RecordError(MakeFileError(TL_ORIGIN("file_in_zip::ReadLocalHeader"), kNotSupported));
        return;
    }
    unsigned char header[kLocalSize];
    {
        Common::MutexLock hold(state_->lock);
        ri_file& file = *state_->file;
        file.Seek(static_cast<std::uint64_t>(header_position_));
        if (!file.ReadExact(header, kLocalSize)) {
            RecordError(TakeReadFailure(TL_ORIGIN("file_in_zip::ReadLocalHeader"), file));
            return;
        }
    }
    // With a data descriptor (flag bit 3) the header's checksum and sizes are zero, and the
    // central record's stand.
    const bool sizesFollow = (U16(header + kLocalFlags) & kFlagDataDescriptor) != 0;
    const bool sameSizes = U32(header + kLocalCrc) == entry_.Crc32 &&
                           U32(header + kLocalCompressed) == entry_.CompressedSize &&
                           U32(header + kLocalUncompressed) == entry_.Size;
    const bool zip64 = U32(header + kLocalCompressed) == kZip64Marker32 ||
                       U32(header + kLocalUncompressed) == kZip64Marker32;
    if (U32(header) != kLocalSignature || U16(header + kLocalMethod) != entry_.Method ||
        !(sizesFollow || sameSizes) || zip64) {
        RecordError(MakeFileError(TL_ORIGIN("file_in_zip::ReadLocalHeader"), kCorrupted));
        return;
    }
    data_position_ = static_cast<std::uint64_t>(header_position_) + kLocalSize +
                     U16(header + kLocalNameLength) + U16(header + kLocalExtraLength);
}

void file_in_zip::StartInflate() {
    input_.reset(new (std::nothrow) unsigned char[kInputBlock]);
    stream_.reset(new (std::nothrow) z_stream{});
    // Window bits -15: raw deflate data, without a zlib header or trailer.
    if (!input_ || !stream_ || inflateInit2(stream_.get(), -MAX_WBITS) != Z_OK) {
        stream_.reset();
        RecordError(MakeFileError(TL_ORIGIN("file_in_zip::file_in_zip"), kOutOfMemory));
    }
}

bool file_in_zip::Rewind() {
    RecordNotSupported(TL_ORIGIN("file_in_zip::Rewind"));
    return false;
}

// Straight into the caller's buffer, without a copy.
std::uint64_t file_in_zip::ReadStored(unsigned char* to, std::uint64_t want) {
    const std::uint64_t take = std::min(want, compressed_left_);
    if (take == 0) {
        return 0;
    }
    ri_file& file = *state_->file;
    std::uint64_t got = 0;
    file.Seek(data_position_);
    file.Read(to, take, got);
    if (file.Failed()) {
        RecordError(TakeReadFailure(TL_ORIGIN("file_in_zip::Read"), file));
        return 0;
    }
    data_position_ += got;
    compressed_left_ -= got;
    return got;
}

// Inflates straight into the caller's buffer, fetching compressed input as it runs out.
std::uint64_t file_in_zip::ReadDeflated(unsigned char* to, std::uint64_t want) {
    z_stream& stream = *stream_;
    const auto room = static_cast<uInt>(std::min(want, kLargestInflate));
    stream.next_out = to;
    stream.avail_out = room;
    for (;;) {
        if (stream.avail_in == 0 && compressed_left_ != 0) {
            ri_file& file = *state_->file;
            std::uint64_t got = 0;
            file.Seek(data_position_);
            file.Read(input_.get(), std::min<std::uint64_t>(compressed_left_, kInputBlock), got);
            if (file.Failed()) {
                RecordError(TakeReadFailure(TL_ORIGIN("file_in_zip::Read"), file));
                break;
            }
            compressed_left_ -= got;
            data_position_ += got;
            stream.next_in = input_.get();
            stream.avail_in = static_cast<uInt>(got);
        }
        // Anything but progress (the end of the data, damaged data, no input left) stops.
        if (inflate(&stream, Z_SYNC_FLUSH) != Z_OK || stream.avail_out == 0) {
            break;
        }
    }
    return room - stream.avail_out;
}

bool file_in_zip::Read(void* buffer, std::uint64_t count, std::uint64_t& read) {
    read = 0;
    Common::MutexLock hold(state_->lock);
    if (count == 0 || Failed()) {
        return !Failed();
    }
    if (uncompressed_left_ == 0) {
        // The caller meets the end: only now is the whole entry known to be intact.
        if (crc_ != entry_.Crc32) {
            RecordError(MakeFileError(TL_ORIGIN("file_in_zip::Read"), kCorrupted));
            return false;
        }
        return true;
    }
    auto* to = static_cast<unsigned char*>(buffer);
    const std::uint64_t want = std::min(count, uncompressed_left_);
    const std::uint64_t delivered = stream_ ? ReadDeflated(to, want) : ReadStored(to, want);
    if (delivered == 0) {
        // Bytes are due and none came: the data is shorter than its record says, or damaged.
        RecordError(MakeFileError(TL_ORIGIN("file_in_zip::Read"), kCorrupted));
        return false;
    }
    uncompressed_left_ -= delivered;
    crc_ = static_cast<std::uint32_t>(crc32_z(crc_, to, static_cast<z_size_t>(delivered)));
    read = delivered;
    return !Failed();
}

}  // namespace File
