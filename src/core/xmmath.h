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
