// Eight-lane helpers shared by the family's AVX2 bodies, which hold two groups of four pixels a
// vector, one in each 128-bit half. Include only from files compiled for AVX2.
#pragma once

#include <immintrin.h>

namespace velmora::adjust {

// The 4 x 4 transpose of each half at once: pixels to components and back. AVX2 shuffles stay
// within their half, so this is the SSE2 transpose on both groups.
inline void TransposeHalves(__m256 (&v)[4]) {
    const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]), t1 = _mm256_unpacklo_ps(v[2], v[3]);
    const __m256 t2 = _mm256_unpackhi_ps(v[0], v[1]), t3 = _mm256_unpackhi_ps(v[2], v[3]);
    v[0] = _mm256_shuffle_ps(t0, t1, _MM_SHUFFLE(1, 0, 1, 0));
    v[1] = _mm256_shuffle_ps(t0, t1, _MM_SHUFFLE(3, 2, 3, 2));
    v[2] = _mm256_shuffle_ps(t2, t3, _MM_SHUFFLE(1, 0, 1, 0));
    v[3] = _mm256_shuffle_ps(t2, t3, _MM_SHUFFLE(3, 2, 3, 2));
}

}  // namespace velmora::adjust
