#pragma once

// Writes journal images: the head, then version 2 records back to back, each padded to a
// multiple of 8 bytes. A record's Usn is its offset in the journal's stream, starting at
// the head's FirstUsn, as on a real volume.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <tessel_link/file/usn_journal.h>

namespace test_support {

class JournalImageBuilder {
public:
    explicit JournalImageBuilder(std::int64_t firstUsn = 0x1000, std::uint64_t journalId = 77)
        : next_(firstUsn) {
        head_.UsnJournalID = journalId;
        head_.FirstUsn = firstUsn;
        head_.LowestValidUsn = firstUsn;
        head_.MaxUsn = 0x7fffffffffff0000;
        head_.MaximumSize = 0x2000000;
        head_.AllocationDelta = 0x800000;
    }

    // Appends a record and returns its Usn.
    std::int64_t Add(std::uint64_t reference, std::uint64_t parent, const std::u16string& name,
                     std::uint32_t reason = 0x100, std::uint32_t attributes = 0x20) {
        const std::uint32_t nameBytes = static_cast<std::uint32_t>(name.size() * 2);
        const std::uint32_t length = (File::kUsnRecordFixedSize + nameBytes + 7) / 8 * 8;
        std::vector<unsigned char> record(length, 0);
        File::USN_RECORD fixed{};
        fixed.RecordLength = length;
        fixed.MajorVersion = 2;
        fixed.FileReferenceNumber = reference;
        fixed.ParentFileReferenceNumber = parent;
        fixed.Usn = next_;
        fixed.TimeStamp = 133000000000000000;
        fixed.Reason = reason;
        fixed.FileAttributes = attributes;
        fixed.FileNameLength = static_cast<std::uint16_t>(nameBytes);
        fixed.FileNameOffset = static_cast<std::uint16_t>(File::kUsnRecordFixedSize);
        std::memcpy(record.data(), &fixed, File::kUsnRecordFixedSize);
        std::memcpy(record.data() + File::kUsnRecordFixedSize, name.data(), nameBytes);
        offsets_.push_back(records_.size());
        records_.insert(records_.end(), record.begin(), record.end());
        const std::int64_t usn = next_;
        next_ += length;
        return usn;
    }

    // Drops the records before `usn` (a wrapped journal keeps its newer records only).
    void DropBefore(std::int64_t usn) {
        std::vector<unsigned char> kept;
        std::vector<std::size_t> offsets;
        for (std::size_t i = 0; i < offsets_.size(); ++i) {
            const auto* r = reinterpret_cast<const File::USN_RECORD*>(&records_[offsets_[i]]);
            if (r->Usn >= usn) {
                offsets.push_back(kept.size());
                kept.insert(kept.end(), records_.begin() + static_cast<std::ptrdiff_t>(offsets_[i]),
                            records_.begin() + static_cast<std::ptrdiff_t>(offsets_[i] + r->RecordLength));
            }
        }
        records_ = std::move(kept);
        offsets_ = std::move(offsets);
        head_.FirstUsn = head_.LowestValidUsn = usn;
    }

    File::USN_JOURNAL_DATA& Head() { return head_; }
    std::int64_t NextUsn() const { return next_; }
    // The bytes of record `index` inside Image(), for tests that damage it.
    std::size_t RecordOffset(std::size_t index) const { return 56 + offsets_[index]; }

    std::vector<unsigned char> Image() const {
        File::USN_JOURNAL_DATA head = head_;
        head.NextUsn = next_;
        std::vector<unsigned char> image(sizeof head);
        std::memcpy(image.data(), &head, sizeof head);
        image.insert(image.end(), records_.begin(), records_.end());
        return image;
    }

private:
    File::USN_JOURNAL_DATA head_{};
    std::int64_t next_;
    std::vector<unsigned char> records_;
    std::vector<std::size_t> offsets_;
};

}  // namespace test_support
