// sRGB transfer kernels: every export on guarded random shapes against the references of
// reference/srgb.h at every level (each giving the SSE2 body's bits, special values included),
// the rectangle arguments of the _Lut pair, and the formula's branch thresholds.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "reference/srgb.h"
#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using RoiKernel = void(VELMORA_CALL*)(float*, int32_t, const ImageSize*);
using RectKernel = void(VELMORA_CALL*)(float*, int32_t, int32_t, int32_t, int32_t, int32_t);

// Every export seen as (data, step, width, height); the _Lut pair is called on its whole plane.
template <RoiKernel K>
void ByRoi(float* data, int32_t step, int32_t width, int32_t height) {
    const ImageSize roi{width, height};
    K(data, step, &roi);
}
template <RectKernel K>
void ByRect(float* data, int32_t step, int32_t width, int32_t height) {
    K(data, step, 0, 0, width, height);
}

const ref::TableTransfer& EncodeTable() {
    static const ref::TableTransfer t(true);
    return t;
}
const ref::TableTransfer& DecodeTable() {
    static const ref::TableTransfer t(false);
    return t;
}
float CurveEncoded(float v) { return static_cast<float>(ref::EncodeCurve(v)); }
float CurveDecoded(float v) { return static_cast<float>(ref::DecodeCurve(v)); }
float TableEncoded(float v) { return EncodeTable()(v); }
float TableDecoded(float v) { return DecodeTable()(v); }

struct Kernel {
    const char* name;
    void (*run)(float* data, int32_t step, int32_t width, int32_t height);
    float (*want)(float input);
    // Formula kernels differ from the double-precision curve by the vector power's error; the
    // bounds are the worst measured over every float in [-4, 4] (1 ulp on the linear branch).
    // The others follow the documented float procedure step by step and must match exactly.
    int64_t ulps;
};

void PrintTo(const Kernel& k, std::ostream* os) { *os << k.name; }

const Kernel kKernels[] = {
    {"EncodeFormula", ByRoi<XMImageRGBToSRGB_Rgb128F_SSE2>, CurveEncoded, 9},
    {"EncodePowf", ByRoi<XMImageRGBToSRGB_Rgb128F_SSE2_2>, ref::PowfEncoder, 0},
    {"EncodeCurve", ByRoi<XMImageRGBToSRGB_Rgb128F_SSE2_Curve>, TableEncoded, 0},
    {"EncodeCurve2", ByRoi<XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2>, TableEncoded, 0},
    {"EncodeLut", ByRect<RGBToSRGB_Rgb128F_Lut>, TableEncoded, 0},
    {"DecodeFormula", ByRoi<XMImageSRGBToRGB_Rgb128F_SSE2>, CurveDecoded, 17},
    {"DecodeCurve", ByRoi<XMImageSRGBToRGB_Rgb128F_SSE2_Curve>, TableDecoded, 0},
    {"DecodeLut", ByRect<SRGBToRGB_Rgb128F_Lut>, TableDecoded, 0},
};

// Mostly nominal values a little beyond [0, 1] on both sides, with special values mixed in.
float PixelValue(std::mt19937& rng) {
    static const float kSpecial[] = {0.0f,     -0.0f,       1.0f,    0.0031308f, 0.04045f, 0.5f,  -1.0f, 2.0f, 7.0f,
                                     kNaN,     kInf,        -kInf,   1e-40f,     -1e-40f,  0.999f, 1.0001f};
    if (rng() % 8 == 0) return kSpecial[rng() % std::size(kSpecial)];
    return std::uniform_real_distribution<float>(-0.25f, 1.25f)(rng);
}

::testing::AssertionResult Matches(const Kernel& k, float got, float input) {
    const float want = k.want(input);
    if (vt::UlpDistance(got, want) <= k.ulps) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "input " << input << ": got " << got << ", want " << want;
}

class SrgbKernels : public ::testing::TestWithParam<Kernel> {};

