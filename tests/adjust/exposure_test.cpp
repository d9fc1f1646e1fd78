// Exposure, brightness, saturation and levels against the scalar references, on guarded planes of
// random shapes: every pixel of the region checked, nothing outside it touched.
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "adjust/local_map.h"
#include "reference/exposure.h"
#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;
using vt::Shape;

float Uniform(std::mt19937& rng, float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); }

// Mostly [0, 1], with exact 0 and 1, values a little outside, and deep shadows around the
// lightness threshold.
float RandomValue(std::mt19937& rng) {
    switch (rng() % 16) {
        case 0: return 0.0f;
        case 1: return 1.0f;
        case 2: return Uniform(rng, -0.05f, 0.0f);
        case 3: return Uniform(rng, 1.0f, 1.5f);
        case 4: return Uniform(rng, 0.0f, 0.02f);
        default: return Uniform(rng, 0.0f, 1.0f);
    }
}

int64_t PixelBytes(const Shape& s) { return vt::RowBytes(s.width, 1, 16); }

// An Rgba128F plane of the shape's region, guarded, with random pixels; step_align is the step
// granularity the kernel demands.
struct Image {
    GuardedPlane plane;
    Image(const Shape& s, int pad, int step_align = 16, uint32_t seed_offset = 0)
        : plane(PixelBytes(s), s.height, vt::StepFor(s, PixelBytes(s), pad, step_align), s.placement) {
        plane.FillRandomBytes(s.seed + 1);
        std::mt19937 rng(s.seed + seed_offset);
        plane.FillRows<float>([&](int, int64_t) { return RandomValue(rng); });
    }
    float* data() const { return plane.As<float>(); }
    int32_t step() const { return plane.step(); }
    // The region's pixels, packed, for the reference to rewrite.
    std::vector<float> Pixels(const Shape& s) const {
        std::vector<float> out;
        for (int y = 0; y < s.height; ++y)
            for (int i = 0; i < 4 * s.width; ++i) out.push_back(plane.RowAs<float>(y)[i]);
        return out;
    }
    ::testing::AssertionResult Matches(const Shape& s, const std::vector<float>& want, int64_t ulps) const {
        return vt::RowsMatch([&](int y) { return plane.RowAs<const float>(y); }, s.height, int64_t{4} * s.width, want,
                             ulps);
    }
};

// A padded local plane of values in [lo, hi).
vt::LocalMap Local(const Shape& s, float lo, float hi) {
    std::mt19937 rng(s.seed ^ 0x5eed);
    return vt::LocalMap(s, rng, [&] { return Uniform(rng, lo, hi); }, true);
}

// Applies fn(pixel, x, y) to every packed pixel of the region.
template <class Fn>
void ForEachPixel(const Shape& s, std::vector<float>& pixels, Fn&& fn) {
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) fn(*reinterpret_cast<ref::Pixel*>(&pixels[(size_t(y) * s.width + x) * 4]), x, y);
}

// ---- Source-to-destination kernels ---------------------------------------------------------

using SrcDstKernel = void(VELMORA_CALL*)(const float*, int32_t, float*, int32_t, const ImageSize*, float);

struct SrcDstCase {
    const char* name;
    SrcDstKernel call;
    std::function<void(ref::Pixel&, float)> reference;
    float amount_lo, amount_hi;
    int64_t ulps;
};

void PrintTo(const SrcDstCase& c, std::ostream* os) { *os << c.name; }

class SourceToDestination : public ::testing::TestWithParam<SrcDstCase> {};

TEST_P(SourceToDestination, MatchesReferenceOnRandomShapes) {
    const SrcDstCase& c = GetParam();
    for (const Shape& s : vt::RandomShapes(601, 150)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const float amount = Uniform(rng, c.amount_lo, c.amount_hi);
        vt::SameAsSse2 same;
        vt::ForEachLevel([&] {
            const Image src(s, s.pad_src);
            Image dst(s, s.pad_dst, 16, 99);
            const auto src_before = src.plane.Snapshot();
            const auto dst_before = dst.plane.Snapshot();
            std::vector<float> want = src.Pixels(s);
            ForEachPixel(s, want, [&](ref::Pixel& p, int, int) { c.reference(p, amount); });
            const ImageSize roi{s.width, s.height};
            c.call(src.data(), src.step(), dst.data(), dst.step(), &roi, amount);
            EXPECT_TRUE(dst.Matches(s, want, c.ulps)) << "amount " << amount;
            EXPECT_TRUE(dst.plane.OnlyRowsChanged(dst_before, PixelBytes(s)));
            EXPECT_TRUE(src.plane.Unchanged(src_before));
            EXPECT_TRUE(same(dst.plane));
        });
    }
}

