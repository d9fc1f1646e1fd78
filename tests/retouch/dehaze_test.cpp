// The dehaze kernels against the scalar references on random regions inside larger guarded
// planes: each kernel moves its planes to (x, y) itself, so the planes start at the margin's
// corner and the region sits at their end, against the guard page. Margins hold random bytes a
// stray read would pick up.
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "reference/dehaze.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;

using vt::Rng;
// The region (w x h pixels of c elements) at (x, y) of a plane whose row 0 the kernels take.
template <class T>
struct RegionPlane : vt::MarginPlane<T> {
    RegionPlane(Rng& rng, int x, int y, int w, int h, int c) : vt::MarginPlane<T>(rng.g, w, h, c, x, y) {}
    T* Base() const { return this->g.template As<T>(); }
};

template <class T>
::testing::AssertionResult Equal(const std::vector<T>& got, const std::vector<T>& want, int64_t ulps = 0) {
    for (size_t i = 0; i < want.size(); ++i)
        if (!vt::Same(got[i], want[i], ulps))
            return ::testing::AssertionFailure() << "element " << i << ": got " << +got[i] << ", want " << +want[i];
    return ::testing::AssertionSuccess();
}

// Random regions, the degenerate sizes first, at a random offset (x, y) into their planes.
template <class Fn>
void ForRegions(uint32_t seed, int count, Fn&& fn) {
    vt::ForSizes(seed, count, 40, 30, [&](Rng& rng, int w, int h) {
        const int x = rng.Int(0, 3), y = rng.Int(0, 2);
        SCOPED_TRACE(testing::Message() << "at " << x << "," << y);
        fn(rng, x, y, w, h);
    });
}

TEST(DarkChannels, EqualTheClippedWindowScan) {
    ForRegions(1, 200, [](Rng& rng, int x, int y, int w, int h) {
        const int r = rng.Int(0, 3) ? rng.Int(0, 5) : rng.Int(6, 40);
        RegionPlane<uint8_t> src8(rng, x, y, w, h, 1), dst8(rng, x, y, w, h, 1);
        const auto in8 = src8.Fill([&] { return uint8_t(rng.Int(0, 3) ? rng.Int(0, 255) : rng.Int(250, 255)); });
        EXPECT_EQ(DarkChannel_8u_C1R(src8.Base(), src8.Step(), dst8.Base(), dst8.Step(), x, y, w, h, r), StatusOk);
        if (w > 0 && h > 0) EXPECT_TRUE(Equal(dst8.Region(), ref::Erode(in8, w, h, r))) << "8u r=" << r;
        // Floats: above 1, zeros of both signs, and now and then a NaN, which the scan order decides.
        const bool special = rng.Int(0, 4) == 0;
        RegionPlane<float> src(rng, x, y, w, h, 4), dst(rng, x, y, w, h, 1);
        const auto in = src.Fill([&]() -> float {
            switch (rng.Int(0, special ? 12 : 10)) {
                case 0: return 0.0f;
                case 1: return rng.Float(1.0f, 2.0f);
                case 11: return -0.0f;
                case 12: return std::numeric_limits<float>::quiet_NaN();
                default: return rng.Float(0.0f, 1.0f);
            }
        });
        EXPECT_EQ(DarkChannel_32f_AC4C1R(src.Base(), src.Step(), dst.Base(), dst.Step(), x, y, w, h, r), StatusOk);
        if (w > 0 && h > 0) EXPECT_TRUE(Equal(dst.Region(), ref::DarkChannel(in, w, h, r))) << "32f r=" << r;
    });
}

TEST(Airlight, BrightestTenthByLumaFirstWins) {
    ForRegions(2, 200, [](Rng& rng, int x, int y, int w, int h) {
        RegionPlane<uint8_t> rgb(rng, x, y, w, h, 3), dark(rng, x, y, w, h, 1);
        const int levels = rng.Int(0, 3) ? 256 : 3;  // few levels: many ties in the histogram and in luma
        const bool black = rng.Int(0, 9) == 0;
        const auto pixels = rgb.Fill([&] { return black ? uint8_t(0) : uint8_t(rng.Int(0, levels - 1) * (255 / std::max(levels - 1, 1))); });
        const auto d = dark.Fill([&] { return uint8_t(rng.Int(0, levels - 1) * (255 / std::max(levels - 1, 1))); });
        uint8_t got[3] = {7, 7, 7}, want[3] = {7, 7, 7};
        if (h > 0) ref::Airlight(pixels, d, w, h, want);
        EXPECT_EQ(EstimateAtmosphericLight_8u_C3C1R(rgb.Base(), rgb.Step(), dark.Base(), dark.Step(), x, y, w, h, got), StatusOk);
        EXPECT_EQ(std::vector<uint8_t>(got, got + 3), std::vector<uint8_t>(want, want + 3));
    });
}

