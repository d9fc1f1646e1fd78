// Tone curves on the working image and their neighbours: a master curve on R, G, B, four curves
// (each channel's own, then the master), a curve on the encoded luminance that keeps hue and
// saturation, a parametric curve built per call from four region amounts, an 8-bit preview by
// direct lookup; the mid-tone (gamma) slider on one float plane; and colour balance by tonal range.
//
// Float tables follow the curve kernels: n intervals, n + 2 entries (the last repeats the end),
// p = clamp(x, 0, 1) n, k = trunc(p), T[k] + (T[k + 1] - T[k]) (p - k), no output clamp. Y is the
// ProPhoto luminance 0.28804 R + 0.711874 G + 0.000086 B; l = enc(Y) and dec go through the sRGB
// tables built on the call's stack; the gain rule multiplies R, G, B by (N + eps) / (Y + eps), eps
// = 1.1920929e-07, so a pixel keeps its hue and saturation ratios. Alpha is kept. Exactly the
// region is read and written; no alignment is demanded.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "adjust/color_rows.h"
#include "core/xmmath.h"
#include "pixel/srgb_table.h"

namespace velmora::adjust {
namespace {

using color::Planes;
namespace srgb = pixel::srgb;

inline Batch4 Luminance(const Planes& v) { return color::LumaProPhoto(v[0], v[1], v[2]); }

inline Batch4 Lookup(Batch4 x, const float* table, float n) { return color::CurveLookup(x, table, n); }

// R, G, B through one table: the master curve.
struct Master {
    const float* table;
    float n;
    void operator()(Planes& v) const {
        for (int i = 0; i < 3; ++i) v[i] = Lookup(v[i], table, n);
    }
};

// Each channel through its own table, then all three through the master (the fourth table).
struct PerChannel {
    const float* tables;
    float n;
    int32_t entries;
    void operator()(Planes& v) const {
        for (int i = 0; i < 3; ++i) v[i] = Lookup(Lookup(v[i], tables + i * entries, n), tables + 3 * entries, n);
    }
};

// The curve on l = enc(Y): N = dec(T(l)), then the gain rule.
struct OnLuminance {
    const float* table;
    float n;
    srgb::Table encode, decode;
    OnLuminance(const float* t, float intervals) : table(t), n(intervals) {
        srgb::BuildTable<srgb::Direction::Encode>(encode);
        srgb::BuildTable<srgb::Direction::Decode>(decode);
    }
    void operator()(Planes& v) const {
        const Batch4 y = Luminance(v);
        const Batch4 target = srgb::Interpolate(decode, Lookup(srgb::Interpolate(encode, y), table, n));
        const Batch4 gain = color::Gain(target, y);
        for (int i = 0; i < 3; ++i) v[i] = v[i] * gain;
    }
};

// The parametric curve at x_i = i / 1024: x plus, inside each region [l, u], a x 0.25 sin^2(pi
// (x - l) / (u - l)) (regions [0, s1], [s1, s2], [s2, s3], [s3, 1] for shadows, darks, lights,
// highlights), made monotone by a running maximum and clamped to [0, 1]. Evaluated in double,
// stored as float, the end entry repeated once more.
std::vector<float> ParametricTable(const float* params) {
    const double bounds[5] = {0.0, params[4], params[5], params[6], 1.0};
    std::vector<float> table(1026);
    double highest = 0.0;
    for (int i = 0; i <= 1024; ++i) {
        const double x = i / 1024.0;
        double y = x;
        for (int k = 0; k < 4; ++k)
            if (x >= bounds[k] && x <= bounds[k + 1]) {
                const double s = std::sin(3.14159265358979323846 * (x - bounds[k]) / (bounds[k + 1] - bounds[k]));
                y += params[k] * 0.25 * s * s;
            }
        highest = i == 0 ? y : std::max(highest, y);
        table[i] = static_cast<float>(std::clamp(highest, 0.0, 1.0));
    }
    table[1025] = table[1024];
    return table;
}

bool ParametricValid(const float* p, int32_t mode) {
    for (int k = 0; k < 4; ++k)
        if (!(p[k] >= -1.0f && p[k] <= 1.0f)) return false;
    return 0.0f < p[4] && p[4] < p[5] && p[5] < p[6] && p[6] < 1.0f && (mode == 0 || mode == 1);
}

// Colour balance: each channel times 2^(wS a_shadows + wM a_midtones + wH a_highlights) for its
// column of the 3 x 3 amounts, the tonal weights from l of the input pixel; optionally the gain
// rule back to the input's Y.
struct Balance {
    const float* amounts;
    bool keep_luminance;
    srgb::Table encode;
    Balance(const float* a, bool keep) : amounts(a), keep_luminance(keep) { srgb::BuildTable<srgb::Direction::Encode>(encode); }
    void operator()(Planes& v) const {
        const Batch4 y = Luminance(v), l = srgb::Interpolate(encode, y), one(1.0f), dark = one - l;
        const Batch4 ws = dark * dark, wm = (Batch4(2.0f) * l) * dark, wh = l * l;
        for (int c = 0; c < 3; ++c) {
            const Batch4 stops = (ws * Batch4(amounts[c]) + wm * Batch4(amounts[3 + c])) + wh * Batch4(amounts[6 + c]);
            v[c] = v[c] * Batch4(XMVectorExp2(stops));
        }
        if (keep_luminance) {
            const Batch4 gain = color::Gain(y, Luminance(v));
            for (int c = 0; c < 3; ++c) v[c] = v[c] * gain;
        }
    }
};

template <class Fn>
void InPlace(float* image, int32_t step, const ImageSize* roi, const Fn& fn) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height, fn);
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL SSE2_ToneCurve_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                 const float* table, int32_t n) {
    adjust::InPlace(image, step, roi, adjust::Master{table, static_cast<float>(n)});
}

