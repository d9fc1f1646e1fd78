// The sRGB transfer as a 1025-entry table with linear interpolation, built on the stack of each
// call that needs it (the table kernels, and the colour kernels that take a pixel's encoded
// luminance): 1024 scalar evaluations a call, then a pixel loop of gathers and no transcendental.
#pragma once

#include <emmintrin.h>

#include <bit>
#include <cmath>
#include <cstdint>

#include "core/vec4.h"
#include "pixel/srgb_math.h"

namespace velmora::pixel::srgb {

// 1024 steps of 1/1023 and a guard entry repeating the last one. The index is the clamped value
// times 1023.9999 (two float steps below 1024), so it never exceeds 1023 and k + 1 is always a
// valid entry. Table spacing and index scale differ by 1024/1023 on purpose: the results meet
// the curve at v x 1024/1023.
constexpr int kTableSteps = 1024;
constexpr int kTableEntries = kTableSteps + 1;
constexpr float kTableSpacing = 0.0009775171f;  // the float nearest 1/1023
constexpr float kIndexScale = 1023.9999f;
static_assert(std::bit_cast<uint32_t>(kIndexScale) == 0x447FFFFEu);

enum class Direction { Encode, Decode };

template <Direction D>
float TableEntry(float x) {
    if (x <= 0.0f) return 0.0f;
    if constexpr (D == Direction::Encode) {
        if (x <= kEncodeThreshold) return x * kEncodeSlope;
        if (x >= 1.0f) return 1.0f;
        return kEncodeScale * std::pow(x, kEncodeExponent) - kEncodeOffset;
    } else {
        if (x <= kDecodeThreshold) return x * kDecodeSlope;
        if (x >= 1.0f) return 1.0f;
        return std::pow(x * kDecodeScale + kDecodeOffset, kDecodeExponent);
    }
}

// One 64-byte cache line holds 16 entries; aligning the table makes every line a whole one.
struct alignas(64) Table {
    float entry[kTableEntries];
};

template <Direction D>
void BuildTable(Table& table) {
    for (int i = 0; i < kTableSteps; ++i) table.entry[i] = TableEntry<D>(static_cast<float>(i) * kTableSpacing);
    table.entry[kTableSteps] = table.entry[kTableSteps - 1];
    // One read per cache line brings the whole table in before the pixel loop needs it. The reads
    // are volatile so that the compiler keeps them although their values go unused.
    const volatile float* touch = table.entry;
    for (int i = 0; i < kTableEntries; i += 16) (void)touch[i];
}

// T[k] + (T[k + 1] - T[k]) x f per lane. Each lane's pair of neighbouring entries comes in with
// one 8-byte load, and two unpacks sort the four pairs into a vector of T[k] and one of T[k + 1].
inline __m128 Interpolate(const Table& table, __m128 v) {
    const __m128 pos = _mm_mul_ps(v4::Clamp01(v), v4::Set1(kIndexScale));
    const __m128i k = _mm_cvttps_epi32(pos);
    const __m128 f = _mm_sub_ps(pos, _mm_cvtepi32_ps(k));
    auto pair = [&](int lane_index) {
        return _mm_castsi128_ps(v4::Load64(table.entry + lane_index));
    };
    const __m128 p0 = pair(_mm_cvtsi128_si32(k));
    const __m128 p1 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(1, 1, 1, 1))));
    const __m128 p2 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(2, 2, 2, 2))));
    const __m128 p3 = pair(_mm_cvtsi128_si32(_mm_shuffle_epi32(k, _MM_SHUFFLE(3, 3, 3, 3))));
    const __m128 p01 = _mm_unpacklo_ps(p0, p1);  // T[k0], T[k1], T[k0 + 1], T[k1 + 1]
    const __m128 p23 = _mm_unpacklo_ps(p2, p3);
    const __m128 lo = _mm_movelh_ps(p01, p23);
    const __m128 hi = _mm_movehl_ps(p23, p01);
    return _mm_add_ps(lo, _mm_mul_ps(_mm_sub_ps(hi, lo), f));
}

}  // namespace velmora::pixel::srgb
