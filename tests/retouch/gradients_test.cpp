// Gradient masks against the scalar references: random regions and points, midpoints on and
// around 0.5 and beyond 0..1, both inversions. The destination is fenced right after each row's
// last float of the width rounded up to four, the documented overrun.
#include <cmath>
#include <random>
#include <vector>

#include "reference/dehaze.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

namespace g = ref::gradient;

struct Case {
    int32_t region[4];
    float a[2], b[2], shape;
    bool invert;
};

// Random cases through the per-pixel table at every level: fill(dst, step, case) against
// want(px, py, case) for every written float (the overrun to four included), exactly or within an
// absolute tolerance. Widths reach past two of the widest vectors so that the wide bodies run
// their main loop and their four-float tail.
template <class Fill, class Want>
void Check(uint32_t seed, Fill&& fill, Want&& want, float tolerance = 0.0f) {
    std::mt19937 rng(seed);
    auto uni = [&](float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); };
    const float shapes[] = {0.5f, 0.5000005f, 0.5001f, 0.0f, 1.0f, -0.3f, 1.4f};
    for (int i = 0; i < vt::Scaled(150); ++i) {
        const int32_t width = int32_t(rng() % 3 ? rng() % 23 : rng() % 90);
        const Case c{{int32_t(rng() % 50) - 10, int32_t(rng() % 30) - 5, width, int32_t(rng() % 6)},
                     {uni(-20, 60), uni(-20, 40)}, {uni(-20, 60), uni(-20, 40)},
                     rng() % 2 ? shapes[rng() % 7] : uni(0, 1), rng() % 2 == 0};
        const vt::Shape s{c.region[2], c.region[3], 0, int(rng() % 3) * 4, false, vt::Placement::End, uint32_t(rng())};
        SCOPED_TRACE(testing::Message() << "case " << i << ": " << vt::Describe(s) << " shape " << c.shape << " invert " << c.invert);
        vt::PixelKernel row{"", 0, 1, 4, 4, false, false,
                            [&](const void*, int32_t, void* dst, int32_t ds, int32_t, int32_t, int32_t, int32_t) {
                                fill(static_cast<float*>(dst), ds, c);
                            },
                            nullptr, tolerance, 0, 0};
        row.block = 4;
        row.reference_at = [&](const float*, float* d, int x, int y) { d[0] = want(float(c.region[0] + x), float(c.region[1] + y), c); };
        vt::CheckAtEveryLevel(row, s);
    }
}

float Inverted(float v, bool invert) { return invert ? 1.0f - v : v; }

TEST(Gradients, LinearReflectedAndDualMatchReference) {
    Check(1, [](float* d, int32_t s, const Case& c) { ImageLinearGradient_Gray32F_SSE2_X4Y1(d, s, c.region, c.a, c.b, c.shape, c.invert); },
          [](float x, float y, const Case& c) { return Inverted(g::Linear(x, y, c.a, c.b, c.shape), c.invert); });
    Check(2, [](float* d, int32_t s, const Case& c) { ImageReflectedGradient_Gray32F_SSE2_X4Y1(d, s, c.region, c.a, c.b, c.shape, c.invert); },
          [](float x, float y, const Case& c) { return Inverted(g::ReflectedFall(x, y, c.a, c.b, c.shape), !c.invert); });
    Check(3, [](float* d, int32_t s, const Case& c) { ImageDualGradient_Gray32F_SSE2_X4Y1(d, s, c.region, c.a, c.b, c.shape, c.invert); },
          [](float x, float y, const Case& c) { return Inverted(g::DualFall(x, y, c.a, c.b, c.shape), !c.invert); });
}

TEST(Gradients, RadialSelectorsMatchReference) {
    for (int selector = 0; selector <= 5; ++selector) {
        SCOPED_TRACE(testing::Message() << "selector " << selector);
        // The points serve as centre and radii; the shape as feather, corner and angle.
        auto args = [](const Case& c, float* radii) {
            radii[0] = 2.0f + std::fabs(c.b[0]), radii[1] = 2.0f + std::fabs(c.b[1]);
        };
        Check(10 + selector,
              [&](float* d, int32_t s, const Case& c) {
                  float radii[2];
                  args(c, radii);
                  ImageRadialGradient_Gray32F_SSE2_X4Y1(d, s, c.region, c.a, radii, c.shape * 3, c.shape, 1 - c.shape, c.invert, selector);
              },
              [&](float x, float y, const Case& c) {
                  float radii[2];
                  args(c, radii);
                  return Inverted(g::Radial(x, y, c.a, radii, c.shape * 3, c.shape, 1 - c.shape, selector), c.invert);
              },
              selector == 2 ? 1e-6f : 0.0f);  // the vector exponential against std::exp
    }
    // An unknown selector writes nothing.
    vt::GuardedPlane dst(16, 2, 16);
    const auto before = dst.Snapshot();
    const int32_t region[4] = {0, 0, 4, 2};
    const float p[2] = {1, 1}, r[2] = {2, 2};
    ImageRadialGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), 16, region, p, r, 0, 0.5f, 0, false, 6);
    EXPECT_TRUE(dst.Unchanged(before));
}

// A mask past the streaming threshold with 16-byte aligned rows is written with streaming stores
// at every level; the values are the same as any other mask's.
TEST(Gradients, LargeAlignedMaskStreamsTheSameValues) {
    const int32_t region[4] = {-3, 7, 2050, 2049};  // 16.8 MB
    const float a[2] = {100.0f, 50.0f}, b[2] = {1900.0f, 1800.0f};
    const int32_t step = 2052 * 4;
    vt::ForEachLevel([&] {
        vt::GuardedPlane dst(step, region[3], step);
        ImageLinearGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), step, region, a, b, 0.3f, true);
        for (int y = 0; y < region[3]; ++y)
            for (int x = 0; x < 2052; ++x)
                ASSERT_EQ(dst.RowAs<float>(y)[x], 1.0f - g::Linear(float(region[0] + x), float(region[1] + y), a, b, 0.3f))
                    << x << "," << y;
    });
}

}  // namespace
