#pragma once

// The system's directories with failures on demand: every call goes to the real system
// unless a failure is set for it, and the mount table and the well-known places can be
// given, so that tests reach the failure paths of the directory objects on real trees.

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/dir_io.h"

namespace test_support {

class FakeDirIo final : public Platform::DirIo {
public:
    enum class Call {
        OpenDir, OpenFile, ReadEntries, Status, ReadLink, MakeDir, Unlink, Rename, Link,
        SymLink, SetMode, SetOwner, MakeNode, SetTimes, SetCompression, Space, ReadMountTable,
        PlacePath
    };

    // The `nth` next call of that kind (1 for the very next) fails with `failure`.
    void FailOn(Call call, Platform::SystemError failure, int nth = 1) {
        failures_[call] = {failure, nth};
    }
    int Calls(Call call) const {
        const auto it = calls_.find(call);
        return it == calls_.end() ? 0 : it->second;
    }

    // When set, the mount table read instead of the system's.
    std::optional<std::string> mountTable;
    // When set, the path of every well-known place.
    std::optional<std::string> placePath;
    // Entry blocks are cut to this size, to make many reads of small directories.
    std::size_t blockLimit = 0;
    int openDirs = 0;
    // Whether the last file opened was asked for past the cache; with `bufferedOnly` it is
    // then opened through the cache all the same.
    bool lastOpenUnbuffered = false;
    bool bufferedOnly = false;
    // When not empty, blocks of raw entry records read in turn instead of the directory's
    // (each cut to the size asked for); an empty block is the end of the directory.
    std::deque<std::string> blocks;
    // Called at every call before it is made, to see the state of the thread at that moment.
    std::function<void(Call)> onCall;