INSTANTIATE_TEST_SUITE_P(
    Adjust, SourceToDestination,
    ::testing::Values(
        SrcDstCase{"ExposureScalar", ImageAdjustExposure_Rgba128F,
                   [](ref::Pixel& p, float a) { ref::Scale(p, std::exp2(a)); }, -4.0f, 4.0f, 0},
        SrcDstCase{"ExposureSse2", ImageAdjustExposure_Rgba128F_SSE2,
                   [](ref::Pixel& p, float a) { ref::Scale(p, std::exp2(a)); }, -4.0f, 4.0f, 0},
        SrcDstCase{"BrightnessScalar", ImageAdjustBrightness_Rgba128F,
                   [](ref::Pixel& p, float) { ref::BrightnessScalar(p); }, -1.0f, 1.0f, 0},
        // The cube root is xsimd's exp(log(y) / 3) in the kernel and powf in the reference; its
        // ULP grows through the power k = 2^amount and the cube back to luminance (4 seen).
        SrcDstCase{"BrightnessSse2", ImageAdjustBrightness_Rgba128F_SSE2, ref::BrightnessVector, -1.0f, 1.0f, 48}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- In-place kernels -------------------------------------------------------------------------

// Runs an in-place call on a random image of shape s at every level and checks it against
// reference(pixel, x, y); every level must give the SSE2 body's bits.
template <class Call, class Ref>
void CheckInPlace(const Shape& s, int step_align, int64_t ulps, Call&& call, Ref&& reference) {
    vt::SameAsSse2 same;
    vt::ForEachLevel([&] {
        Image image(s, s.pad_dst, step_align);
        const auto before = image.plane.Snapshot();
        std::vector<float> want = image.Pixels(s);
        ForEachPixel(s, want, reference);
        call(image.data(), image.step());
        EXPECT_TRUE(image.Matches(s, want, ulps));
        EXPECT_TRUE(image.plane.OnlyRowsChanged(before, PixelBytes(s)));
        EXPECT_TRUE(same(image.plane));
    });
}

TEST(ExposureEtc, MatchesReferenceWithAndWithoutLocalMap) {
    for (const Shape& s : vt::RandomShapes(603, 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const float amount = Uniform(rng, -4.0f, 4.0f);
        const ExposureParameter ignored{9.0f, nullptr, 0, {0, 0}};
        CheckInPlace(
            s, 16, 0,
            [&](float* data, int32_t step) {
                const ExposureParameter e{amount, nullptr, 12345, {7, 7}};
                ImageAdjustExposureEtc_Rgba128F_SSE2(data, step, s.width, s.height, e, ignored, 3.0f, 4.0f);
            },
            [&](ref::Pixel& p, int, int) { ref::Scale(p, std::pow(2.0f, amount)); });
        // Local stops of +-3 around the amount reach both ends of the +-5 stop clamp.
        const vt::LocalMap local = Local(s, -3.0f, 3.0f);
        CheckInPlace(
            s, 16, 0,
            [&](float* data, int32_t step) {
                const ExposureParameter e{amount, local.data(), local.step(), {7, 7}};
                ImageAdjustExposureEtc_Rgba128F_SSE2(data, step, s.width, s.height, e, ignored, 3.0f, 4.0f);
            },
            [&](ref::Pixel& p, int x, int y) { ref::Scale(p, std::pow(2.0f, ref::ClampStops(local.at(x, y) + amount))); });
    }
}

TEST(Saturation, MatchesReferenceInEveryVariant) {
    // Saturation and vibrance each on, off, or just below the 1e-6 limit that turns them off.
    const float values[] = {0.0f, 0.9e-06f, 0.6f, -0.45f};
    int round = 0;
    for (const Shape& s : vt::RandomShapes(604, 60)) {
        SCOPED_TRACE(vt::Describe(s));
        const float saturation = values[round % 4], vibrance = values[(round / 4) % 4];
        const bool with_map = (round / 16) % 2 == 1;
        ++round;
        SCOPED_TRACE(::testing::Message() << "saturation " << saturation << " vibrance " << vibrance
                                          << (with_map ? " with map" : ""));
        const vt::LocalMap local = Local(s, -0.5f, 0.5f);
        CheckInPlace(
            s, 16, 0,
            [&](float* data, int32_t step) {
                ImageAdjustSaturation_Rgba128F_SSE2(data, step, s.width, s.height, saturation, vibrance,
                                                    with_map ? local.data() : nullptr, local.step());
            },
            [&](ref::Pixel& p, int x, int y) {
                const float l = with_map ? local.at(x, y) : 0.0f;
                ref::Saturation(p, saturation, vibrance, with_map ? &l : nullptr);
            });
    }
}

TEST(Levels, MatchesReference) {
    for (const Shape& s : vt::RandomShapes(605, 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const float black = Uniform(rng, -0.1f, 0.4f), white = Uniform(rng, 0.6f, 1.2f);
        const ImageSize roi{s.width, s.height};
        CheckInPlace(
            s, 16, 0, [&](float* data, int32_t step) { ImageLevels_Rgba128F_SSE2(data, step, &roi, black, white); },
            [&](ref::Pixel& p, int, int) { ref::Levels(p, black, white); });
    }
}

// The tone is sRGB-encoded by xsimd's power in the kernel and in double in the reference, and
// 2^e is xsimd's against exp2: a tone ULP moves up to 10 stops of band slope (32 seen).
constexpr int64_t kSelectiveUlps = 48;

TEST(SelectiveExposure, MatchesReferenceWithAndWithoutLocalMap) {
    for (const Shape& s : vt::RandomShapes(606, 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const ref::Bands b{Uniform(rng, -2, 2), Uniform(rng, -2, 2), Uniform(rng, -2, 2), Uniform(rng, -2, 2),
                           Uniform(rng, -2, 2)};
        const float amount = Uniform(rng, -1.5f, 1.5f);
        const bool with_map = rng() % 2 == 0;
        const vt::LocalMap local = Local(s, -2.0f, 2.0f);
        const ImageSize roi{s.width, s.height};
        CheckInPlace(
            s, 64, kSelectiveUlps,
            [&](float* data, int32_t step) {
                const ExposureParameter e{amount, with_map ? local.data() : nullptr, local.step(), {1, 1}};
                EXPECT_EQ(ImageAdjustExposureSelective_Rgba128F_SSE2(data, step, &roi, e, b.blacks, b.shadows,
                                                                     b.midtones, b.highlights, b.whites),
                          StatusOk);
            },
            [&](ref::Pixel& p, int x, int y) { ref::SelectiveExposure(p, b, amount, with_map ? local.at(x, y) : 0.0f); });
    }
}

TEST(SelectiveExposure, RejectsStepsThatAreNotWholeMultiplesOf64) {
    for (const int32_t step : {1000, 48, 80, -16, 65}) {
        SCOPED_TRACE(step);
        GuardedPlane plane(std::abs(step) * 3, 1, std::abs(step) * 3);
        plane.FillRandomBytes(4);
        const auto before = plane.Snapshot();
        const ImageSize roi{2, 3};
        float* image = reinterpret_cast<float*>(step < 0 ? plane.data() + 2 * -step : plane.data());
        const ExposureParameter e{1.0f, nullptr, 0, {0, 0}};
        EXPECT_EQ(ImageAdjustExposureSelective_Rgba128F_SSE2(image, step, &roi, e, 1, 1, 1, 1, 1), 0x80004005u);
        EXPECT_TRUE(plane.Unchanged(before));
    }
}

TEST(StatedValues, LevelsStretchesBlackToWhite) {
    float image[8] = {0.1f, 0.5f, 0.95f, 0.0f, NAN, 0.9f, 2.0f, -1.0f};
    const ImageSize roi{2, 1};
    ImageLevels_Rgba128F_SSE2(image, 32, &roi, 0.1f, 0.9f);
    EXPECT_EQ(image[0], 0.0f);
    EXPECT_NEAR(image[1], 0.5f, 1e-7f);
    EXPECT_EQ(image[2], 1.0f);
    EXPECT_EQ(image[3], 0.0f);
    EXPECT_EQ(image[4], 0.0f) << "NaN becomes 0";
    EXPECT_NEAR(image[5], 1.0f, 1e-6f);
    EXPECT_EQ(image[6], 1.0f);
    EXPECT_EQ(image[7], 0.0f);
}

}  // namespace
