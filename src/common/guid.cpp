#include <tessel_link/common/guid.h>

#include <cstdio>
#include <cstring>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/random.h>

namespace Common {

namespace {
constexpr const char kGuidFormat[] = "%08X-%04hX-%04hX-%02hhX%02hhX-%02hhX%02hhX%02hhX%02hhX%02hhX%02hhX";
}

std::string ToString(const Guid& g) {
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
                  g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

bool FromString(const char* text, Guid& g) {
    if (text == nullptr) {
        TL_ASSERT(text != nullptr);
        return false;
    }
    unsigned data1 = 0;
    Guid parsed;
    const int fields = std::sscanf(text, kGuidFormat, &data1, &parsed.Data2, &parsed.Data3,
                                   &parsed.Data4[0], &parsed.Data4[1], &parsed.Data4[2],
                                   &parsed.Data4[3], &parsed.Data4[4], &parsed.Data4[5],
                                   &parsed.Data4[6], &parsed.Data4[7]);
    if (fields != 11) {
        return false;
    }
    parsed.Data1 = data1;
    g = parsed;
    return true;
}

bool Create(Guid& g, int reserved) {
    if (reserved != 0) {
        TL_ASSERT(false);
        return false;
    }
    unsigned char bytes[16];
    GetRandomBytes(bytes, sizeof bytes, false);
    std::memcpy(&g.Data1, bytes, 4);
    std::memcpy(&g.Data2, bytes + 4, 2);
    std::memcpy(&g.Data3, bytes + 6, 2);
    std::memcpy(g.Data4, bytes + 8, 8);
    g.Data4[0] = static_cast<std::uint8_t>((g.Data4[0] % 64) | 128);
    g.Data3 = static_cast<std::uint16_t>((g.Data3 % 4096) | 0x4000);
    return true;
}

}  // namespace Common
