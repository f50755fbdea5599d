#include "xml/xml_chars.h"

#include <cstring>

namespace Xml::Detail {

void CountLongStretch(const unsigned char* p, const unsigned char* to, std::uint32_t& line,
                      std::uint32_t& column) {
    // The last line feed, if any, restarts the column: only the bytes behind it are counted
    // one by one.
    const unsigned char* lastFeed = nullptr;
    for (const unsigned char* q = to; q > p;) {
        --q;
        if (*q == '\n') {
            lastFeed = q;
            break;
        }
    }
    if (lastFeed == nullptr) {
        CountBytes(p, to, line, column);
        return;
    }
    std::uint64_t feeds = 0;
    const unsigned char* q = p;
#if defined(__SSE2__)
    // Byte counters in a register: each compare adds 1 (as -1 subtracted) per line feed, and
    // they are folded into the total before any of them can overflow.
    const __m128i feed = _mm_set1_epi8('\n');
    while (lastFeed - q >= 16) {
        __m128i counts = _mm_setzero_si128();
        for (int round = 0; round < 255 && lastFeed - q >= 16; ++round, q += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
            counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(v, feed));
        }
        const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
        feeds += static_cast<std::uint64_t>(_mm_cvtsi128_si32(sums)) +
                 static_cast<std::uint64_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    }
#endif
    for (; q <= lastFeed; ++q) {
        feeds += *q == '\n';
    }
    line += static_cast<std::uint32_t>(feeds);
    column = 0;
    CountBytes(lastFeed + 1, to, line, column);
}

}  // namespace Xml::Detail
