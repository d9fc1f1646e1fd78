// Hue and saturation. The master hue/saturation edit turns R, G, B about the grey axis (Rodrigues'
// rotation about (1, 1, 1) / sqrt 3, right-handed, so a positive hue turns red toward yellow;
// Haeberli 1993) and puts the pixel back at its old luminance by the gain rule, so greys never
// move and hue turns without changing brightness; saturation mixes with that old luminance and
// lightness pulls toward black or white. The HSL edit works by hue band: eight tent-shaped bands
// of the hexcone hue weigh each pixel's hue shift, saturation and luminance amounts (or per-degree
// curves do), and greys take none of them. Nothing is clamped: values go as given (the host passes
// encoded values for the familiar look). Y = 0.28804 R + 0.711874 G + 0.000086 B; the gain rule
// multiplies by (Y + eps) / (Y' + eps), eps = 1.1920929e-07. Alpha is kept; exactly the region is
// read and written; no alignment is demanded. The hue/saturation formula is color_passes.h's, so
// the wider bodies run it too.
#include <cmath>
#include <cstdint>

#include "adjust/color_passes.h"
#include "core/xmmath.h"

namespace velmora::adjust {
namespace {

using color::Planes;

// R = cos t I + sin t [k]x + (1 - cos t) k k^T with k = (1, 1, 1) / sqrt 3, in double, rounded to
// float once: row i gives output channel i.
void Rotation(float hue_degrees, float (&m)[9]) {
    const double t = static_cast<double>(hue_degrees) * (3.14159265358979323846 / 180.0);
    const double c = std::cos(t), sn = std::sin(t) / std::sqrt(3.0), o = (1.0 - c) / 3.0;
    const double rows[9] = {c + o, o - sn, o + sn, o + sn, c + o, o - sn, o - sn, o + sn, c + o};
    for (int i = 0; i < 9; ++i) m[i] = static_cast<float>(rows[i]);
}

// ---- HSL: eight hue bands -------------------------------------------------------------------

// Band centres in degrees (red, orange, yellow, green, aqua, blue, purple, magenta), red again at 360.
constexpr float kCentre[9] = {0, 30, 60, 120, 180, 240, 270, 300, 360};
constexpr float kEpsilon = 1.1920929e-07f;

// What moves a pixel: the hue shift in units of 30 degrees, the saturation amount and the
// luminance amount at its hue (band sums or curves), 0 for a grey.
struct HslAmounts {
    Batch4 hue, saturation, luminance;
};

// The hexcone hue in [0, 360) of R, G, B (NaN or inf for greys, which the caller masks).
inline Batch4 Hue(Batch4 r, Batch4 g, Batch4 b, Batch4 hi, Batch4 d) {
    const Batch4 sixty(60.0f);
    const Batch4 from_r = sixty * ((g - b) / d), from_g = sixty * ((b - r) / d + Batch4(2.0f));
    const Batch4 from_b = sixty * ((r - g) / d + Batch4(4.0f));
    const Batch4 h = xsimd::select(r == hi, from_r, xsimd::select(g == hi, from_g, from_b));
    const Batch4 wrapped = xsimd::select(h < Batch4(0.0f), h + Batch4(360.0f), h);
    return xsimd::select(wrapped >= Batch4(360.0f), wrapped - Batch4(360.0f), wrapped);  // -tiny + 360 rounds to 360
}

// Tent weights between neighbouring centres: in segment k (centre k <= h < centre k + 1),
// t = (h - c_k) / (c_k+1 - c_k), band k weighs 1 - t and band k + 1 (mod 8) t. The segment's
// centre, width and both neighbours' amounts are picked per lane by comparisons, so one division
// serves the three sums.
struct Segment {
    Batch4 t, one_minus_t;
    Batch4 at[9];  // at[k] set in the lanes whose segment is k (compare masks as floats)

