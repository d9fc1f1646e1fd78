// Pyramid steps and the local Laplacian filter. Decimators against plain picks, the inert
// Gauss5x5 steps against the decimators (with the gray step's wide reads fenced where they end),
// the 8-bit steps against their composition from the blur and resize exports, and the local
// Laplacian filter by its properties on a textured image: alpha 0 keeps the colour, positive
// alpha raises and negative alpha lowers a measured local contrast.
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;

GuardedPlane Random(std::mt19937& rng, int64_t row_bytes, int h, int align = 4) {
    GuardedPlane p(row_bytes, h, int32_t((row_bytes + 15) / 16 * 16 + 16 * int(rng() % 2)),
                   rng() % 2 ? vt::Placement::End : vt::Placement::Start, align);
    p.FillRows<float>([&](int, int64_t) { return std::uniform_real_distribution<float>(0, 1)(rng); });
    return p;
}

TEST(Decimators, PickEverySecondPixelOfEverySecondRow) {
    std::mt19937 rng(1);
    for (int i = 0; i < vt::Scaled(100); ++i) {
        const int w = int(rng() % 20), h = int(rng() % 7), ow = (w + 1) / 2, oh = (h + 1) / 2;
        SCOPED_TRACE(testing::Message() << w << "x" << h);
        const ImageSize roi{w, h};
        GuardedPlane src = Random(rng, int64_t{w} * 16, h), dst = Random(rng, int64_t{ow} * 16, oh);
        XMImageDown_Rgba128F_SSE2(src.As<float>(), src.step(), dst.As<float>(), dst.step(), &roi);
        for (int y = 0; y < oh; ++y)
            for (int x = 0; x < 4 * ow; ++x) ASSERT_EQ(dst.RowAs<float>(y)[x], src.RowAs<float>(2 * y)[8 * (x / 4) + x % 4]);
        // The "up" step blurs into a scratch it never reads: the result is the same decimation.
        GuardedPlane up = Random(rng, int64_t{ow} * 16, oh);
        XMImagePyramidUp_Gauss5x5_Rgba128F_SSE2(src.As<float>(), src.step(), up.As<float>(), up.step(), &roi, 0);
        for (int y = 0; y < oh; ++y) ASSERT_EQ(std::memcmp(up.Row(y), dst.Row(y), size_t(ow) * 16), 0);

        GuardedPlane gsrc = Random(rng, int64_t{w} * 4, h), gdst = Random(rng, int64_t{ow} * 4, oh);
        XMImageDown_Gray32F_SSE2(gsrc.As<float>(), gsrc.step(), gdst.As<float>(), gdst.step(), &roi);
        for (int y = 0; y < oh; ++y)
            for (int x = 0; x < ow; ++x) ASSERT_EQ(gdst.RowAs<float>(y)[x], gsrc.RowAs<float>(2 * y)[2 * x]);
        // The gray "down" step runs the four-float decimator on gray rows: reads up to byte
        // 32 (ow - 1) + 16 of each source row, writes 16 ow bytes of each destination row.
        const int64_t reads = ow > 0 ? 32 * int64_t{ow - 1} + 16 : 0;
        GuardedPlane wide = Random(rng, std::max(reads, int64_t{w} * 4), h), out = Random(rng, int64_t{ow} * 16, oh);
        ImagePyramidDown_Gauss5x5_Gray32F_SSE2(wide.As<float>(), wide.step(), out.As<float>(), out.step(), &roi, 0);
        for (int y = 0; y < oh; ++y)
            for (int x = 0; x < 4 * ow; ++x) ASSERT_EQ(out.RowAs<float>(y)[x], wide.RowAs<float>(2 * y)[8 * (x / 4) + x % 4]);
    }
}

TEST(BytePyramidSteps, EqualTheirCompositionFromBlurAndResize) {
    std::mt19937 rng(2);
    for (int i = 0; i < vt::Scaled(40); ++i) {
        const ImageSize a{1 + int(rng() % 24), 1 + int(rng() % 12)}, b{1 + int(rng() % 24), 1 + int(rng() % 12)};
        SCOPED_TRACE(testing::Message() << a.width << "x" << a.height << " <-> " << b.width << "x" << b.height);
        auto plane = [&](const ImageSize& s) {
            GuardedPlane p(int64_t{s.width} * 4, s.height, (s.width * 4 + 15) / 16 * 16, vt::Placement::End, 16);
            p.FillRows<uint8_t>([&](int, int64_t) { return uint8_t(rng()); });
            return p;
        };
        const int32_t k[5] = {1, 4, 6, 4, 1};
        GuardedPlane src = plane(a), down = plane(b), up = plane(b), blurred = plane(a), want = plane(b);
        for (int y = 0; y < a.height; ++y) std::memcpy(blurred.Row(y), src.Row(y), size_t(a.width) * 4);
        const auto src_before = src.Snapshot();
        ImagePyrDown_Bgra32(src.As<uint8_t>(), src.step(), &a, down.As<uint8_t>(), down.step(), &b);
        EXPECT_TRUE(src.Unchanged(src_before));
        ImageConvolve_Bgra32(blurred.As<uint8_t>(), blurred.step(), &a, k, 5, 1);
        ImageResize_Bgra32(blurred.As<uint8_t>(), blurred.step(), &a, want.As<uint8_t>(), want.step(), &b);
        for (int y = 0; y < b.height; ++y) ASSERT_EQ(std::memcmp(down.Row(y), want.Row(y), size_t(b.width) * 4), 0) << "down";
        ImagePyrUp_Bgra32(src.As<uint8_t>(), src.step(), &a, up.As<uint8_t>(), up.step(), &b);
        ImageResize_Bgra32(src.As<uint8_t>(), src.step(), &a, want.As<uint8_t>(), want.step(), &b);
        ImageGaussian5x5_Bgra32(want.As<uint8_t>(), want.step(), &b);
        for (int y = 0; y < b.height; ++y) ASSERT_EQ(std::memcmp(up.Row(y), want.Row(y), size_t(b.width) * 4), 0) << "up";
    }
}

