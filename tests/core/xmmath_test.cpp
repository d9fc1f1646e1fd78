// The four-lane sRGB curve against the double-precision curve, pinned at the bound measured over
// every float of [0, 1]; and the tables of Exp2_Init. (The vector e^x, ln x and 2^x are xsimd's,
// checked through every kernel that uses them.)

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "core/exp2_tables.h"
#include "core/xmmath.h"
#include "reference/srgb.h"
#include "support/compare.h"
#include "velmora/imaging.h"

namespace {

using velmora::XMVectorLinearToSrgb;

float Lane0(__m128 v) { return _mm_cvtss_f32(v); }
float Apply(__m128 (*fn)(__m128), float x) { return Lane0(fn(_mm_set1_ps(x))); }

uint32_t Bits(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}
float FromBits(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

// Floats from lo to hi of one sign, by bit pattern, about `samples` of them spread evenly, with
// both ends included; each vector carries four neighbouring samples in its lanes.
std::vector<float> Sample(float lo, float hi, uint32_t samples = 1u << 18) {
    uint32_t a = Bits(lo), b = Bits(hi);
    if (a > b) std::swap(a, b);
    const uint32_t stride = std::max<uint32_t>(1, (b - a) / samples);
    std::vector<float> xs;
    for (uint32_t u = a; u < b; u += stride) xs.push_back(FromBits(u));
    xs.push_back(FromBits(b));
    return xs;
}

TEST(LinearToSrgb, MatchesTheCurveOnEveryLane) {
    // 1.7e-7 absolute over [0, 1] against the textbook curve: the measured worst over every float
    // is 1.63e-7, in the power branch (1.32e-7 of it is the approximation, the rest the constants'
    // float roundings).
    for (float x : Sample(0.0f, 1.0f)) {
        const float got = Apply(XMVectorLinearToSrgb, x);
        ASSERT_NEAR(got, ref::EncodeCurve(x), 1.7e-7) << "x = " << x;
    }
    EXPECT_NE(Apply(XMVectorLinearToSrgb, 0.0031308f), 0.0031308f * 12.92f);  // the threshold takes the power
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, 0.003f), 0.003f * 12.92f);
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, NAN), 0.0f);  // the clamp turns NaN into 0
}

TEST(Exp2Init, FillsBothTablesAfreshAtEveryCall) {
    using velmora::exp2::kLog2Entries;
    using velmora::exp2::kPow2Entries;
    float* log2_table = velmora_exp2_log2_table;
    float* pow2_table = velmora_exp2_pow2_table;
    static_assert(sizeof(velmora_exp2_log2_table) == kLog2Entries * sizeof(float));
    static_assert(sizeof(velmora_exp2_pow2_table) == kPow2Entries * sizeof(float));

    // Scribbled tables are rewritten by every call, not only the first.
    for (int round = 0; round < 2; ++round) {
        std::fill(log2_table, log2_table + kLog2Entries, -7.0f);
        std::fill(pow2_table, pow2_table + kPow2Entries, -7.0f);
        Exp2_Init();
        for (int i = 0; i < kLog2Entries; ++i)
            ASSERT_EQ(log2_table[i], static_cast<float>(std::log2((255.0 + i) / 255.0))) << "log2 entry " << i;
        for (int i = 0; i < kPow2Entries; ++i) {
            // The exponent is a float product with the float 1/255, so it may differ from
            // (i - 256)/255 by a rounding; the power itself is rounded once, from double.
            const float exponent = static_cast<float>(i - 256) * (1.0f / 255.0f);
            ASSERT_EQ(pow2_table[i], static_cast<float>(std::exp2(double{exponent}))) << "pow2 entry " << i;
        }
    }
}

}  // namespace
