// The sRGB curve constants and the per-lane arithmetic of the formula kernels, written once over
// the xsimd batch type: the SSE2 body (one pixel a vector) and the AVX2 body (two) run the same
// operations in the same order on each lane, so both give the same bits. Nothing here may use a
// fused multiply-add; the library is built without contraction.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include <xsimd/xsimd.hpp>

#include "core/xmmath.h"

#include "core/frame.h"

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
    return XMVectorExpE(xsimd::log(x) * B(y));
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

// Runs pixel_fn over every pixel of the rows, B::size / 4 pixels a vector. Four vectors a step
// give the processor four independent log/exp chains to overlap; the rest go one vector at a
// time through the same function, so the tail's values equal the body's. Where a vector holds
// more than one pixel, a row's last pixels that do not fill one pass through a zeroed buffer, so
// nothing past the region is read or written.
template <class B, class PixelFn>
void TransformRows(float* data, int32_t step, int32_t width, int32_t height, PixelFn pixel_fn) {
    constexpr int32_t kPixels = B::size / 4;
    for (int32_t y = 0; y < height; ++y) {
        float* p = frame::Row(data, step, y);
        int32_t x = 0;
        for (; x + 4 * kPixels <= width; x += 4 * kPixels, p += 4 * B::size) {
            const B a = pixel_fn(B::load_unaligned(p)), b = pixel_fn(B::load_unaligned(p + B::size));
            const B c = pixel_fn(B::load_unaligned(p + 2 * B::size)), d = pixel_fn(B::load_unaligned(p + 3 * B::size));
            a.store_unaligned(p);
            b.store_unaligned(p + B::size);
            c.store_unaligned(p + 2 * B::size);
            d.store_unaligned(p + 3 * B::size);
        }
        for (; x + kPixels <= width; x += kPixels, p += B::size) B(pixel_fn(B::load_unaligned(p))).store_unaligned(p);
        if constexpr (kPixels > 1) {
            if (x < width) {
                alignas(64) float part[B::size] = {};
                const size_t bytes = static_cast<size_t>(width - x) * 16;
                std::memcpy(part, p, bytes);
                B(pixel_fn(B::load_aligned(part))).store_aligned(part);
                std::memcpy(p, part, bytes);
            }
        }
    }
}

// The AVX2 bodies (srgb_avx2.cpp), run only when the processor has AVX2: the same rows, two
// pixels a vector, touching exactly the region. AVX alone would not pay: without 256-bit integer
// operations the exponent arithmetic inside e^x and ln x runs in halves, and eight lanes cost as
// much as two four-lane vectors.
void EncodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height);
void DecodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height);

}  // namespace velmora::pixel::srgb
