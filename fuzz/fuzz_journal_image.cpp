// Takes the input as a journal image and reads it as a backup would: every record from the
// oldest, then the name and parent of each file met.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <tessel_link/file/usn_journal.h>

#include "file/usn_journal_impl.h"
#include "platform/journal_image.h"

namespace {

// One volume, the image of this run.
class ImageVolume final : public Platform::VolumeControl {
public:
    explicit ImageVolume(std::span<const unsigned char> image) : image_(image) {}

    Platform::SystemError VolumeNameOf(const std::u16string& path,
                                       std::u16string& volume) override {
        volume = path + u'\\';
        return {};
    }
    Platform::SystemError Open(const std::u16string&, Platform::VolumeHandle& handle) override {
        handle = 1;
        return {};
    }
    Platform::SystemError Close(Platform::VolumeHandle) override { return {}; }
    Platform::SystemError Control(Platform::VolumeHandle, std::uint32_t code, const void* input,
                                  std::size_t inputSize, void* output, std::size_t outputSize,
                                  std::size_t& returned) override {
        return Platform::AnswerJournalControl(image_, code, input, inputSize, output, outputSize,
                                              returned, &resume_);
    }

private:
    std::span<const unsigned char> image_;
    Platform::JournalResume resume_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ImageVolume volume({data, size});
    std::vector<std::uint64_t> references;
    try {
        File::UsnJournalImpl journal(volume, u"image");
        std::unique_ptr<File::UsnJournalReader> reader;
        if (journal.CreateReader(0, reader).Succeeded()) {
            // Each fetch moves on by at least one record, so the image's size bounds the loop;
            // the count keeps a run short all the same.
            for (int i = 0; i < 100000; ++i) {
                const File::USN_RECORD* record = reader->Read();
                if (record == nullptr) {
                    break;
                }
                File::UsnRecordName(*record);
                if (references.size() < 32) {
                    references.push_back(record->FileReferenceNumber);
                }
            }
        }
    } catch (const Common::Error&) {
    }
    try {
        File::FileRecordInfoReaderImpl files(volume, u"image");
        File::FileRecordInfo info;
        // Whether a record is there does not matter here, only that looking survives.
        for (const std::uint64_t reference : references) {
            (void)files.GetFileRecordInfo(reference, info);
        }
        (void)files.GetFileRecordInfo(0, info);
    } catch (const Common::Error&) {
    }
    return 0;
}
