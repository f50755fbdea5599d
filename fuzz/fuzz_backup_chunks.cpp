// Takes the input as a file of backup chunk records and reads it as a restore would: the
// framing of every record, the stream headers of every backup stream, and the re-chunking
// of each stream with the options given by the first byte. The input as a bare backup
// stream goes through the chunker too.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <tessel_link/common/assert.h>
#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/memory_file.h>

#include "file/backup_chunk_file.h"

namespace {

// A consumer that keeps nothing and fails now and then, as an archive may.
class Discard final : public File::file_backup_stream {
public:
    explicit Discard(unsigned failAt) : failAt_(failAt) {}
    bool Write(std::unique_ptr<File::raw_data> block) override {
        if (block->size > 65536 || (failAt_ != 0 && ++blocks_ == failAt_)) {
            SetError(Common::Error(TL_ORIGIN("Discard::Write"), 0x40003));
            return false;
        }
        return true;
    }

private:
    unsigned failAt_;
    unsigned blocks_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // An invalid stream id is reported as an assertion and refused; the report is noise here.
    Common::SetAssertionPolicy(Common::AssertionsOff);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::uint32_t options = size == 0 ? 0 : (data[0] & 0x0c);
    const std::uint64_t resume = size < 2 ? 0 : data[1] * 7u;
    const unsigned failAt = size < 3 ? 0 : data[2] % 8;

    File::buf_ifile<std::uint8_t> file(data, size);
    std::vector<File::chunk_record> records;
    if (File::ScanChunkRecords(file, size, records).Succeeded()) {
        for (const File::chunk_record& record : records) {
            if (record.Type != File::chunk_stream) {
                continue;
            }
            auto window = File::OpenChunkWindow(file, record.Offset, record.Length);
            std::vector<File::stream_header_entry> headers;
            (void)File::ListStreamHeaders(*window, record.Length, headers);
            auto again = File::OpenChunkWindow(file, record.Offset, record.Length);
            Discard consumer(failAt);
            (void)File::ChunkNTBackupStream(consumer, *again, options, nullptr, resume);
        }
    }
    File::buf_ifile<std::uint8_t> bare(data, size);
    Discard consumer(0);
    (void)File::ChunkNTBackupStream(consumer, bare, options, nullptr, resume);
    return 0;
}