extern "C" VELMORA_API void VELMORA_CALL SSE2_ToneCurveRGB_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                    const float* tables, int32_t n) {
    adjust::InPlace(image, step, roi, adjust::PerChannel{tables, static_cast<float>(n), n + 2});
}

extern "C" VELMORA_API void VELMORA_CALL SSE2_ToneCurveLuminance_Rgba128F(float* image, int32_t step,
                                                                          const ImageSize* roi, const float* table,
                                                                          int32_t n) {
    if (roi->width < 1 || roi->height < 1) return;
    adjust::InPlace(image, step, roi, adjust::OnLuminance(table, static_cast<float>(n)));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL SSE2_ToneCurveParametric_Rgba128F(float* image, int32_t step,
                                                                                 const ImageSize* roi,
                                                                                 const float* params, int32_t mode) {
    if (step == 0 || image == nullptr || roi == nullptr || params == nullptr) return StatusInvalidParameter;
    if (!adjust::ParametricValid(params, mode)) return StatusInvalidParameter;
    const std::vector<float> table = adjust::ParametricTable(params);
    if (mode == 0) SSE2_ToneCurve_Rgba128F(image, step, roi, table.data(), 1024);
    else SSE2_ToneCurveLuminance_Rgba128F(image, step, roi, table.data(), 1024);
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL SSE2_ToneCurve_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                               const uint8_t* lut) {
    for (int32_t y = 0; y < roi->height; ++y) {
        uint8_t* p = frame::Row(image, step, y);
        for (int32_t x = 0; x < roi->width; ++x, p += 4) {
            p[0] = lut[p[0]];
            p[1] = lut[256 + p[1]];
            p[2] = lut[512 + p[2]];
        }
    }
}

extern "C" VELMORA_API StatusCode VELMORA_CALL MidTones_32f_C1R(const float* src, int32_t srcStep, float* dst,
                                                                int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                int32_t height, float amount) {
    if (width < 1 || height < 1) return StatusOk;
    const __m128 gamma = _mm_set1_ps(std::pow(2.0f, -amount));
    src = frame::Row(src, srcStep, y) + x;
    dst = frame::Row(dst, dstStep, y) + x;
    for (int32_t row = 0; row < height; ++row) {
        const float* s = frame::Row(src, srcStep, row);
        float* d = frame::Row(dst, dstStep, row);
        int32_t i = 0;
        for (; i + 4 <= width; i += 4) v4::Store(d + i, XMVectorPowFast(v4::Clamp01(v4::Load(s + i)), gamma));
        for (; i < width; ++i) _mm_store_ss(d + i, XMVectorPowFast(v4::Clamp01(_mm_load_ss(s + i)), gamma));
    }
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_Rgba128F_SSE(float* image, int32_t step, const ImageSize* roi,
                                                             const float* balance, int32_t preserveLuminosity) {
    if (roi->width < 1 || roi->height < 1) return;
    adjust::InPlace(image, step, roi, adjust::Balance(balance, preserveLuminosity != 0));
}
