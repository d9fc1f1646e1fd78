// Plain scalar conversions, one pixel at a time, written from the documented arithmetic: codes
// times the float nearest 1/255 or 1/65535; floats clamped (NaN to 0), scaled, rounded half to
// even. A pixel's elements arrive and leave as floats: codes as their values.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "reference/srgb.h"  // Clamp01: NaN and negatives to 0

namespace ref {

inline constexpr float kInv255 = 1.0f / 255.0f;      // rounds to 0x3B808081
inline constexpr float kInv65535 = 1.0f / 65535.0f;  // rounds to 0x37800080

// std::nearbyint rounds with the current mode, which is to-nearest-even by default.
inline float ToByte(float v) { return std::nearbyint(Clamp01(v) * 255.0f); }
inline float ToWord(float v) { return std::nearbyint(Clamp01(v) * 65535.0f); }

// Each converter: source elements in, destination elements out.
inline void Bgr24ToBgr32(const float* s, float* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = 255; }
inline void Bgra32ToRgba128F(const float* s, float* d) {
    d[0] = s[2] * kInv255, d[1] = s[1] * kInv255, d[2] = s[0] * kInv255, d[3] = s[3] * kInv255;
}
inline void Bgra32ToPrgba128F(const float* s, float* d) {
    const float a = s[3] * kInv255;
    d[0] = s[2] * kInv255 * a, d[1] = s[1] * kInv255 * a, d[2] = s[0] * kInv255 * a, d[3] = a;
}
inline void Rgba32ToRgba128F(const float* s, float* d) {
    for (int c = 0; c < 4; ++c) d[c] = s[c] * kInv255;
}
inline void Rgba64ToRgba128F(const float* s, float* d) {
    for (int c = 0; c < 4; ++c) d[c] = s[c] * kInv65535;
}
inline void Gray8ToBgr32(const float* s, float* d) { std::fill(d, d + 4, s[0]); }
inline void Gray8ToBgra32(const float* s, float* d) { d[0] = d[1] = d[2] = s[0], d[3] = 1; }
inline void Gray8ToRgb128F(const float* s, float* d) { std::fill(d, d + 4, s[0] * kInv255); }
inline void Gray8ToRgba128F(const float* s, float* d) { d[0] = d[1] = d[2] = s[0] * kInv255, d[3] = 1.0f; }
inline void Rgb128FToBgr24(const float* s, float* d) { d[0] = ToByte(s[2]), d[1] = ToByte(s[1]), d[2] = ToByte(s[0]); }
inline void Rgba128FToBgra32(const float* s, float* d) {
    d[0] = ToByte(s[2]), d[1] = ToByte(s[1]), d[2] = ToByte(s[0]), d[3] = ToByte(s[3]);
}
inline void Rgba128FToRgba32(const float* s, float* d) {
    for (int c = 0; c < 4; ++c) d[c] = ToByte(s[c]);
}
inline void Rgba128FToRgba64(const float* s, float* d) {
    for (int c = 0; c < 4; ++c) d[c] = ToWord(s[c]);
}

}  // namespace ref
