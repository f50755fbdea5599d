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
    const __m128i feed = _mm_set1_epi8('\n');
    const __m128i tab = _mm_set1_epi8('\t');
    // Line feeds are summed in byte counters (a compare gives -1 per feed), folded into the
    // total before any counter can overflow; positions are looked at only in blocks of 64
    // bytes that hold a feed or a tab.
    __m128i counts = _mm_setzero_si128();
    int rounds = 0;
    auto fold = [&counts, &feeds, &rounds] {
        const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
        feeds += static_cast<std::uint64_t>(_mm_cvtsi128_si32(sums)) +
                 static_cast<std::uint64_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
        counts = _mm_setzero_si128();
        rounds = 0;
    };
    for (; to - q >= 64; q += 64) {
        __m128i v[4];
        __m128i f[4];
        __m128i any = _mm_setzero_si128();
        for (int i = 0; i < 4; ++i) {
            v[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + 16 * i));
            f[i] = _mm_cmpeq_epi8(v[i], feed);
            counts = _mm_sub_epi8(counts, f[i]);
            any = _mm_or_si128(any, _mm_or_si128(f[i], _mm_cmpeq_epi8(v[i], tab)));
        }
        if (++rounds == 63) {
            fold();
        }
        if (_mm_movemask_epi8(any) == 0) {
            continue;
        }
        for (int i = 0; i < 4; ++i) {
            const auto fm = static_cast<unsigned>(_mm_movemask_epi8(f[i]));
            auto tm = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v[i], tab)));
            if (fm != 0) {
                const int last = 31 - std::countl_zero(fm);
                lineStart = q + 16 * i + last + 1;
                firstTab = nullptr;
                tm &= ~((2u << last) - 1);
            }
            if (tm != 0 && firstTab == nullptr) {
                firstTab = q + 16 * i + std::countr_zero(tm);
            }
        }
    }
    fold();
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
