#pragma once

// Files as backup streams held in memory: each file has its attributes and the byte
// sequence that reading its backup stream gives, and writing one records the bytes. Calls
// fail when a test says so, a read can break at a given byte of the stream, the attributes
// can change from one query to the next, and encrypted files have a raw form, so that tests
// reach every path of backup and restore.

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/backup_source.h"

namespace test_support {

class FakeBackupSource final : public Platform::BackupSource {
public:
    enum class Call {
        Attributes, SetAttributes, Open, HandleInfo, ReparseTag, BackupRead, BackupSeek,
        BackupWrite, BackupEnd, ReadFile, WriteFile, GetTimes, SetTimes, Compression,
        CreateDirectory, Decrypt, OpenRaw, ReadRaw, WriteRaw
    };

    struct File {
        Platform::BackupFileInfo Info;
        std::vector<unsigned char> Stream;     // what BackupRead gives
        std::vector<unsigned char> Plain;      // what ReadFile gives
        std::vector<unsigned char> Raw;        // the raw form of an encrypted file
        std::uint32_t ReparseTag = 0;          // 0: not a reparse point
        std::vector<unsigned char> Written;    // what BackupWrite took
        std::vector<unsigned char> PlainWritten;
        std::vector<unsigned char> RawWritten;
        std::uint64_t SetCreation = 0;
        std::uint64_t SetWrite = 0;
        bool TimesSet = false;
        bool Decrypted = false;
    };

    struct Opened {
        std::u16string Path;
        std::uint32_t Access = 0;
        std::uint32_t Flags = 0;
        Platform::FileDisposition Disposition{};
        std::uint64_t Position = 0;
        bool Security = false;
    };

    std::map<std::u16string, File> files;
    // Every open, in order, also those that failed.
    std::vector<Opened> opens;
    // BackupWrite's process-security flag at each call.
    std::vector<bool> writeSecurity;
    std::set<std::string> privileges{"SeBackupPrivilege", "SeRestorePrivilege",
                                     "SeSecurityPrivilege"};
    // Called with the number of the query (1 for the first) before the answer leaves.
    std::function<void(int, Platform::BackupFileInfo&)> onAttributes;
    // Raw blocks are handed over in pieces of this size.
    std::size_t rawBlock = 1000;
    int ended = 0;
    int closed = 0;

    // The `nth` next call of that kind (1: the very next) fails with `failure`, and the
    // `times - 1` calls after it too.
    void Fail(Call call, Platform::SystemError failure, int nth = 1, int times = 1) {
        const int first = Calls(call) + nth;
        schedule_[call].push_back({first, first + times, failure});
    }
    // The next read that would pass byte `at` of the stream gives the bytes up to it and
    // fails with `failure`.
    void BreakReadAt(std::uint64_t at, Platform::SystemError failure) {
        breakAt_ = at;
        breakWith_ = failure;
    }
    int Calls(Call call) const {
        const auto it = calls_.find(call);
        return it == calls_.end() ? 0 : it->second;
    }

