// Vector e^x, ln x, 2^x and the power built from them, on one four-float vector. The
// approximations are xsimd's (inline, SSE2 code), so the library carries no polynomial of its
// own here and the compiler schedules them across the surrounding pixel arithmetic.
//
// Accuracy of the SSE2 code against a double-precision reference rounded to float, measured over
// every float of each range (the kernels' tests hold their results to these bounds):
//   XMVectorExpE     <= 1 ulp on [-4, 4]; <= 2 ulp wherever e^x is a normal float. Results in the
//                    denormal range are partly flushed: 0 from x = -87.683 on (true e^x stays above
//                    zero down to -103.97), and +inf already from x = 88.37626 (true overflow is
//                    88.7228). A denormal or zero input gives exactly 1; -inf gives 0, NaN gives NaN.
//   XMVectorLogE     <= 1 ulp on every positive float up to 4, denormals included; +-0 gives -inf,
//                    negative input NaN, +inf gives +inf.
//   XMVectorExp2     <= 2 ulp on [-126, 127); 0 below -126.5 (no denormal results), +inf from 127
//                    on; a denormal or zero input gives exactly 1.
//   XMVectorPowFast  the error of ln x grows by the factor |y ln x| through e^x:
//                    y = 1/2.4: <= 4 ulp on [0.0031308, 4], <= 57 ulp (3.5e-6 relative) on (0, 4];
//                    y = 2.4:   <= 9 ulp on [0.04, 4], <= 135 ulp (8.2e-6 relative) wherever the
//                    result is a normal float; y = 2: <= 65 ulp (4e-6 relative) likewise.
//                    x = 0 gives 0 for y > 0, negative x gives NaN.
//   XMVectorLinearToSrgb  <= 1.4e-7 absolute on [0, 1] against the curve with these float
//                    constants (<= 9 ulp in the power branch), 1.7e-7 against the textbook 1/2.4
//                    and decimal constants; 1 maps to 0.99999994, one step below 1.
#pragma once

#include <emmintrin.h>

#include <type_traits>

#include <xsimd/xsimd.hpp>

// Marks a row loop whose speed needs the vector math inlined whole into it: a call would spill
// every live vector (all vector registers are caller-saved). Inlining changes no result, so the
// instrumented builds (sanitizers, -O1) define VELMORA_NO_FLATTEN and leave it to the compiler:
// flattening the develop pass's 130 loops under instrumentation is most of their compile time.
#ifdef VELMORA_NO_FLATTEN
#define VELMORA_FLATTEN
#else
#define VELMORA_FLATTEN [[gnu::flatten]]
#endif

namespace velmora {

using Batch4 = xsimd::batch<float, xsimd::sse2>;

inline __m128 XMVectorExpE(__m128 v) { return xsimd::exp(Batch4(v)); }
inline __m128 XMVectorLogE(__m128 v) { return xsimd::log(Batch4(v)); }
inline __m128 XMVectorExp2(__m128 v) { return xsimd::exp2(Batch4(v)); }

// The same e^x and 2^x on a wider vector (a body of a faster level): xsimd runs the same per-lane steps
// at every width, so each lane equals the four-lane result.
template <class Arch>
inline xsimd::batch<float, Arch> XMVectorExpE(xsimd::batch<float, Arch> v) {
    const xsimd::batch<float, Arch> r = xsimd::exp(v);
    // The four- and eight-lane e^x return a NaN input with its sign bit flipped (the exponent
    // arithmetic carries it), the sixteen-lane one returns it as it came: the wide body flips it
    // too, so every level gives the same bits.
    if constexpr (std::is_same_v<Arch, xsimd::avx512f>)
        return xsimd::select(xsimd::isnan(v), xsimd::bitwise_xor(v, xsimd::batch<float, Arch>(-0.0f)), r);
    else
        return r;
}
template <class Arch>
inline xsimd::batch<float, Arch> XMVectorExp2(xsimd::batch<float, Arch> v) {
    return xsimd::exp2(v);
}

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
