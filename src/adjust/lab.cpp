// Linear ProPhoto RGB (D50) to and from CIE L*a*b* (D50) in the blocked Lab128F layout, in place.
// A block is four consecutive pixels of a row, 64 bytes: L* of the four, then a*, then b*, then
// the lightness of their fourth lanes, so later Lab kernels see one component per vector.
//
// Pixels read and written: each row in whole blocks, so a width that is not a multiple of four
// reads and rewrites up to three pixels past the region (the caller's pitch must hold them).
// Processors with AVX2 take two blocks a vector through the same arithmetic (lab_avx2.cpp),
// touching the same blocks and giving the same bits.
#include <cmath>

#include "adjust/color_rows.h"
#include "adjust/lab_math.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"
#include "pixel/srgb_math.h"

namespace velmora::adjust {
namespace {

void ToLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        __m128 r = v4::Load(block), g = v4::Load(block + 4), b = v4::Load(block + 8), w = v4::Load(block + 12);
        v4::Transpose4(r, g, b, w);
        Batch4 v[4] = {r, g, b, w};
        lab::ToLab(v);
        for (int i = 0; i < 4; ++i) v4::Store(block + 4 * i, v[i]);
    }
}

void FromLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        Batch4 v[4] = {v4::Load(block), v4::Load(block + 4), v4::Load(block + 8), v4::Load(block + 12)};
        lab::FromLab(v);
        __m128 r = v[0], g = v[1], b = v[2], w = v[3];
        v4::Transpose4(r, g, b, w);
        v4::Store(block, r);
        v4::Store(block + 4, g);
        v4::Store(block + 8, b);
        v4::Store(block + 12, w);
    }
}

// ---- Interleaved Lab: one pixel's L*, a*, b* and untouched fourth lane in its four floats -----

using color::Planes;
namespace srgb = pixel::srgb;

// sRGB primaries adapted to D50 (Bradford), rows X, Y, Z, and the inverse, rows R, G, B.
constexpr float kSrgbToXyz[9] = {0.4360747f, 0.3850649f, 0.1430804f, 0.2225045f, 0.7168786f,
                                 0.0606169f, 0.0139322f, 0.0971045f, 0.7141733f};
constexpr float kXyzToSrgb[9] = {3.1338564f, -1.6168668f, -0.4906148f, -0.9787686f, 1.9161416f,
                                 0.0334541f, 0.0719452f, -0.2289913f, 1.4052427f};
constexpr float kWhite[3] = {lab::kWhiteX, 1.0f, lab::kWhiteZ};

// Runs fn on the planes of every pixel of the region, in place; the fourth lane is carried
// through the transposes unchanged unless fn sets it.
template <class Fn>
void InPlace(float* image, int32_t step, const ImageSize* roi, Fn&& fn) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height, fn);
}

// sRGB-encoded R, G, B decoded by the vector curve (no clamp), taken to X, Y, Z by `m` and
// divided by the white: L*, a*, b* in their place.
void SrgbToLab(Planes& v, const float* m, const float* white) {
    const Batch4 r = srgb::DecodeByFormula(v[0]), g = srgb::DecodeByFormula(v[1]), b = srgb::DecodeByFormula(v[2]);
    const Batch4 t[3] = {color::Row3(r, g, b, m) / Batch4(white[0]), color::Row3(r, g, b, m + 3) / Batch4(white[1]),
                         color::Row3(r, g, b, m + 6) / Batch4(white[2])};
    lab::LabFromRatios(t, v[0], v[1], v[2]);
}

// L*, a*, b* to sRGB-encoded R, G, B (vector curve, no clamp).
template <bool Textbook>
void LabToSrgb(Planes& v) {
    Batch4 x, y, z;
    lab::LabToXyz<Textbook>(v[0], v[1], v[2], x, y, z);
    for (int i = 0; i < 3; ++i) v[i] = srgb::EncodeByFormula(color::Row3(x, y, z, kXyzToSrgb + 3 * i));
}

// Lab normalised to [0, 1] for curves and integer storage: L* / 100, (a* + 128) / 255,
// (b* + 128) / 255, and back.
void NormaliseLab(Planes& v) {
    v[0] = v[0] / Batch4(100.0f);
    v[1] = (v[1] + Batch4(128.0f)) / Batch4(255.0f);
    v[2] = (v[2] + Batch4(128.0f)) / Batch4(255.0f);
}
void DenormaliseLab(Planes& v) {
    v[0] = v[0] * Batch4(100.0f);
    v[1] = v[1] * Batch4(255.0f) - Batch4(128.0f);
    v[2] = v[2] * Batch4(255.0f) - Batch4(128.0f);
}

// T[k] + (T[k + 1] - T[k]) (p - k) at p = clamp(t, 0, 1) x n, k = trunc(p), lane by lane.
Batch4 CurveLookup(Batch4 t, const float* table, float n) {
    const __m128 p = _mm_mul_ps(v4::Clamp01(t), v4::Set1(n));
    const __m128i k = _mm_cvttps_epi32(p);
    alignas(16) int32_t index[4];
    v4::StoreIAligned(index, k);
    const __m128 lower = _mm_setr_ps(table[index[0]], table[index[1]], table[index[2]], table[index[3]]);
    const __m128 upper = _mm_setr_ps(table[index[0] + 1], table[index[1] + 1], table[index[2] + 1], table[index[3] + 1]);
    return _mm_add_ps(lower, _mm_mul_ps(_mm_sub_ps(upper, lower), _mm_sub_ps(p, _mm_cvtepi32_ps(k))));
}

