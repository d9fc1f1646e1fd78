// The inpainting building blocks against scalar references in guarded planes. The minimiser is
// compared entry for entry on one thread, where its draws are the Windows runtime's rand()
// sequence from seed 1 (a fresh thread's), and on the full team by what PatchMatch must achieve:
// falling total distance and the exact shift of a shifted copy.
#include <omp.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "core/thread_rand.h"
#include "reference/inpaint.h"
#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;

int Pick(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

// Four-byte pixels: a w x h interior inside margins, on positive steps (the minimiser's row advance
// for patch sizes other than 4 is written for rows running down in memory).
struct Framed : vt::MarginPlane<uint8_t> {
    Framed(std::mt19937& rng, int w, int h, int l, int t, int r, int b, int32_t step = 0)
        : vt::MarginPlane<uint8_t>(rng, w, h, 4, l, t, r, b, step ? step : int32_t((w + l + r) * 4 + 4 * Pick(rng, 0, 3))) {}
};

// Run fn on a fresh thread with a one-thread team: its random draws start at seed 1.
template <class Fn>
void OnFreshThread(Fn&& fn) {
    std::thread([&] {
        omp_set_num_threads(1);
        fn();
    }).join();
}

// Pixels of few levels with some hole markers, and a flat band of one colour where many
// candidates tie: only a strictly smaller distance may replace a match.
void FillPatchImage(Framed& p, std::mt19937& rng, int markers_percent) {
    const int flat_from = Pick(rng, -p.l, p.w), flat_to = Pick(rng, flat_from, p.w + p.r);
    for (int y = -p.t; y < p.h + p.b; ++y)
        for (int x = -p.l; x < p.w + p.r; ++x) {
            uint8_t* px = p.Px(x, y);
            if (x >= flat_from && x < flat_to) {
                std::memset(px, 100, 4);
            } else if (Pick(rng, 0, 99) < markers_percent) {
                std::memset(px, 255, 4);
            } else {
                for (int c = 0; c < 4; ++c) px[c] = uint8_t(Pick(rng, 0, 2) * 100 + Pick(rng, 0, 1));
            }
        }
}

TEST(PatchMatch, OneThreadMatchesTheReferenceSweepForEveryPatchSizeAtEveryLevel) {
    vt::ForSizes(7, 40, 24, 16, [](vt::Rng& draw, int w, int h) {
        std::mt19937& rng = draw.g;
        const int ps = Pick(rng, 0, 2) ? 4 : Pick(rng, 1, 5), o = (ps - 1) / 2;
        SCOPED_TRACE(testing::Message() << "patch " << ps);
        // Patch rows other than 4 shift left by ps pixels a row, so those need a wider left margin.
        const int l = o + (ps == 4 ? 0 : 3 * ps), t = o, r = 3 - o, b = 3 - o;
        Framed target(rng, w, h, l, t, r, b);
        Framed source(rng, w, h, l, t, r, b, target.Step());
        FillPatchImage(target, rng, 3);
        FillPatchImage(source, rng, 10);
        GuardedPlane field(int64_t{w} * 12, h, int32_t(w * 12 + 4 * Pick(rng, 0, 2)), vt::Placement::End, 4);
        std::vector<NNFEntry> want;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                NNFEntry e{Pick(rng, 0, w - 1), Pick(rng, 0, h - 1), 0};
                e.distance = Pick(rng, 0, 3) ? INT_MAX : Pick(rng, 0, 2000000);
                field.RowAs<NNFEntry>(y)[x] = e;
                want.push_back(e);
            }
        const std::vector<NNFEntry> start = want;
        const auto before_t = target.g.Snapshot(), before_s = source.g.Snapshot(), before_f = field.Snapshot();
        ref::CrtRand rnd;
        for (int call = 0; call < 2; ++call)
            ref::Minimize(target.Origin(), target.Step(), source.Origin(), source.Step(), want.data(), w * 12, w, h, ps,
                          rnd);
        vt::ForEachLevel([&] {
            for (int y = 0; y < h && w > 0; ++y) std::memcpy(field.Row(y), &start[size_t(y) * w], size_t(w) * 12);
            OnFreshThread([&] {
                const ImageSize size{w, h};
                for (int call = 0; call < 2; ++call)
                    ImageMinimize_Bgra32(target.Origin(), target.Step(), source.Origin(), source.Step(),
                                         field.As<NNFEntry>(), field.step(), &size, ps);
            });
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const NNFEntry got = field.RowAs<NNFEntry>(y)[x], e = want[size_t(y * w + x)];
                    ASSERT_TRUE(got.x == e.x && got.y == e.y && got.distance == e.distance)
                        << "entry " << x << "," << y << ": got " << got.x << "," << got.y << " d " << got.distance
                        << ", want " << e.x << "," << e.y << " d " << e.distance;
                }
            EXPECT_TRUE(target.g.Unchanged(before_t));
            EXPECT_TRUE(source.g.Unchanged(before_s));
            EXPECT_TRUE(field.OnlyRowsChanged(before_f, int64_t{w} * 12));
        });
    });
}

