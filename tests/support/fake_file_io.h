#pragma once

// Open files in memory whose system calls fail when a test says so, counted per kind of
// call, for the retry rules and failure paths of the system file.

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/file_io.h"

namespace test_support {

class FakeFileIo final : public Platform::FileIo {
public:
    enum class Call {
        Open,
        Read,
        Write,
        Seek,
        Resize,
        Sync,
        Lock,
        Unlock,
        Ranges,
        Physical,
        Sparse,
        Zero,
        Times,
        Sectors,
        Compression,
        Count
    };

    struct File {
        std::vector<unsigned char> data;
        // When non-zero, the file is this long and reads deliver without copying.
        std::uint64_t virtualSize = 0;
        std::vector<Platform::AllocatedRange> ranges;
        Platform::FileTimes times;
    };

    // The `nth` next call of that kind (1: the very next one) fails with `failure`, and the
    // `times - 1` calls after it too.
    void Fail(Call call, Platform::SystemError failure, int nth = 1, int times = 1) {
        const int first = calls_[Index(call)] + nth;
        schedule_[call].push_back({first, first + times, failure});
    }

    std::map<std::u16string, File> files;
    // The sizes that reads and writes asked for, in order.
    std::vector<std::size_t> reads;
    std::vector<std::size_t> writes;
    // Writes stop with "disk full" when a file would grow past this.
    std::size_t diskCapacity = ~std::size_t{0};
    Platform::SectorSizes sectors{512, 4096, 4096};
    bool unbufferedOpened = false;
    int closed = 0;
    int workingSetGrown = 0;

    int Calls(Call call) const { return calls_[Index(call)]; }

