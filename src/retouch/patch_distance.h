// The integer 4 x 4 patch distance of the PatchMatch minimiser: per byte |a - b| (unsigned max
// minus min), forced to 255 for every byte of a pair where either pixel is the hole marker
// 0xFFFFFFFF, then weighted squares B 1, G 6, R 3, A 0 summed in 32 bits. Green weighs most
// because the eye resolves detail mostly through it; alpha carries the hole flag, not colour.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace velmora::retouch {

// Four rows of four pixels, row r at a + r * advance (and b + r * advance).
inline int32_t PatchDistance4x4(const uint8_t* a, const uint8_t* b, ptrdiff_t advance) {
    const __m128i weights = _mm_setr_epi16(1, 6, 3, 0, 1, 6, 3, 0);
    const __m128i marker = _mm_set1_epi32(-1);
    const __m128i zero = _mm_setzero_si128();
    __m128i sum = zero;
    for (int r = 0; r < 4; ++r, a += advance, b += advance) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
        const __m128i hole = _mm_or_si128(_mm_cmpeq_epi32(va, marker), _mm_cmpeq_epi32(vb, marker));
        const __m128i d = _mm_or_si128(_mm_sub_epi8(_mm_max_epu8(va, vb), _mm_min_epu8(va, vb)), hole);
        const __m128i lo = _mm_unpacklo_epi8(d, zero), hi = _mm_unpackhi_epi8(d, zero);
        // d x weight stays below 2^15, so one signed multiply-add gives w d^2 for two channels.
        sum = _mm_add_epi32(sum, _mm_madd_epi16(_mm_mullo_epi16(lo, weights), lo));
        sum = _mm_add_epi32(sum, _mm_madd_epi16(_mm_mullo_epi16(hi, weights), hi));
    }
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(sum);
}

}  // namespace velmora::retouch
