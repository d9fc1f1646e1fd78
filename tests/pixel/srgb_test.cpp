// sRGB transfer kernels: every export through the per-pixel table against the references of
// reference/srgb.h (special values included), and the formula's branch thresholds.
#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

#include "reference/srgb.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using RoiKernel = void(VELMORA_CALL*)(float*, int32_t, const ImageSize*);

const ref::TableTransfer kEncodeTable(true), kDecodeTable(false);

// Mostly nominal values a little beyond [0, 1] on both sides, with special values mixed in.
float PixelValue(std::mt19937& rng) {
    static const float kSpecial[] = {0.0f,     -0.0f,       1.0f,    0.0031308f, 0.04045f, 0.5f,  -1.0f, 2.0f, 7.0f,
                                     kNaN,     kInf,        -kInf,   1e-40f,     -1e-40f,  0.999f, 1.0001f};
    if (rng() % 8 == 0) return kSpecial[rng() % std::size(kSpecial)];
    return std::uniform_real_distribution<float>(-0.25f, 1.25f)(rng);
}

// Every lane through one curve. The formula kernels differ from the double-precision curve by the
// vector power's error: the bounds are the worst measured over every float in [-4, 4] (1 ulp on
// the linear branch). The others follow the documented float procedure step by step and must
// match exactly. The _Lut pair converts the rectangle (x, y, width, height) of its plane.
template <class Curve>
vt::PixelKernel Row(const char* name, vt::Region call, Curve curve, int64_t ulps, bool rect = false) {
    vt::PixelKernel k{name, 4, 4, 4, 4, true, rect, std::move(call),
                      [curve](const float* s, float* d) { for (int c = 0; c < 4; ++c) d[c] = float(curve(s[c])); }, 0, 0, 0};
    k.ulps = ulps;
    k.sample = PixelValue;
    return k;
}

std::vector<vt::PixelKernel> Kernels() {
    const auto encode = [](float v) { return kEncodeTable(v); };
    const auto decode = [](float v) { return kDecodeTable(v); };
    return {
        Row("EncodeFormula", vt::OwnInPlace(XMImageRGBToSRGB_Rgb128F_SSE2), ref::EncodeCurve, 9),
        Row("EncodePowf", vt::OwnInPlace(XMImageRGBToSRGB_Rgb128F_SSE2_2), ref::PowfEncoder, 0),
        Row("EncodeCurve", vt::OwnInPlace(XMImageRGBToSRGB_Rgb128F_SSE2_Curve), encode, 0),
        Row("EncodeCurve2", vt::OwnInPlace(XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2), encode, 0),
        Row("EncodeLut", vt::MatrixInPlace(RGBToSRGB_Rgb128F_Lut), encode, 0, true),
        Row("DecodeFormula", vt::OwnInPlace(XMImageSRGBToRGB_Rgb128F_SSE2), ref::DecodeCurve, 17),
        Row("DecodeCurve", vt::OwnInPlace(XMImageSRGBToRGB_Rgb128F_SSE2_Curve), decode, 0),
        Row("DecodeLut", vt::MatrixInPlace(SRGBToRGB_Rgb128F_Lut), decode, 0, true),
    };
}

class SrgbKernels : public ::testing::TestWithParam<vt::PixelKernel> {};
TEST_P(SrgbKernels, MatchReferenceOnRandomShapes) { vt::CheckOnRandomShapes(GetParam()); }
INSTANTIATE_TEST_SUITE_P(AllExports, SrgbKernels, ::testing::ValuesIn(Kernels()), vt::kKernelName);

// The formula kernels' branch thresholds, where a few ulps of tolerance would hide the wrong
// branch: strictly below 0.0031308 encodes linearly, up to and including 0.04045 decodes
// linearly, and neither clamps.
TEST(SrgbFormula, BranchesAtTheThresholdsWithoutClamping) {
    auto value = [](RoiKernel k, float v) {
        float lanes[4] = {v, v, v, v};
        const ImageSize roi{1, 1};
        k(lanes, 16, &roi);
        return lanes[0];
    };
    const RoiKernel encode = XMImageRGBToSRGB_Rgb128F_SSE2, decode = XMImageSRGBToRGB_Rgb128F_SSE2;
    const float below = std::nextafter(0.0031308f, 0.0f), above = std::nextafter(0.04045f, 1.0f);
    EXPECT_EQ(value(encode, below), below * 12.92f);
    EXPECT_NE(value(encode, 0.0031308f), 0.0031308f * 12.92f);
    EXPECT_EQ(value(decode, 0.04045f), 0.04045f * 0.07739938f);
    EXPECT_NE(value(decode, above), above * 0.07739938f);
    EXPECT_EQ(value(encode, -1.0f), -12.92f);
    EXPECT_NEAR(value(encode, 2.0f), 1.353, 1e-3);
}

}  // namespace
