#include "platform/journal_image.h"

#include <algorithm>
#include <cstring>

namespace Platform {

namespace {

constexpr std::uint32_t kErrorInvalidFunction = 1;
constexpr std::uint32_t kErrorInvalidHandle = 6;
constexpr std::uint32_t kErrorInvalidParameter = 87;
constexpr std::uint32_t kErrorInsufficientBuffer = 122;
constexpr std::uint32_t kErrorPathNotFound = 3;

constexpr std::uint32_t kQueryJournal = 0x900f4;
constexpr std::uint32_t kReadJournal = 0x900bb;
constexpr std::uint32_t kEnumData = 0x900b3;

constexpr std::size_t kHeadSize = 56;
constexpr std::size_t kFixedRecordSize = 60;
// Field offsets of a version 2 record and of the head.
constexpr std::size_t kRecordLength = 0;
constexpr std::size_t kFileReference = 8;
constexpr std::size_t kUsn = 24;
constexpr std::size_t kReason = 40;
constexpr std::size_t kNameLength = 56;
constexpr std::size_t kNameOffset = 58;
constexpr std::size_t kHeadNextUsn = 16;
// Request fields.
constexpr std::size_t kReadRequestSize = 40;
constexpr std::size_t kReadStartUsn = 0;
constexpr std::size_t kReadReasonMask = 8;
constexpr std::size_t kEnumRequestSize = 24;

constexpr SystemError kCorrupt{kFileCorrupt, 0};

template <class T>
T Load(const unsigned char* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <class T>
void Store(void* at, T value) {
    std::memcpy(at, &value, sizeof value);
}

// Checks the record at `offset` of `image`, whose records start behind the head. Returns
// its length, or 0 when it is damaged: shorter than its fixed part or than what it claims,
// not a multiple of 8 (the next record would stand misaligned), or with its name outside.
std::size_t CheckedRecord(std::span<const unsigned char> image, std::size_t offset) {
    const std::size_t left = image.size() - offset;
    if (left < kFixedRecordSize) {
        return 0;
    }
    const unsigned char* record = image.data() + offset;
    const std::uint32_t length = Load<std::uint32_t>(record + kRecordLength);
    if (length < kFixedRecordSize || length > left || length % 8 != 0) {
        return 0;
    }
    const std::uint32_t nameOffset = Load<std::uint16_t>(record + kNameOffset);
    const std::uint32_t nameLength = Load<std::uint16_t>(record + kNameLength);
    if (nameOffset < kFixedRecordSize || nameOffset + nameLength > length) {
        return 0;
    }
    return length;
}

SystemError Query(std::span<const unsigned char> image, void* output, std::size_t outputSize,
                  std::size_t& returned) {
    if (outputSize < kHeadSize) {
        return {kErrorInsufficientBuffer, 0};
    }
    std::memcpy(output, image.data(), kHeadSize);
    returned = kHeadSize;
    return {};
}

SystemError ReadRecords(std::span<const unsigned char> image, const void* input,
                        std::size_t inputSize, void* output, std::size_t outputSize,
                        std::size_t& returned, JournalResume* resume) {
    if (inputSize < kReadRequestSize || input == nullptr) {
        return {kErrorInvalidParameter, 0};
    }
    if (outputSize < 8) {
        return {kErrorInsufficientBuffer, 0};
    }
    const auto* request = static_cast<const unsigned char*>(input);
    const auto start = Load<std::int64_t>(request + kReadStartUsn);
    const auto mask = Load<std::uint32_t>(request + kReadReasonMask);

    auto* out = static_cast<unsigned char*>(output);
    std::size_t written = 8;
    std::int64_t next = Load<std::int64_t>(image.data() + kHeadNextUsn);
    // Going on from the last read: the records before its end were checked then, and all
    // of them stand before `start`.
    const bool resuming = resume != nullptr && resume->NextUsn == start &&
                          resume->Offset >= kHeadSize && resume->Offset <= image.size();
    bool started = resuming;
    std::size_t offset = resuming ? resume->Offset : kHeadSize;
    while (offset < image.size()) {
        const std::size_t length = CheckedRecord(image, offset);
        if (length == 0) {
            return kCorrupt;
        }
        const unsigned char* record = image.data() + offset;
        const auto usn = Load<std::int64_t>(record + kUsn);
        started = started || usn >= start;
        if (started && (Load<std::uint32_t>(record + kReason) & mask) != 0) {
            if (length > outputSize - written) {
                if (written == 8) {
                    return {kErrorInsufficientBuffer, 0};  // not even one record fits
                }
                break;
            }
            std::memcpy(out + written, record, length);
            written += length;
        }
        if (started) {
            // Past every record looked at, also one that the mask leaves out.
            next = usn + static_cast<std::int64_t>(length);
        }
        offset += length;
    }
    Store(out, next);
    returned = written;
    if (resume != nullptr) {
        *resume = {next, offset};
    }
    return {};
}

SystemError EnumRecord(std::span<const unsigned char> image, const void* input,
                       std::size_t inputSize, void* output, std::size_t outputSize,
                       std::size_t& returned) {
    if (inputSize < kEnumRequestSize || input == nullptr) {
        return {kErrorInvalidParameter, 0};
    }
    if (outputSize < 8) {
        return {kErrorInsufficientBuffer, 0};
    }
    const auto reference = Load<std::uint64_t>(static_cast<const unsigned char*>(input));
    const unsigned char* found = nullptr;
    std::size_t foundLength = 0;
    for (std::size_t offset = kHeadSize; offset < image.size();) {
        const std::size_t length = CheckedRecord(image, offset);
        if (length == 0) {
            return kCorrupt;
        }
        const unsigned char* record = image.data() + offset;
        if (Load<std::uint64_t>(record + kFileReference) == reference) {
            found = record;
            foundLength = length;
        }
        offset += length;
    }
    auto* out = static_cast<unsigned char*>(output);
    Store(out, reference + 1);
    returned = 8;
    if (found != nullptr) {
        if (foundLength > outputSize - 8) {
            return {kErrorInsufficientBuffer, 0};
        }
        std::memcpy(out + 8, found, foundLength);
        returned += foundLength;
    }
    return {};
}

}  // namespace

SystemError AnswerJournalControl(std::span<const unsigned char> image, std::uint32_t code,
                                 const void* input, std::size_t inputSize, void* output,
                                 std::size_t outputSize, std::size_t& returned,
                                 JournalResume* resume) {
    returned = 0;
    if (code != kQueryJournal && code != kReadJournal && code != kEnumData) {
        return {kErrorInvalidFunction, 0};
    }
    if (image.size() < kHeadSize) {
        return kCorrupt;
    }
    if (output == nullptr) {
        return {kErrorInvalidParameter, 0};
    }
    switch (code) {
        case kQueryJournal:
            return Query(image, output, outputSize, returned);
        case kReadJournal:
            return ReadRecords(image, input, inputSize, output, outputSize, returned, resume);
        default:
            return EnumRecord(image, input, inputSize, output, outputSize, returned);
    }
}

SystemError JournalImageVolumes::VolumeNameOf(const std::u16string& path,
                                              std::u16string& volume) {
    if (path.empty()) {
        return {kErrorPathNotFound, 0};
    }
    volume = path + u'\\';
    return {};
}

SystemError JournalImageVolumes::Load(const std::u16string& path,
                                      std::vector<unsigned char>& image) {
    FileHandle handle = kNoHandle;
    SystemError failure = files_.Open(path, FileAccess::Read, FileDisposition::OpenExisting, false, handle);
    if (failure.Failed()) {
        return failure;
    }
    unsigned char block[65536];
    for (;;) {
        std::size_t read = 0;
        failure = files_.Read(handle, block, sizeof block, read);
        if (failure.Failed() || read == 0) {
            break;
        }
        image.insert(image.end(), block, block + read);
    }
    (void)files_.Close(handle);  // a read-only descriptor has nothing left to lose
    return failure;
}

SystemError JournalImageVolumes::Open(const std::u16string& volume, VolumeHandle& handle) {
    auto image = std::make_shared<std::vector<unsigned char>>();
    const SystemError failure = Load(volume, *image);
    if (failure.Failed()) {
        return failure;
    }
    const std::lock_guard<std::mutex> hold(lock_);
    handle = next_++;
    open_.emplace(handle, OpenImage{std::move(image), {}});
    return {};
}

SystemError JournalImageVolumes::Close(VolumeHandle handle) {
    const std::lock_guard<std::mutex> hold(lock_);
    return open_.erase(handle) != 0 ? SystemError{} : SystemError{kErrorInvalidHandle, 0};
}

SystemError JournalImageVolumes::Control(VolumeHandle handle, std::uint32_t code,
                                         const void* input, std::size_t inputSize, void* output,
                                         std::size_t outputSize, std::size_t& returned) {
    Image image;
    JournalResume resume;
    {
        const std::lock_guard<std::mutex> hold(lock_);
        const auto it = open_.find(handle);
        if (it == open_.end()) {
            returned = 0;
            return {kErrorInvalidHandle, 0};
        }
        image = it->second.Bytes;
        resume = it->second.Resume;
    }
    const SystemError failure = AnswerJournalControl(*image, code, input, inputSize, output,
                                                     outputSize, returned, &resume);
    if (!failure.Failed() && code == kReadJournal) {
        const std::lock_guard<std::mutex> hold(lock_);
        const auto it = open_.find(handle);
        if (it != open_.end()) {
            it->second.Resume = resume;
        }
    }
    return failure;
}

VolumeControl& SystemVolumeControl() {
    static JournalImageVolumes volumes(SystemFileIo());
    return volumes;
}

}  // namespace Platform
