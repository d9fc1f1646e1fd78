// Colourise: toning a picture with colours at its own luminance. Each pixel moves toward a target
// T by the amount, out = c + amount (T - c). For one colour C (sepia, cyanotype) T = Y C / Y(C),
// the colour's chromaticity at the pixel's luminance, so a full amount keeps Y; split toning mixes
// two such chromaticities by the encoded luminance l, three-way toning weighs three by the tonal
// weights of l, and a gradient map takes T from colour stops placed along l (that one does not
// keep luminance). Y = 0.28804 R + 0.711874 G + 0.000086 B (linear ProPhoto); l is Y through the
// sRGB encoding table, built on the stack of the call. A colour whose Y is at most 1.1920929e-07
// has no chromaticity and tones as grey.
//
// One row kernel serves the matrix-style exports (x, y, width, height; AC4: the destination's
// alpha is not written) and the own-style ones (alpha kept), so their colour lanes are bit-equal.
// Exactly the region is read and written; no alignment is demanded.
#include <cmath>
#include <cstdint>

#include "adjust/color_rows.h"
#include "pixel/srgb_table.h"

namespace velmora::adjust {
namespace {

using color::Planes;
namespace srgb = pixel::srgb;

struct Tint {
    float k[3];
};

// C / Y(C), or (1, 1, 1) for a colour too dark to have a chromaticity.
Tint TintOf(const float* c) {
    const float y = color::LumaProPhoto(c[0], c[1], c[2]);
    if (!(y > color::kGainEpsilon)) return {{1.0f, 1.0f, 1.0f}};
    return {{c[0] / y, c[1] / y, c[2] / y}};
}

struct Toning {
    enum Kind { Single, Split, ThreeWay, GradientMap } kind = Single;
    Tint tint[3] = {};
    float amount = 0.0f;
    float low = 0.0f, high = 0.0f;  // Split: the smoothstep's edges in l
    const float* stops = nullptr;   // GradientMap: n records of position, R, G, B
    int32_t n = 0;
    srgb::Table table;  // the encoding, for every kind but Single

    Toning(Kind k, float a) : kind(k), amount(a) {
        if (k != Single) srgb::BuildTable<srgb::Direction::Encode>(table);
    }

    // The stops' colour at position l: the first stop's below it, the last one's above it, linear
    // between neighbours; where positions repeat, the later stop wins.
    void StopColour(float l, float* out) const {
        int32_t j = -1;
        while (j + 1 < n && stops[4 * (j + 1)] <= l) ++j;
        if (j < 0) j = 0;
        const float* a = stops + 4 * j;
        if (j == n - 1 || l <= a[0]) {
            for (int i = 0; i < 3; ++i) out[i] = a[1 + i];
            return;
        }
        const float* b = a + 4;
        const float f = (l - a[0]) / (b[0] - a[0]);
        for (int i = 0; i < 3; ++i) out[i] = a[1 + i] + (b[1 + i] - a[1 + i]) * f;
    }

