// The frame reader over arbitrary bytes that arrive in arbitrary pieces: it must never read
// outside what it was given, and every frame it takes must encode back to exactly the bytes
// it came from.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <tessel_link/net/frame.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    // The first byte sets the size of the pieces, the second a small length limit, so that
    // both the limit and long payloads are reached.
    const std::size_t piece = 1 + data[0] % 64;
    const std::uint32_t limit = data[1] < 128 ? 256u : Net::kDefaultMaxFrameLength;
    data += 2;
    size -= 2;

    Net::FrameReader reader(limit);
    std::size_t taken = 0;  // input bytes consumed by whole frames
    for (std::size_t at = 0; at < size; at += piece) {
        const std::size_t count = size - at < piece ? size - at : piece;
        reader.Feed({data + at, count});
        for (;;) {
            Net::Frame frame;
            const Net::FrameStatus status = reader.Next(frame);
            if (status != Net::FrameStatus::Complete) {
                if (status != Net::FrameStatus::NeedMore) {
                    return 0;
                }
                break;
            }
            const std::vector<unsigned char> again = Net::EncodeFrame(frame.Header, frame.Payload);
            if (again.size() > size - taken || std::memcmp(again.data(), data + taken, again.size()) != 0) {
                std::abort();
            }
            taken += again.size();
        }
    }
    if (reader.Buffered() != size - taken) {
        std::abort();
    }
    return 0;
}
