// The integer 4 x 4 patch distance of the PatchMatch minimiser: per byte |a - b| (unsigned max
// minus min), forced to 255 for every byte of a pair where either pixel is the hole marker
// 0xFFFFFFFF, then weighted squares B 1, G 6, R 3, A 0 summed in 32 bits. Green weighs most
// because the eye resolves detail mostly through it; alpha carries the hole flag, not colour.
// A target patch is loaded once and compared with many source patches. The SSE2 form takes a
// row a vector; the AVX2 form (compiled only into the AVX2 sweep) two rows a vector. Integer
// sums in any order give the same value, so both forms agree exactly.
#pragma once

#include <emmintrin.h>
#if defined(__AVX2__)
#include <immintrin.h>
#endif

#include <cstddef>
#include <cstdint>

namespace velmora::retouch {
// Internal linkage: each level's file keeps its own copy, compiled with its own flags (a shared
// inline copy built with AVX2 flags could be the one the baseline path ends up calling).
namespace {

inline int32_t HorizontalSum(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(v);
}

// Four rows of four pixels, row r at p + r * advance.
struct Sse2Patch {
    __m128i rows[4];
    Sse2Patch(const uint8_t* p, ptrdiff_t advance) {
        for (int r = 0; r < 4; ++r) rows[r] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + r * advance));
    }
    static __m128i WeightedSquares(__m128i a, __m128i b) {
        const __m128i marker = _mm_set1_epi32(-1), zero = _mm_setzero_si128();
        const __m128i weights = _mm_set1_epi64x(0x0000000300060001LL);  // 1, 6, 3, 0 per pixel
        const __m128i hole = _mm_or_si128(_mm_cmpeq_epi32(a, marker), _mm_cmpeq_epi32(b, marker));
        const __m128i d = _mm_or_si128(_mm_sub_epi8(_mm_max_epu8(a, b), _mm_min_epu8(a, b)), hole);
        const __m128i lo = _mm_unpacklo_epi8(d, zero), hi = _mm_unpackhi_epi8(d, zero);
        return _mm_add_epi32(_mm_madd_epi16(_mm_mullo_epi16(lo, weights), lo),
                             _mm_madd_epi16(_mm_mullo_epi16(hi, weights), hi));
    }
    int32_t Distance(const uint8_t* s, ptrdiff_t advance) const {
        __m128i sum = _mm_setzero_si128();
        for (int r = 0; r < 4; ++r, s += advance)
            sum = _mm_add_epi32(sum, WeightedSquares(rows[r], _mm_loadu_si128(reinterpret_cast<const __m128i*>(s))));
        return HorizontalSum(sum);
    }
};

#if defined(__AVX2__)
struct Avx2Patch {
    __m256i pairs[2];  // rows 0 and 1, rows 2 and 3
    static __m256i Pair(const uint8_t* p, ptrdiff_t advance) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + advance));
        return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
    }
    Avx2Patch(const uint8_t* p, ptrdiff_t advance) : pairs{Pair(p, advance), Pair(p + 2 * advance, advance)} {}
    static __m256i WeightedSquares(__m256i a, __m256i b) {
        const __m256i marker = _mm256_set1_epi32(-1), zero = _mm256_setzero_si256();
        const __m256i weights = _mm256_set1_epi64x(0x0000000300060001LL);
        const __m256i hole = _mm256_or_si256(_mm256_cmpeq_epi32(a, marker), _mm256_cmpeq_epi32(b, marker));
        const __m256i d = _mm256_or_si256(_mm256_sub_epi8(_mm256_max_epu8(a, b), _mm256_min_epu8(a, b)), hole);
        const __m256i lo = _mm256_unpacklo_epi8(d, zero), hi = _mm256_unpackhi_epi8(d, zero);
        return _mm256_add_epi32(_mm256_madd_epi16(_mm256_mullo_epi16(lo, weights), lo),
                                _mm256_madd_epi16(_mm256_mullo_epi16(hi, weights), hi));
    }
    int32_t Distance(const uint8_t* s, ptrdiff_t advance) const {
        const __m256i sum = _mm256_add_epi32(WeightedSquares(pairs[0], Pair(s, advance)),
                                             WeightedSquares(pairs[1], Pair(s + 2 * advance, advance)));
        return HorizontalSum(_mm_add_epi32(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1)));
    }
};
#endif

}  // namespace
}  // namespace velmora::retouch