TEST(PatchMatch, TeamSweepsLowerTheTotalAndFindTheShiftOfAShiftedCopy) {
    std::mt19937 rng(11);
    const int w = 96, h = 64, sx = 7, sy = 4;
    Framed target(rng, w, h, 1, 1, 2, 2), source(rng, w, h, 1, 1, 2, 2, target.Step());
    // Smooth texture with fine noise: every 4 x 4 patch is unique, and neighbours look alike.
    std::vector<uint8_t> tex(size_t(w + 3 + sx) * (h + 3 + sy) * 4);
    const int tw = w + 3 + sx;
    for (size_t i = 0; i < tex.size(); ++i) {
        const int x = int(i / 4) % tw, y = int(i / 4) / tw;
        tex[i] = uint8_t(128 + 60 * std::sin(x * 0.21 + (i % 4)) * std::cos(y * 0.17) + Pick(rng, -20, 20));
    }
    for (int y = -1; y < h + 2; ++y)
        for (int x = -1; x < w + 2; ++x) {
            std::memcpy(source.Px(x, y), &tex[(size_t(y + 1) * tw + x + 1) * 4], 4);
            std::memcpy(target.Px(x, y), &tex[(size_t(y + 1 + sy) * tw + x + 1 + sx) * 4], 4);
        }
    std::vector<NNFEntry> nnf(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            NNFEntry& e = nnf[size_t(y) * w + x];
            e = {Pick(rng, 0, w - 1), Pick(rng, 0, h - 1), 0};
            e.distance = ref::PatchDistance(target.Px(x - 1, y - 1), source.Px(e.x - 1, e.y - 1), target.Step());
        }
    auto total = [&] {
        int64_t s = 0;
        for (const NNFEntry& e : nnf) s += e.distance;
        return s;
    };
    const ImageSize size{w, h};
    int64_t last = total();
    for (int call = 0; call < 6; ++call) {
        ImageMinimize_Bgra32(target.Origin(), target.Step(), source.Origin(), source.Step(), nnf.data(), w * 12, &size, 4);
        const int64_t now = total();
        EXPECT_LT(now, last) << "call " << call;
        last = now;
    }
    int exact = 0, reachable = 0;
    for (int y = 0; y + sy < h; ++y)
        for (int x = 0; x + sx < w; ++x) {
            const NNFEntry& e = nnf[size_t(y) * w + x];
            ++reachable;
            exact += e.x == x + sx && e.y == y + sy && e.distance == 0;
            // The distance a match carries is the distance of that match.
            ASSERT_EQ(e.distance, ref::PatchDistance(target.Px(x - 1, y - 1), source.Px(e.x - 1, e.y - 1), target.Step()));
        }
    EXPECT_GE(exact, reachable * 98 / 100);
}

TEST(PatchMatch, RandomiserOnlyAdvancesTheThreadsGeneratorTwicePerPosition) {
    std::mt19937 rng(3);
    for (auto [w, h] : {std::pair{0, 3}, {3, 0}, {5, -2}, {1, 1}, {17, 9}, {64, 33}}) {
        GuardedPlane field(int64_t{std::max(w, 1)} * 12, std::max(h, 1), std::max(w, 1) * 12);
        field.FillRandomBytes(rng());
        const auto before = field.Snapshot();
        int rows = -1, next = -1;
        OnFreshThread([&] {
            const ImageSize size{w, h};
            rows = ImageNNFRandomize_Bgra32_SSE2(nullptr, 0, nullptr, 0, field.As<NNFEntry>(), field.step(), 0, 0,
                                                 &size, 0);
            next = velmora::ThreadRand();
        });
        ref::CrtRand rnd;
        for (int i = 0; i < 2 * std::max(w, 0) * std::max(h, 0); ++i) rnd();
        EXPECT_EQ(rows, std::max(h, 0)) << w << "x" << h;
        EXPECT_EQ(next, rnd()) << w << "x" << h;
        EXPECT_TRUE(field.Unchanged(before));
    }
}

