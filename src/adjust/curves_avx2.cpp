// AVX2 bodies of the tone curves. Same per-lane operations as the SSE2 body (no fused
// multiply-add), eight lanes a step, and the table read at the same addresses. The entries are
// fetched with plain loads: on the processors measured, gathers were slower than moving the
// indices out and loading each neighbour pair (or pair of records) in one go.
#include "adjust/curves_avx2.h"
#include "adjust/curves_pairs.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace velmora::curves {
namespace {

inline __m256 Clamp01(__m256 v) { return _mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(1.f)); }

// T[k] + (T[k + 1] - T[k]) * (p - k) for eight non-negative positions. With KeepAlpha the lanes
// are two pixels whose alpha lanes are not looked up (they come out 0).
template <bool KeepAlpha = false>
inline __m256 Interpolate(__m256 p, const float* table) {
    const __m256i k = _mm256_cvttps_epi32(p);
    const __m256 frac = _mm256_sub_ps(p, _mm256_cvtepi32_ps(k));
    // Pairs for lanes 0, 1 | 4, 5 in a and 2, 3 | 6, 7 in b, so that splitting them by halves
    // leaves every 128-bit lane in order.
    const __m128i k03 = _mm256_castsi256_si128(k), k47 = _mm256_extracti128_si256(k, 1);
    const __m256 a = _mm256_set_m128(TwoPairs(table, LowLanes(k47)), TwoPairs(table, LowLanes(k03)));
    const __m256 b = _mm256_set_m128(HighPairs<KeepAlpha>(table, k47), HighPairs<KeepAlpha>(table, k03));
    const __m256 lower = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    const __m256 upper = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    return _mm256_add_ps(lower, _mm256_mul_ps(_mm256_sub_ps(upper, lower), frac));
}

// Eight codes (int32 lanes) through the curve: clamped, scaled to 0..65535, rounded half up.
template <bool KeepAlpha>
inline __m256i MapCodes(__m256i codes, const float* table, __m256 scale) {
    const __m256 p = _mm256_mul_ps(_mm256_cvtepi32_ps(codes), scale);
    const __m256 v = Clamp01(Interpolate<KeepAlpha>(p, table));
    return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(v, _mm256_set1_ps(65535.f)), _mm256_set1_ps(0.5f)));
}

// Sixteen codes a step. With KeepAlpha the fourth sample of each pixel is not looked up and the
// destination's old value is kept.
template <bool KeepAlpha>
int32_t Curve16Row(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, float scale) {
    const __m256 s = _mm256_set1_ps(scale);
    int32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i lo = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        const __m256i hi = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8)));
        // The codes are in 0..65535, so the unsigned pack is exact; it interleaves the halves
        // by 128-bit lane, which the permute undoes.
        const __m256i packed = _mm256_packus_epi32(MapCodes<KeepAlpha>(lo, table, s), MapCodes<KeepAlpha>(hi, table, s));
        __m256i mapped = _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
        auto* out = reinterpret_cast<__m256i*>(dst + i);
        if constexpr (KeepAlpha) mapped = _mm256_blend_epi16(mapped, _mm256_loadu_si256(out), 0x88);
        _mm256_storeu_si256(out, mapped);
    }
    return i;
}

// Eight floats to dst, past the cache when asked and the address allows it.
inline void Store(float* dst, __m256 v, bool stream) {
    if (stream) _mm256_stream_ps(dst, v);
    else _mm256_storeu_ps(dst, v);
}

// Streaming needs 32-byte aligned stores; the fence orders the row's streamed stores before
// whatever the caller stores next.
inline bool CanStream(const float* dst, bool stream) { return stream && (reinterpret_cast<uintptr_t>(dst) & 31u) == 0; }
inline void EndStream(bool streamed) {
    if (streamed) _mm_sfence();
}

}  // namespace

int32_t Curve16RowAvx2(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, float scale) {
    return Curve16Row<false>(src, dst, count, table, scale);
}

int32_t Curve16AlphaRowAvx2(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, float scale) {
    return Curve16Row<true>(src, dst, count, table, scale);
}

int32_t Curve32RowAvx2(const float* src, float* dst, int32_t count, const float* table, float scale, bool stream) {
    const __m256 s = _mm256_set1_ps(scale);
    stream = CanStream(dst, stream);
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 p = _mm256_mul_ps(Clamp01(_mm256_loadu_ps(src + i)), s);
        Store(dst + i, Interpolate(p, table), stream);
    }
    EndStream(stream);
    return i;
}

// Two pixels a step. Lane c of a pixel reads column c of record k and of the record after it:
// one 32-byte load per channel fetches both records, and blending the four loads' diagonals
// gives the pixel's lower entries in the low half and its upper entries in the high half.
int32_t Curve4RowAvx2(const float* src, float* dst, int32_t pixels, const float* table, float scale, bool stream) {
    const __m256 s = _mm256_set1_ps(scale);
    stream = CanStream(dst, stream);
    // Both records of each channel; `at` holds the pixel's four entry offsets 4k.
    const auto neighbours = [table](__m128i at) {
        const TwoOffsets rg = LowLanes(at), ba = HighLanes(at);
        const __m256 r = _mm256_blend_ps(_mm256_loadu_ps(table + rg.first), _mm256_loadu_ps(table + rg.second), 0x22);
        const __m256 b = _mm256_blend_ps(_mm256_loadu_ps(table + ba.first), _mm256_loadu_ps(table + ba.second), 0x88);
        return _mm256_blend_ps(r, b, 0xCC);
    };
    int32_t i = 0;
    for (; i + 2 <= pixels; i += 2) {
        const __m256 p = _mm256_mul_ps(Clamp01(_mm256_loadu_ps(src + 4 * ptrdiff_t{i})), s);
        const __m256i k = _mm256_cvttps_epi32(p);
        const __m256 frac = _mm256_sub_ps(p, _mm256_cvtepi32_ps(k));
        // Entry offsets 4k: the caller keeps them inside 32 bits.
        const __m256i at = _mm256_slli_epi32(k, 2);
        const __m256 first = neighbours(_mm256_castsi256_si128(at));
        const __m256 second = neighbours(_mm256_extracti128_si256(at, 1));
        const __m256 lower = _mm256_permute2f128_ps(first, second, 0x20);
        const __m256 upper = _mm256_permute2f128_ps(first, second, 0x31);
        Store(dst + 4 * ptrdiff_t{i}, _mm256_add_ps(lower, _mm256_mul_ps(_mm256_sub_ps(upper, lower), frac)), stream);
    }
    EndStream(stream);
    return i;
}

}  // namespace velmora::curves
