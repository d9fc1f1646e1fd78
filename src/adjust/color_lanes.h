// The in-lane 4 x 4 transposes of the wider vectors, for the colour kernels' pixel walks: the
// SSE2 transpose done inside every 128-bit lane at once (AVX2 and AVX-512 unpacks and shuffles
// never cross lanes). Include only from files compiled for the level.
#pragma once

#include <immintrin.h>

#include "adjust/color_rows.h"

namespace velmora::color {

// Ops::Lo/Hi interleave the low/high pairs of two vectors, Ops::LowPairs/HighPairs join their
// low/high halves, all within each 128-bit lane.
template <class Ops, class B>
inline void TransposeInLanes(B (&v)[4]) {
    using V = typename Ops::V;
    const V a = v[0], b = v[1], c = v[2], d = v[3];
    const V t0 = Ops::Lo(a, b), t1 = Ops::Lo(c, d), t2 = Ops::Hi(a, b), t3 = Ops::Hi(c, d);
    v[0] = Ops::LowPairs(t0, t1), v[1] = Ops::HighPairs(t0, t1);
    v[2] = Ops::LowPairs(t2, t3), v[3] = Ops::HighPairs(t2, t3);
}

#if defined(__AVX2__)
struct Avx2Ops {
    using V = __m256;
    static V Lo(V x, V y) { return _mm256_unpacklo_ps(x, y); }
    static V Hi(V x, V y) { return _mm256_unpackhi_ps(x, y); }
    static V LowPairs(V x, V y) { return _mm256_shuffle_ps(x, y, _MM_SHUFFLE(1, 0, 1, 0)); }
    static V HighPairs(V x, V y) { return _mm256_shuffle_ps(x, y, _MM_SHUFFLE(3, 2, 3, 2)); }
};
template <>
struct InLane<xsimd::batch<float, xsimd::avx2>> {
    static void Transpose(xsimd::batch<float, xsimd::avx2> (&v)[4]) { TransposeInLanes<Avx2Ops>(v); }
};
#endif

#if defined(__AVX512F__)
struct Avx512Ops {
    using V = __m512;
    static V Lo(V x, V y) { return _mm512_unpacklo_ps(x, y); }
    static V Hi(V x, V y) { return _mm512_unpackhi_ps(x, y); }
    static V LowPairs(V x, V y) { return _mm512_shuffle_ps(x, y, _MM_SHUFFLE(1, 0, 1, 0)); }
    static V HighPairs(V x, V y) { return _mm512_shuffle_ps(x, y, _MM_SHUFFLE(3, 2, 3, 2)); }
};
template <>
struct InLane<xsimd::batch<float, xsimd::avx512f>> {
    static void Transpose(xsimd::batch<float, xsimd::avx512f> (&v)[4]) { TransposeInLanes<Avx512Ops>(v); }
};
#endif

}  // namespace velmora::color
