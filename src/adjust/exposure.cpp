// Global adjustments on linear Rgba128F images: exposure (plain, with a local map, by tone band),
// brightness in CIE lightness, saturation with vibrance, and levels. Every kernel treats the fourth
// lane like a colour lane: it is scaled, mixed or clamped together with R, G and B.
//
// Pixels read and written: exactly the region. The four-pixel kernels run their last partial group
// on a zero-padded copy, so nothing past the width is touched. Local maps are read one float per
// pixel of the region.
//
// The vector brightness and selective exposure arithmetic lives in exposure_math.h, shared with
// their AVX2 bodies (exposure_avx2.cpp), which processors with AVX2 run instead: same bits, eight
// pixels a step, the same pixels and local values touched.
#include <cmath>
#include <cstring>

#include "adjust/exposure_math.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"

namespace velmora::adjust {
namespace {

constexpr float kEpsilon = 1.1920929e-07f;  // float epsilon: keeps gains finite on black pixels

// ---- Shared walking and pixel helpers --------------------------------------------------------

// Walks one row four pixels at a time, handing fn the four pixels (one vector each) and their
// local values (zeros without a map). The last partial group runs the same fn on a zero-padded
// copy and stores only the real pixels back.
template <class Fn>
void ForEachQuad(const float* src, float* dst, const float* local, int32_t width, Fn&& fn) {
    int32_t x = 0;
    for (; x + 4 <= width; x += 4) {
        const float* s = src + 4 * x;
        __m128 px[4] = {v4::Load(s), v4::Load(s + 4), v4::Load(s + 8), v4::Load(s + 12)};
        fn(px, local ? v4::Load(local + x) : v4::Zero());
        float* d = dst + 4 * x;
        for (int k = 0; k < 4; ++k) v4::Store(d + 4 * k, px[k]);
    }
    const int32_t n = width - x;
    if (n <= 0) return;
    alignas(16) float pixels[16] = {};
    alignas(16) float locals[4] = {};
    std::memcpy(pixels, src + 4 * x, sizeof(float) * 4 * n);
    if (local) std::memcpy(locals, local + x, sizeof(float) * n);
    __m128 px[4] = {v4::LoadAligned(pixels), v4::LoadAligned(pixels + 4), v4::LoadAligned(pixels + 8),
                    v4::LoadAligned(pixels + 12)};
    fn(px, v4::LoadAligned(locals));
    for (int k = 0; k < 4; ++k) v4::StoreAligned(pixels + 4 * k, px[k]);
    std::memcpy(dst + 4 * x, pixels, sizeof(float) * 4 * n);
}

struct Weights {
    float r, g, b;
};
constexpr Weights kProPhotoLuma{0.28804f, 0.711874f, 8.6e-05f};
constexpr Weights kRec709Luma{0.2125f, 0.7152f, 0.0721f};

// The four pixels of a quad as planes: one vector each of R, G, B and the fourth lane.
struct QuadPlanes {
    __m128 r, g, b, a;
};
inline QuadPlanes Planar(const __m128 (&px)[4]) {
    QuadPlanes p{px[0], px[1], px[2], px[3]};
    v4::Transpose4(p.r, p.g, p.b, p.a);
    return p;
}

// Luminance of four pixels, one lane each: (wr R + wg G) + wb B.
inline __m128 Luminance(const QuadPlanes& p, Weights w) {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(p.r, v4::Set1(w.r)), _mm_mul_ps(p.g, v4::Set1(w.g))),
                      _mm_mul_ps(p.b, v4::Set1(w.b)));
}

// Multiplies each pixel, all four lanes, by its own lane of gain.
inline void ScalePixels(__m128 (&px)[4], __m128 gain) {
    px[0] = _mm_mul_ps(px[0], v4::Broadcast<0>(gain));
    px[1] = _mm_mul_ps(px[1], v4::Broadcast<1>(gain));
    px[2] = _mm_mul_ps(px[2], v4::Broadcast<2>(gain));
    px[3] = _mm_mul_ps(px[3], v4::Broadcast<3>(gain));
}