TEST(Transmission, ThreeFormatsAndRecovery) {
    ForRegions(3, 200, [](Rng& rng, int x, int y, int w, int h) {
        const float omega = rng.Float(0.0f, 1.2f), a = rng.Float(0.3f, 1.0f);
        RegionPlane<uint8_t> dark8(rng, x, y, w, h, 1), t8(rng, x, y, w, h, 1);
        const auto d8 = dark8.Fill([&] { return uint8_t(rng.Int(0, 255)); });
        RoughtTransmissionMap_8u_C1R(dark8.Base(), dark8.Step(), t8.Base(), t8.Step(), x, y, w, h, a, omega);
        std::vector<uint8_t> want8;
        for (uint8_t v : d8) want8.push_back(ref::TransmissionByte(v, a, omega));
        if (h > 0) EXPECT_TRUE(Equal(t8.Region(), want8)) << "8u";

        // Float dark channel to float transmission, into a second plane or in place (exact path).
        const float light[3] = {rng.Float(0.3f, 1.0f), rng.Float(0.3f, 1.0f), rng.Float(0.3f, 1.0f)};
        const float abar = ref::Grey(light[0], light[1], light[2]);
        const bool in_place = rng.Int(0, 3) == 0;
        RegionPlane<float> dark(rng, x, y, w, h, 1), t(rng, x, y, w, h, 1);
        const auto d = dark.Fill([&] { return rng.Float(0.0f, 1.0f); });
        RegionPlane<float>& out = in_place ? dark : t;
        RoughtTransmissionMap_32f_C1R(dark.Base(), dark.Step(), out.Base(), out.Step(), x, y, w, h, light, omega);
        std::vector<float> want(d.size());
        for (int row = 0; row < h; ++row) ref::TransmissionRow(&d[size_t(row) * w], &want[size_t(row) * w], w, omega, abar, !in_place);
        EXPECT_TRUE(Equal(out.Region(), want)) << "32f" << (in_place ? " in place" : "");

        // The 8u32f source is one packed block, fenced right after its last byte.
        GuardedPlane packed(int64_t{w} * h, 1, int32_t(std::max(w * h, 1)), vt::Placement::End, 1);
        std::vector<float> packed_values;
        for (int64_t i = 0; i < int64_t{w} * h; ++i) packed_values.push_back(packed.data()[i] = uint8_t(rng.Int(0, 255)));
        const uint8_t light8[3] = {uint8_t(rng.Int(60, 255)), uint8_t(rng.Int(60, 255)), uint8_t(rng.Int(60, 255))};
        RegionPlane<float> t32(rng, x, y, w, h, 1);
        RoughtTransmissionMap_8u32f_C1R(packed.data(), 12345, t32.Base(), t32.Step(), x, y, w, h, light8);
        const float abar8 = ref::Grey(light8[0], light8[1], light8[2]);
        for (int row = 0; row < h; ++row) ref::TransmissionRow(&packed_values[size_t(row) * w], &want[size_t(row) * w], w, 0.95f, abar8, true);
        EXPECT_TRUE(Equal(t32.Region(), want)) << "8u32f";

        // Recovery: every lane, alpha included; t0 floors the transmission.
        const float t0 = rng.Int(0, 4) ? rng.Float(0.05f, 0.5f) : 0.0f;
        RegionPlane<float> img(rng, x, y, w, h, 4), res(rng, x, y, w, h, 4);
        const auto px = img.Fill([&] { return rng.Float(-0.1f, 1.2f); });
        Dehaze_32f_AC4R(img.Base(), img.Step(), t8.Base(), t8.Step(), res.Base(), res.Step(), x, y, w, h, light, t0);
        const auto tv = t8.Region();
        std::vector<float> rec;
        for (size_t i = 0; i < px.size(); ++i) rec.push_back(ref::Recover(px[i], tv[i / 4], abar, t0));
        EXPECT_TRUE(Equal(res.Region(), rec)) << "recovery t0=" << t0;
    });
}

// A destination that ends right where the dark row starts, or starts right after it, does not
// overlap it, so it takes the refined-reciprocal blocks like any separate plane. (Grey 0.9 is a
// light whose refined reciprocal differs from the exact one, so the two paths give different bits.)
TEST(Transmission, AdjacentRowsAreNotAnOverlap) {
    Rng rng{std::mt19937(9)};
    const float light[3] = {0.9f, 0.9f, 0.9f};
    for (const int w : {16, 23, 40})
        for (const bool dst_first : {false, true}) {
            std::vector<float> buf(size_t(2 * w));
            float* dark = buf.data() + (dst_first ? w : 0);
            float* dst = buf.data() + (dst_first ? 0 : w);
            for (int i = 0; i < w; ++i) dark[i] = rng.Float(0.0f, 1.0f);
            const std::vector<float> d(dark, dark + w);
            RoughtTransmissionMap_32f_C1R(dark, w * 4, dst, w * 4, 0, 0, w, 1, light, 0.9f);
            std::vector<float> want(static_cast<size_t>(w), 0.0f);
            ref::TransmissionRow(d.data(), want.data(), w, 0.9f, ref::Grey(light[0], light[1], light[2]), true);
            EXPECT_TRUE(Equal(std::vector<float>(dst, dst + w), want)) << "width " << w << (dst_first ? ", destination first" : "");
        }
}

}  // namespace
