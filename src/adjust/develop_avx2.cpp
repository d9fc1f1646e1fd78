// The develop pass eight pixels a vector (AVX2): group n of four pixels in the low half and group
// n + 1 in the high half, each half transposed to components as the SSE2 body transposes one
// group, through the same recipe and row walks. A row's odd last group runs alone in the low half
// (the high half computes on zeros and is never stored), and map values past the width are 0
// lanes as in the SSE2 body, so exactly the pixels and map values the SSE2 body touches are read
// and written.
#include <immintrin.h>

#include "adjust/develop_math.h"
#include "adjust/halves_avx2.h"

namespace velmora::adjust::develop {
namespace {

struct Avx2Lanes {
    using B = xsimd::batch<float, xsimd::avx2>;
    static constexpr int32_t kPixels = 8;
    // Three vectors a step measured best here too: two lose about 8 %, four gain nothing.
    static constexpr int32_t kGroups = 3;

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