inline __m128 Clamp(__m128 v, float lo, float hi) { return _mm_min_ps(_mm_max_ps(v, v4::Set1(lo)), v4::Set1(hi)); }

inline float ClampStops(float e) { return std::fmin(std::fmax(e, -5.0f), 5.0f); }

// ---- Exposure -------------------------------------------------------------------------------

// One pixel per vector: every lane times the same factor.
void ScaleRow(const float* src, float* dst, int32_t width, __m128 factor) {
    for (int32_t x = 0; x < width; ++x) v4::Store(dst + 4 * x, _mm_mul_ps(v4::Load(src + 4 * x), factor));
}

// Each pixel times 2^(amount + its local stops), clamped to +-5 stops. The gain is the C
// runtime's powf per pixel, exact for whole stops, so a map of whole stops doubles and halves
// exactly.
void LocalExposureRow(float* row, const float* local, int32_t width, float amount) {
    for (int32_t x = 0; x < width; ++x) {
        const float factor = std::pow(2.0f, ClampStops(local[x] + amount));
        v4::Store(row + 4 * x, _mm_mul_ps(v4::Load(row + 4 * x), v4::Set1(factor)));
    }
}

// ---- Selective exposure ---------------------------------------------------------------------

using exposure_math::kBandEntries;
constexpr float kBandStep = 0.0009765625f;  // 1 / 1024: the tone between table entries

// e^(-k (t - centre)^2), exactly 1 at its centre so a band's own tone gets its full amount.
void FillBand(float* table, float k, float centre) {
    for (int i = 0; i < kBandEntries; ++i) {
        const float d = static_cast<float>(i) * kBandStep - centre;
        table[i] = std::fabs(d) <= 1e-06f ? 1.0f : std::exp(-k * d * d);
    }
}

// The stops each tone receives from the five band amounts. Blacks and whites are the narrow
// bands at the ends (sigma 0.1); shadows and highlights are the wide end bands (sigma 1/3) with
// the narrow ones taken out, so they peak near t = 0.23 and 0.77 and leave the black and white
// points to their own sliders; midtones sits at 0.5. All five are Gaussians, so the sum is smooth.
void BuildStopsTable(float* stops, float blacks, float shadows, float midtones, float highlights, float whites) {
    float dark[kBandEntries], dark_wide[kBandEntries], mid[kBandEntries], light[kBandEntries],
        light_wide[kBandEntries];
    FillBand(dark, 50.0f, 0.0f);
    FillBand(dark_wide, 4.5f, 0.0f);
    FillBand(mid, 28.125f, 0.5f);
    FillBand(light, 50.0f, 1.0f);
    FillBand(light_wide, 4.5f, 1.0f);
    for (int i = 0; i < kBandEntries; ++i)
        stops[i] = blacks * dark[i] + shadows * (dark_wide[i] - dark[i]) + midtones * mid[i] +
                   highlights * (light_wide[i] - light[i]) + whites * light[i];
}

void SelectiveExposureRow(float* row, const float* local, int32_t width, float amount, const float* stops) {
    using Batch4 = xsimd::batch<float, xsimd::sse2>;
    ForEachQuad(row, row, local, width, [&](__m128(&px)[4], __m128 local_stops) {
        const Batch4 y = Luminance(Planar(px), kProPhotoLuma);
        ScalePixels(px, exposure_math::SelectiveGain(y, Batch4(local_stops), amount, stops));
    });
}

// ---- Brightness -----------------------------------------------------------------------------

// Lightness L (CIE L* / 100) raised to k, back to luminance, applied as one gain per pixel so
// hue and the ratios between channels stay.
void BrightnessRow(const float* src, float* dst, int32_t width, __m128 k) {
    using Batch4 = xsimd::batch<float, xsimd::sse2>;
    ForEachQuad(src, dst, nullptr, width, [&](__m128(&px)[4], __m128) {
        ScalePixels(px, exposure_math::BrightnessGain(Batch4(Luminance(Planar(px), kRec709Luma)), Batch4(k)));
    });
}