// A textured picture: smooth colour ramps, a hard edge and fine noise, linear values in (0, 1).
GuardedPlane Textured(int w, int h, uint32_t seed) {
    std::mt19937 rng(seed);
    GuardedPlane p(int64_t{w} * 16, h, w * 16 + 16 * int(seed % 2));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float base = (x < w / 2 ? 0.15f : 0.55f) + 0.2f * y / h;
            const float noise = 0.08f * std::uniform_real_distribution<float>(-1, 1)(rng);
            float* px = p.RowAs<float>(y) + 4 * x;
            px[0] = base + noise, px[1] = 0.8f * base + noise, px[2] = 0.6f * base + 0.5f * noise, px[3] = 0.5f;
        }
    return p;
}

// Mean absolute difference between sqrt-luminance and its 3 x 3 mean: local contrast.
double LocalContrast(const GuardedPlane& p, int w, int h) {
    auto lum = [&](int x, int y) {
        const float* px = p.RowAs<float>(y) + 4 * x;
        return std::sqrt(0.28804 * px[0] + 0.711874 * px[1] + 0.000086 * px[2]);
    };
    double sum = 0;
    for (int y = 1; y + 1 < h; ++y)
        for (int x = 1; x + 1 < w; ++x) {
            double mean = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) mean += lum(x + dx, y + dy) / 9;
            sum += std::fabs(lum(x, y) - mean);
        }
    return sum / ((w - 2) * (h - 2));
}

// The properties hold at every level, and every level gives the SSE2 body's floats: the remapping
// runs four, eight or sixteen lanes at a time by level (two pixels a vector on AVX-512, odd widths
// ending on a single pixel).
TEST(LocalLaplacian, AlphaZeroKeepsColourAndAlphaMovesLocalContrast) {
    for (const auto& [w, h] : {std::pair{1, 1}, std::pair{2, 3}, std::pair{7, 5}, std::pair{37, 23}, std::pair{64, 48}, std::pair{101, 7}}) {
        SCOPED_TRACE(testing::Message() << w << "x" << h);
        const ImageSize roi{w, h};
        vt::SameAsSse2 same_keep[3], same_raise;
        vt::ForEachLevel([&] {
            GuardedPlane raise = Textured(w, h, 1), lower = Textured(w, h, 1), orig = Textured(w, h, 1);
            // Alpha 0 keeps the colour with the whole pyramid, with none (each pixel's own
            // remapped versions), and with two levels (a coarsest level wider than a pixel).
            for (int levels = 0; levels < 3; ++levels) {
                SCOPED_TRACE(testing::Message() << "levels " << levels);
                GuardedPlane keep = Textured(w, h, 1);
                LocalLaplacian_Rgba128F(keep.As<float>(), keep.step(), &roi, 0.0f, levels, 8);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < 4 * w; ++x) {
                        const float want = x % 4 == 3 ? 1.0f : std::min(std::max(orig.RowAs<float>(y)[x], 0.0f), 1.0f);
                        ASSERT_NEAR(keep.RowAs<float>(y)[x], want, 2e-5f) << "pixel " << x / 4 << "," << y;
                    }
                ASSERT_TRUE(same_keep[levels](keep));
            }
            LocalLaplacian_Rgba128F(raise.As<float>(), raise.step(), &roi, 0.6f, 0, 8);
            ASSERT_TRUE(same_raise(raise));
            if (w < 16) return;
            LocalLaplacian_Rgba128F(lower.As<float>(), lower.step(), &roi, -0.6f, 0, 8);
            const double before = LocalContrast(orig, w, h);
            EXPECT_GT(LocalContrast(raise, w, h), 1.2 * before);
            EXPECT_LT(LocalContrast(lower, w, h), 0.8 * before);
        });
    }
}

}  // namespace
