// Sampled tone curves, one sample at a time, in the kernels' operation order.
#pragma once

#include <cstdint>

#include "reference/srgb.h"  // Clamp01: NaN and negatives to 0

namespace ref {

// Linear interpolation in T at position p >= 0: T[k] and T[k + 1], k = trunc(p).
inline float CurveAt(const float* table, float p) {
    const int k = static_cast<int>(p);
    const float frac = p - static_cast<float>(k);
    return table[k] + (table[k + 1] - table[k]) * frac;
}

// A 16-bit code through a table of n intervals: code / 65535 spread over the n intervals, the
// result clamped and rounded half up.
inline uint16_t Curve16(uint16_t code, const float* table, int32_t n) {
    const float scale = static_cast<float>(n) * (1.0f / 65535.0f);
    const float v = Clamp01(CurveAt(table, static_cast<float>(code) * scale));
    return static_cast<uint16_t>(static_cast<int32_t>(v * 65535.f + 0.5f));
}

// A float sample: the input is clamped, the output is not.
inline float Curve32(float x, const float* table, float scale) { return CurveAt(table, Clamp01(x) * scale); }

// Channel c of a four-channel pixel through column c of a table of four-float records.
inline float Curve4(float x, int channel, const float* table, float scale) {
    const float p = Clamp01(x) * scale;
    const int k = static_cast<int>(p);
    const float lower = table[4 * k + channel], upper = table[4 * k + 4 + channel];
    return lower + (upper - lower) * (p - static_cast<float>(k));
}

}  // namespace ref