// The plain-code brightness: lightness squared, whatever the amount, and a linear branch one
// tenth as steep as the vector kernel's. Callers depend on both, so they stay.
void BrightnessScalarRow(const float* src, float* dst, int32_t width) {
    for (int32_t x = 0; x < width; ++x) {
        const float* s = src + 4 * x;
        const float y = 0.2125f * s[0] + 0.7152f * s[1] + 0.0721f * s[2];
        const float lightness = y >= 0.008856452f ? 1.16f * std::pow(y, 0.33333334f) - 0.16f : y * 0.9032963f;
        const float t = 100.0f * (lightness * lightness);
        const float u = (t + 16.0f) * 0.00862069f;
        const float y_new = t > 8.0f ? u * u * u : t * 0.0011070565f;
        const float gain = (y_new + kEpsilon) / (y + kEpsilon);
        for (int c = 0; c < 4; ++c) dst[4 * x + c] = s[c] * gain;
    }
}

// ---- Saturation -----------------------------------------------------------------------------

// Pixel K of a quad, every lane: y + (c - y) x f with its own lanes of y and f.
template <int K>
inline void MixWithLuminance(__m128 (&px)[4], __m128 y, __m128 f) {
    const __m128 yk = v4::Broadcast<K>(y);
    px[K] = _mm_add_ps(yk, _mm_mul_ps(_mm_sub_ps(px[K], yk), v4::Broadcast<K>(f)));
}

// Every lane pulled toward or pushed away from the ProPhoto luminance by f = k (+ S x vibrance,
// S the HSV saturation) (+ the local value). The variants drop what is off.
template <bool kVibrance, bool kLocal>
void SaturationRow(float* row, const float* local, int32_t width, float k, float vibrance) {
    ForEachQuad(row, row, kLocal ? local : nullptr, width, [&](__m128(&px)[4], __m128 local_amount) {
        const QuadPlanes p = Planar(px);
        const __m128 y = Luminance(p, kProPhotoLuma);
        __m128 f = v4::Set1(k);
        if constexpr (kVibrance) {
            const __m128 hi = _mm_max_ps(_mm_max_ps(p.r, p.g), p.b);
            const __m128 lo = _mm_min_ps(_mm_min_ps(p.r, p.g), p.b);
            const __m128 grey = _mm_cmple_ps(_mm_andnot_ps(v4::Set1(-0.0f), hi), v4::Set1(kEpsilon));
            const __m128 s = _mm_andnot_ps(grey, _mm_div_ps(_mm_sub_ps(hi, lo), hi));
            f = _mm_add_ps(_mm_mul_ps(s, v4::Set1(vibrance)), f);
        }
        if constexpr (kLocal) f = _mm_add_ps(f, local_amount);
        MixWithLuminance<0>(px, y, f);
        MixWithLuminance<1>(px, y, f);
        MixWithLuminance<2>(px, y, f);
        MixWithLuminance<3>(px, y, f);
    });
}

// ---- Levels ---------------------------------------------------------------------------------

void LevelsRow(float* row, int32_t width, __m128 black, __m128 scale) {
    for (int32_t x = 0; x < width; ++x)
        v4::Store(row + 4 * x, v4::Clamp01(_mm_mul_ps(_mm_sub_ps(v4::Load(row + 4 * x), black), scale)));
}

