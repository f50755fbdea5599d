#include "xml/xml_chars.h"

#include <cstring>

namespace Xml::Detail {

void CountLongStretch(const unsigned char* p, const unsigned char* to, std::uint32_t& line,
                      std::uint32_t& column) {
    // One pass finds the line feeds and the first tab behind the last of them: the column
    // is then the bytes behind that feed, one each up to that tab and counted from there.
    std::uint64_t feeds = 0;
    const unsigned char* lineStart = p;
    const unsigned char* firstTab = nullptr;
    const unsigned char* q = p;
#if defined(__SSE2__)
    for (; to - q >= 16; q += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        const auto f = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n'))));
        auto t = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('\t'))));
        if ((f | t) == 0) {
            continue;
        }
        if (f != 0) {
            feeds += static_cast<unsigned>(std::popcount(f));
            const int last = 31 - std::countl_zero(f);
            lineStart = q + last + 1;
            firstTab = nullptr;
            t &= ~((2u << last) - 1);
        }
        if (t != 0 && firstTab == nullptr) {
            firstTab = q + std::countr_zero(t);
        }
    }
#endif
    for (; q < to; ++q) {
        if (*q == '\n') {
            ++feeds;
            lineStart = q + 1;
            firstTab = nullptr;
        } else if (*q == '\t' && firstTab == nullptr) {
            firstTab = q;
        }
    }
    if (feeds != 0) {
        line += static_cast<std::uint32_t>(feeds);
        column = 0;
    }
    if (firstTab == nullptr) {
        column += static_cast<std::uint32_t>(to - lineStart);
        return;
    }
    column += static_cast<std::uint32_t>(firstTab - lineStart);
    CountBytes(firstTab, to, line, column);
}

}  // namespace Xml::Detail
