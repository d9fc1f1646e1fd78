// Linear ProPhoto RGB (D50) to and from CIE L*a*b* (D50) in the blocked Lab128F layout, in place.
// A block is four consecutive pixels of a row, 64 bytes: L* of the four, then a*, then b*, then
// the lightness of their fourth lanes, so later Lab kernels see one component per vector.
//
// Pixels read and written: each row in whole blocks, so a width that is not a multiple of four
// reads and rewrites up to three pixels past the region (the caller's pitch must hold them).
// Processors with AVX2 take two blocks a vector through the same arithmetic (lab_avx2.cpp),
// touching the same blocks and giving the same bits.
#include <cmath>

#include "adjust/lab_math.h"
#include "adjust/lab_rows.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"

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

namespace {

// The widest body this processor has.
void RunInterleaved(adjust::lab::Interleaved kind, float* image, int32_t step, const ImageSize* roi,
                 const adjust::lab::InterleavedArgs& args = {}) {
    const auto rows = cpu::Has(cpu::Level::Avx512) ? adjust::lab::InterleavedRowsAvx512
                      : cpu::Has(cpu::Level::Avx2) ? adjust::lab::InterleavedRowsAvx2
                                                   : adjust::lab::InterleavedRows<Batch4>;
    rows(kind, image, step, roi->width, roi->height, args);
}

adjust::lab::InterleavedArgs SrgbArgs(const float* rgb_to_xyz, const float* white, bool normalise) {
    adjust::lab::InterleavedArgs a;
    a.rgb_to_xyz = rgb_to_xyz ? rgb_to_xyz : adjust::lab::kSrgbToXyz;
    a.white = white ? white : adjust::lab::kWhite;
    a.normalise = normalise;
    return a;
}

}  // namespace

using adjust::lab::Interleaved;

extern "C" VELMORA_API void VELMORA_CALL XMImageRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::ProPhotoToLab, image, step, roi);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLabToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::LabToProPhoto, image, step, roi);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageSRGBToLab_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::SrgbToLab, image, step, roi, SrgbArgs(nullptr, nullptr, false));
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLabToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::LabToSrgb, image, step, roi);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLABToRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::NormToProPhoto, image, step, roi);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageLABToSRGB_Rgb128F_SSE2(float* image, int32_t step, const ImageSize* roi) {
    RunInterleaved(Interleaved::NormToSrgb, image, step, roi);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL XMImageSRGBToLAB_Rgb128F_SSE2(float* image, int32_t step,
                                                                            const ImageSize* roi, const float* rgbToXyz,
                                                                            const float* white) {
    if (step == 0 || image == nullptr || roi == nullptr) return StatusInvalidParameter;
    if (white)
        for (int i = 0; i < 3; ++i)
            if (!(white[i] > 0.0f) || !std::isfinite(white[i])) return StatusInvalidParameter;
    RunInterleaved(Interleaved::SrgbToLab, image, step, roi, SrgbArgs(rgbToXyz, white, true));
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
    adjust::lab::InterleavedArgs a;
    a.curve = lCurve;
    a.intervals = static_cast<float>(n);
    a.chroma = chroma;
    RunInterleaved(Interleaved::Loop, image, step, roi, a);
}
