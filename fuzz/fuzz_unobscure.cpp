// Unobscure over hostile text (the input as UTF-16 units, little-endian): never a failure
// other than the empty result, and whatever comes back obscures and unobscures to itself.

#include <cstdint>
#include <cstdlib>
#include <string>

#include <tessel_link/serialize/obscurer.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("CORVANE_SAFE_ASSERT", "off", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::u16string text(size / 2, u'\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
    }
    const std::u16string clear = Serialization::Unobscure(text);
    if (!clear.empty() && Serialization::Unobscure(Serialization::Obscure(clear)) != clear) {
        std::abort();
    }
    // The same bytes as narrow text, widened one byte to a character.
    const std::u16string widened(data, data + size);
    (void)Serialization::Unobscure(widened);
    return 0;
}