// Rows of an in-place image with an optional local plane of its own step.
template <class RowFn>
void ForEachLocalRow(float* image, int32_t step, int32_t height, const float* local, int32_t local_step,
                     RowFn&& fn) {
    for (int32_t y = 0; y < height; ++y)
        fn(frame::Row(image, step, y), local ? frame::Row(local, local_step, y) : nullptr);
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;
using namespace velmora::adjust;

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustExposure_Rgba128F(const float* src, int32_t srcStep, float* dst,
                                                                      int32_t dstStep, const ImageSize* roi,
                                                                      float exposure) {
    const float factor = std::exp2(exposure);
    frame::ForEachRow(src, srcStep, dst, dstStep, roi, [&](const float* s, float* d, int32_t width) {
        for (int32_t i = 0; i < 4 * width; ++i) d[i] = s[i] * factor;
    });
}

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustExposure_Rgba128F_SSE2(const float* src, int32_t srcStep,
                                                                           float* dst, int32_t dstStep,
                                                                           const ImageSize* roi, float exposure) {
    const __m128 factor = v4::Set1(std::exp2(exposure));
    frame::ForEachRow(src, srcStep, dst, dstStep, roi,
                      [&](const float* s, float* d, int32_t width) { ScaleRow(s, d, width, factor); });
}

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustExposureEtc_Rgba128F_SSE2(float* image, int32_t step,
                                                                              int32_t width, int32_t height,
                                                                              ExposureParameter exposure,
                                                                              ExposureParameter, float, float) {
    const __m128 factor = v4::Set1(std::pow(2.0f, exposure.amount));
    ForEachLocalRow(image, step, height, exposure.localMap, exposure.localStep, [&](float* row, const float* local) {
        if (local)
            LocalExposureRow(row, local, width, exposure.amount);
        else
            ScaleRow(row, row, width, factor);
    });
}

extern "C" VELMORA_API StatusCode VELMORA_CALL ImageAdjustExposureSelective_Rgba128F_SSE2(
    float* image, int32_t step, const ImageSize* roi, ExposureParameter exposure, float blacks, float shadows,
    float midtones, float highlights, float whites) {
    if (step % 64 != 0) return StatusFailure;
    float stops[kBandEntries];
    BuildStopsTable(stops, blacks, shadows, midtones, highlights, whites);
    const auto row_fn = cpu::Has(cpu::Level::Avx2) ? exposure_math::SelectiveExposureRowAvx2 : SelectiveExposureRow;
    ForEachLocalRow(image, step, roi->height, exposure.localMap, exposure.localStep, [&](float* row, const float* local) {
        row_fn(row, local, roi->width, exposure.amount, stops);
    });
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustBrightness_Rgba128F(const float* src, int32_t srcStep, float* dst,
                                                                        int32_t dstStep, const ImageSize* roi,
                                                                        float) {
    frame::ForEachRow(src, srcStep, dst, dstStep, roi,
                      [](const float* s, float* d, int32_t width) { BrightnessScalarRow(s, d, width); });
}

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustBrightness_Rgba128F_SSE2(const float* src, int32_t srcStep,
                                                                             float* dst, int32_t dstStep,
                                                                             const ImageSize* roi, float amount) {
    const float k = std::exp2(amount);
    if (cpu::Has(cpu::Level::Avx2))
        return frame::ForEachRow(src, srcStep, dst, dstStep, roi, [&](const float* s, float* d, int32_t width) {
            exposure_math::BrightnessRowAvx2(s, d, width, k);
        });
    frame::ForEachRow(src, srcStep, dst, dstStep, roi,
                      [&](const float* s, float* d, int32_t width) { BrightnessRow(s, d, width, v4::Set1(k)); });
}

extern "C" VELMORA_API void VELMORA_CALL ImageAdjustSaturation_Rgba128F_SSE2(float* image, int32_t step,
                                                                             int32_t width, int32_t height,
                                                                             float saturation, float vibrance,
                                                                             const float* localMap,
                                                                             int32_t localStep) {
    const bool saturation_on = std::fabs(saturation) >= 1e-06f;
    const bool vibrance_on = std::fabs(vibrance) >= 1e-06f;
    if (!saturation_on && !vibrance_on && localMap == nullptr) return;
    const float k = saturation_on ? 1.0f + saturation : 1.0f;
    auto run = [&](auto row_fn) {
        ForEachLocalRow(image, step, height, localMap, localStep,
                        [&](float* row, const float* local) { row_fn(row, local, width, k, vibrance); });
    };
    if (vibrance_on)
        localMap ? run(SaturationRow<true, true>) : run(SaturationRow<true, false>);
    else
        localMap ? run(SaturationRow<false, true>) : run(SaturationRow<false, false>);
}

extern "C" VELMORA_API void VELMORA_CALL ImageLevels_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                   float black, float white) {
    const __m128 scale = v4::Set1(1.0f / (white - black));
    const __m128 offset = v4::Set1(black);
    frame::ForEachRow(image, step, image, step, roi,
                      [&](const float*, float* row, int32_t width) { LevelsRow(row, width, offset, scale); });
}