    Platform::SystemError Open(const std::u16string& path, Platform::FileAccess,
                               Platform::FileDisposition disposition, bool unbuffered,
                               Platform::FileHandle& handle) override {
        if (auto f = Take(Call::Open)) {
            return *f;
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
            files[path].data.clear();
        }
        unbufferedOpened = unbuffered;
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
        read = 0;
        reads.push_back(count);
        if (auto f = Take(Call::Read)) {
            return *f;
        }
        auto& [path, pos] = open_[h];
        File& file = files[path];
        const std::uint64_t size = file.virtualSize != 0 ? file.virtualSize : file.data.size();
        // As the kernel does, one call moves at most 0x7ffff000 bytes.
        const std::uint64_t most = std::min<std::uint64_t>(count, 0x7ffff000u);
        read = pos < size ? static_cast<std::size_t>(std::min<std::uint64_t>(most, size - pos)) : 0;
        if (file.virtualSize == 0 && read != 0) {
            std::memcpy(buffer, file.data.data() + pos, read);
        }
        pos += read;
        return {};
    }
    Platform::SystemError Write(Platform::FileHandle h, const void* buffer, std::size_t count,
                                std::size_t& written) override {
        written = 0;
        writes.push_back(count);
        if (auto f = Take(Call::Write)) {
            return *f;
        }
        auto& [path, pos] = open_[h];
        auto& data = files[path].data;
        std::size_t taken = count;
        if (pos + taken > diskCapacity) {
            if (pos >= diskCapacity) {
                return {112, 28};
            }
            taken = diskCapacity - pos;  // a short write, as the kernel gives one
        }
        written = taken;
        if (pos + written > data.size()) {
            data.resize(pos + written);
        }
        if (written != 0) {
            std::memcpy(data.data() + pos, buffer, written);
        }
        pos += written;
        return {};
    }
    Platform::SystemError Seek(Platform::FileHandle h, std::int64_t offset,
                               Platform::SeekOrigin origin, std::uint64_t& position) override {
        if (auto f = Take(Call::Seek)) {
            return *f;
        }
        auto& [path, pos] = open_[h];
        const std::int64_t base = origin == Platform::SeekOrigin::Begin ? 0
                                  : origin == Platform::SeekOrigin::Current
                                      ? std::int64_t(pos)
                                      : std::int64_t(files[path].data.size());
        if (base + offset < 0) {
            return {131, 22};
        }
        pos = static_cast<std::size_t>(base + offset);
        position = pos;
        return {};
    }
    Platform::SystemError Resize(Platform::FileHandle h, std::uint64_t length) override {
        if (auto f = Take(Call::Resize)) {
            return *f;
        }
        files[open_[h].first].data.resize(length);
        return {};
    }
    Platform::SystemError Sync(Platform::FileHandle) override { return Plain(Call::Sync); }
    Platform::SystemError Lock(Platform::FileHandle, std::uint64_t, std::uint64_t,
                               Platform::LockKind) override {
        return Plain(Call::Lock);
    }
    Platform::SystemError Unlock(Platform::FileHandle, std::uint64_t, std::uint64_t) override {
        return Plain(Call::Unlock);
    }
    Platform::SystemError AllocatedRanges(Platform::FileHandle h, std::uint64_t start,
                                          std::uint64_t length, Platform::AllocatedRange* out,
                                          std::size_t capacity, std::size_t& count) override {
        count = 0;
        capacities.push_back(capacity);
        if (auto f = Take(Call::Ranges)) {
            return *f;
        }
        const std::uint64_t end = length > ~start ? ~std::uint64_t{0} : start + length;
        for (const Platform::AllocatedRange& r : files[open_[h].first].ranges) {
            const std::uint64_t from = std::max(r.Offset, start);
            const std::uint64_t to = std::min(r.Offset + r.Length, end);
            if (from >= to) {
                continue;
            }
            if (count == capacity) {
                return {Platform::kErrorMoreData, 0};
            }
            out[count++] = {from, to - from};
        }
        return {};
    }
    Platform::SystemError PhysicalOffset(Platform::FileHandle, std::uint64_t logical,
                                         std::uint64_t& physical) override {
        physical = logical + 0x100000;
        return Plain(Call::Physical);
    }
    Platform::SystemError SetSparse(Platform::FileHandle, bool) override {
        return Plain(Call::Sparse);
    }
    Platform::SystemError ZeroRange(Platform::FileHandle h, std::uint64_t offset,
                                    std::uint64_t length) override {
        if (auto f = Take(Call::Zero)) {
            return *f;
        }
        auto& data = files[open_[h].first].data;
        for (std::uint64_t i = offset; i < offset + length && i < data.size(); ++i) {
            data[i] = 0;
        }
        return {};
    }
    Platform::SystemError SetTimes(Platform::FileHandle h,
                                   const Platform::FileTimes& times) override {
        if (auto f = Take(Call::Times)) {
            return *f;
        }
        files[open_[h].first].times = times;
        return {};
    }
    Platform::SystemError GetSectorSizes(Platform::FileHandle,
                                         Platform::SectorSizes& sizes) override {
        sizes = sectors;
        return Plain(Call::Sectors);
    }
    Platform::SystemError SetCompression(Platform::FileHandle, bool) override {
        return Plain(Call::Compression);
    }
    Platform::SystemError GrowWorkingSet() override {
        ++workingSetGrown;
        return {};
    }

    std::vector<std::size_t> capacities;  // of the allocated-range asks

private:
    struct Scheduled {
        int First;
        int End;
        Platform::SystemError Failure;
    };
    static std::size_t Index(Call call) { return static_cast<std::size_t>(call); }

    // Counts the call and gives its scheduled failure, if it has one.
    const Platform::SystemError* Take(Call call) {
        const int number = ++calls_[Index(call)];
        for (const Scheduled& s : schedule_[call]) {
            if (number >= s.First && number < s.End) {
                return &s.Failure;
            }
        }
        return nullptr;
    }
    Platform::SystemError Plain(Call call) {
        const Platform::SystemError* f = Take(call);
        return f ? *f : Platform::SystemError{};
    }

    int calls_[static_cast<std::size_t>(Call::Count)] = {};
    std::map<Call, std::vector<Scheduled>> schedule_;
    std::vector<std::pair<std::u16string, std::size_t>> open_;
};

}  // namespace test_support
