// The Lab conversions eight pixels a vector (AVX2): two blocks side by side, block n in the low
// half and block n + 1 in the high half, through the same per-lane arithmetic as the SSE2 body.
// A row's odd last block runs alone in the low half (the high half computes on zeros and is
// never stored), so exactly the blocks the SSE2 body touches are read and written.
#include <immintrin.h>

#include "adjust/halves_avx2.h"
#include "adjust/lab_math.h"
#include "adjust/color_lanes.h"
#include "adjust/lab_rows.h"

namespace velmora::adjust::lab {
namespace {

using Batch8 = xsimd::batch<float, xsimd::avx2>;

// Vector i of a block pair: the four floats at i of the first block, then those of the second.
// Without a second block the high half is zero.
inline __m256 LoadPair(const float* first, const float* second) {
    const __m256 low = _mm256_castps128_ps256(_mm_loadu_ps(first));
    return second ? _mm256_insertf128_ps(low, _mm_loadu_ps(second), 1)
                  : _mm256_insertf128_ps(low, _mm_setzero_ps(), 1);
}

inline void StorePair(float* first, float* second, __m256 v) {
    _mm_storeu_ps(first, _mm256_castps256_ps128(v));
    if (second) _mm_storeu_ps(second, _mm256_extractf128_ps(v, 1));
}

// Walks a row's blocks in pairs; the second block of a pair exists while x + 4 < width, the
// same test by which the SSE2 body visits it.
template <bool ToLabDirection>
void LabRowAvx2(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 8) {
        float* first = row + 4 * x;
        float* second = x + 4 < width ? first + 16 : nullptr;
        __m256 m[4];
        for (int i = 0; i < 4; ++i) m[i] = LoadPair(first + 4 * i, second ? second + 4 * i : nullptr);
        if constexpr (ToLabDirection) TransposeHalves(m);
        Batch8 v[4] = {m[0], m[1], m[2], m[3]};
        if constexpr (ToLabDirection) ToLab(v);
        else FromLab(v);
        for (int i = 0; i < 4; ++i) m[i] = v[i];
        if constexpr (!ToLabDirection) TransposeHalves(m);
        for (int i = 0; i < 4; ++i) StorePair(first + 4 * i, second ? second + 4 * i : nullptr, m[i]);
    }
}

}  // namespace

void ToLabRowAvx2(float* row, int32_t width) { LabRowAvx2<true>(row, width); }
void FromLabRowAvx2(float* row, int32_t width) { LabRowAvx2<false>(row, width); }

void InterleavedRowsAvx2(Interleaved kind, float* image, int32_t step, int32_t width, int32_t height,
                         const InterleavedArgs& a) {
    InterleavedRows<Batch8>(kind, image, step, width, height, a);
}

}  // namespace velmora::adjust::lab
