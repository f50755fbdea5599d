#include <tessel_link/common/random.h>

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include <tessel_link/common/assert.h>

namespace Common {

namespace {

// The kernel's random source in place of the system's RtlGenRandom.
bool KernelRandom(void* buffer, std::size_t count) {
    auto* p = static_cast<unsigned char*>(buffer);
    while (count > 0) {
        const ssize_t n = getrandom(p, count, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        p += n;
        count -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

bool GetRandomBytes(void* buffer, std::size_t count, bool strict) {
    static std::once_flag seeded;
    std::call_once(seeded, [] { std::srand(static_cast<unsigned>(std::time(nullptr))); });
    if (KernelRandom(buffer, count)) {
        return true;
    }
    TL_ASSERT(false);
    if (strict) {
        return false;
    }
    auto* p = static_cast<unsigned char*>(buffer);
    for (std::size_t i = 0; i < count; ++i) {
        p[i] = static_cast<unsigned char>(std::rand());
    }
    return true;
}

}  // namespace Common