    Platform::SystemError GetAttributes(const std::u16string& path,
                                        Platform::BackupFileInfo& info) override {
        if (auto f = Take(Call::Attributes)) {
            return *f;
        }
        const auto it = files.find(path);
        if (it == files.end()) {
            return {2, 2};
        }
        info = it->second.Info;
        if (onAttributes) {
            onAttributes(Calls(Call::Attributes), info);
            it->second.Info = info;
        }
        return {};
    }
    Platform::SystemError SetAttributes(const std::u16string& path,
                                        std::uint32_t attributes) override {
        if (auto f = Take(Call::SetAttributes)) {
            return *f;
        }
        files[path].Info.Attributes = attributes;
        return {};
    }
    Platform::SystemError Open(const std::u16string& path, std::uint32_t access,
                               Platform::FileDisposition disposition, std::uint32_t flags,
                               std::uint32_t attributes, Platform::FileHandle& handle) override {
        opens.push_back({path, access, flags, disposition, 0, false});
        if (auto f = Take(Call::Open)) {
            return *f;
        }
        const bool exists = files.count(path) != 0;
        if (!exists && disposition == Platform::FileDisposition::OpenExisting) {
            return {2, 2};
        }
        if (!exists || disposition == Platform::FileDisposition::CreateAlways) {
            File& file = files[path];
            file.Info.Attributes = attributes;
            file.Written.clear();
        }
        open_.push_back(opens.back());
        handle = static_cast<Platform::FileHandle>(open_.size() - 1);
        return {};
    }
    Platform::SystemError Close(Platform::FileHandle) override {
        ++closed;
        return {};
    }
    Platform::SystemError HandleInfo(Platform::FileHandle h,
                                     Platform::BackupFileInfo& info) override {
        if (auto f = Take(Call::HandleInfo)) {
            return *f;
        }
        info = files[open_[h].Path].Info;
        return {};
    }
    Platform::SystemError ReparseTag(Platform::FileHandle h, std::uint32_t& tag) override {
        if (auto f = Take(Call::ReparseTag)) {
            return *f;
        }
        tag = files[open_[h].Path].ReparseTag;
        return tag == 0 ? Platform::SystemError{4390, 0} : Platform::SystemError{};
    }
    Platform::SystemError BackupRead(Platform::FileHandle h, void* buffer, std::size_t count,
                                     std::size_t& read, bool processSecurity) override {
        read = 0;
        Opened& o = open_[h];
        o.Security = processSecurity;
        if (auto f = Take(Call::BackupRead)) {
            return *f;
        }
        const std::vector<unsigned char> stream =
            processSecurity ? files[o.Path].Stream : WithoutSecurity(files[o.Path].Stream);
        std::uint64_t end = std::min<std::uint64_t>(stream.size(), o.Position + count);
        const bool breaks = breakAt_ != kNever && o.Position <= breakAt_ && end > breakAt_;
        if (breaks) {
            end = breakAt_;
        }
        read = static_cast<std::size_t>(end - o.Position);
        if (read != 0) {
            std::memcpy(buffer, stream.data() + o.Position, read);
        }
        o.Position = end;
        if (breaks) {
            breakAt_ = kNever;
            return breakWith_;
        }
        return {};
    }
    Platform::SystemError BackupSeek(Platform::FileHandle h, std::uint64_t count,
                                     std::uint64_t& moved) override {
        moved = 0;
        if (auto f = Take(Call::BackupSeek)) {
            return *f;
        }
        Opened& o = open_[h];
        const std::uint64_t end = StreamEnd(files[o.Path].Stream, o.Position);
        moved = std::min(count, end - o.Position);
        o.Position += moved;
        return {};
    }
    Platform::SystemError BackupWrite(Platform::FileHandle h, const void* buffer,
                                      std::size_t count, std::size_t& written,
                                      bool processSecurity) override {
        written = 0;
        writeSecurity.push_back(processSecurity);
        if (auto f = Take(Call::BackupWrite)) {
            return *f;
        }
        auto& out = files[open_[h].Path].Written;
        const auto* bytes = static_cast<const unsigned char*>(buffer);
        out.insert(out.end(), bytes, bytes + count);
        written = count;
        return {};
    }
    Platform::SystemError BackupEnd(Platform::FileHandle h) override {
        ++ended;
        open_[h].Position = 0;
        if (auto f = Take(Call::BackupEnd)) {
            return *f;
        }
        return {};
    }
    Platform::SystemError ReadFile(Platform::FileHandle h, void* buffer, std::size_t count,
                                   std::size_t& read) override {
        read = 0;
        if (auto f = Take(Call::ReadFile)) {
            return *f;
        }
        Opened& o = open_[h];
        const auto& plain = files[o.Path].Plain;
        read = static_cast<std::size_t>(
            std::min<std::uint64_t>(count, plain.size() - std::min<std::uint64_t>(o.Position, plain.size())));
        if (read != 0) {
            std::memcpy(buffer, plain.data() + o.Position, read);
        }
        o.Position += read;
        return {};
    }
    Platform::SystemError WriteFile(Platform::FileHandle h, const void* buffer, std::size_t count,
                                    std::size_t& written) override {
        written = 0;
        if (auto f = Take(Call::WriteFile)) {
            return *f;
        }
        auto& out = files[open_[h].Path].PlainWritten;
        const auto* bytes = static_cast<const unsigned char*>(buffer);
        out.insert(out.end(), bytes, bytes + count);
        written = count;
        return {};
    }
    Platform::SystemError GetTimes(Platform::FileHandle h, std::uint64_t& creation,
                                   std::uint64_t& write) override {
        if (auto f = Take(Call::GetTimes)) {
            return *f;
        }
        const File& file = files[open_[h].Path];
        creation = file.Info.CreationTime;
        write = file.Info.WriteTime;
        return {};
    }
    Platform::SystemError SetTimes(Platform::FileHandle h, std::uint64_t creation,
                                   std::uint64_t write) override {
        if (auto f = Take(Call::SetTimes)) {
            return *f;
        }
        File& file = files[open_[h].Path];
        file.SetCreation = creation;
        file.SetWrite = write;
        file.TimesSet = true;
        return {};
    }
    Platform::SystemError SetCompression(Platform::FileHandle, bool) override {
        if (auto f = Take(Call::Compression)) {
            return *f;
        }
        return {};
    }
    Platform::SystemError CreateDirectory(const std::u16string& path) override {
        if (auto f = Take(Call::CreateDirectory)) {
            return *f;
        }
        if (files.count(path) != 0) {
            return {183, 17};
        }
        files[path].Info.Attributes = Platform::kBackupAttrDirectory;
        return {};
    }
    Platform::SystemError Decrypt(const std::u16string& path) override {
        if (auto f = Take(Call::Decrypt)) {
            return *f;
        }
        files[path].Decrypted = true;
        return {};
    }
    Platform::SystemError OpenEncryptedRaw(const std::u16string& path, std::uint32_t flags,
                                           Platform::EncryptedContext& context) override {
        rawFlags.push_back(flags);
        if (path.empty()) {
            return {50, 0};  // the first use of the service, without a file
        }
        if (auto f = Take(Call::OpenRaw)) {
            return *f;
        }
        context = &files[path];
        return {};
    }
    Platform::SystemError ReadEncryptedRaw(Platform::EncryptedContext context,
                                           Platform::EncryptedRawCallback& callback) override {
        if (auto f = Take(Call::ReadRaw)) {
            return *f;
        }
        auto& raw = static_cast<File*>(context)->Raw;
        for (std::size_t at = 0; at < raw.size(); at += rawBlock) {
            std::uint32_t size = static_cast<std::uint32_t>(std::min(rawBlock, raw.size() - at));
            std::vector<unsigned char> piece(raw.begin() + long(at), raw.begin() + long(at + size));
            if (const std::uint32_t result = callback.Transfer(piece.data(), size); result != 0) {
                return {result, 0};
            }
        }
        return {};
    }
    Platform::SystemError WriteEncryptedRaw(Platform::EncryptedContext context,
                                            Platform::EncryptedRawCallback& callback) override {
        if (auto f = Take(Call::WriteRaw)) {
            return *f;
        }
        auto& out = static_cast<File*>(context)->RawWritten;
        for (;;) {
            unsigned char piece[700];
            std::uint32_t size = sizeof piece;
            if (const std::uint32_t result = callback.Transfer(piece, size); result != 0) {
                return {result, 0};
            }
            if (size == 0) {
                return {};
            }
            out.insert(out.end(), piece, piece + size);
        }
    }
    void CloseEncryptedRaw(Platform::EncryptedContext) override {}
    Platform::SystemError EnablePrivilege(const char* name, const char*& function) override {
        if (privileges.count(name) == 0) {
            function = "AdjustTokenPrivileges";
            return {1300, 0};
        }
        return {};
    }

