#include "common/random.h"

#include <cstdlib>
#include <ctime>
#include <mutex>

#include <tessel_link/common/assert.h>

#include "platform/random_source.h"

namespace Common {

bool GetRandomBytes(void* buffer, std::size_t count, bool strict) {
    // The fallback generator is seeded once, whether it is ever needed or not.
    static std::once_flag seeded;
    std::call_once(seeded, [] { std::srand(static_cast<unsigned>(std::time(nullptr))); });
    if (Platform::GetRandomSource()(buffer, count)) {
        return true;
    }
    TL_ASSERT(false);
    if (strict) {
        return false;
    }
    // Only a strict caller sees the failure; everyone else gets weaker bytes.
    auto* p = static_cast<unsigned char*>(buffer);
    for (std::size_t i = 0; i < count; ++i) {
        p[i] = static_cast<unsigned char>(std::rand());
    }
    return true;
}

}  // namespace Common
