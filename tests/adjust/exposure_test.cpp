// Exposure, brightness, saturation, levels and selective exposure through the per-pixel table
// against the scalar references of reference/exposure.h: every pixel of the region checked at
// every level, nothing outside it touched; local planes on guard pages, amounts at the limits.
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "adjust/local_map.h"
#include "reference/exposure.h"
#include "support/pixel_table.h"
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

// A padded local plane of values in [lo, hi).
vt::LocalMap Local(const Shape& s, float lo, float hi) {
    std::mt19937 rng(s.seed ^ 0x5eed);
    return vt::LocalMap(s, rng, [&] { return Uniform(rng, lo, hi); }, true);
}

// One call on shape s through the per-pixel table at every level: call(src, src_step, dst,
// dst_step) (in place: both the image) and reference(pixel, x, y) rewriting a copy of the source
// pixel. Steps are whole multiples of `align` bytes.
template <class Call, class Ref>
void Check(const Shape& s, bool in_place, int align, int64_t ulps, Call&& call, Ref&& reference,
           float (*sample)(std::mt19937&) = RandomValue) {
    vt::PixelKernel row{"", 4, 4, 4, 4, in_place, false,
                        [&](const void* src, int32_t ss, void* dst, int32_t ds, int32_t, int32_t, int32_t, int32_t) {
                            call(static_cast<const float*>(src), ss, static_cast<float*>(dst), ds);
                        },
                        nullptr, 0, 0, 0};
    row.reference_at = [&](const float* p, float* q, int x, int y) {
        std::copy(p, p + 4, q);
        reference(*reinterpret_cast<ref::Pixel*>(q), x, y);
    };
    row.ulps = ulps;
    row.sample = sample;
    row.align = align;
    vt::CheckAtEveryLevel(row, s);
}

// The source-to-destination pairs at a random amount; the cube root is xsimd's exp(log(y) / 3)
// in the vector brightness and powf in the reference: its ulp grows through the power
// k = 2^amount and the cube back to luminance (4 seen).
TEST(SourceToDestination, ExposureAndBrightnessMatchReference) {
    using Kernel = void(VELMORA_CALL*)(const float*, int32_t, float*, int32_t, const ImageSize*, float);
    const struct {
        const char* name;
        Kernel call;
        std::function<void(ref::Pixel&, float)> reference;
        float range;
        int64_t ulps;
    } cases[] = {{"exposure", ImageAdjustExposure_Rgba128F, [](ref::Pixel& p, float a) { ref::Scale(p, std::exp2(a)); }, 4.0f, 0},
                 {"exposure SSE2", ImageAdjustExposure_Rgba128F_SSE2, [](ref::Pixel& p, float a) { ref::Scale(p, std::exp2(a)); }, 4.0f, 0},
                 {"brightness", ImageAdjustBrightness_Rgba128F, [](ref::Pixel& p, float) { ref::BrightnessScalar(p); }, 1.0f, 0},
                 {"brightness SSE2", ImageAdjustBrightness_Rgba128F_SSE2, ref::BrightnessVector, 1.0f, 48}};
    for (const auto& c : cases)
        for (const Shape& s : vt::RandomShapes(601, 60)) {
            SCOPED_TRACE(vt::Describe(s) + " " + c.name);
            std::mt19937 rng(s.seed);
            const float amount = Uniform(rng, -c.range, c.range);
            const ImageSize roi{s.width, s.height};
            Check(s, false, 16, c.ulps, [&](const float* src, int32_t ss, float* dst, int32_t ds) { c.call(src, ss, dst, ds, &roi, amount); },
                  [&](ref::Pixel& p, int, int) { c.reference(p, amount); });
        }
}

