#pragma once

// A file system in memory whose calls can be made to fail, for the failure paths of the
// file layer.

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_system.h"

namespace test_support {

class FakeFileSystem final : public Platform::FileSystem {
public:
    enum class Call { Open, Read, Write, Seek, Resize, Sync, Lock, Unlock };

    // The next call of that kind fails with `failure` (after moving `partial` bytes, for
    // reads and writes).
    void FailNext(Call call, Platform::SystemError failure, std::size_t partial = 0) {
        failures_[call] = {failure, partial};
    }

    std::map<std::u16string, std::vector<unsigned char>> files;
    int closed = 0;

    Platform::SystemError Open(const std::u16string& path, Platform::FileAccess,
                               Platform::FileDisposition disposition,
                               Platform::FileHandle& handle) override {
        if (auto f = Take(Call::Open)) {
            return f->Error;
        }
        const bool exists = files.count(path) != 0;
        using D = Platform::FileDisposition;
        if (!exists && disposition == D::OpenExisting) {
            return {2, 2};
        }
        if (exists && disposition == D::CreateNew) {
            return {183, 17};
        }
        if (!exists || disposition == D::CreateAlways) {
            files[path].clear();
        }
        open_.push_back({path, 0});
        handle = static_cast<Platform::FileHandle>(open_.size() - 1);
        return {};
    }
    Platform::SystemError Close(Platform::FileHandle) override {
        ++closed;
        return {};
    }
    Platform::SystemError Read(Platform::FileHandle h, void* buffer, std::size_t count,
                               std::size_t& read) override {
        auto& [path, pos] = open_[h];
        auto& data = files[path];
        read = pos < data.size() ? std::min(count, data.size() - pos) : 0;
        auto f = Take(Call::Read);
        if (f) {
            read = std::min(read, f->Partial);
        }
        if (read != 0) {
            std::memcpy(buffer, data.data() + pos, read);
        }
        pos += read;
        return f ? f->Error : Platform::SystemError{};
    }
    Platform::SystemError Write(Platform::FileHandle h, const void* buffer, std::size_t count,
                                std::size_t& written) override {
        auto& [path, pos] = open_[h];
        auto& data = files[path];
        auto f = Take(Call::Write);
        written = f ? std::min(count, f->Partial) : count;
        if (pos + written > data.size()) {
            data.resize(pos + written);
        }
        if (written != 0) {
            std::memcpy(data.data() + pos, buffer, written);
        }
        pos += written;
        return f ? f->Error : Platform::SystemError{};
    }
    Platform::SystemError Seek(Platform::FileHandle h, std::int64_t offset,
                               Platform::SeekOrigin origin, std::uint64_t& position) override {
        if (auto f = Take(Call::Seek)) {
            return f->Error;
        }
        auto& [path, pos] = open_[h];
        const std::int64_t base = origin == Platform::SeekOrigin::Begin ? 0
                                  : origin == Platform::SeekOrigin::Current
                                      ? std::int64_t(pos)
                                      : std::int64_t(files[path].size());
        if (base + offset < 0) {
            return {131, 22};
        }
        pos = static_cast<std::size_t>(base + offset);
        position = pos;
        return {};
    }
    Platform::SystemError Resize(Platform::FileHandle h, std::uint64_t length) override {
        if (auto f = Take(Call::Resize)) {
            return f->Error;
        }
        files[open_[h].first].resize(length);
        return {};
    }
    Platform::SystemError Sync(Platform::FileHandle) override {
        auto f = Take(Call::Sync);
        return f ? f->Error : Platform::SystemError{};
    }
    Platform::SystemError Lock(Platform::FileHandle, std::uint64_t, std::uint64_t,
                               Platform::LockKind) override {
        auto f = Take(Call::Lock);
        return f ? f->Error : Platform::SystemError{};
    }
    Platform::SystemError Unlock(Platform::FileHandle, std::uint64_t, std::uint64_t) override {
        auto f = Take(Call::Unlock);
        return f ? f->Error : Platform::SystemError{};
    }

private:
    struct Failure {
        Platform::SystemError Error;
        std::size_t Partial;
    };
    std::optional<Failure> Take(Call call) {
        const auto it = failures_.find(call);
        if (it == failures_.end()) {
            return std::nullopt;
        }
        Failure f = it->second;
        failures_.erase(it);
        return f;
    }

    std::map<Call, Failure> failures_;
    std::vector<std::pair<std::u16string, std::size_t>> open_;
};

}  // namespace test_support