    Platform::SystemError OpenDir(Platform::DirHandle at, const std::string& name,
                                  Platform::DirHandle& dir) override {
        if (auto f = Take(Call::OpenDir)) {
            dir = Platform::kNoDir;
            return *f;
        }
        const auto e = real_.OpenDir(at, name, dir);
        openDirs += e.Failed() ? 0 : 1;
        return e;
    }
    Platform::SystemError OpenFile(Platform::DirHandle at, const std::string& name,
                                   Platform::FileAccess access,
                                   Platform::FileDisposition disposition, bool follow,
                                   bool unbuffered, Platform::FileHandle& file) override {
        lastOpenUnbuffered = unbuffered;
        if (auto f = Take(Call::OpenFile)) {
            return *f;
        }
        // Where the test's files live may refuse unbuffered opens (tmpfs does): the request
        // is noted above, and the file opened as any.
        return real_.OpenFile(at, name, access, disposition, follow, unbuffered && !bufferedOnly,
                              file);
    }
    Platform::SystemError CloseDir(Platform::DirHandle dir) override {
        --openDirs;
        return real_.CloseDir(dir);
    }
    Platform::SystemError ReadEntries(Platform::DirHandle dir, void* buffer, std::size_t size,
                                      std::size_t& got) override {
        if (auto f = Take(Call::ReadEntries)) {
            got = 0;
            return *f;
        }
        if (!blocks.empty()) {
            got = std::min(size, blocks.front().size());
            std::memcpy(buffer, blocks.front().data(), got);
            blocks.pop_front();
            return {};
        }
        return real_.ReadEntries(dir, buffer, blockLimit != 0 && blockLimit < size ? blockLimit : size,
                                 got);
    }
    Platform::SystemError Status(Platform::DirHandle at, const char* name, bool follow,
                                 Platform::EntryStatus& status) override {
        if (auto f = Take(Call::Status)) {
            return *f;
        }
        return real_.Status(at, name, follow, status);
    }
    Platform::SystemError ReadLink(Platform::DirHandle at, const std::string& name,
                                   std::string& target) override {
        if (auto f = Take(Call::ReadLink)) {
            return *f;
        }
        return real_.ReadLink(at, name, target);
    }
    Platform::SystemError MakeDir(Platform::DirHandle at, const std::string& name,
                                  std::uint32_t mode) override {
        if (auto f = Take(Call::MakeDir)) {
            return *f;
        }
        return real_.MakeDir(at, name, mode);
    }
    Platform::SystemError Unlink(Platform::DirHandle at, const std::string& name,
                                 bool directory) override {
        if (auto f = Take(Call::Unlink)) {
            return *f;
        }
        return real_.Unlink(at, name, directory);
    }
    Platform::SystemError Rename(Platform::DirHandle a, const std::string& from,
                                 Platform::DirHandle b, const std::string& to) override {
        if (auto f = Take(Call::Rename)) {
            return *f;
        }
        return real_.Rename(a, from, b, to);
    }
    Platform::SystemError Link(Platform::DirHandle a, const std::string& from,
                               Platform::DirHandle b, const std::string& to) override {
        if (auto f = Take(Call::Link)) {
            return *f;
        }
        return real_.Link(a, from, b, to);
    }
    Platform::SystemError SymLink(const std::string& target, Platform::DirHandle at,
                                  const std::string& link) override {
        if (auto f = Take(Call::SymLink)) {
            return *f;
        }
        return real_.SymLink(target, at, link);
    }
    Platform::SystemError SetMode(Platform::DirHandle at, const std::string& name,
                                  std::uint32_t mode) override {
        if (auto f = Take(Call::SetMode)) {
            return *f;
        }
        return real_.SetMode(at, name, mode);
    }
    Platform::SystemError SetOwner(Platform::DirHandle at, const std::string& name,
                                   std::uint32_t user, std::uint32_t group) override {
        if (auto f = Take(Call::SetOwner)) {
            return *f;
        }
        return real_.SetOwner(at, name, user, group);
    }
    Platform::SystemError MakeNode(Platform::DirHandle at, const std::string& name,
                                   std::uint32_t mode, std::uint64_t device) override {
        if (auto f = Take(Call::MakeNode)) {
            return *f;
        }
        return real_.MakeNode(at, name, mode, device);
    }
    Platform::SystemError SetTimes(Platform::DirHandle at, const std::string& name,
                                   std::int64_t a, std::int64_t w) override {
        if (auto f = Take(Call::SetTimes)) {
            return *f;
        }
        return real_.SetTimes(at, name, a, w);
    }
    Platform::SystemError SetCompression(Platform::DirHandle at, const std::string& name,
                                         bool on) override {
        if (auto f = Take(Call::SetCompression)) {
            return *f;
        }
        return real_.SetCompression(at, name, on);
    }
    Platform::SystemError Space(Platform::DirHandle dir, Platform::VolumeSpace& space) override {
        if (auto f = Take(Call::Space)) {
            return *f;
        }
        return real_.Space(dir, space);
    }
    Platform::SystemError ReadMountTable(std::string& text) override {
        if (auto f = Take(Call::ReadMountTable)) {
            return *f;
        }
        if (mountTable) {
            text = *mountTable;
            return {};
        }
        return real_.ReadMountTable(text);
    }
    Platform::SystemError PlacePath(Platform::SpecialPlace place, std::string& path) override {
        if (auto f = Take(Call::PlacePath)) {
            return *f;
        }
        if (placePath) {
            path = *placePath;
            return {};
        }
        return real_.PlacePath(place, path);
    }

private:
    struct Failure {
        Platform::SystemError Error;
        int Countdown;
    };

    std::optional<Platform::SystemError> Take(Call call) {
        ++calls_[call];
        if (onCall) {
            onCall(call);
        }
        const auto it = failures_.find(call);
        if (it == failures_.end() || --it->second.Countdown > 0) {
            return std::nullopt;
        }
        const Platform::SystemError e = it->second.Error;
        failures_.erase(it);
        return e;
    }

    Platform::DirIo& real_ = Platform::SystemDirIo();
    std::map<Call, Failure> failures_;
    std::map<Call, int> calls_;
};

}  // namespace test_support
