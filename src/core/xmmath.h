// Vector e^x, ln x, 2^x and the power built from them, on one four-float vector. The
// approximations are xsimd's (inline, SSE2 code), so the library carries no polynomial of its
// own here and the compiler schedules them across the surrounding pixel arithmetic.
#pragma once

#include <emmintrin.h>

#include <xsimd/xsimd.hpp>

namespace velmora {

using Batch4 = xsimd::batch<float, xsimd::sse2>;

inline __m128 XMVectorExpE(__m128 v) { return xsimd::exp(Batch4(v)); }
inline __m128 XMVectorLogE(__m128 v) { return xsimd::log(Batch4(v)); }
inline __m128 XMVectorExp2(__m128 v) { return xsimd::exp2(Batch4(v)); }

// x^y as e^(y ln x), with no special cases beyond those of its parts: 0 gives e^(-inf * y),
// which is 0 for positive y, and negative x gives NaN.
inline __m128 XMVectorPowFast(__m128 x, __m128 y) { return XMVectorExpE(_mm_mul_ps(XMVectorLogE(x), y)); }

}  // namespace velmora

namespace velmora {

// The sRGB encoding curve on four lanes, alpha included. Both branches are computed and blended
// per lane, so the cost does not depend on the data. Input is clamped to [0, 1] first (maximum
// with 0 before minimum with 1, so NaN becomes 0).
inline __m128 XMVectorLinearToSrgb(__m128 v) {
    v = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(1.0f));
    const __m128 linear = _mm_mul_ps(v, _mm_set1_ps(12.92f));
    // 0.41666666f is the float nearest 1/2.4 (0x3ED55555).
    const __m128 power = _mm_sub_ps(_mm_mul_ps(_mm_set1_ps(1.055f), XMVectorPowFast(v, _mm_set1_ps(0.41666666f))),
                                    _mm_set1_ps(0.055f));
    const __m128 low = _mm_cmplt_ps(v, _mm_set1_ps(0.0031308f));
    return _mm_or_ps(_mm_and_ps(low, linear), _mm_andnot_ps(low, power));
}

}  // namespace velmora