    explicit Segment(Batch4 h) {
        Batch4 start(0.0f), width(30.0f);
        for (int k = 0; k < 8; ++k) {
            const auto in = h >= Batch4(kCentre[k]) && h < Batch4(kCentre[k + 1]);
            at[k] = xsimd::select(in, Batch4(1.0f), Batch4(0.0f));
            start = xsimd::select(in, Batch4(kCentre[k]), start);
            width = xsimd::select(in, Batch4(kCentre[k + 1] - kCentre[k]), width);
        }
        t = (h - start) / width;
        one_minus_t = Batch4(1.0f) - t;
    }
    Batch4 Sum(const float* amounts) const {
        Batch4 lower(0.0f), upper(0.0f);
        for (int k = 0; k < 8; ++k) {
            const auto in = at[k] != Batch4(0.0f);
            lower = xsimd::select(in, Batch4(amounts[k]), lower);
            upper = xsimd::select(in, Batch4(amounts[(k + 1) % 8]), upper);
        }
        // Lanes in no segment (a grey's NaN hue) sum to 0 and are masked by the caller anyway.
        return one_minus_t * lower + t * upper;
    }
};

// T[k] + (T[k + 1] - T[k]) (h - k), k = trunc(h), on a per-degree curve of 361 entries.
inline Batch4 DegreeCurve(Batch4 h, const float* curve) {
    alignas(16) float lane[4];
    h.store_aligned(lane);
    for (float& v : lane) {
        const float x = v >= 0.0f && v < 360.0f ? v : 0.0f;  // greys' NaN looks up 0, then is masked
        const int32_t k = static_cast<int32_t>(x);
        v = curve[k] + (curve[k + 1] - curve[k]) * (x - static_cast<float>(k));
    }
    return Batch4::load_aligned(lane);
}

// R, G, B of HSV (h in degrees, any value: wrapped to [0, 360)), sector by sector.
inline void FromHsv(Batch4 h, Batch4 s, Batch4 v, Batch4& r, Batch4& g, Batch4& b) {
    h = h - Batch4(360.0f) * xsimd::floor(h / Batch4(360.0f));
    const Batch4 sector = xsimd::min(xsimd::floor(h / Batch4(60.0f)), Batch4(5.0f));
    const Batch4 f = h / Batch4(60.0f) - sector, one(1.0f);
    const Batch4 p = v * (one - s), q = v * (one - s * f), t = v * (one - s * (one - f));
    const Batch4 rs[6] = {v, q, p, p, t, v}, gs[6] = {t, v, v, q, p, p}, bs[6] = {p, p, t, v, v, q};
    r = rs[0], g = gs[0], b = bs[0];
    for (int i = 1; i < 6; ++i) {
        const auto in = sector == Batch4(static_cast<float>(i));
        r = xsimd::select(in, rs[i], r), g = xsimd::select(in, gs[i], g), b = xsimd::select(in, bs[i], b);
    }
}

// The HSL edit on one group of pixels, in this order: the hue shifted by 30 degrees times the hue
// amount and R, G, B rebuilt at the same HSV saturation and value; saturation mixed around the
// shifted pixel's Y; R, G, B times 2^(s x luminance amount), s the original chroma ratio. A zero
// amount skips its step, lane by lane, so it changes no bit; greys get all amounts 0.
template <class AmountsAt>
struct Hsl {
    AmountsAt amounts_at;
    void operator()(Planes& v) const {
        const Batch4 r = v[0], g = v[1], b = v[2], zero(0.0f);
        const Batch4 hi = xsimd::max(xsimd::max(r, g), b), lo = xsimd::min(xsimd::min(r, g), b), d = hi - lo;
        const auto grey = d == zero || hi <= Batch4(kEpsilon);
        const Batch4 chroma = xsimd::select(grey, zero, d / hi);
        const Batch4 h = Hue(r, g, b, hi, d);
        const HslAmounts a = amounts_at(h);
        const Batch4 hue = xsimd::select(grey, zero, a.hue), sat = xsimd::select(grey, zero, a.saturation);
        const Batch4 lum = xsimd::select(grey, zero, a.luminance);
        Batch4 c[3];
        FromHsv(h + Batch4(30.0f) * hue, chroma, hi, c[0], c[1], c[2]);
        const auto turn = hue != zero;
        for (int i = 0; i < 3; ++i) c[i] = xsimd::select(turn, c[i], v[i]);
        const Batch4 y = color::LumaProPhoto(c[0], c[1], c[2]);
        const Batch4 gain(XMVectorExp2(chroma * lum));
        for (int i = 0; i < 3; ++i) {
            const Batch4 mixed = xsimd::select(sat != zero, y + (c[i] - y) * (Batch4(1.0f) + sat), c[i]);
            v[i] = mixed * gain;
        }
    }
};

struct BandsAt {
    const float* bands;  // hue[8], saturation[8], luminance[8]
    HslAmounts operator()(Batch4 h) const {
        const Segment segment(h);
        return {segment.Sum(bands), segment.Sum(bands + 8), segment.Sum(bands + 16)};
    }
};
struct CurvesAt {
    const float* curves;  // three per-degree curves of 361 entries
    HslAmounts operator()(Batch4 h) const {
        return {DegreeCurve(h, curves), DegreeCurve(h, curves + 361), DegreeCurve(h, curves + 722)};
    }
};

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageHueSaturation_Rgba128F_SSE2(float* image, int32_t step,
                                                                           const ImageSize* roi, float hue,
                                                                           float saturation, float lightness) {
    float m[9];
    adjust::Rotation(hue, m);
    color::PassArgs a;
    a.matrix = m;
    a.turn = hue != 0.0f;
    a.saturation = saturation;
    a.lightness = lightness;
    color::RunWidest(color::Pass::HueSaturation, false, image, step, image, step, roi->width, roi->height, a);
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                             const float* bands) {
    // One pixel at a time through the four-lane steps (the other lanes zero), so it gives the bits
    // of the four-pixel export.
    const adjust::Hsl<adjust::BandsAt> edit{{bands}};
    for (int32_t y = 0; y < roi->height; ++y)
        for (int32_t x = 0; x < roi->width; ++x)
            color::QuadRows<color::Rgba128, color::Rgba128>(frame::Row(image, step, y) + 4 * static_cast<ptrdiff_t>(x), step,
                                                            frame::Row(image, step, y) + 4 * static_cast<ptrdiff_t>(x), step,
                                                            1, 1, edit);
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                  const float* bands) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height,
                                                    adjust::Hsl<adjust::BandsAt>{{bands}});
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2_Lut(float* image, int32_t step, const ImageSize* roi,
                                                                      const float* curves) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height,
                                                    adjust::Hsl<adjust::CurvesAt>{{curves}});
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Bgra32_SSE2(uint8_t* image, int32_t step, const ImageSize* roi,
                                                                const float* bands) {
    color::QuadRows<color::Bgra32, color::Bgra32>(image, step, image, step, roi->width, roi->height,
                                                  adjust::Hsl<adjust::BandsAt>{{bands}});
}