// The one-pixel brightness at a luminance of exactly the lightness threshold takes the cube
// root (its branches do not meet there, so the comparison's direction shows), the vector one the
// straight segment: red alone, with Y = 0.2125 r hitting the threshold exactly.
TEST(SourceToDestination, BrightnessAtTheThresholdTakesItsDocumentedBranch) {
    float r = 0.008856452f / 0.2125f;
    while (0.2125f * r < 0.008856452f) r = std::nextafter(r, 1.0f);
    while (0.2125f * r > 0.008856452f) r = std::nextafter(r, 0.0f);
    ASSERT_EQ(0.2125f * r, 0.008856452f);
    ref::Pixel want = {r, 0, 0, 1};
    ref::BrightnessScalar(want);
    float px[4] = {r, 0, 0, 1}, out[4];
    const ImageSize roi{1, 1};
    ImageAdjustBrightness_Rgba128F(px, 16, out, 16, &roi, 0.0f);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(out[c], want[c]) << "lane " << c;
    // The vector brightness takes the straight segment there, which involves no power: the
    // reference's bits exactly.
    ref::Pixel line = {r, 0, 0, 1};
    ref::BrightnessVector(line, 0.0f);
    ImageAdjustBrightness_Rgba128F_SSE2(px, 16, out, 16, &roi, 0.0f);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(out[c], line[c]) << "vector, lane " << c;
}

TEST(ExposureEtc, MatchesReferenceWithAndWithoutLocalMap) {
    for (const Shape& s : vt::RandomShapes(603, 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const float amount = Uniform(rng, -4.0f, 4.0f);
        const bool with_map = rng() % 2 == 0;
        // Local stops of +-3 around the amount reach both ends of the +-5 stop clamp.
        const vt::LocalMap local = Local(s, -3.0f, 3.0f);
        const ExposureParameter ignored{9.0f, nullptr, 0, {0, 0}};
        const ExposureParameter e{amount, with_map ? local.data() : nullptr, with_map ? local.step() : 12345, {7, 7}};
        Check(s, true, 16, 0,
              [&](const float*, int32_t, float* data, int32_t step) {
                  ImageAdjustExposureEtc_Rgba128F_SSE2(data, step, s.width, s.height, e, ignored, 3.0f, 4.0f);
              },
              [&](ref::Pixel& p, int x, int y) { ref::Scale(p, std::pow(2.0f, with_map ? ref::ClampStops(local.at(x, y) + amount) : amount)); });
    }
}

TEST(Saturation, MatchesReferenceInEveryVariant) {
    // Saturation and vibrance each on, off, at the 1e-6 limit that turns them on or just below it.
    const float values[] = {0.0f, 0.9e-06f, 1e-06f, 0.6f, -0.45f};
    int round = 0;
    for (const Shape& s : vt::RandomShapes(604, 100)) {
        const float saturation = values[round % 5], vibrance = values[(round / 5) % 5];
        const bool with_map = (round / 25) % 2 == 1;
        ++round;
        SCOPED_TRACE(::testing::Message() << vt::Describe(s) << " saturation " << saturation << " vibrance " << vibrance
                                          << (with_map ? " with map" : ""));
        const vt::LocalMap local = Local(s, -0.5f, 0.5f);
        Check(s, true, 16, 0,
              [&](const float*, int32_t, float* data, int32_t step) {
                  ImageAdjustSaturation_Rgba128F_SSE2(data, step, s.width, s.height, saturation, vibrance,
                                                      with_map ? local.data() : nullptr, local.step());
              },
              [&](ref::Pixel& p, int x, int y) {
                  const float l = with_map ? local.at(x, y) : 0.0f;
                  ref::Saturation(p, saturation, vibrance, with_map ? &l : nullptr);
              });
    }
}

// Levels also meets NaN, which its clamp sends to 0.
TEST(Levels, MatchesReference) {
    for (const Shape& s : vt::RandomShapes(605, 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::mt19937 rng(s.seed);
        const float black = Uniform(rng, -0.1f, 0.4f), white = Uniform(rng, 0.6f, 1.2f);
        const ImageSize roi{s.width, s.height};
        Check(s, true, 16, 0, [&](const float*, int32_t, float* data, int32_t step) { ImageLevels_Rgba128F_SSE2(data, step, &roi, black, white); },
              [&](ref::Pixel& p, int, int) { ref::Levels(p, black, white); },
              [](std::mt19937& rng) { return rng() % 16 ? RandomValue(rng) : NAN; });
    }
}

// The tone is sRGB-encoded by xsimd's power in the kernel and in double in the reference, and
// 2^e is xsimd's against exp2: a tone ULP moves up to 10 stops of band slope (32 seen). The
// kernel demands steps that are whole multiples of 64 bytes.
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
        Check(s, true, 64, 48,
              [&](const float*, int32_t, float* data, int32_t step) {
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

}  // namespace