// ---- Edits on the blocked layout ---------------------------------------------------------------

// Lightness offset, the develop pass's contrast S-curve on L* / 100 (written in L* units, so an
// amount of 0 leaves L* exactly), then a rotation of (a*, b*) by the hue angle and a chroma gain.
struct LabEdit {
    Batch4 lightness, contrast, cos_h, sin_h, chroma;
    void operator()(float* block) const {
        const Batch4 zero(0.0f), hundred(100.0f), half(0.5f);
        Batch4 l = xsimd::min(xsimd::max(Batch4(v4::Load(block)) + lightness, zero), hundred);
        const Batch4 t = l / hundred;
        const Batch4 centred = t - half;
        const Batch4 s = centred / (xsimd::max(centred, half - t) + half) + half;
        l = xsimd::min(xsimd::max(l + (s * hundred - l) * contrast, zero), hundred);
        const Batch4 a = v4::Load(block + 4), b = v4::Load(block + 8);
        v4::Store(block, l);
        v4::Store(block + 4, (a * cos_h - b * sin_h) * chroma);
        v4::Store(block + 8, (a * sin_h + b * cos_h) * chroma);
    }
};

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToLab_ProPhotoRgb128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    const auto row_fn = cpu::Has(cpu::Level::Avx2) ? adjust::lab::ToLabRowAvx2 : adjust::ToLabRow;
    frame::ForEachRow(image, step, image, step, roi,
                      [&](const float*, float* row, int32_t width) { row_fn(row, width); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToProPhotoRGB_Lab128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    const auto row_fn = cpu::Has(cpu::Level::Avx2) ? adjust::lab::FromLabRowAvx2 : adjust::FromLabRow;
    frame::ForEachRow(image, step, image, step, roi,
                      [&](const float*, float* row, int32_t width) { row_fn(row, width); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi, [](color::Planes& v) { adjust::lab::ProPhotoToLab(v); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLabToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi, [](color::Planes& v) { adjust::lab::LabToProPhoto(v); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageSRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi,
                    [](color::Planes& v) { adjust::SrgbToLab(v, adjust::kSrgbToXyz, adjust::kWhite); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLabToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi, adjust::LabToSrgb<false>);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLABToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi, [](color::Planes& v) {
        adjust::DenormaliseLab(v);
        adjust::lab::LabToProPhoto<true>(v);
    });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLABToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    adjust::InPlace(image, step, roi, [](color::Planes& v) {
        adjust::DenormaliseLab(v);
        adjust::LabToSrgb<true>(v);
        for (int i = 0; i < 3; ++i) v[i] = v4::Clamp01(v[i]);
    });
}

extern "C" VELMORA_API StatusCode VELMORA_CALL XMImageSRGBToLAB_Rgb128F_SSE2(float* image, int32_t step,
                                                                            const ImageSize* roi, const float* rgbToXyz,
                                                                            const float* white) {
    if (step == 0 || image == nullptr || roi == nullptr) return StatusInvalidParameter;
    if (white)
        for (int i = 0; i < 3; ++i)
            if (!(white[i] > 0.0f) || !std::isfinite(white[i])) return StatusInvalidParameter;
    const float* m = rgbToXyz ? rgbToXyz : adjust::kSrgbToXyz;
    const float* w = white ? white : adjust::kWhite;
    adjust::InPlace(image, step, roi, [&](color::Planes& v) {
        adjust::SrgbToLab(v, m, w);
        adjust::NormaliseLab(v);
    });
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL XMImageAdjust_Lab128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                    float lightness, float contrast, float chroma,
                                                                    float hue) {
    // The angle's cosine and sine once per call, in double from degrees.
    const double radians = static_cast<double>(hue) * (3.14159265358979323846 / 180.0);
    const adjust::LabEdit edit{Batch4(100.0f * lightness), Batch4(contrast), Batch4(static_cast<float>(std::cos(radians))),
                               Batch4(static_cast<float>(std::sin(radians))), Batch4(1.0f + chroma)};
    for (int32_t y = 0; y < roi->height; ++y) {
        float* row = frame::Row(image, step, y);
        for (int32_t x = 0; x < roi->width; x += 4) edit(row + 4 * x);  // a partial last block is edited whole
    }
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLoopLab_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                      const float* lCurve, int32_t n, float chroma) {
    const float intervals = static_cast<float>(n);
    const Batch4 gain(1.0f + chroma);
    adjust::InPlace(image, step, roi, [&](color::Planes& v) {
        adjust::lab::ProPhotoToLab(v);
        v[0] = adjust::CurveLookup(v[0] / Batch4(100.0f), lCurve, intervals) * Batch4(100.0f);
        v[1] = v[1] * gain;
        v[2] = v[2] * gain;
        adjust::lab::LabToProPhoto(v);
    });
}
