// sRGB transfer in place on four-float pixels, three ways side by side because they differ in
// cost and in the exact values they produce: the fast vector power (no clamp), the runtime's
// powf per lane (clamped), and a 1024-step table with linear interpolation (clamped).
// All four lanes are transformed, alpha included: the kernels treat the fourth float as a fourth
// colour value. A pixel is exactly one vector, so nothing outside the region is read or written.
// Processors with AVX2 run the formula kernels two pixels a vector through the same arithmetic
// (srgb_avx2.cpp), with the same bits and the same region. The table kernels stay on this body:
// gathering the entries with AVX2 measured no faster than the paired 8-byte loads.
#include <emmintrin.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"
#include "pixel/srgb_math.h"
#include "pixel/srgb_table.h"

namespace velmora::pixel {
namespace {

using namespace srgb;

// The accurate encoder: clamped first (NaN becomes 0), then the runtime's powf on each lane.
inline __m128 EncodeByPowf(__m128 v) {
    v = v4::Clamp01(v);
    alignas(16) float lane[4];
    _mm_store_ps(lane, v);
    // The results are gathered in registers: storing four floats and reloading them as one
    // vector would stall on store forwarding once per pixel.
    const __m128 pow = _mm_setr_ps(std::pow(lane[0], kEncodeExponent), std::pow(lane[1], kEncodeExponent),
                                   std::pow(lane[2], kEncodeExponent), std::pow(lane[3], kEncodeExponent));
    const __m128 power = _mm_sub_ps(_mm_mul_ps(v4::Set1(kEncodeScale), pow), v4::Set1(kEncodeOffset));
    const __m128 linear = _mm_cmplt_ps(v, v4::Set1(kEncodeThreshold));
    return v4::Select(power, _mm_mul_ps(v, v4::Set1(kEncodeSlope)), linear);
}

// ---- Table kernels (the table itself is in srgb_table.h) ------------------------------------

template <Direction D>
void TableRows(float* data, int32_t step, int32_t width, int32_t height) {
    Table table;
    BuildTable<D>(table);
    TransformRows<velmora::Batch4>(data, step, width, height, [&](__m128 v) { return Interpolate(table, v); });
}

// The top left pixel of the rectangle at (x, y), formed in pointer width.
float* PixelAt(float* data, int32_t step, int32_t x, int32_t y) {
    return frame::Row(data, step, y) + static_cast<std::ptrdiff_t>(x) * 4;
}

}  // namespace
}  // namespace velmora::pixel

using namespace velmora::pixel;

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2(float* data, int32_t step, const ImageSize* roi) {
    if (velmora::cpu::Has(velmora::cpu::Level::Avx2)) return EncodeRowsAvx2(data, step, roi->width, roi->height);
    TransformRows<velmora::Batch4>(data, step, roi->width, roi->height, EncodeByFormula<velmora::Batch4>);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_2(float* data, int32_t step, const ImageSize* roi) {
    TransformRows<velmora::Batch4>(data, step, roi->width, roi->height, EncodeByPowf);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_Curve(float* data, int32_t step,
                                                                          const ImageSize* roi) {
    TableRows<Direction::Encode>(data, step, roi->width, roi->height);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2(float* data, int32_t step,
                                                                            const ImageSize* roi) {
    XMImageRGBToSRGB_Rgb128F_SSE2_Curve(data, step, roi);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageSRGBToRGB_Rgb128F_SSE2(float* data, int32_t step, const ImageSize* roi) {
    if (velmora::cpu::Has(velmora::cpu::Level::Avx2)) return DecodeRowsAvx2(data, step, roi->width, roi->height);
    TransformRows<velmora::Batch4>(data, step, roi->width, roi->height, DecodeByFormula<velmora::Batch4>);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageSRGBToRGB_Rgb128F_SSE2_Curve(float* data, int32_t step,
                                                                          const ImageSize* roi) {
    TableRows<Direction::Decode>(data, step, roi->width, roi->height);
}

extern "C" VELMORA_API void VELMORA_CALL RGBToSRGB_Rgb128F_Lut(float* data, int32_t step, int32_t x, int32_t y,
                                                               int32_t width, int32_t height) {
    TableRows<Direction::Encode>(PixelAt(data, step, x, y), step, width, height);
}

extern "C" VELMORA_API void VELMORA_CALL SRGBToRGB_Rgb128F_Lut(float* data, int32_t step, int32_t x, int32_t y,
                                                               int32_t width, int32_t height) {
    TableRows<Direction::Decode>(PixelAt(data, step, x, y), step, width, height);
}