    std::vector<std::uint32_t> rawFlags;

private:
    static constexpr std::uint64_t kNever = ~std::uint64_t{0};

    struct Scheduled {
        int From;
        int To;
        Platform::SystemError Failure;
    };

    // The stream without its security streams, as a read that does not process security
    // gives it.
    static std::vector<unsigned char> WithoutSecurity(const std::vector<unsigned char>& stream) {
        std::vector<unsigned char> out;
        std::uint64_t start = 0;
        while (start + 20 <= stream.size()) {
            std::uint32_t id = 0;
            std::uint64_t size = 0;
            std::uint32_t name = 0;
            std::memcpy(&id, stream.data() + start, 4);
            std::memcpy(&size, stream.data() + start + 8, 8);
            std::memcpy(&name, stream.data() + start + 16, 4);
            const std::uint64_t end = std::min<std::uint64_t>(start + 20 + name + size, stream.size());
            if (id != 3) {
                out.insert(out.end(), stream.begin() + long(start), stream.begin() + long(end));
            }
            start = end;
        }
        return out;
    }

    // The end of the stream that holds byte `at` of `stream`.
    static std::uint64_t StreamEnd(const std::vector<unsigned char>& stream, std::uint64_t at) {
        std::uint64_t start = 0;
        while (start + 20 <= stream.size()) {
            std::uint64_t size = 0;
            std::uint32_t name = 0;
            std::memcpy(&size, stream.data() + start + 8, 8);
            std::memcpy(&name, stream.data() + start + 16, 4);
            const std::uint64_t end = start + 20 + name + size;
            if (at < end) {
                return std::min<std::uint64_t>(end, stream.size());
            }
            start = end;
        }
        return at;
    }

    std::optional<Platform::SystemError> Take(Call call) {
        const int n = ++calls_[call];
        for (const Scheduled& s : schedule_[call]) {
            if (n >= s.From && n < s.To) {
                return s.Failure;
            }
        }
        return std::nullopt;
    }

    std::vector<Opened> open_;
    std::map<Call, int> calls_;
    std::map<Call, std::vector<Scheduled>> schedule_;
    std::uint64_t breakAt_ = kNever;
    Platform::SystemError breakWith_;
};

}  // namespace test_support
