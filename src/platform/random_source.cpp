#include "platform/random_source.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>

namespace Platform {

namespace {
std::atomic<RandomSource> g_source{KernelRandom};
}

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

RandomSource GetRandomSource() {
    return g_source.load();
}

RandomSource SetRandomSource(RandomSource source) {
    return g_source.exchange(source != nullptr ? source : KernelRandom);
}

}  // namespace Platform
