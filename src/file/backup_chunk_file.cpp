#include "file/backup_chunk_file.h"

#include <algorithm>
#include <cstring>

#include <tessel_link/common/messages.h>

#include "file/file_errors.h"

namespace File {

namespace {

void PutLittle(unsigned char* p, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

std::uint64_t GetLittle(const unsigned char* p, int bytes) {
    std::uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) {
        v = v << 8 | p[i];
    }
    return v;
}

// 0x4000d with a record beneath that says what is wrong and where.
Common::Error Damaged(const char* origin, const std::string& what) {
    Common::Error error = MakeFileError(TL_ORIGIN(origin), kCorrupted);
    error.AddCause(Common::Error(TL_ORIGIN(origin), kCorrupted.Code, what.c_str()));
    return error;
}

// One chunk while it is written: blocks go straight to the file, and the record's length is
// filled in when the chunk closes.
class chunk_file_stream final : public file_backup_stream {
public:
    chunk_file_stream(rio_file& out, std::uint64_t header) : out_(out), header_(header) {}
    ~chunk_file_stream() override {
        if (Failed() || out_.Failed()) {
            return;
        }
        unsigned char length[8];
        PutLittle(length, written_, 8);
        const std::uint64_t end = out_.SeekRel(0);
        std::uint64_t done = 0;
        out_.Seek(header_ + 4);
        out_.Write(length, sizeof length, done);
        out_.Seek(end);
    }

    bool Write(std::unique_ptr<raw_data> block) override {
        if (Failed()) {
            return false;
        }
        std::uint64_t done = 0;
        if (!out_.Write(block->buffer.get() + block->offset, block->size, done) ||
            done != block->size) {
            SetError(out_.GetError().Failed()
                         ? out_.GetError()
                         : MakeFileError(TL_ORIGIN("chunk_file_stream::Write"), kWriteFailed));
            return false;
        }
        written_ += done;
        return true;
    }

private:
    rio_file& out_;
    std::uint64_t header_;
    std::uint64_t written_ = 0;
};

class chunk_window final : public ri_file {
public:
    chunk_window(ri_file& base, std::uint64_t offset, std::uint64_t length)
        : base_(base), offset_(offset), length_(length) {}

    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = 0;
        if (Failed()) {
            return false;
        }
        const std::uint64_t take = std::min(count, length_ - position_);
        if (take == 0) {
            return true;
        }
        base_.Seek(offset_ + position_);
        base_.Read(buffer, take, read);
        if (base_.Failed()) {
            SetError(base_.GetError());
            return false;
        }
        position_ += read;
        return true;
    }
    std::uint64_t Seek(std::uint64_t position) override { return MoveTo(position); }
    std::uint64_t SeekRel(std::int64_t delta) override {
        return MoveTo(position_ + static_cast<std::uint64_t>(delta));
    }
    std::uint64_t SeekEnd(std::int64_t delta) override {
        return MoveTo(length_ + static_cast<std::uint64_t>(delta));
    }
    std::uint64_t Size() override { return length_; }

private:
    std::uint64_t MoveTo(std::uint64_t position) {
        if (position > length_) {
            RecordError(MakeFileError(TL_ORIGIN("chunk_window::Seek"), kSeekFailed));
            return position_;
        }
        position_ = position;
        return position_;
    }

    ri_file& base_;
    std::uint64_t offset_;
    std::uint64_t length_;
    std::uint64_t position_ = 0;
};

}  // namespace

std::unique_ptr<ri_file> OpenChunkWindow(ri_file& file, std::uint64_t offset, std::uint64_t length) {
    return std::make_unique<chunk_window>(file, offset, length);
}

std::unique_ptr<file_backup_stream> chunk_file_writer::CreateStream(std::uint32_t type) {
    const std::uint64_t at = out_.SeekRel(0);
    unsigned char header[kChunkRecordHeader] = {};
    PutLittle(header, type, 4);
    std::uint64_t done = 0;
    if (!out_.Write(header, sizeof header, done) || done != sizeof header) {
        error_ = out_.GetError().Failed()
                     ? out_.GetError()
                     : MakeFileError(TL_ORIGIN("chunk_file_writer::CreateStream"), kWriteFailed);
        return nullptr;
    }
    return std::make_unique<chunk_file_stream>(out_, at);
}

Common::Error chunk_file_writer::GetError() const {
    return error_.Failed() ? error_ : out_.GetError();
}