TEST(FloatPatchDistances, EqualTheirSumsOverTheirDivisors) {
    std::mt19937 rng(5);
    auto fill = [&](GuardedPlane& g) {
        g.FillRows<float>([&](int, int64_t) { return std::uniform_real_distribution<float>(-1.f, 2.f)(rng); });
    };
    for (int i = 0; i < vt::Scaled(60); ++i) {
        const int w = Pick(rng, 1, 9), h = Pick(rng, 1, 9), step = (w + Pick(rng, 0, 3)) * 16;
        GuardedPlane a(int64_t{w} * 16, h, step, vt::Placement::End, 4), b(int64_t{w} * 16, h, step, vt::Placement::Start, 4);
        fill(a);
        fill(b);
        alignas(16) float got[4];
        _mm_store_ps(got, DistancePatch_Rgba128F_SSE2(a.As<float>(), b.As<float>(), step, w, h));
        const auto s = ref::SquaredSums(a.As<float>(), b.As<float>(), step / 4, 0, 0, w - 1, h - 1);
        for (float g : got) EXPECT_NEAR(g, (s[0] + s[1] + s[2]) / (3.0 * w * h), 1e-5 * (1 + g)) << w << "x" << h;

        // Square windows around centres: rows stride pixels apart, the plane exactly the window.
        const int r = Pick(rng, 1, 4), n = 2 * r + 1, stride = n + Pick(rng, 0, 2);
        GuardedPlane c(int64_t{n} * 16, n, stride * 16, vt::Placement::End, 4), d(int64_t{n} * 16, n, stride * 16, vt::Placement::Start, 4);
        fill(c);
        fill(d);
        const float* ca = c.As<float>() + (r * stride + r) * 4;
        const float* cb = d.As<float>() + (r * stride + r) * 4;
        const auto q = ref::SquaredSums(c.As<float>(), d.As<float>(), stride * 4, 0, 0, n - 1, n - 1);
        _mm_store_ps(got, DistancePatch2_Rgba128F_SSE2(ca, cb, r, stride));
        for (float g : got) EXPECT_NEAR(g, (q[0] + q[1] + q[2]) / (3.0 * r * r), 1e-5 * (1 + g)) << "radius " << r;
        _mm_store_ps(got, DistancePatch3_Rgba128F_SSE2(ca, cb, r, stride));
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(got[k], q[k] / (r * r), 1e-5 * (1 + got[k])) << "radius " << r;
        // Radius 0 divides the centre pixel's sum by zero.
        _mm_store_ps(got, DistancePatch2_Rgba128F_SSE2(ca, cb, 0, stride));
        EXPECT_TRUE(std::isinf(got[0]) || (std::isnan(got[0]) && std::memcmp(ca, cb, 12) == 0));
    }
}

TEST(DownscaleMasked, MatchesTheReferenceWithoutReadingTheLastRowOrColumn) {
    vt::ForSizes(9, 80, 40, 30, [](vt::Rng& draw, int w, int h) {
        std::mt19937& rng = draw.g;
        // Only columns 0 .. w-2 of rows 0 .. h-2 may be read: the plane holds exactly those.
        const int rw = std::max(w - 1, 0), rh = std::max(h - 1, 0);
        const int32_t step = (std::max(w, 1) + Pick(rng, 0, 2)) * 4;
        GuardedPlane src(int64_t{rw} * 4, rh, step, Pick(rng, 0, 1) ? vt::Placement::End : vt::Placement::Start, 1);
        const int hole_percent = std::vector<int>{0, 20, 60, 75, 100}[size_t(Pick(rng, 0, 4))];
        src.FillRows<uint32_t>([&](int, int64_t) {
            const uint32_t bgr = uint32_t(rng()) & 0xFFFFFFu;
            return Pick(rng, 0, 99) < hole_percent ? bgr | uint32_t(Pick(rng, 1, 255)) << 24 : bgr;
        });
        const int ow = w / 2, oh = h / 2;
        GuardedPlane dst(int64_t{ow} * 4, oh, (std::max(ow, 1) + Pick(rng, 0, 2)) * 4, vt::Placement::End, 1);
        const auto before = dst.Snapshot();
        const ImageSize size{w, h};
        ImageDownscaleMasked4x4_Bgra32(src.data(), src.step(), &size, dst.data(), dst.step(), 12345);
        const auto want = ref::DownscaleMasked(src.data(), src.step(), w, h);
        EXPECT_TRUE(vt::RowsMatch([&](int y) { return dst.RowAs<uint32_t>(y); }, oh, ow, want));
        EXPECT_TRUE(dst.OnlyRowsChanged(before, int64_t{ow} * 4));
    });
}

TEST(DownscaleMasked, TwelveHoleTapsOfSixteenStillGiveAColourThirteenTheMarker) {
    for (int holes : {12, 13}) {
        // A 6 x 6 picture: output (1, 1) takes all sixteen taps of rows and columns 0..3.
        std::vector<uint32_t> img(36, 0x00102030u);
        for (int k = 0; k < holes; ++k) img[size_t(k / 4) * 6 + k % 4] |= 0x01000000u;
        uint32_t out[9] = {};
        const ImageSize size{6, 6};
        ImageDownscaleMasked4x4_Bgra32(reinterpret_cast<uint8_t*>(img.data()), 24, &size,
                                       reinterpret_cast<uint8_t*>(out), 12, 0);
        EXPECT_EQ(out[4], holes == 12 ? 0x00102030u : 0xFF00FF00u) << holes;
    }
}

