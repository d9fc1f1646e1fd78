// The develop pass eight pixels a vector (AVX2): group n of four pixels in the low half and group
// n + 1 in the high half, each half transposed to components as the SSE2 body transposes one
// group, through the same recipe and row walks. A row's odd last group runs alone in the low half
// (the high half computes on zeros and is never stored), and map values past the width are 0
// lanes as in the SSE2 body, so exactly the pixels and map values the SSE2 body touches are read
// and written.
#include <immintrin.h>

#include "adjust/develop_math.h"

namespace velmora::adjust::develop {
namespace {

struct Avx2Lanes {
    using B = xsimd::batch<float, xsimd::avx2>;
    static constexpr int32_t kPixels = 8;
    static constexpr int32_t kGroups = 3;

    // The 4 x 4 transpose of each half at once: pixels to components and back.
    static void TransposeHalves(__m256 (&v)[4]) {
        const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]), t1 = _mm256_unpacklo_ps(v[2], v[3]);
        const __m256 t2 = _mm256_unpackhi_ps(v[0], v[1]), t3 = _mm256_unpackhi_ps(v[2], v[3]);
        v[0] = _mm256_shuffle_ps(t0, t1, _MM_SHUFFLE(1, 0, 1, 0));
        v[1] = _mm256_shuffle_ps(t0, t1, _MM_SHUFFLE(3, 2, 3, 2));
        v[2] = _mm256_shuffle_ps(t2, t3, _MM_SHUFFLE(1, 0, 1, 0));
        v[3] = _mm256_shuffle_ps(t2, t3, _MM_SHUFFLE(3, 2, 3, 2));
    }

    // The second group exists while x + 4 < width, the test by which the SSE2 walk visits it.
    static Quad<B> Load(const float* p, int32_t x, int32_t width) {
        const bool second = x + 4 < width;
        __m256 m[4];
        for (int i = 0; i < 4; ++i) {
            const __m256 low = _mm256_castps128_ps256(_mm_loadu_ps(p + 4 * i));
            m[i] = _mm256_insertf128_ps(low, second ? _mm_loadu_ps(p + 16 + 4 * i) : _mm_setzero_ps(), 1);
        }
        TransposeHalves(m);
        return {m[0], m[1], m[2], m[3]};
    }

    static void Store(float* p, const Quad<B>& q, int32_t x, int32_t width) {
        __m256 m[4] = {q.r, q.g, q.b, q.l};
        TransposeHalves(m);
        for (int i = 0; i < 4; ++i) _mm_storeu_ps(p + 4 * i, _mm256_castps256_ps128(m[i]));
        if (x + 4 < width)
            for (int i = 0; i < 4; ++i) _mm_storeu_ps(p + 16 + 4 * i, _mm256_extractf128_ps(m[i], 1));
    }

    static B LoadLocal(const float* row_map, int32_t x, int32_t width) {
        if (width - x >= 8) return _mm256_loadu_ps(row_map + x);
        const __m128 high = x + 4 < width ? LoadLocalGroup(row_map, x + 4, width) : _mm_setzero_ps();
        return _mm256_insertf128_ps(_mm256_castps128_ps256(LoadLocalGroup(row_map, x, width)), high, 1);
    }
};

}  // namespace

RowFn DevelopRowAvx2(unsigned flags) { return kRows<Avx2Lanes>[flags]; }

void MaskedRowAvx2(float* px, int32_t width, int64_t row_offset, const MaskedCall& c) {
    MaskedRow<Avx2Lanes>(px, width, row_offset, c);
}

}  // namespace velmora::adjust::develop
