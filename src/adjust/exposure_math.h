// The per-lane arithmetic of the vector brightness and selective exposure kernels, written once
// over the xsimd batch type: the SSE2 bodies (four pixels a step) and the AVX2 bodies (eight) run
// the same operations in the same order on each lane, so both give the same bits. Nothing here may use a fused
// multiply-add; the library is built without contraction.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include <xsimd/xsimd.hpp>

#include "adjust/lane_ops.h"
#include "pixel/srgb_math.h"

namespace velmora::adjust::exposure_math {

constexpr float kEpsilon = 1.1920929e-07f;  // float epsilon: keeps gains finite on black pixels

template <class B>
using Ints = xsimd::batch<int32_t, typename B::arch_type>;

// Lanes truncated toward zero to whole numbers.
template <class B>
inline Ints<B> Truncate(B v) {
    if constexpr (B::size == 4) return _mm_cvttps_epi32(v);
    else return _mm256_cvttps_epi32(v);
}

// log2 of positive normal x: the exponent field plus a degree-4 polynomial in the mantissa m in
// [1, 2), exact at m = 1. Zero reads as -127, which the power below turns back into 0.
template <class B>
inline B Log2Poly(B x) {
    using I = Ints<B>;
    const I bits = xsimd::bitwise_cast<I>(x);
    const I biased = (bits >> 23) & I(0xFF);  // the mask drops the sign the arithmetic shift spreads
    const B e = xsimd::to_float(biased - I(127));
    const B m = xsimd::bitwise_cast<B>((bits & I(0x007FFFFF)) | I(0x3F800000));
    B p = B(0.05965155f) * m - B(0.46572563f);
    p = p * m + B(1.4811665f);
    p = p * m - B(2.5207496f);
    p = p * m + B(2.8882704f);
    return p * (m - B(1.0f)) + e;
}

// 2^p: p clamped to [-126.99999, 129], split into i = round(p - 0.5) and f = p - i in about
// [0, 1], a cubic for 2^f and 2^i written straight into the exponent field.
template <class B>
inline B Exp2Poly(B p) {
    using I = Ints<B>;
    p = Clamp(p, -126.99999f, 129.0f);
    const I i = xsimd::nearbyint_as_int(p - B(0.5f));  // rounds as the processor's mode says
    const B f = p - xsimd::to_float(i);
    B q = B(0.07802452f) * f + B(0.22606716f);
    q = q * f + B(0.69583356f);
    q = q * f + B(0.9999252f);
    return q * xsimd::bitwise_cast<B>((i + I(127)) << 23);
}

// The gain of each lane's pixel from its Rec. 709 luminance y: lightness L (CIE L* / 100) raised
// to k, back to luminance.
template <class B>
inline B BrightnessGain(B y, B k) {
    const B cube_root = B(1.16f) * xsimd::exp(xsimd::log(y) * B(0.33333334f)) - B(0.16f);
    const B lightness = xsimd::select(y > B(0.008856452f), cube_root, y * B(9.032963f));
    const B t = B(100.0f) * Exp2Poly(Log2Poly(lightness) * k);
    const B u = (t + B(16.0f)) * B(0.00862069f);
    const B y_new = xsimd::select(t > B(8.0f), (u * u) * u, t * B(0.0011070565f));
    return (y_new + B(kEpsilon)) / (y + B(kEpsilon));
}

// Band tables over the tone t in [0, 1]: entry i holds the stops at t = i / 1024, and the last
// entry (t = 1) lets the interpolation read i + 1 for every t below 1 and at 1.
constexpr int kBandEntries = 1025;

// Linear interpolation in the stops table at tone t in [0, 1].
template <class B>
inline B LookupStops(const float* stops, B t) {
    const B p = t * B(1024.0f);
    const B cell = Min(xsimd::to_float(Truncate(p)), B(1023.0f));
    const B frac = p - cell;
    B low, high;
    if constexpr (B::size == 8) {
        // The processor's gather: the same two table entries a lane, without the round trip
        // through memory that stalls the scalar lookups.
        const __m256i i = Truncate(cell);
        low = _mm256_i32gather_ps(stops, i, 4);
        high = _mm256_i32gather_ps(stops + 1, i, 4);
    } else {
        alignas(16) int32_t i[4];
        Truncate(cell).store_aligned(i);
        low = _mm_setr_ps(stops[i[0]], stops[i[1]], stops[i[2]], stops[i[3]]);
        high = _mm_setr_ps(stops[i[0] + 1], stops[i[1] + 1], stops[i[2] + 1], stops[i[3] + 1]);
    }
    return low + (high - low) * frac;
}

// The gain of each lane's pixel from its ProPhoto luminance y and local stops: 2^(amount + local
// + the bands' stops at the pixel's tone), within +-5 stops. The tone is the sRGB encoding of y,
// clamped to [0, 1] (NaN becomes 0), so the table index is always in range.
template <class B>
inline B SelectiveGain(B y, B local, float amount, const float* stops) {
    const B tone = pixel::srgb::EncodeByFormula(Clamp(y, 0.0f, 1.0f));
    const B e = (B(amount) + local) + LookupStops(stops, tone);
    return xsimd::exp2(Clamp(e, -5.0f, 5.0f));
}

// The AVX2 bodies (exposure_avx2.cpp), run only when the processor has AVX2: eight pixels a step,
// reading and writing exactly the row's pixels and local values.
void BrightnessRowAvx2(const float* src, float* dst, int32_t width, float k);
void SelectiveExposureRowAvx2(float* row, const float* local, int32_t width, float amount, const float* stops);

}  // namespace velmora::adjust::exposure_math
