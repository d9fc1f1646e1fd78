// Plain scalar references for the exposure, brightness, saturation and levels kernels: one pixel
// (four floats, the fourth lane treated like a colour) at a time, written from the formulas alone.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "reference/srgb.h"  // Clamp01: NaN and negatives to 0

namespace ref {

inline constexpr float kFloatEpsilon = 1.1920929e-07f;

using Pixel = float[4];

inline void Scale(Pixel& p, float gain) {
    for (float& c : p) c *= gain;
}

inline float ClampStops(float e) { return std::min(std::max(e, -5.0f), 5.0f); }

// Levels: (x - black) / (white - black) through a clamp that sends NaN to 0.
inline void Levels(Pixel& p, float black, float white) {
    const float s = 1.0f / (white - black);
    for (float& c : p) c = Clamp01((c - black) * s);
}

// ---- Brightness ----

inline float Rec709Y(const Pixel& p) { return 0.2125f * p[0] + 0.7152f * p[1] + 0.0721f * p[2]; }

// Lightness on a 0-1 scale back to luminance.
inline float LuminanceOfLightness(float lightness) {
    const float t = 100.0f * lightness;
    const float u = (t + 16.0f) * 0.00862069f;
    return t > 8.0f ? u * u * u : t * 0.0011070565f;
}

inline float Bits(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}
inline uint32_t Bits(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

// The vector kernel's own log2: exponent field plus a polynomial in the mantissa.
inline float Log2Poly(float x) {
    const uint32_t u = Bits(x);
    const float e = static_cast<float>(static_cast<int32_t>((u >> 23) & 0xFFu) - 127);
    const float m = Bits((u & 0x007FFFFFu) | 0x3F800000u);
    float q = 0.05965155f * m - 0.46572563f;
    q = q * m + 1.4811665f;
    q = q * m - 2.5207496f;
    q = q * m + 2.8882704f;
    return q * (m - 1.0f) + e;
}

// Its 2^p: whole part by rounding p - 0.5 to nearest (ties to even), a cubic for the rest.
inline float Exp2Poly(float p) {
    p = std::min(std::max(p, -126.99999f), 129.0f);
    const int32_t i = static_cast<int32_t>(std::nearbyint(p - 0.5f));
    const float f = p - static_cast<float>(i);
    const float q = ((0.07802452f * f + 0.22606716f) * f + 0.69583356f) * f + 0.9999252f;
    return q * Bits(static_cast<uint32_t>(i + 127) << 23);
}

inline void BrightnessVector(Pixel& p, float amount) {
    const float y = Rec709Y(p);
    const float lightness = y > 0.008856452f ? 1.16f * std::pow(y, 0.33333334f) - 0.16f : y * 9.032963f;
    const float k = std::exp2(amount);
    const float y_new = LuminanceOfLightness(Exp2Poly(Log2Poly(lightness) * k));
    Scale(p, (y_new + kFloatEpsilon) / (y + kFloatEpsilon));
}

inline void BrightnessScalar(Pixel& p) {
    const float y = Rec709Y(p);
    const float lightness = y >= 0.008856452f ? 1.16f * std::pow(y, 0.33333334f) - 0.16f : y * 0.9032963f;
    Scale(p, (LuminanceOfLightness(lightness * lightness) + kFloatEpsilon) / (y + kFloatEpsilon));
}

// ---- Saturation ----

inline float ProPhotoY(const Pixel& p) { return 0.28804f * p[0] + 0.711874f * p[1] + 8.6e-05f * p[2]; }

// Amounts below 1e-6 in magnitude count as 0, as the export documents; with both off and no
// map the pixel is left as it is.
inline void Saturation(Pixel& p, float saturation, float vibrance, const float* local) {
    if (std::fabs(saturation) < 1e-06f && std::fabs(vibrance) < 1e-06f && !local) return;
    const float y = ProPhotoY(p);
    float f = 1.0f + (std::fabs(saturation) < 1e-06f ? 0.0f : saturation);
    if (std::fabs(vibrance) >= 1e-06f) {
        const float hi = std::max({p[0], p[1], p[2]});
        const float lo = std::min({p[0], p[1], p[2]});
        const float s = std::fabs(hi) <= kFloatEpsilon ? 0.0f : (hi - lo) / hi;
        f = s * vibrance + f;
    }
    if (local) f = f + *local;
    for (float& c : p) c = y + (c - y) * f;
}

// ---- Selective exposure ----

struct Bands {
    float blacks = 0, shadows = 0, midtones = 0, highlights = 0, whites = 0;
};

// Band weights at tone t, in double: the narrow ends (sigma 0.1), the wide ends (sigma 1/3) less
// the narrow ones, and the middle band.
inline double BandStops(const Bands& b, double t) {
    const double dark = std::exp(-50.0 * t * t), dark_wide = std::exp(-4.5 * t * t);
    const double light = std::exp(-50.0 * (1 - t) * (1 - t)), light_wide = std::exp(-4.5 * (1 - t) * (1 - t));
    const double mid = std::exp(-28.125 * (t - 0.5) * (t - 0.5));
    return b.blacks * dark + b.shadows * (dark_wide - dark) + b.midtones * mid + b.highlights * (light_wide - light) +
           b.whites * light;
}

// The stops at tone t as the kernel defines them: sampled at t = i / 1024, linearly interpolated.
inline double TableStops(const Bands& b, double t) {
    const double p = t * 1024.0;
    const double cell = std::min(std::floor(p), 1023.0);
    const double lo = BandStops(b, cell / 1024.0), hi = BandStops(b, (cell + 1) / 1024.0);
    return lo + (hi - lo) * (p - cell);
}

inline double SrgbEncode(double y) {
    y = std::min(std::max(y, 0.0), 1.0);
    return y < 0.0031308 ? 12.92 * y : 1.055 * std::pow(y, 1 / 2.4) - 0.055;
}

inline void SelectiveExposure(Pixel& p, const Bands& b, float amount, float local) {
    const double t = SrgbEncode(ProPhotoY(p));
    const double e = std::min(std::max(double(amount) + local + TableStops(b, t), -5.0), 5.0);
    Scale(p, static_cast<float>(std::exp2(e)));
}

}  // namespace ref
