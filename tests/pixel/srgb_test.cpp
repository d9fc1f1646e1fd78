// sRGB transfer kernels: every export on guarded random shapes against the references of
// reference/srgb.h, the rectangle arguments of the _Lut pair, branch thresholds and special
// values, and the error bounds of the interpolated tables against the double-precision curves.
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

// One pixel through an export: the four lanes in, the four lanes out.
template <RoiKernel K>
std::vector<float> Pixel(std::vector<float> lanes) {
    const ImageSize roi{1, 1};
    K(lanes.data(), 16, &roi);
    return lanes;
}
template <RoiKernel K>
float Value(float v) {
    return Pixel<K>({v, v, v, v})[0];
}

TEST(SrgbFormula, BranchesAtTheThresholdsWithoutClamping) {
    constexpr auto encode = Value<XMImageRGBToSRGB_Rgb128F_SSE2>;
    constexpr auto decode = Value<XMImageSRGBToRGB_Rgb128F_SSE2>;
    // Encoding: strictly below 0.0031308 is linear, the threshold itself takes the power branch.
    const float below = std::nextafter(0.0031308f, 0.0f);
    EXPECT_EQ(encode(below), below * 12.92f);
    EXPECT_NE(encode(0.0031308f), 0.0031308f * 12.92f);
    EXPECT_NEAR(encode(0.0031308f), 0.040450, 1e-6);
    // Decoding: up to and including 0.04045 is linear, strictly above takes the power branch.
    EXPECT_EQ(decode(0.04045f), 0.04045f * 0.07739938f);
    const float above = std::nextafter(0.04045f, 1.0f);
    EXPECT_NE(decode(above), above * 0.07739938f);
    EXPECT_LE(vt::UlpDistance(decode(above), static_cast<float>(ref::DecodeCurve(above))), 17);
    // 0 and 1 land on the ends; e^(ln x) keeps 1 within a few steps of 1.
    EXPECT_EQ(encode(0.0f), 0.0f);
    EXPECT_EQ(decode(0.0f), 0.0f);
    EXPECT_LE(vt::UlpDistance(encode(1.0f), 1.0f), 2);
    EXPECT_LE(vt::UlpDistance(decode(1.0f), 1.0f), 2);
    // No clamp: negatives follow the linear segment, values above 1 the power.
    EXPECT_EQ(encode(-1.0f), -12.92f);
    EXPECT_EQ(decode(-1.0f), -0.07739938f);
    EXPECT_NEAR(encode(2.0f), 1.353, 1e-3);
    EXPECT_NEAR(decode(2.0f), ref::DecodeCurve(2.0), 1e-5);
    EXPECT_EQ(encode(kInf), kInf);
    EXPECT_EQ(encode(-kInf), -kInf);
    EXPECT_TRUE(std::isnan(encode(kNaN)));
    EXPECT_TRUE(std::isnan(decode(kNaN)));
}