    void operator()(Planes& v) const {
        const Batch4 y = color::LumaProPhoto(v[0], v[1], v[2]);
        Batch4 target[3];
        if (kind == Single) {
            for (int i = 0; i < 3; ++i) target[i] = y * Batch4(tint[0].k[i]);
        } else {
            const Batch4 l = srgb::Interpolate(table, y), one(1.0f);
            if (kind == Split) {
                const Batch4 t = xsimd::min(xsimd::max((l - Batch4(low)) / Batch4(high - low), Batch4(0.0f)), one);
                const Batch4 h = (t * t) * (Batch4(3.0f) - Batch4(2.0f) * t);
                for (int i = 0; i < 3; ++i)
                    target[i] = y * (Batch4(tint[0].k[i]) + (Batch4(tint[1].k[i]) - Batch4(tint[0].k[i])) * h);
            } else if (kind == ThreeWay) {
                const Batch4 dark = one - l;
                const Batch4 ws = dark * dark, wm = (Batch4(2.0f) * l) * dark, wh = l * l;
                for (int i = 0; i < 3; ++i)
                    target[i] = y * ((ws * Batch4(tint[0].k[i]) + wm * Batch4(tint[1].k[i])) + wh * Batch4(tint[2].k[i]));
            } else {
                alignas(16) float lane[4], colour[3][4];
                l.store_aligned(lane);
                for (int p = 0; p < 4; ++p) {
                    float c[3];
                    StopColour(lane[p], c);
                    for (int i = 0; i < 3; ++i) colour[i][p] = c[i];
                }
                for (int i = 0; i < 3; ++i) target[i] = Batch4::load_aligned(colour[i]);
            }
        }
        for (int i = 0; i < 3; ++i) v[i] = v[i] + Batch4(amount) * (target[i] - v[i]);
    }
};

// Split toning's edges: l from p - 0.25 to p + 0.25 around p = 0.5 - 0.5 balance.
Toning Split(const float* shadow, const float* highlight, float balance, float amount) {
    Toning t(Toning::Split, amount);
    t.tint[0] = TintOf(shadow);
    t.tint[1] = TintOf(highlight);
    const float p = 0.5f - 0.5f * balance;
    t.low = p - 0.25f;
    t.high = p + 0.25f;
    return t;
}

// Three colours `stride` floats apart: shadows, midtones, highlights.
Toning ThreeWay(const float* colours, int stride, float amount) {
    Toning t(Toning::ThreeWay, amount);
    for (int k = 0; k < 3; ++k) t.tint[k] = TintOf(colours + stride * k);
    return t;
}

Toning One(const float* colour, float amount) {
    Toning t(Toning::Single, amount);
    t.tint[0] = TintOf(colour);
    return t;
}

// Matrix style: the planes move to (x, y); the destination's alpha is not written.
StatusCode Region(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x, int32_t y, int32_t w,
                  int32_t h, const Toning& t) {
    return color::QuadRegion<color::Rgba128, color::Rgba128KeepAlpha>(src, src_step, dst, dst_step, x, y, w, h, t);
}

// Own style, in place: the fourth lane goes through the transposes unchanged.
void InPlace(float* image, int32_t step, const ImageSize* roi, const Toning& t) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height, t);
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;
using adjust::Toning;

extern "C" VELMORA_API StatusCode VELMORA_CALL Colorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                  int32_t width, int32_t height, const float* color,
                                                                  float amount) {
    if (width < 1 || height < 1) return StatusOk;
    return adjust::Region(image, step, image, step, x, y, width, height, adjust::One(color, amount));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL DoubleColorize_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                                       int32_t dstStep, int32_t x, int32_t y,
                                                                       int32_t width, int32_t height,
                                                                       const float* colors, float balance,
                                                                       float amount) {
    if (width < 1 || height < 1) return StatusOk;
    return adjust::Region(src, srcStep, dst, dstStep, x, y, width, height,
                          adjust::Split(colors, colors + 3, balance, amount));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL DoubleColorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                        int32_t width, int32_t height,
                                                                        const float* colors, float balance,
                                                                        float amount) {
    return DoubleColorize_32f_AC4R(image, step, image, step, x, y, width, height, colors, balance, amount);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL TripleColorize_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                                       int32_t dstStep, int32_t x, int32_t y,
                                                                       int32_t width, int32_t height,
                                                                       const float* colors, float amount) {
    if (width < 1 || height < 1) return StatusOk;
    return adjust::Region(src, srcStep, dst, dstStep, x, y, width, height, adjust::ThreeWay(colors, 3, amount));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL TripleColorize_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                        int32_t width, int32_t height,
                                                                        const float* colors, float amount) {
    return TripleColorize_32f_AC4R(image, step, image, step, x, y, width, height, colors, amount);
}

extern "C" VELMORA_API void VELMORA_CALL SSE_Colorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                               const float* color, float amount) {
    adjust::InPlace(image, step, roi, adjust::One(color, amount));
}

extern "C" VELMORA_API void VELMORA_CALL SSE_DoubleColorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                     const float* colors, float balance,
                                                                     float amount) {
    if (roi->width < 1 || roi->height < 1) return;
    adjust::InPlace(image, step, roi, adjust::Split(colors, colors + 4, balance, amount));
}

extern "C" VELMORA_API void VELMORA_CALL SSE_TripleColorize_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                     const float* colors, float amount) {
    if (roi->width < 1 || roi->height < 1) return;
    adjust::InPlace(image, step, roi, adjust::ThreeWay(colors, 4, amount));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL SSE_GradientColorize_Rgba128F(float* image, int32_t step,
                                                                             const ImageSize* roi, const float* stops,
                                                                             int32_t n, float amount) {
    if (step == 0 || image == nullptr || roi == nullptr || stops == nullptr || n < 2) return StatusInvalidParameter;
    for (int32_t i = 0; i < n; ++i) {
        const float position = stops[4 * i];
        if (!(position >= 0.0f && position <= 1.0f) || (i > 0 && !(position >= stops[4 * (i - 1)])))
            return StatusInvalidParameter;
    }
    if (roi->width < 1 || roi->height < 1) return StatusOk;
    Toning t(Toning::GradientMap, amount);
    t.stops = stops;
    t.n = n;
    adjust::InPlace(image, step, roi, t);
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL SSE_Colorize_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                             const float* color, float amount) {
    color::QuadRows<color::Bgra32, color::Bgra32>(image, step, image, step, roi->width, roi->height,
                                                  adjust::One(color, amount));
}
