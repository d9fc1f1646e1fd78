// Scalar reference of the develop pass, one pixel at a time in float, with the C library's exp,
// log and exp2 where the library uses its vector approximations. Written from the recipe, not
// from the library: the dispatch thresholds, the four forms of each amount in the masked pass,
// the clamps and the saturation-only loop are spelled out here on their own.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "velmora/imaging.h"

namespace ref {

namespace develop_detail {

// Lower bound first, so NaN becomes lo (as the vector clamps do).
inline float Clamp(float v, float lo, float hi) {
    v = v > lo ? v : lo;
    return v < hi ? v : hi;
}
inline float Clamp01(float v) { return Clamp(v, 0.0f, 1.0f); }

// The library's power is e^(y ln x); the reference composes the same way from std functions.
inline float Pow(float x, float y) { return std::exp(std::log(x) * y); }

inline float Encode(float v) {
    v = Clamp01(v);
    return v < 0.0031308f ? v * 12.92f : 1.055f * Pow(v, 0.41666666f) - 0.055f;
}

inline float Decode(float n) {
    return n > 0.04045f ? Pow((n + 0.055f) * 0.94786733f, 2.4f) : n * 0.07739938f;
}

inline float Luminance(float r, float g, float b) { return 0.28804f * r + 0.711874f * g + 8.6e-05f * b; }

// One pixel's amounts, in the forms the recipe's steps take. A step that is off is skipped.
struct PixelAmounts {
    bool exposure = false, brightness = false, tone = false, contrast = false, clarity = false, saturation = false;
    bool saturation_clamped = false;
    bool masked = false;           // the masked pass: the black level is subtracted first
    bool saturation_only = false;  // the unmasked pass's own loop for saturation alone
    float exposure_factor = 1, exposure_cap = 1, brightness_exponent = 1;
    float shadows = 0, highlights = 0, contrast_amount = 0, clarity_factor = 1, saturation_factor = 1;
};

// Steps 2 to 12 on one pixel (already offset by any black level).
inline void DevelopPixel(float* px, const PixelAmounts& a) {
    const float lum = Luminance(px[0], px[1], px[2]);
    float y = lum, b = px[3];
    if (a.exposure) {
        y *= a.exposure_factor;
        b *= a.exposure_factor;
        if (a.exposure_cap < y) y = a.exposure_cap;
        if (a.exposure_cap < b) b = a.exposure_cap;
    }
    y = Encode(y);
    b = Encode(b);
    float d = y - b;
    if (a.brightness) b = Pow(b, a.brightness_exponent);
    if (a.contrast) {
        const float centred = b - 0.5f;
        const float spread = centred > 0.5f - b ? centred : 0.5f - b;
        const float s = centred / (spread + 0.5f) + 0.5f;
        b = b + (s - b) * a.contrast_amount;
    }
    if (a.clarity) d *= a.clarity_factor;
    float n = b;
    if (a.tone) {
        // A base past 1 (or below 0) counts as clipped: the power of a negative would be NaN.
        const float dark = b > 0.0f ? b : 0.0f;
        const float light = 1.0f - b > 0.0f ? 1.0f - b : 0.0f;
        const float ws = std::exp(-14.0f * Pow(dark, 1.6f));
        const float wh = std::exp(-14.0f * Pow(light, 1.6f));
        n = a.shadows * b * ws + a.highlights * (1.0f - b) * wh + b;
    }
    n = Clamp01(n + d);
    const float target = Decode(n);
    const float gain = (target + 1.1920929e-07f) / (lum + 1.1920929e-07f);
    for (int c = 0; c < 4; ++c) px[c] *= gain;
    if (a.saturation) {
        for (int c = 0; c < 4; ++c) {
            const float f = c < 3 ? a.saturation_factor : 1.0f;
            const float v = target + (px[c] - target) * f;
            px[c] = a.saturation_clamped ? Clamp01(v) : v;
        }
    }
}

}  // namespace develop_detail

// The amounts of the pixel at `map_index` in the packed local maps (-1 for a pixel past the
// width, where the pass loads no map value: 0). Without maps they are the same for every pixel.
inline develop_detail::PixelAmounts DevelopAmounts(const DevelopParameter* const p[7], int64_t map_index) {
    using namespace develop_detail;
    enum { kExp, kBri, kSha, kHig, kCon, kCla, kSat };
    bool masked = false;
    for (int i = 0; i < 7; ++i) masked |= p[i]->localMap != nullptr;

    if (!masked) {
        // On when |amount| reaches the float 0.0001f, compared in double.
        auto on = [](float v) { return std::fabs(double{v}) >= double{0.0001f}; };
        PixelAmounts a;
        a.exposure = on(p[kExp]->amount);
        a.brightness = on(p[kBri]->amount);
        a.tone = on(p[kSha]->amount) || on(p[kHig]->amount);
        a.contrast = on(p[kCon]->amount);
        a.clarity = on(p[kCla]->amount);
        a.saturation = on(p[kSat]->amount);
        a.saturation_clamped = true;
        a.exposure_factor = std::exp2(p[kExp]->amount);
        a.exposure_cap = p[kExp]->amount > 0 ? 1.0f : std::numeric_limits<float>::infinity();
        a.brightness_exponent = std::exp2(-p[kBri]->amount);
        a.shadows = p[kSha]->amount;
        a.highlights = p[kHig]->amount;
        a.contrast_amount = p[kCon]->amount;
        a.clarity_factor = 1.0f + p[kCla]->amount;
        a.saturation_factor = 1.0f + p[kSat]->amount;
        a.saturation_only = a.saturation && !a.exposure && !a.brightness && !a.tone && !a.contrast && !a.clarity;
        return a;
    }

    auto off = [](float v) { return std::fabs(v) < 1e-06f; };
    // Global amount g (0 when off), local value l (0 without a map), and which exist.
    auto global = [&](int k) { return off(p[k]->amount) ? 0.0f : p[k]->amount; };
    auto has_global = [&](int k) { return !off(p[k]->amount); };
    auto has_local = [&](int k) { return p[k]->localMap != nullptr; };
    auto local = [&](int k) { return has_local(k) && map_index >= 0 ? p[k]->localMap[map_index] : 0.0f; };
    auto on = [&](int k) { return has_global(k) || has_local(k); };
    // An adjustment's value: one(g) or one(l) where only one of them exists, else both(g, l).
    auto pick = [&](int k, auto one, auto both) {
        return !has_local(k) ? one(global(k)) : !has_global(k) ? one(local(k)) : both(global(k), local(k));
    };
    const auto same = [](float v) { return v; };
    const auto one_plus = [](float v) { return 1.0f + v; };
    const auto sum01 = [](float g, float l) { return Clamp01(g + l); };
    PixelAmounts a;
    a.masked = true;
    a.exposure = on(kExp);
    a.exposure_factor = std::exp2(pick(kExp, same, [](float g, float l) {
        const float sum = g + l;
        return g > 0 ? (sum < 5.0f ? sum : 5.0f) : (sum > -5.0f ? sum : -5.0f);
    }));
    if (!has_local(kExp)) a.exposure_cap = global(kExp) > 0 ? 1.0f : std::numeric_limits<float>::infinity();

    a.brightness = on(kBri);
    a.brightness_exponent = std::exp2(-pick(kBri, same, sum01));
    a.contrast = on(kCon);
    a.contrast_amount = pick(kCon, same, sum01);
    a.clarity = on(kCla);
    a.clarity_factor = pick(kCla, one_plus, [](float g, float l) { return Clamp(1.0f + g + l, 0.0f, 2.0f); });

    // Shadows and highlights: global amounts only, whatever their maps hold.
    a.tone = has_global(kSha) || has_global(kHig);
    a.shadows = p[kSha]->amount;
    a.highlights = p[kHig]->amount;

    a.saturation = on(kSat);
    a.saturation_clamped = !has_local(kSat);
    a.saturation_factor = pick(kSat, one_plus, [](float g, float l) { return Clamp01(l + (1.0f + g)); });
    return a;
}

// The pass on one pixel of an RgbL128F image, in place, with its amounts.
inline void Develop(float* px, const develop_detail::PixelAmounts& a, float black_level) {
    using namespace develop_detail;
    if (a.saturation_only) {
        const float lum = Luminance(px[0], px[1], px[2]);
        for (int c = 0; c < 4; ++c) px[c] = lum + (px[c] - lum) * a.saturation_factor;
        return;
    }
    if (a.masked)
        for (int c = 0; c < 4; ++c) px[c] -= black_level;
    DevelopPixel(px, a);
}
inline void Develop(float* px, const DevelopParameter* const p[7], float black_level, int64_t map_index) {
    Develop(px, DevelopAmounts(p, map_index), black_level);
}

}  // namespace ref