TEST_P(SrgbKernels, MatchesReferenceOnGuardedRandomShapes) {
    const Kernel& k = GetParam();
    for (const vt::Shape& s : vt::RandomShapes(31, 150)) {
        SCOPED_TRACE(vt::Describe(s));
        const int64_t row_bytes = vt::RowBytes(s.width, 1, 16);
        const int32_t step = vt::StepFor(s, row_bytes, s.pad_dst, 4);
        vt::SameAsSse2 same;
        vt::ForEachLevel([&] {
            vt::GuardedPlane plane(row_bytes, s.height, step, s.placement, 4);
            std::mt19937 rng(s.seed);
            plane.FillRows<float>([&](int, int64_t) { return PixelValue(rng); });
            const auto before = plane.Snapshot();
            std::vector<std::vector<float>> input;
            for (int y = 0; y < s.height; ++y) input.emplace_back(plane.RowAs<float>(y), plane.RowAs<float>(y) + row_bytes / 4);
            k.run(plane.As<float>(), step, s.width, s.height);
            for (int y = 0; y < s.height; ++y)
                for (size_t i = 0; i < input[y].size(); ++i)
                    ASSERT_TRUE(Matches(k, plane.RowAs<float>(y)[i], input[y][i])) << "row " << y << " element " << i;
            EXPECT_TRUE(plane.OnlyRowsChanged(before, row_bytes));
            EXPECT_TRUE(same(plane));
        });
    }
}

INSTANTIATE_TEST_SUITE_P(AllExports, SrgbKernels, ::testing::ValuesIn(kKernels),
                         [](const auto& info) { return std::string(info.param.name); });

// The _Lut pair converts the rectangle (x, y, width, height) of a plane given by its row 0 and
// leaves every other pixel of the plane as it was.
TEST(SrgbLut, ConvertsExactlyTheRectangleInPlace) {
    const struct {
        RectKernel run;
        float (*want)(float);
    } kinds[] = {{RGBToSRGB_Rgb128F_Lut, TableEncoded}, {SRGBToRGB_Rgb128F_Lut, TableDecoded}};
    for (const auto& kind : kinds) {
        for (const vt::Shape& s : vt::RandomShapes(47, 120)) {
            if (s.width <= 0 || s.height <= 0) continue;
            SCOPED_TRACE(vt::Describe(s));
            std::mt19937 rng(s.seed);
            auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
            const int x0 = pick(0, s.width), y0 = pick(0, s.height);
            const int w = pick(0, s.width - x0), h = pick(0, s.height - y0);
            SCOPED_TRACE(::testing::Message() << "rectangle " << x0 << "," << y0 << " " << w << "x" << h);
            const int64_t row_bytes = int64_t{s.width} * 16;
            const int32_t step = vt::StepFor(s, row_bytes, s.pad_dst, 4);
            vt::GuardedPlane plane(row_bytes, s.height, step, s.placement, 4);
            plane.FillRows<float>([&](int, int64_t) { return PixelValue(rng); });
            const auto before = plane.Snapshot();
            std::vector<std::vector<float>> input;
            for (int y = 0; y < s.height; ++y) input.emplace_back(plane.RowAs<float>(y), plane.RowAs<float>(y) + s.width * 4);
            kind.run(plane.As<float>(), step, x0, y0, w, h);
            for (int y = 0; y < s.height; ++y) {
                for (int i = 0; i < s.width * 4; ++i) {
                    const bool inside = y >= y0 && y < y0 + h && i / 4 >= x0 && i / 4 < x0 + w;
                    const float got = plane.RowAs<float>(y)[i], in = input[y][i];
                    if (inside) ASSERT_EQ(vt::UlpDistance(got, kind.want(in)), 0) << "row " << y << " element " << i;
                    else ASSERT_EQ(std::memcmp(&got, &in, 4), 0) << "outside, row " << y << " element " << i;
                }
            }
            EXPECT_TRUE(plane.OnlyRowsChanged(before, row_bytes));
        }
    }
}

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
