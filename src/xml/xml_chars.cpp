#include "xml/xml_chars.h"

#include <cstring>

namespace Xml::Detail {

namespace {

// Counts the line feeds of `count` bytes from `from` and notes a tab among them; with `kCopy`
// it also copies the bytes to `to` in the same pass.
template <bool kCopy>
void ScanFeeds(unsigned char* to, const unsigned char* from, std::size_t count,
               std::uint64_t& feeds, bool& tabs) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i feed = _mm_set1_epi8('\n');
    const __m128i tab = _mm_set1_epi8('\t');
    while (count - i >= 64) {
        // Byte counters: a compare gives -1 per feed; up to 63 rounds of four fit in a byte.
        __m128i counts = _mm_setzero_si128();
        __m128i anyTab = _mm_setzero_si128();
        for (int round = 0; round < 63 && count - i >= 64; ++round, i += 64) {
            for (int k = 0; k < 4; ++k) {
                const __m128i v =
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i + 16 * k));
                if constexpr (kCopy) {
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i + 16 * k), v);
                }
                counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(v, feed));
                anyTab = _mm_or_si128(anyTab, _mm_cmpeq_epi8(v, tab));
            }
        }
        const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
        feeds += static_cast<std::uint64_t>(_mm_cvtsi128_si32(sums)) +
                 static_cast<std::uint64_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
        tabs = tabs || _mm_movemask_epi8(anyTab) != 0;
    }
#endif
    for (; i < count; ++i) {
        const unsigned char b = from[i];
        if constexpr (kCopy) {
            to[i] = b;
        }
        feeds += b == '\n';
        tabs = tabs || b == '\t';
    }
}

}  // namespace

void CountFeeds(const unsigned char* p, const unsigned char* to, std::uint64_t& feeds,
                bool& tabs) {
    ScanFeeds<false>(nullptr, p, static_cast<std::size_t>(to - p), feeds, tabs);
}

void CopyCountingFeeds(unsigned char* to, const unsigned char* from, std::size_t count,
                       std::uint64_t& feeds, bool& tabs) {
    ScanFeeds<true>(to, from, count, feeds, tabs);
}

void CountFromFeeds(const unsigned char* p, const unsigned char* to, std::uint64_t feeds,
                    bool tabs, std::uint32_t& line, std::uint32_t& column) {
    // The column is the bytes behind the last feed, one each up to the first tab there and
    // counted one by one from it.
    const unsigned char* lineStart = p;
    if (feeds != 0) {
        line += static_cast<std::uint32_t>(feeds);
        column = 0;
        lineStart = static_cast<const unsigned char*>(
                        memrchr(p, '\n', static_cast<std::size_t>(to - p))) + 1;
    }
    const unsigned char* firstTab =
        tabs ? static_cast<const unsigned char*>(
                   std::memchr(lineStart, '\t', static_cast<std::size_t>(to - lineStart)))
             : nullptr;
    if (firstTab == nullptr) {
        column += static_cast<std::uint32_t>(to - lineStart);
        return;
    }
    column += static_cast<std::uint32_t>(firstTab - lineStart);
    CountBytes(firstTab, to, line, column);
}

void CountLongStretch(const unsigned char* p, const unsigned char* to, std::uint32_t& line,
                      std::uint32_t& column) {
    std::uint64_t feeds = 0;
    bool tabs = false;
    CountFeeds(p, to, feeds, tabs);
    CountFromFeeds(p, to, feeds, tabs, line, column);
}

}  // namespace Xml::Detail
