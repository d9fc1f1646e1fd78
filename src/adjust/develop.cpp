// The develop pass: seven tone and colour adjustments in one in-place pass over a linear ProPhoto
// RgbL128F image (R, G, B and the caller's base luminance L in the fourth lane).
//
// The tone operators work on the sRGB-encoded luminance y of the pixel and b of its base; the
// detail d = y - b rides on top of the adjusted base, and the new luminance goes back to each
// pixel as one linear gain on all four lanes, so only saturation changes the ratios of R, G, B.
//
// Memory: each row runs in groups of four pixels, so the last group reads and rewrites up to three
// pixels past the width. Local maps are packed planes of width x height floats; their last group
// of a row loads only the values inside the region, so the next row's values start exactly at
// width x y and nothing past the map's end is read.
//
// The recipe and row walks live in develop_math.h, shared with the AVX2 body (develop_avx2.cpp),
// which processors with AVX2 run instead: same bits, two groups a vector, same memory touched.
#include <emmintrin.h>

#include <cmath>
#include <cstdint>

#include "adjust/develop_math.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "velmora/imaging.h"

namespace velmora::adjust::develop {
namespace {

// The unmasked loops treat |amount| below this as off; the float is widened, so 0.0001f is on.
constexpr double kFastOff = static_cast<double>(0.0001f);
// The masked pass's own, finer off threshold.
constexpr float kMaskedOff = 1e-06f;

// One group of four pixels a vector, transposed to one vector per component.
struct Sse2Lanes {
    using B = xsimd::batch<float, xsimd::sse2>;
    static constexpr int32_t kPixels = 4;
    // Groups a row step develops side by side. Each step of the recipe is a chain of vector
    // exp/log whose latency one group alone cannot hide; three measured best (two lose about
    // 5 %, four spill registers).
    static constexpr int32_t kGroups = 3;

    static Quad<B> Load(const float* p, int32_t, int32_t) {
        __m128 r = v4::Load(p), g = v4::Load(p + 4), b = v4::Load(p + 8), l = v4::Load(p + 12);
        v4::Transpose4(r, g, b, l);
        return {r, g, b, l};
    }

    static void Store(float* p, const Quad<B>& q, int32_t, int32_t) {
        __m128 r = q.r, g = q.g, b = q.b, l = q.l;
        v4::Transpose4(r, g, b, l);
        v4::Store(p, r);
        v4::Store(p + 4, g);
        v4::Store(p + 8, b);
        v4::Store(p + 12, l);
    }

    static B LoadLocal(const float* row_map, int32_t x, int32_t width) { return LoadLocalGroup(row_map, x, width); }
};

bool FastOn(float amount) { return std::fabs(static_cast<double>(amount)) >= kFastOff; }

// Exposure and brightness constants of a call, formed with the runtime's exp2f.
void SetExposure(Params& p, float stops) {
    p.exposure_factor = std::exp2f(stops);
    p.exposure_cap = stops > 0.0f ? 1.0f : kInfinity;
}

Adjustment Classify(const DevelopParameter& p) {
    const bool global = std::fabs(p.amount) >= kMaskedOff;
    if (p.localMap == nullptr) return {global ? Mode::Global : Mode::Identity, p.amount, nullptr};
    return {global ? Mode::Both : Mode::Local, global ? p.amount : 0.0f, p.localMap};
}

MaskedCall PrepareMasked(const DevelopParameter* const p[7], float black) {
    MaskedCall c{};
    c.exposure = Classify(*p[0]);
    c.brightness = Classify(*p[1]);
    c.contrast = Classify(*p[4]);
    c.clarity = Classify(*p[5]);
    c.saturation = Classify(*p[6]);
    c.black = black;
    Params& f = c.fixed;
    SetExposure(f, c.exposure.amount);
    if (c.exposure.mode != Mode::Global) f.exposure_cap = 1.0f;
    f.brightness_exponent = std::exp2f(-c.brightness.amount);
    // Shadows and highlights have no per-pixel form: their maps only select this pass.
    f.shadows = p[2]->amount;
    f.highlights = p[3]->amount;
    f.contrast = c.contrast.amount;
    f.clarity_factor = 1.0f + c.clarity.amount;
    f.saturation_factor = 1.0f + c.saturation.amount;
    const bool tone = std::fabs(p[2]->amount) >= kMaskedOff || std::fabs(p[3]->amount) >= kMaskedOff;
    c.on = {c.exposure.mode != Mode::Identity,   c.brightness.mode != Mode::Identity, tone,
            c.contrast.mode != Mode::Identity,   c.clarity.mode != Mode::Identity,
            c.saturation.mode != Mode::Identity, c.saturation.mode == Mode::Global};
    return c;
}

}  // namespace
}  // namespace velmora::adjust::develop

using namespace velmora;

extern "C" VELMORA_API StatusCode VELMORA_CALL ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(
    float* image, int32_t step, const ImageSize* roi, const DevelopParameter* exposure,
    const DevelopParameter* brightness, const DevelopParameter* shadows, const DevelopParameter* highlights,
    const DevelopParameter* contrast, const DevelopParameter* clarity, const DevelopParameter* saturation,
    int32_t, int32_t, int32_t, float blackLevel, int32_t, int32_t, int32_t) {
    using namespace velmora::adjust::develop;
    const bool avx2 = cpu::Has(cpu::Level::Avx2);
    const DevelopParameter* const p[7] = {exposure, brightness, shadows, highlights, contrast, clarity, saturation};
    bool masked = false;
    for (const DevelopParameter* q : p) masked = masked || q->localMap != nullptr;
    if (masked) {
        const MaskedCall c = PrepareMasked(p, blackLevel);
        const auto row = avx2 ? MaskedRowAvx2 : MaskedRow<Sse2Lanes>;
        for (int32_t y = 0; y < roi->height; ++y) row(frame::Row(image, step, y), roi->width, int64_t{roi->width} * y, c);
        return StatusOk;
    }
    Params a{};
    SetExposure(a, exposure->amount);
    a.brightness_exponent = std::exp2f(-brightness->amount);
    a.shadows = shadows->amount;
    a.highlights = highlights->amount;
    a.contrast = contrast->amount;
    a.clarity_factor = 1.0f + clarity->amount;
    a.saturation_factor = 1.0f + saturation->amount;
    const unsigned flags = (FastOn(exposure->amount) ? kExposure : 0u) | (FastOn(brightness->amount) ? kBrightness : 0u) |
                           (FastOn(shadows->amount) || FastOn(highlights->amount) ? kTone : 0u) |
                           (FastOn(contrast->amount) ? kContrast : 0u) | (FastOn(clarity->amount) ? kClarity : 0u) |
                           (FastOn(saturation->amount) ? kSaturation : 0u);
    const RowFn row = avx2 ? DevelopRowAvx2(flags) : kRows<Sse2Lanes>[flags];
    for (int32_t y = 0; y < roi->height; ++y) row(frame::Row(image, step, y), roi->width, a);
    return StatusOk;
}
