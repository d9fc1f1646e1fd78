// Float RGBA patch distances, one pixel (four lanes) a step. They hand back a four-float vector
// in a register, as the host's vector maths expects; the first two broadcast one value, the third
// keeps one value per channel. Their divisors are part of the contract, not means: 3 x radius^2
// is what the host's thresholds were tuned against.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "core/frame.h"
#include "velmora/imaging.h"

namespace {

__m128 SquaredDifference(const float* a, const float* b) {
    const __m128 d = _mm_sub_ps(_mm_loadu_ps(a), _mm_loadu_ps(b));
    return _mm_mul_ps(d, d);
}

// Per-lane sums of squared differences over the square -radius..radius around two centres.
__m128 SquareSums(const float* a, const float* b, int32_t radius, int32_t stride) {
    __m128 sum = _mm_setzero_ps();
    for (int32_t dy = -radius; dy <= radius; ++dy) {
        const ptrdiff_t row = ptrdiff_t{dy} * stride * 4;
        for (int32_t dx = -radius; dx <= radius; ++dx)
            sum = _mm_add_ps(sum, SquaredDifference(a + row + dx * 4, b + row + dx * 4));
    }
    return sum;
}

// R + G + B of a per-lane sum over the divisor, in every lane.
__m128 ColourMean(__m128 sum, float divisor) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, sum);
    return _mm_set1_ps((lanes[0] + lanes[1] + lanes[2]) / divisor);
}

}  // namespace

extern "C" {

VELMORA_API __m128 VELMORA_CALL DistancePatch_Rgba128F_SSE2(const float* a, const float* b, int32_t step,
                                                            int32_t width, int32_t height) {
    __m128 sum = _mm_setzero_ps();
    for (int32_t y = 0; y < height; ++y) {
        const float* ra = velmora::frame::Row(a, step, y);
        const float* rb = velmora::frame::Row(b, step, y);
        for (int32_t x = 0; x < width; ++x) sum = _mm_add_ps(sum, SquaredDifference(ra + x * 4, rb + x * 4));
    }
    return ColourMean(sum, static_cast<float>(3 * width * height));
}

VELMORA_API __m128 VELMORA_CALL DistancePatch2_Rgba128F_SSE2(const float* a, const float* b, int32_t radius,
                                                             int32_t stride) {
    return ColourMean(SquareSums(a, b, radius, stride), static_cast<float>(3 * radius * radius));
}

VELMORA_API __m128 VELMORA_CALL DistancePatch3_Rgba128F_SSE2(const float* a, const float* b, int32_t radius,
                                                             int32_t stride) {
    return _mm_div_ps(SquareSums(a, b, radius, stride), _mm_set1_ps(static_cast<float>(radius * radius)));
}

}  // extern "C"
