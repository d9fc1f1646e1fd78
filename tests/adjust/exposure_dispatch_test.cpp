// Every instruction-set level of the vector brightness and selective exposure kernels against
// their SSE2 bodies, bit for bit, on guarded planes holding exactly the region's pixels (these
// kernels have no overrun), with local planes fenced by no-access pages.
#include <algorithm>
#include <random>

#include "adjust/edge_pixels.h"
#include "support/dispatch.h"
#include "velmora/imaging.h"

namespace {

// In place, which the kernel allows; amounts of either sign, large and tiny.
TEST(ExposureDispatch, BrightnessEveryLevelMatchesSse2) {
    std::mt19937 rng(761);
    for (const vt::Shape& s : vt::RandomShapes(762, vt::Scaled(500))) {
        SCOPED_TRACE(vt::Describe(s));
        const ImageSize roi{s.width, s.height};
        const float amount = std::uniform_real_distribution<float>(-3.0f, 3.0f)(rng);
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(s, vt::RowBytes(s.width, 1, 16), vt::EdgePixels{},
                                              [&](const vt::GuardedPlane& plane) {
                                                  ImageAdjustBrightness_Rgba128F_SSE2(plane.As<float>(), plane.step(),
                                                                                      plane.As<float>(), plane.step(),
                                                                                      &roi, amount);
                                              }));
    }
}

// Random band amounts, a global amount, and a local plane of its own step (every other shape),
// on image steps that are whole multiples of 64 bytes as the kernel requires.
TEST(ExposureDispatch, SelectiveEveryLevelMatchesSse2) {
    std::mt19937 rng(771);
    for (vt::Shape s : vt::RandomShapes(772, vt::Scaled(500))) {
        const int64_t row_bytes = vt::RowBytes(s.width, 1, 16);
        s.pad_dst = static_cast<int>((64 - row_bytes % 64) % 64);
        SCOPED_TRACE(vt::Describe(s));
        std::uniform_real_distribution<float> stops(-2.0f, 2.0f);
        const float bands[5] = {stops(rng), stops(rng), stops(rng), stops(rng), stops(rng)};
        const int32_t local_step = vt::StepFor(s, int64_t{std::max(s.width, 0)} * 4, s.pad_src, 4);
        vt::GuardedPlane local(int64_t{std::max(s.width, 0)} * 4, std::max(s.height, 0), local_step,
                               rng() % 2 ? vt::Placement::End : vt::Placement::Start, 4);
        local.FillRows<float>([&](int, int64_t) { return std::uniform_real_distribution<float>(-4.0f, 4.0f)(rng); });
        const bool with_map = rng() % 2 == 0;
        const ExposureParameter exposure{stops(rng), with_map ? local.As<float>() : nullptr, local_step, {0, 0}};
        const ImageSize roi{s.width, s.height};
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(s, row_bytes, vt::EdgePixels{}, [&](const vt::GuardedPlane& plane) {
            const StatusCode expected = plane.step() % 64 == 0 ? StatusOk : StatusFailure;
            ASSERT_EQ(ImageAdjustExposureSelective_Rgba128F_SSE2(plane.As<float>(), plane.step(), &roi, exposure,
                                                                  bands[0], bands[1], bands[2], bands[3], bands[4]),
                      expected);
        }));
    }
}

}  // namespace