TEST(SetBorder, FramesTheInteriorWithFourBytePixelsInBothExports) {
    std::mt19937 rng(13);
    for (int i = 0; i < vt::Scaled(60); ++i) {
        const int w = Pick(rng, 0, 20), h = Pick(rng, 0, 12), border = Pick(rng, 0, 3);
        const bool gray = Pick(rng, 0, 1);
        const uint32_t value = gray ? uint32_t(Pick(rng, 0, 255)) : uint32_t(rng());
        SCOPED_TRACE(testing::Message() << w << "x" << h << " border " << border << (gray ? " gray" : ""));
        if (w + 2 * border == 0 || h + 2 * border == 0) continue;
        Framed img(rng, w, h, border, border, border, border);
        const auto before = img.g.Snapshot();
        std::vector<uint32_t> old;
        for (int y = -border; y < h + border; ++y)
            for (int x = -border; x < w + border; ++x) old.push_back(0), std::memcpy(&old.back(), img.Px(x, y), 4);
        const ImageSize size{w, h};
        if (gray)
            ImageSetBorder_Gray8(img.Origin(), img.Step(), &size, border, uint8_t(value));
        else
            ImageSetBorder_Bgra32(img.Origin(), img.Step(), &size, border, value);
        size_t k = 0;
        for (int y = -border; y < h + border; ++y)
            for (int x = -border; x < w + border; ++x, ++k) {
                uint32_t got;
                std::memcpy(&got, img.Px(x, y), 4);
                const bool inside = x >= 0 && x < w && y >= 0 && y < h;
                ASSERT_EQ(got, inside ? old[k] : value) << "pixel " << x << "," << y;
            }
        EXPECT_TRUE(img.g.OnlyRowsChanged(before, int64_t{w + 2 * border} * 4));
    }
}

TEST(Upscale, IsTheResizeWithItsChecks) {
    std::mt19937 rng(17);
    for (int i = 0; i < vt::Scaled(12); ++i) {
        const ImageSize from{Pick(rng, 1, 20), Pick(rng, 1, 20)}, to{Pick(rng, 1, 50), Pick(rng, 1, 50)};
        std::vector<uint8_t> src(size_t(from.height) * 96 + 16), a(size_t(to.height) * 208 + 16), b(a.size());
        for (auto& v : src) v = uint8_t(rng());
        auto aligned = [](std::vector<uint8_t>& v) {
            return v.data() + (16 - reinterpret_cast<uintptr_t>(v.data()) % 16) % 16;
        };
        const int shift = Pick(rng, 0, 3) == 0 ? 4 : 0;  // a misaligned destination must give 87 from both
        const StatusCode sa = ImageUpscale_Bgra32(aligned(src), 96, &from, aligned(a) + shift, 208, &to);
        const StatusCode sb = ImageResize_Bgra32(aligned(src), 96, &from, aligned(b) + shift, 208, &to);
        EXPECT_EQ(sa, shift ? StatusInvalidParameter : StatusOk);
        EXPECT_EQ(sa, sb);
        EXPECT_EQ(a, b);
    }
}

TEST(InpaintDriver, BuildsItsPyramidsFromTheRegionAndWritesNothing) {
    std::mt19937 rng(19);
    const int fixed[][2] = {{1, 1}, {1, 9}, {9, 1}, {300, 200}, {0, 5}};
    for (int i = 0; i < vt::Scaled(8) + 5; ++i) {
        const int w = i < 5 ? fixed[i][0] : Pick(rng, 1, 120), h = i < 5 ? fixed[i][1] : Pick(rng, 1, 90);
        const int cw = std::max(w, 1);
        GuardedPlane src(int64_t{cw} * 4, h, cw * 4 + 4 * Pick(rng, 0, 2), vt::Placement::End, 1);
        GuardedPlane mask(cw, h, cw + Pick(rng, 0, 5), vt::Placement::End, 1);
        src.FillRandomBytes(rng());
        mask.FillRandomBytes(rng());
        const auto before_src = src.Snapshot(), before_mask = mask.Snapshot();
        const ImageSize size{w, h};
        ImageInpaint_Bgra32_SSE2(src.data(), src.step(), nullptr, mask.step(), mask.data(), 0, &size, 0);
        EXPECT_TRUE(src.Unchanged(before_src)) << w << "x" << h;
        EXPECT_TRUE(mask.Unchanged(before_mask)) << w << "x" << h;
    }
    // A null source with a zero step: every row is the null row, cleared instead of copied.
    std::vector<uint8_t> mask(64, 1);
    const ImageSize size{8, 8};
    ImageInpaint_Bgra32_SSE2(nullptr, 0, nullptr, 8, mask.data(), 0, &size, 0);
}

}  // namespace
