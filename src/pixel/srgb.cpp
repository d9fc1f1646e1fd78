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

// ---- Table kernels --------------------------------------------------------------------------

// 1024 steps of 1/1023 and a guard entry repeating the last one. The index is the clamped value
// times 1023.9999 (two float steps below 1024), so it never exceeds 1023 and k + 1 is always a
// valid entry. Table spacing and index scale differ by 1024/1023 on purpose: the results meet
// the curve at v x 1024/1023.
constexpr int kTableSteps = 1024;
constexpr int kTableEntries = kTableSteps + 1;
constexpr float kTableSpacing = 0.0009775171f;  // the float nearest 1/1023
constexpr float kIndexScale = 1023.9999f;
static_assert(std::bit_cast<uint32_t>(kIndexScale) == 0x447FFFFEu);

enum class Direction { Encode, Decode };

template <Direction D>
float TableEntry(float x) {
    if (x <= 0.0f) return 0.0f;
    if constexpr (D == Direction::Encode) {
        if (x <= kEncodeThreshold) return x * kEncodeSlope;
        if (x >= 1.0f) return 1.0f;
        return kEncodeScale * std::pow(x, kEncodeExponent) - kEncodeOffset;
    } else {
        if (x <= kDecodeThreshold) return x * kDecodeSlope;
        if (x >= 1.0f) return 1.0f;
        return std::pow(x * kDecodeScale + kDecodeOffset, kDecodeExponent);
    }
}

// One 64-byte cache line holds 16 entries; aligning the table makes every line a whole one.
struct alignas(64) Table {
    float entry[kTableEntries];
};

template <Direction D>
void BuildTable(Table& table) {
    for (int i = 0; i < kTableSteps; ++i) table.entry[i] = TableEntry<D>(static_cast<float>(i) * kTableSpacing);
    table.entry[kTableSteps] = table.entry[kTableSteps - 1];
    // One read per cache line brings the whole table in before the pixel loop needs it. The reads
    // are volatile so that the compiler keeps them although their values go unused.
    const volatile float* touch = table.entry;
    for (int i = 0; i < kTableEntries; i += 16) (void)touch[i];
}

// T[k] + (T[k + 1] - T[k]) x f per lane. Each lane's pair of neighbouring entries comes in with
// one 8-byte load, and two unpacks sort the four pairs into a vector of T[k] and one of T[k + 1].
inline __m128 Interpolate(const Table& table, __m128 v) {
    const __m128 pos = _mm_mul_ps(v4::Clamp01(v), v4::Set1(kIndexScale));
    const __m128i k = _mm_cvttps_epi32(pos);
    const __m128 f = _mm_sub_ps(pos, _mm_cvtepi32_ps(k));
    auto pair = [&](int lane_index) {
        return _mm_castsi128_ps(v4::Load64(table.entry + lane_index));
    };
    const __m128 p0 = pair(_mm_cvtsi128_si32(k));
    const __m128 p1 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(1, 1, 1, 1))));
    const __m128 p2 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(2, 2, 2, 2))));
    const __m128 p3 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(3, 3, 3, 3))));
    const __m128 p01 = _mm_unpacklo_ps(p0, p1);  // T[k0], T[k1], T[k0 + 1], T[k1 + 1]
    const __m128 p23 = _mm_unpacklo_ps(p2, p3);
    const __m128 lo = _mm_movelh_ps(p01, p23);
    const __m128 hi = _mm_movehl_ps(p23, p01);
    return _mm_add_ps(lo, _mm_mul_ps(_mm_sub_ps(hi, lo), f));
}

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