Common::Error ScanChunkRecords(ri_file& file, std::uint64_t size, std::vector<chunk_record>& records) {
    records.clear();
    std::uint64_t at = 0;
    while (at < size) {
        if (size - at < kChunkRecordHeader) {
            return Damaged("ScanChunkRecords", "a record is cut short at byte " + std::to_string(at));
        }
        unsigned char header[kChunkRecordHeader];
        file.Seek(at);
        if (!file.ReadExact(header, sizeof header)) {
            return file.GetError();
        }
        chunk_record record;
        record.Type = static_cast<std::uint32_t>(GetLittle(header, 4));
        record.Length = GetLittle(header + 4, 8);
        record.Offset = at + kChunkRecordHeader;
        if (record.Type == 0 || record.Type > kLastChunkType) {
            return Damaged("ScanChunkRecords", "unknown chunk type " + std::to_string(record.Type) +
                                                   " at byte " + std::to_string(at));
        }
        if (record.Length > size - record.Offset) {
            return Damaged("ScanChunkRecords", "the chunk at byte " + std::to_string(at) +
                                                   " runs past the end of the file");
        }
        if (records.empty() && (record.Type != chunk_attributes || record.Length != 4)) {
            return Damaged("ScanChunkRecords", "the first chunk is not the attributes");
        }
        records.push_back(record);
        at = record.Offset + record.Length;
    }
    return Common::ErrorSuccess;
}

Common::Error ListStreamHeaders(i_file& chunk, std::uint64_t length,
                                std::vector<stream_header_entry>& headers) {
    headers.clear();
    auto* seekable = dynamic_cast<ri_file*>(&chunk);
    std::uint64_t at = 0;
    std::vector<unsigned char> name;
    while (at < length) {
        unsigned char bytes[20];
        if (length - at < sizeof bytes) {
            return Damaged("ListStreamHeaders", "a stream header is cut short at byte " +
                                                    std::to_string(at));
        }
        if (!chunk.ReadExact(bytes, sizeof bytes)) {
            return chunk.GetError();
        }
        at += sizeof bytes;
        stream_header_entry entry;
        entry.Id = static_cast<std::uint32_t>(GetLittle(bytes, 4));
        entry.Attributes = static_cast<std::uint32_t>(GetLittle(bytes + 4, 4));
        entry.Size = GetLittle(bytes + 8, 8);
        const std::uint64_t nameSize = GetLittle(bytes + 16, 4);
        if (entry.Id < 1 || entry.Id > 9 || (entry.Id == 9 && entry.Size < 8) ||
            nameSize % 2 != 0) {
            return Damaged("ListStreamHeaders", "a stream header at byte " + std::to_string(at - 20) +
                                                    " is not valid");
        }
        if (nameSize > length - at || entry.Size > length - at - nameSize) {
            return Damaged("ListStreamHeaders", "the stream at byte " + std::to_string(at - 20) +
                                                    " runs past the end of its chunk");
        }
        name.resize(static_cast<std::size_t>(nameSize));
        if (nameSize != 0 && !chunk.ReadExact(name.data(), nameSize)) {
            return chunk.GetError();
        }
        for (std::size_t i = 0; i + 1 < name.size(); i += 2) {
            entry.Name.push_back(static_cast<char16_t>(name[i] | name[i + 1] << 8));
        }
        at += nameSize;
        // The body is stepped over; an input without seeks is read through.
        if (seekable != nullptr) {
            const std::uint64_t before = seekable->SeekRel(0);
            if (seekable->SeekRel(static_cast<std::int64_t>(entry.Size)) != before + entry.Size ||
                seekable->Failed()) {
                return seekable->GetError();
            }
        } else {
            unsigned char skip[4096];
            for (std::uint64_t left = entry.Size; left != 0;) {
                const std::uint64_t take = std::min<std::uint64_t>(left, sizeof skip);
                if (!chunk.ReadExact(skip, take)) {
                    return chunk.GetError();
                }
                left -= take;
            }
        }
        at += entry.Size;
        headers.push_back(std::move(entry));
    }
    return Common::ErrorSuccess;
}

std::unique_ptr<i_file> chunk_file_source::NextChunk(std::uint32_t& type) {
    if (next_ == records_.size()) {
        return nullptr;
    }
    const chunk_record& record = records_[next_++];
    type = record.Type;
    return OpenChunkWindow(file_, record.Offset, record.Length);
}

}  // namespace File
