// Vector e^x, ln x, 2^x, the fast power and the four-lane sRGB curve against double-precision
// references, pinned at the bounds measured over every float of each range (xmmath.h lists them);
// and the tables of Exp2_Init.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "core/exp2_tables.h"
#include "core/xmmath.h"
#include "support/compare.h"
#include "velmora/imaging.h"

namespace {

using velmora::XMVectorExp2;
using velmora::XMVectorExpE;
using velmora::XMVectorLinearToSrgb;
using velmora::XMVectorLogE;
using velmora::XMVectorPowFast;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kMinNormal = std::numeric_limits<float>::min();
constexpr float kMinDenormal = std::numeric_limits<float>::denorm_min();

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

struct Bound {
    const char* name;
    __m128 (*fn)(__m128);
    double (*reference)(double);
    float lo, hi;  // one sign per range
    int64_t ulps;
};

double PowRecip24(double x) { return std::pow(x, double{0.41666666f}); }
double Pow24(double x) { return std::pow(x, double{2.4f}); }

TEST(VectorMath, StaysWithinTheMeasuredUlpBounds) {
    auto pow_enc = [](__m128 v) { return XMVectorPowFast(v, _mm_set1_ps(0.41666666f)); };
    auto pow_dec = [](__m128 v) { return XMVectorPowFast(v, _mm_set1_ps(2.4f)); };
    const Bound bounds[] = {
        {"ExpE [0, 4]", XMVectorExpE, [](double x) { return std::exp(x); }, 0.0f, 4.0f, 1},
        {"ExpE [-4, 0]", XMVectorExpE, [](double x) { return std::exp(x); }, -0.0f, -4.0f, 1},
        {"ExpE normal results, below", XMVectorExpE, [](double x) { return std::exp(x); }, -4.0f, -87.3365f, 2},
        {"ExpE normal results, above", XMVectorExpE, [](double x) { return std::exp(x); }, 4.0f, 88.376f, 2},
        {"LogE (0, 4], denormals too", XMVectorLogE, [](double x) { return std::log(x); }, kMinDenormal, 4.0f, 1},
        {"LogE around 1", XMVectorLogE, [](double x) { return std::log(x); }, 0.999f, 1.001f, 1},
        {"Exp2 [0, 4]", XMVectorExp2, [](double x) { return std::exp2(x); }, 0.0f, 4.0f, 2},
        {"Exp2 [-126, 0]", XMVectorExp2, [](double x) { return std::exp2(x); }, -0.0f, -126.0f, 2},
        {"Exp2 [0, 127)", XMVectorExp2, [](double x) { return std::exp2(x); }, 0.0f, 126.99f, 2},
        {"PowFast 1/2.4 [0.0031308, 4]", pow_enc, PowRecip24, 0.0031308f, 4.0f, 4},
        {"PowFast 1/2.4 (0, 4]", pow_enc, PowRecip24, kMinDenormal, 4.0f, 57},
        {"PowFast 2.4 [0.04, 4]", pow_dec, Pow24, 0.04f, 4.0f, 9},
        {"PowFast 2.4 normal results", pow_dec, Pow24, 1.6e-16f, 4.0f, 135},
    };
    for (const Bound& b : bounds) {
        SCOPED_TRACE(b.name);
        const std::vector<float> xs = Sample(b.lo, b.hi);
        int64_t worst = 0;
        float worst_x = 0;
        for (size_t i = 0; i < xs.size(); i += 4) {
            alignas(16) float in[4], out[4];
            for (size_t j = 0; j < 4; ++j) in[j] = xs[std::min(i + j, xs.size() - 1)];
            _mm_store_ps(out, b.fn(_mm_load_ps(in)));
            for (int j = 0; j < 4; ++j) {
                const int64_t d = vt::UlpDistance(out[j], static_cast<float>(b.reference(in[j])));
                if (d > worst) worst = d, worst_x = in[j];
            }
        }
        EXPECT_LE(worst, b.ulps) << "at x = " << worst_x;
    }
}

TEST(VectorMath, SpecialInputsFollowTheApproximations) {
    // e^x: zero and denormal inputs give exactly 1; the result range is cut short at both ends.
    EXPECT_EQ(Apply(XMVectorExpE, 0.0f), 1.0f);
    EXPECT_EQ(Apply(XMVectorExpE, -0.0f), 1.0f);
    EXPECT_EQ(Apply(XMVectorExpE, kMinDenormal), 1.0f);
    EXPECT_EQ(Apply(XMVectorExpE, -kInf), 0.0f);
    EXPECT_EQ(Apply(XMVectorExpE, kInf), kInf);
    EXPECT_TRUE(std::isnan(Apply(XMVectorExpE, NAN)));
    EXPECT_EQ(Apply(XMVectorExpE, -87.7f), 0.0f);  // the true value, 8.4e-39, is a denormal
    EXPECT_EQ(Apply(XMVectorExpE, 88.38f), kInf);   // the true value, 2.4e38, is finite
    // ln x: -inf at zero of either sign, NaN below, denormals within 1 ulp.
    EXPECT_EQ(Apply(XMVectorLogE, 0.0f), -kInf);
    EXPECT_EQ(Apply(XMVectorLogE, -0.0f), -kInf);
    EXPECT_TRUE(std::isnan(Apply(XMVectorLogE, -1.0f)));
    EXPECT_TRUE(std::isnan(Apply(XMVectorLogE, -kInf)));
    EXPECT_EQ(Apply(XMVectorLogE, kInf), kInf);
    EXPECT_EQ(Apply(XMVectorLogE, 1.0f), 0.0f);
    EXPECT_LE(vt::UlpDistance(Apply(XMVectorLogE, kMinDenormal), static_cast<float>(std::log(double{kMinDenormal}))), 1);
    // 2^x: exact at integers, no denormal results, overflow already at 127.
    EXPECT_EQ(Apply(XMVectorExp2, 0.0f), 1.0f);
    EXPECT_EQ(Apply(XMVectorExp2, -1.0f), 0.5f);
    EXPECT_EQ(Apply(XMVectorExp2, 10.0f), 1024.0f);
    EXPECT_EQ(Apply(XMVectorExp2, -126.0f), kMinNormal);
    EXPECT_EQ(Apply(XMVectorExp2, -130.0f), 0.0f);
    EXPECT_EQ(Apply(XMVectorExp2, 127.0f), kInf);
    EXPECT_TRUE(std::isnan(Apply(XMVectorExp2, NAN)));
}

TEST(VectorMath, PowFastHasNoSpecialCasesOfItsOwn) {
    auto pow = [](float x, float y) { return Lane0(XMVectorPowFast(_mm_set1_ps(x), _mm_set1_ps(y))); };
    EXPECT_EQ(pow(0.0f, 2.0f), 0.0f);         // e^(-inf)
    EXPECT_TRUE(std::isnan(pow(-1.0f, 2.0f)));  // ln of a negative, although (-1)^2 = 1
    EXPECT_EQ(pow(0.0f, -1.0f), kInf);        // e^(+inf)
    EXPECT_TRUE(std::isnan(pow(0.0f, 0.0f)));  // -inf x 0
    EXPECT_EQ(pow(1.0f, 1e30f), 1.0f);
    EXPECT_EQ(pow(4.0f, 0.5f), 2.0f);
    // Lanes are independent.
    alignas(16) float out[4];
    _mm_store_ps(out, XMVectorPowFast(_mm_setr_ps(0.0f, -1.0f, 4.0f, 9.0f), _mm_setr_ps(2.0f, 2.0f, 0.5f, 0.5f)));
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_TRUE(std::isnan(out[1]));
    EXPECT_EQ(out[2], 2.0f);
    EXPECT_LE(vt::UlpDistance(out[3], 3.0f), 1);
}

double SrgbEncode(double v) {
    const double c = v > 0 ? std::min(v, 1.0) : 0.0;
    return c < 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
}

TEST(LinearToSrgb, MatchesTheCurveOnEveryLane) {
    // 1.7e-7 absolute over [0, 1] against the textbook curve: the measured worst over every float
    // is 1.63e-7, in the power branch (1.32e-7 of it is the approximation, the rest the constants'
    // float roundings).
    for (float x : Sample(0.0f, 1.0f)) {
        const float got = Apply(XMVectorLinearToSrgb, x);
        ASSERT_NEAR(got, SrgbEncode(x), 1.7e-7) << "x = " << x;
    }
    alignas(16) float out[4];
    _mm_store_ps(out, XMVectorLinearToSrgb(_mm_setr_ps(-1.0f, 0.0031308f, 2.0f, 0.5f)));
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_NEAR(out[1], 0.040450, 1e-6);  // the threshold itself takes the power branch
    EXPECT_NE(out[1], 0.0031308f * 12.92f);
    EXPECT_EQ(out[2], 0.99999994f);        // clamped to 1, one step short through e^(ln 1)
    EXPECT_NEAR(out[3], 0.735357, 1e-6);   // alpha is encoded like colour
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, 0.0f), 0.0f);
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, 1.0f), 0.99999994f);
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, NAN), 0.0f);  // the clamp turns NaN into 0
    EXPECT_EQ(Apply(XMVectorLinearToSrgb, 0.003f), 0.003f * 12.92f);
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
    EXPECT_EQ(log2_table[0], 0.0f);
    EXPECT_EQ(log2_table[255], 1.0f);
    EXPECT_EQ(pow2_table[256], 1.0f);
    EXPECT_NEAR(pow2_table[0], std::exp2(-256.0 / 255.0), 1e-7);
    EXPECT_EQ(pow2_table[511], 2.0f);
}

}  // namespace
