// Serialized errors arrive from the service inside packets and POR blobs: any bytes must
// give an error (perhaps empty), never a crash, and what was accepted must serialize to a
// form that reads back to itself. Printing it (placeholders expanded from parameters that
// the bytes chose) must not crash either.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <tessel_link/common/error.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Common::Error error = Common::Error::Deserialize(data, size);
    for (Common::Error r = error; !r.Empty(); r = r.Cause()) {
        (void)r.Text();
        (void)r.GetNames();
        (void)r.GetAnsi("$module");
        (void)r.GetWide("path");
        (void)r.GetNumber("code");
        (void)r.FormattedText();
        if (r.Parameters().size() != r.ParameterNames().size()) {
            std::abort();  // every listed name reads as a parameter
        }
    }
    if (error.ToString().empty()) {
        std::abort();
    }
    if (error.Empty()) {
        return 0;
    }
    const std::vector<unsigned char> once = error.Serialize();
    const Common::Error again = Common::Error::Deserialize(once.data(), once.size());
    if (again.Serialize() != once) {
        std::abort();  // a read error does not survive its own round trip
    }
    return 0;
}
