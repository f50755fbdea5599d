#pragma once

// Journal images: the change journal of a volume recorded in a file, so that the journal's
// logic runs where the system keeps no journal. An image is the 56-byte USN_JOURNAL_DATA
// followed by version 2 records back to back, each RecordLength bytes long, a multiple of 8.
//
// Images are untrusted: every record that an answer passes over is checked, and a damaged
// one fails the call with kFileCorrupt instead of being read.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "platform/file_io.h"
#include "platform/volume_control.h"

namespace Platform {

// Answers one of the journal's control codes from `image`, as the system answers them:
// - FSCTL_QUERY_USN_JOURNAL: the head.
// - FSCTL_READ_USN_JOURNAL: the next USN, then the whole records from the first one whose
//   Usn is at or after StartUsn (and whose reason is in ReasonMask) that fit the output. The
//   next USN is the one just past the last record returned, or the head's NextUsn when
//   none is.
// - FSCTL_ENUM_USN_DATA: the next file reference, then the last record of the image for
//   StartFileReferenceNumber, or no record when it has none.
// Other codes fail with ERROR_INVALID_FUNCTION.
//
// A reader goes on where its last read ended: `resume`, when given, remembers that place,
// so that such a read starts there rather than scan the image from its start again.
struct JournalResume {
    std::int64_t NextUsn = -1;  // the next USN of the last read; -1 for none
    std::size_t Offset = 0;     // where in the image the record after it starts
};
SystemError AnswerJournalControl(std::span<const unsigned char> image, std::uint32_t code,
                                 const void* input, std::size_t inputSize, void* output,
                                 std::size_t outputSize, std::size_t& returned,
                                 JournalResume* resume = nullptr);

// Volumes that are journal images: the volume of a path is the image file at that path,
// read whole through `files` when it is opened.
class JournalImageVolumes final : public VolumeControl {
public:
    explicit JournalImageVolumes(FileIo& files) : files_(files) {}

    SystemError VolumeNameOf(const std::u16string& path, std::u16string& volume) override;
    SystemError Open(const std::u16string& volume, VolumeHandle& handle) override;
    SystemError Close(VolumeHandle handle) override;
    SystemError Control(VolumeHandle handle, std::uint32_t code, const void* input,
                        std::size_t inputSize, void* output, std::size_t outputSize,
                        std::size_t& returned) override;

private:
    using Image = std::shared_ptr<const std::vector<unsigned char>>;
    SystemError Load(const std::u16string& path, std::vector<unsigned char>& image);

    FileIo& files_;
    std::mutex lock_;
    struct OpenImage {
        Image Bytes;
        JournalResume Resume;
    };
    std::map<VolumeHandle, OpenImage> open_;
    VolumeHandle next_ = 1;
};

}  // namespace Platform
