// base64 decoding of hostile text, narrow and as UTF-16 units: a decoded result encodes and
// decodes back to the same bytes, and both decoders agree on text below 128.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "serialize/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view narrow(reinterpret_cast<const char*>(data), size);
    std::vector<unsigned char> bytes;
    const bool ok = Serialization::Base64::Decode(narrow, bytes);

    const std::u16string wide(data, data + size);
    std::vector<unsigned char> wideBytes;
    if (Serialization::Base64::Decode(wide, wideBytes) != ok || (ok && wideBytes != bytes)) {
        std::abort();
    }
    if (ok) {
        std::string text(Serialization::Base64::EncodedSize(bytes.size()), '\0');
        Serialization::Base64::Encode(bytes.data(), bytes.size(), text.data());
        std::vector<unsigned char> again;
        if (!Serialization::Base64::Decode(text, again) || again != bytes) {
            std::abort();
        }
    }

    std::u16string units(size / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
    }
    (void)Serialization::Base64::Decode(units, wideBytes);
    return 0;
}
