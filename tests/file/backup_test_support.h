#pragma once

// The archiver's side of backup and restore for tests: a writer that keeps every chunk as
// the blocks it received, a source that hands chunks back, a user whose answers are
// scripted, and a builder of backup streams.

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/memory_file.h>

namespace backup_test {

using Bytes = std::vector<unsigned char>;

struct Chunk {
    std::uint32_t Type = 0;
    std::vector<Bytes> Blocks;

    Bytes Joined() const {
        Bytes all;
        for (const Bytes& b : Blocks) {
            all.insert(all.end(), b.begin(), b.end());
        }
        return all;
    }
};

// A chunk that keeps its blocks in the writer's list; Write fails from the `failAt`-th
// block on (0: never).
class RecordingStream final : public File::file_backup_stream {
public:
    RecordingStream(Chunk& chunk, int failAt) : chunk_(chunk), failAt_(failAt) {}
    bool Write(std::unique_ptr<File::raw_data> block) override {
        if (failAt_ != 0 && static_cast<int>(chunk_.Blocks.size()) + 1 >= failAt_) {
            SetError(Common::Error(TL_ORIGIN("RecordingStream::Write"), 0x40004));
            return false;
        }
        const unsigned char* begin = block->buffer.get() + block->offset;
        chunk_.Blocks.emplace_back(begin, begin + block->size);
        return true;
    }

private:
    Chunk& chunk_;
    int failAt_;
};

class RecordingWriter final : public File::file_backup_writer {
public:
    explicit RecordingWriter(std::uint32_t options = 0, File::backup_user_callback* user = nullptr)
        : options_(options), user_(user) {}

    std::unique_ptr<File::file_backup_stream> CreateStream(std::uint32_t type) override {
        if (failCreateOf == type) {
            error_ = Common::Error(TL_ORIGIN("RecordingWriter::CreateStream"), 0x40004);
            return nullptr;
        }
        chunks.push_back(std::make_unique<Chunk>());
        chunks.back()->Type = type;
        return std::make_unique<RecordingStream>(*chunks.back(), type == failWriteOf ? failWriteAt : 0);
    }
    Common::Error GetError() const override { return error_; }
    std::uint32_t Options() const override { return options_; }
    File::backup_user_callback* Callback() const override { return user_; }

    std::vector<std::uint32_t> Types() const {
        std::vector<std::uint32_t> types;
        for (const auto& c : chunks) {
            types.push_back(c->Type);
        }
        return types;
    }
    const Chunk& Of(std::uint32_t type) const {
        for (const auto& c : chunks) {
            if (c->Type == type) {
                return *c;
            }
        }
        static const Chunk none;
        return none;
    }

    std::vector<std::unique_ptr<Chunk>> chunks;
    std::uint32_t failCreateOf = 0;
    std::uint32_t failWriteOf = 0;
    int failWriteAt = 0;

private:
    std::uint32_t options_;
    File::backup_user_callback* user_;
    Common::Error error_;
};

// Hands the chunks of a backup back, each as a file in memory.
class ChunkSource final : public File::file_restore_source {
public:
    ChunkSource(std::vector<Chunk> chunks, std::uint32_t options = 0,
                File::backup_user_callback* user = nullptr)
        : chunks_(std::move(chunks)), options_(options), user_(user) {}
    explicit ChunkSource(const RecordingWriter& writer, std::uint32_t options = 0,
                         File::backup_user_callback* user = nullptr)
        : options_(options), user_(user) {
        for (const auto& c : writer.chunks) {
            chunks_.push_back(*c);
        }
    }

    std::unique_ptr<File::i_file> NextChunk(std::uint32_t& type) override {
        if (next_ == chunks_.size()) {
            return nullptr;
        }
        const Chunk& c = chunks_[next_++];
        type = c.Type;
        auto file = std::make_unique<File::memory_file>(c.Joined());
        last_ = file.get();
        return file;
    }
    Common::Error GetError() const override { return Common::ErrorSuccess; }
    std::uint32_t Options() const override { return options_; }
    File::backup_user_callback* Callback() const override { return user_; }

private:
    std::vector<Chunk> chunks_;
    std::size_t next_ = 0;
    std::uint32_t options_;
    File::backup_user_callback* user_;
    File::memory_file* last_ = nullptr;
};

// Answers OnError from a script (abort when it runs out) and cancels once SetPosition has
// seen `cancelAfter` calls (below 0: never).
class ScriptedUser final : public File::backup_user_callback {
public:
    void SetPosition(std::uint64_t total) override {
        positions.push_back(total);
    }
    bool IsCanceled() override {
        return cancelAfter >= 0 && static_cast<int>(positions.size()) >= cancelAfter;
    }
    int OnError(const Common::Error& error, const std::u16string& path) override {
        errors.push_back(error);
        paths.push_back(path);
        if (answers.empty()) {
            return File::answer_abort;
        }
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }

    std::deque<int> answers;
    int cancelAfter = -1;
    std::vector<std::uint64_t> positions;
    std::vector<Common::Error> errors;
    std::vector<std::u16string> paths;
};

// Builds a backup stream: headers, names and bodies.
class StreamBuilder {
public:
    StreamBuilder& Add(std::uint32_t id, const std::u16string& name, const Bytes& body,
                       std::uint32_t attributes = 0) {
        return AddSized(id, name, body, body.size(), attributes);
    }
    // A header whose Size field says `size`, whatever the body.
    StreamBuilder& AddSized(std::uint32_t id, const std::u16string& name, const Bytes& body,
                            std::uint64_t size, std::uint32_t attributes = 0) {
        unsigned char header[20];
        const std::uint32_t nameSize = static_cast<std::uint32_t>(name.size() * 2);
        std::memcpy(header, &id, 4);
        std::memcpy(header + 4, &attributes, 4);
        std::memcpy(header + 8, &size, 8);
        std::memcpy(header + 16, &nameSize, 4);
        bytes.insert(bytes.end(), header, header + 20);
        for (const char16_t c : name) {
            bytes.push_back(static_cast<unsigned char>(c));
            bytes.push_back(static_cast<unsigned char>(c >> 8));
        }
        bytes.insert(bytes.end(), body.begin(), body.end());
        return *this;
    }
    // A sparse block: the offset, then the run; Size counts both.
    StreamBuilder& Sparse(std::uint64_t offset, const Bytes& run) {
        Bytes body(8);
        std::memcpy(body.data(), &offset, 8);
        body.insert(body.end(), run.begin(), run.end());
        return Add(9, u"", body, 8);
    }

    Bytes bytes;
};

inline Bytes Pattern(std::size_t size, unsigned seed = 1) {
    Bytes out(size);
    std::uint32_t x = seed * 2654435761u + 1;
    for (auto& b : out) {
        x = x * 1103515245u + 12345u;
        b = static_cast<unsigned char>(x >> 16);
    }
    return out;
}

}  // namespace backup_test
