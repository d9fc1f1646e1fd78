// The sRGB curve constants and the per-lane arithmetic of the formula kernels, written once over
// the xsimd batch type: the SSE2 body (one pixel a vector) and the AVX2 body (two) run the same
// operations in the same order on each lane, so both give the same bits. Nothing here may use a
// fused multiply-add; the library is built without contraction.
#pragma once

#include <bit>
#include <cstdint>

#include <xsimd/xsimd.hpp>

namespace velmora::pixel::srgb {

constexpr float kEncodeThreshold = 0.0031308f;
constexpr float kEncodeSlope = 12.92f;
constexpr float kEncodeScale = 1.055f;
constexpr float kEncodeOffset = 0.055f;
constexpr float kEncodeExponent = 0.41666666f;  // the float nearest 1/2.4
constexpr float kDecodeThreshold = 0.04045f;
constexpr float kDecodeSlope = 0.07739938f;     // the float nearest 1/12.92
constexpr float kDecodeScale = 0.9478673f;      // the float nearest 1/1.055
constexpr float kDecodeOffset = 0.052132703f;   // the float nearest 0.055/1.055
constexpr float kDecodeExponent = 2.4f;
static_assert(std::bit_cast<uint32_t>(kEncodeExponent) == 0x3ED55555u);

// x^y as e^(y ln x), the library's fast power.
template <class B>
inline B PowFast(B x, float y) {
    return xsimd::exp(xsimd::log(x) * B(y));
}

// Negative values take the linear branch and values above 1 the power branch; NaN fails the
// comparison and so takes the power branch, which keeps it NaN.
template <class B>
inline B EncodeByFormula(B v) {
    const auto linear = v < B(kEncodeThreshold);
    const B power = B(kEncodeScale) * PowFast(v, kEncodeExponent) - B(kEncodeOffset);
    return xsimd::select(linear, v * B(kEncodeSlope), power);
}

// The power's base is (v + 0.055) / 1.055, formed as a sum and then a product by the reciprocal.
// NaN fails the comparison and takes the linear branch, which keeps it NaN.
template <class B>
inline B DecodeByFormula(B v) {
    const B base = (v + B(kEncodeOffset)) * B(kDecodeScale);
    const B power = PowFast(base, kDecodeExponent);
    const auto high = B(kDecodeThreshold) < v;
    return xsimd::select(high, power, v * B(kDecodeSlope));
}

// The AVX2 bodies (srgb_avx2.cpp), run only when the processor has AVX2: the same rows, two
// pixels a vector, touching exactly the region. AVX alone would not pay: without 256-bit integer
// operations the exponent arithmetic inside e^x and ln x runs in halves, and eight lanes cost as
// much as two four-lane vectors.
void EncodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height);
void DecodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height);

}  // namespace velmora::pixel::srgb