TEST(SrgbClamped, PowfAndTableEncodersClampEveryLaneAlphaIncluded) {
    // The table's top entry is exactly 1; the powf encoder's top is 1.055 x 1 - 0.055 in float,
    // one step below 1.
    const float powf_top = 1.055f - 0.055f;
    ASSERT_EQ(powf_top, 0.99999994f);
    const struct {
        std::vector<float> (*run)(std::vector<float>);
        float top;
    } encoders[] = {{Pixel<XMImageRGBToSRGB_Rgb128F_SSE2_2>, powf_top},
                    {Pixel<XMImageRGBToSRGB_Rgb128F_SSE2_Curve>, 1.0f},
                    {Pixel<XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2>, 1.0f}};
    for (const auto& [encode, top] : encoders) {
        EXPECT_EQ(encode({0.0f, 1.0f, -3.0f, 7.0f}), (std::vector<float>{0.0f, top, 0.0f, top}));
        EXPECT_EQ(encode({2.0f, kNaN, -kInf, kInf}), (std::vector<float>{top, 0.0f, 0.0f, top}));
        // Alpha 0.5 is encoded like the colours: about 0.7354, the table a little above (its
        // curve is met at 0.5 x 1024/1023).
        for (float lane : encode({0.5f, 0.5f, 0.5f, 0.5f})) EXPECT_NEAR(lane, 0.7354, 4e-4);
    }
    auto decode = Pixel<XMImageSRGBToRGB_Rgb128F_SSE2_Curve>;
    EXPECT_EQ(decode({0.0f, 1.0f, -3.0f, 7.0f}), (std::vector<float>{0.0f, 1.0f, 0.0f, 1.0f}));
    EXPECT_EQ(decode({2.0f, kNaN, -kInf, kInf}), (std::vector<float>{1.0f, 0.0f, 0.0f, 1.0f}));
    // The vector encoder, unclamped, takes 2 past 1 and alpha along with colour.
    EXPECT_EQ(Pixel<XMImageRGBToSRGB_Rgb128F_SSE2>({2.0f, 0.5f, 0.5f, 0.5f})[3], Value<XMImageRGBToSRGB_Rgb128F_SSE2>(0.5f));
    EXPECT_NEAR(Value<XMImageRGBToSRGB_Rgb128F_SSE2>(0.5f), 0.735357, 1e-6);
}

TEST(SrgbCurve, SecondNameGivesIdenticalBitsForEveryKindOfInput) {
    // Bit patterns spread over the whole float space (NaNs, infinities, denormals, both signs).
    std::vector<float> a;
    for (uint64_t u = 0; u <= 0xFFFFFFFFu; u += 1021) {
        float f;
        const uint32_t bits = static_cast<uint32_t>(u);
        std::memcpy(&f, &bits, 4);
        a.push_back(f);
    }
    a.resize(a.size() / 4 * 4);
    std::vector<float> b = a;
    const ImageSize roi{static_cast<int32_t>(a.size() / 4), 1};
    XMImageRGBToSRGB_Rgb128F_SSE2_Curve(a.data(), static_cast<int32_t>(a.size() * 4), &roi);
    XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2(b.data(), static_cast<int32_t>(b.size() * 4), &roi);
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * 4), 0);
}

// The table kernels against the double-precision curves over a dense sweep of [0, 1]. Two bounds
// each, both the worst measured over every float in [0, 1]: against the curve at v x 1024/1023,
// where the table's 1/1023 grid meets its index scale of 1023.9999, the error is the linear
// interpolation's alone (largest where encoding bends just above its linear segment); against
// the curve at v itself the stretch adds up to slope x v/1023 (largest near 1 for decoding).
TEST(SrgbCurve, InterpolationStaysWithinItsErrorBound) {
    const struct {
        RoiKernel run;
        double (*curve)(double);
        double interpolation, total;
    } kinds[] = {{XMImageRGBToSRGB_Rgb128F_SSE2_Curve, ref::EncodeCurve, 2.5e-4, 4.3e-4},
                 {XMImageSRGBToRGB_Rgb128F_SSE2_Curve, ref::DecodeCurve, 5e-7, 2.23e-3}};
    constexpr int kCount = 1 << 20;
    std::vector<float> in(kCount);
    for (int i = 0; i < kCount; ++i) in[i] = static_cast<float>(i) / (kCount - 1);
    const double stretch = double{1023.9999f} / 1023.0;
    for (const auto& kind : kinds) {
        std::vector<float> out = in;
        const ImageSize roi{kCount / 4, 1};
        kind.run(out.data(), kCount * 4, &roi);
        double interpolation = 0, total = 0;
        for (int i = 0; i < kCount; ++i) {
            interpolation = std::max(interpolation, std::fabs(out[i] - kind.curve(std::min(in[i] * stretch, 1.0))));
            total = std::max(total, std::fabs(out[i] - kind.curve(in[i])));
        }
        EXPECT_LE(interpolation, kind.interpolation);
        EXPECT_LE(total, kind.total);
        // The bounds are not loose: the sweep reaches most of each.
        EXPECT_GE(interpolation, kind.interpolation / 4);
        EXPECT_GE(total, kind.total / 2);
    }
}

}  // namespace
