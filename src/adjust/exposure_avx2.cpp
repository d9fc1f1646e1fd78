// The vector brightness and selective exposure kernels eight pixels a step (AVX2): four vectors of
// two pixels each, each half transposed to components, so a half's lanes are pixels 0, 2, 4, 6
// (low) and 1, 3, 5, 7 (high) and the gain of lane K in each half scales vector K. A row's last
// pixels that do not fill a step pass through zeroed buffers, so exactly the row's pixels and
// local values are read and written.
#include <immintrin.h>

#include <cstring>

#include "adjust/exposure_math.h"
#include "adjust/halves_avx2.h"

namespace velmora::adjust::exposure_math {
namespace {

using Batch8 = xsimd::batch<float, xsimd::avx2>;

template <int K>
inline __m256 Scaled(__m256 pixels, __m256 gain) {
    return _mm256_mul_ps(pixels, _mm256_shuffle_ps(gain, gain, _MM_SHUFFLE(K, K, K, K)));
}

// Eight pixels at p through gain_fn(R, G, B planes, local values in lane order), written to q.
template <class GainFn>
inline void Step(const float* p, float* q, const float* local, GainFn&& gain_fn) {
    __m256 px[4], planes[4];
    for (int i = 0; i < 4; ++i) planes[i] = px[i] = _mm256_loadu_ps(p + 8 * i);
    TransposeHalves(planes);
    const __m256 locals = local ? _mm256_permutevar8x32_ps(_mm256_loadu_ps(local), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7))
                                : _mm256_setzero_ps();
    const __m256 gain = gain_fn(Batch8(planes[0]), Batch8(planes[1]), Batch8(planes[2]), Batch8(locals));
    _mm256_storeu_ps(q, Scaled<0>(px[0], gain));
    _mm256_storeu_ps(q + 8, Scaled<1>(px[1], gain));
    _mm256_storeu_ps(q + 16, Scaled<2>(px[2], gain));
    _mm256_storeu_ps(q + 24, Scaled<3>(px[3], gain));
}

// A row eight pixels a step, with local values when local is set.
template <class GainFn>
void ForEachStep(const float* src, float* dst, const float* local, int32_t width, GainFn&& gain_fn) {
    int32_t x = 0;
    for (; x + 8 <= width; x += 8) Step(src + 4 * x, dst + 4 * x, local ? local + x : nullptr, gain_fn);
    if (x >= width) return;  // also a zero or negative width
    alignas(32) float part[32] = {};
    alignas(32) float part_local[8] = {};
    const int32_t n = width - x;
    std::memcpy(part, src + 4 * x, sizeof(float) * 4 * n);
    if (local) std::memcpy(part_local, local + x, sizeof(float) * n);
    Step(part, part, local ? part_local : nullptr, gain_fn);
    std::memcpy(dst + 4 * x, part, sizeof(float) * 4 * n);
}

// (wr R + wg G) + wb B.
inline Batch8 Luminance(Batch8 r, Batch8 g, Batch8 b, float wr, float wg, float wb) {
    return (r * Batch8(wr) + g * Batch8(wg)) + b * Batch8(wb);
}

}  // namespace

void BrightnessRowAvx2(const float* src, float* dst, int32_t width, float k) {
    ForEachStep(src, dst, nullptr, width, [k](Batch8 r, Batch8 g, Batch8 b, Batch8) {
        return BrightnessGain(Luminance(r, g, b, 0.2125f, 0.7152f, 0.0721f), Batch8(k));
    });
}

void SelectiveExposureRowAvx2(float* row, const float* local, int32_t width, float amount, const float* stops) {
    ForEachStep(row, row, local, width, [&](Batch8 r, Batch8 g, Batch8 b, Batch8 local_stops) {
        return SelectiveGain(Luminance(r, g, b, 0.28804f, 0.711874f, 8.6e-05f), local_stops, amount, stops);
    });
}

}  // namespace velmora::adjust::exposure_math
