#pragma once

// The records that the codec and unit-tree benchmarks work on: 10,000 slice records with
// every kind of member a record has (strings, numbers, GUIDs, a map, containers of strings
// and of records), made once per process.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/xidl/records.h>

namespace bench_support {

constexpr std::size_t kSampleSlices = 10000;

// A slice record as a listing gives it: the members that the call benchmarks send.
inline ArchiveManagement::SliceInfo ListedSlice(std::size_t i) {
    const std::u16string n = Common::Utf8ToUtf16Lenient(std::to_string(i));
    ArchiveManagement::SliceInfo s;
    s.SliceUri = u"bsp://storage-01/vault/Archive-" + n + u"?slice=" + n;
    s.Kind = static_cast<std::uint32_t>(i % 3);
    s.CreationTime = 1700000000000ll + static_cast<std::int64_t>(i) * 3600;
    s.Description = u"Nightly backup " + n;
    s.Size = 1000003ull * i;
    s.MetaInformation = {{u"Host", u"server-" + n}};
    s.MediaIDs = {u"tape-" + n};
    Common::Create(s.LocationID);
    Common::Create(s.ArchiveID);
    return s;
}

// The same with every other member set too.
inline const std::vector<ArchiveManagement::SliceInfo>& SampleSlices() {
    static const std::vector<ArchiveManagement::SliceInfo> slices = [] {
        std::vector<ArchiveManagement::SliceInfo> list;
        list.reserve(kSampleSlices);
        for (std::size_t i = 0; i < kSampleSlices; ++i) {
            const std::u16string n = Common::Utf8ToUtf16Lenient(std::to_string(i));
            ArchiveManagement::SliceInfo s = ListedSlice(i);
            s.Traits = 0x11;
            s.DeduplicatedSize = s.Size / 2;
            s.DataSize = s.Size / 3;
            s.OriginalDataSize = s.Size * 2;
            s.PreviousSliceUri = i ? u"bsp://storage-01/vault/Archive-" + n : u"";
            s.DataType = 1;
            s.CompressedDataSize = s.Size / 4;
            s.BackupSet = static_cast<std::uint32_t>(i % 7);
            s.Applications = {{u"Mail"}, {u"Database"}};
            s.ItemCounters = {static_cast<std::uint32_t>(i), 2, 3};
            s.SliceOffset = i * 512;
            list.push_back(std::move(s));
        }
        return list;
    }();
    return slices;
}

}  // namespace bench_support
