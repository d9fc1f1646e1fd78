// Tone curves against the per-sample reference: every export on guarded planes with its table
// on a guarded page sized exactly as documented (the extra entry included), sub-rectangles,
// clamps on both sides, alpha kept where documented, and identity tables.
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "curves_kernels.h"
#include "reference/curves.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using namespace curves_test;

// Legal bytes of every row outside the region [x0_bytes, x0_bytes + region_bytes) of rows
// [y0, y0 + h), packed: what a kernel must leave alone inside the rows it may touch.
std::vector<uint8_t> OutsideRegion(const vt::GuardedPlane& p, int64_t x0_bytes, int y0, int64_t region_bytes, int h) {
    std::vector<uint8_t> out;
    for (int y = 0; y < p.height(); ++y) {
        const uint8_t* row = p.Row(y);
        const bool in = y >= y0 && y < y0 + h;
        out.insert(out.end(), row, row + (in ? x0_bytes : p.row_bytes()));
        if (in) out.insert(out.end(), row + x0_bytes + region_bytes, row + p.row_bytes());
    }
    return out;
}

template <class T>
::testing::AssertionResult CheckCall(const Kernel& k, const vt::Shape& s, const std::vector<float>& table,
                                     double param, vt::Placement table_placement) {
    std::mt19937 rng(s.seed);
    const int x0 = rng() % 2 ? 0 : int(rng() % 5), y0 = rng() % 2 ? 0 : int(rng() % 3);
    const int w = s.width > 0 ? s.width : 0, h = s.height > 0 ? s.height : 0;
    const int64_t row = int64_t(x0 + w) * k.channels * int64_t(sizeof(T));
    vt::GuardedPlane src(row, y0 + h, vt::StepFor(s, row, s.pad_src, 1), s.placement, 1);
    vt::GuardedPlane dst(row, y0 + h, vt::StepFor(s, row, s.pad_dst, 1), s.placement, 1);
    src.FillRows<T>([&](int, int64_t) { return RandomSample<T>(rng); });
    dst.FillRows<T>([&](int, int64_t) { return RandomSample<T>(rng); });
    const vt::GuardedPlane& in = k.in_place ? dst : src;

    // The expected region, sample by sample.
    const int64_t count = int64_t(w) * k.channels;
    std::vector<T> want;
    for (int y = 0; y < h; ++y)
        for (int64_t i = 0; i < count; ++i) {
            const T x = in.RowAs<T>(y0 + y)[x0 * k.channels + i];
            const int c = int(i % k.channels);
            if (k.keep_alpha && c == 3) want.push_back(dst.RowAs<T>(y0 + y)[x0 * k.channels + i]);
            else if constexpr (std::is_same_v<T, uint16_t>) want.push_back(ref::Curve16(x, table.data(), int32_t(param)));
            else if (k.four_curves) want.push_back(ref::Curve4(x, c, table.data(), float(param)));
            else want.push_back(ref::Curve32(x, table.data(), float(param)));
        }

    const int64_t x0_bytes = x0 * k.channels * int64_t(sizeof(T)), region_bytes = count * int64_t(sizeof(T));
    const auto before = dst.Snapshot();
    const auto outside = OutsideRegion(dst, x0_bytes, y0, region_bytes, h);
    const auto src_before = src.Snapshot();
    GuardedTable guarded(table, table_placement);
    const StatusCode status =
        k.call(src.data(), src.step(), dst.data(), dst.step(), x0, y0, s.width, s.height, guarded.data(), param);
    if (status != StatusOk) return ::testing::AssertionFailure() << "status " << status;
    if (!src.Unchanged(src_before)) return ::testing::AssertionFailure() << "source written";
    auto match = vt::RowsMatch<T>([&](int y) { return dst.RowAs<T>(y0 + y) + x0 * k.channels; }, h, count, want);
    if (!match) return match;
    if (auto r = dst.OnlyRowsChanged(before, row); !r) return r;
    if (OutsideRegion(dst, x0_bytes, y0, region_bytes, h) != outside)
        return ::testing::AssertionFailure() << "wrote outside the region";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult Check(const Kernel& k, const vt::Shape& s, const std::vector<float>& table, double param,
                                 vt::Placement table_placement = vt::Placement::End) {
    if (k.is_float) return CheckCall<float>(k, s, table, param, table_placement);
    return CheckCall<uint16_t>(k, s, table, param, table_placement);
}

class CurveExports : public ::testing::TestWithParam<Kernel> {};

// Random curves that leave [0, 1] on both sides, so the 16-bit clamp and the float kernels'
// unclamped output both show.
TEST_P(CurveExports, MatchesReferenceOnRandomShapesAndTables) {
    const Kernel& k = GetParam();
    std::mt19937 rng(std::hash<std::string>{}(k.name) & 0xFFFF);
    const double int_params[] = {0, 1, 2, 7, 255, 256, 1023, 4096, 65535};
    const double float_params[] = {0.f, 1.f, 2.5f, 16.f, 255.f, 1023.75f};
    for (const vt::Shape& s : vt::RandomShapes(rng(), 60, 200, 5)) {
        SCOPED_TRACE(vt::Describe(s));
        const double param = k.is_float ? float_params[rng() % 6] : int_params[rng() % 9];
        SCOPED_TRACE("param " + std::to_string(param));
        const std::vector<float> table = RandomTable(k, param, rng);
        const auto placement = rng() % 4 ? vt::Placement::End : vt::Placement::Start;
        ASSERT_TRUE(Check(k, s, table, param, placement));
    }
}

INSTANTIATE_TEST_SUITE_P(All, CurveExports, ::testing::ValuesIn(AllKernels()),
                         [](const auto& info) { return std::string(info.param.name); });

// T[i] = i / n with the extra entry repeating 1: every 16-bit code comes back unchanged, for
// coarse and fine tables alike.
TEST(CurveProperties, IdentityTableMapsEveryCodeToItself) {
    std::vector<uint16_t> codes(65536), out(65536);
    for (int c = 0; c < 65536; ++c) codes[c] = uint16_t(c);
    for (int32_t n : {1, 2, 3, 100, 255, 256, 4095, 4096, 65535}) {
        SCOPED_TRACE(n);
        std::vector<float> entries(n + 2);
        for (int32_t i = 0; i <= n; ++i) entries[i] = float(i) / float(n);
        entries[n + 1] = 1.f;
        GuardedTable table(entries, vt::Placement::End);
        ASSERT_EQ(StatusOk, Curve_16u_C1R(codes.data(), 0, out.data(), 0, 0, 0, 65536, 1, table.data(), n));
        ASSERT_EQ(codes, out);
    }
}

// Code 65535 sits at position n and reads the entry after the last interval: poisoning that
// entry with NaN shows through the top code (the clamp sends NaN to 0) where the position is
// exactly n, and nowhere else.
TEST(CurveProperties, TopCodeReadsTheExtraEntry) {
    for (int32_t n : {1, 255, 4096}) {
        SCOPED_TRACE(n);
        std::vector<float> entries(n + 2, 0.75f);
        entries[n + 1] = std::numeric_limits<float>::quiet_NaN();
        GuardedTable table(entries, vt::Placement::End);
        const uint16_t codes[3] = {0, 32768, 65535};
        uint16_t out[3];
        ASSERT_EQ(StatusOk, Curve_16u_C1R(codes, 0, out, 0, 0, 0, 3, 1, table.data(), n));
        ASSERT_EQ(float(n) * (1.f / 65535.f) * 65535.f, float(n)) << "position of 65535 is not n";
        EXPECT_EQ(out[0], 49151);
        EXPECT_EQ(out[1], 49151);
        EXPECT_EQ(out[2], 0);
    }
}

TEST(CurveProperties, ClampsWhereDocumented) {
    // Float input 1.5 is looked up as 1.0; a table value above 1 passes the float kernel as it is.
    const std::vector<float> steep = {0.f, 2.f, 2.f};
    GuardedTable table(steep, vt::Placement::End);
    const float in[4] = {1.5f, 1.f, -3.f, 0.25f};
    float out[4];
    ASSERT_EQ(StatusOk, Curve_32f_C1R(in, 0, out, 0, 0, 0, 4, 1, table.data(), 1.f));
    EXPECT_EQ(out[0], 2.f);
    EXPECT_EQ(out[1], 2.f);
    EXPECT_EQ(out[2], 0.f);
    EXPECT_EQ(out[3], 0.5f);
    // The 16-bit kernel clamps the same table's output to 65535.
    const uint16_t codes[2] = {65535, 49152};
    uint16_t mapped[2];
    ASSERT_EQ(StatusOk, Curve_16u_C1R(codes, 0, mapped, 0, 0, 0, 2, 1, table.data(), 1));
    EXPECT_EQ(mapped[0], 65535);
    EXPECT_EQ(mapped[1], 65535);
}

TEST(CurveProperties, AlphaChangesInC4AndStaysInAC4) {
    const std::vector<float> invert = {1.f, 0.f, 0.f};
    GuardedTable table(invert, vt::Placement::End);
    const uint16_t pixel[12] = {0, 65535, 0, 1000, 0, 65535, 0, 2000, 0, 65535, 0, 3000};
    uint16_t c4[12], ac4[12];
    std::memset(ac4, 0x11, sizeof ac4);
    ASSERT_EQ(StatusOk, Curve_16u_C4R(pixel, 0, c4, 0, 0, 0, 3, 1, table.data(), 1));
    ASSERT_EQ(StatusOk, Curve_16u_AC4R(pixel, 0, ac4, 0, 0, 0, 3, 1, table.data(), 1));
    for (int p = 0; p < 3; ++p) {
        EXPECT_NE(c4[4 * p + 3], pixel[4 * p + 3]);
        EXPECT_EQ(c4[4 * p + 3], ref::Curve16(pixel[4 * p + 3], invert.data(), 1));
        EXPECT_EQ(ac4[4 * p + 3], 0x1111) << "AC4 wrote alpha";
        for (int c = 0; c < 3; ++c) EXPECT_EQ(ac4[4 * p + c], c4[4 * p + c]);
    }
}

// One curve per channel: an inverting red curve, a halving green, a constant blue and an
// identity alpha, laid out as records of four.
TEST(CurveProperties, FourCurvesUseOneColumnPerChannel) {
    std::vector<float> records;
    for (int i = 0; i <= 5; ++i) {
        const float x = std::fmin(float(i) / 4.f, 1.f);
        records.insert(records.end(), {1.f - x, x / 2.f, 0.3f, x});
    }
    GuardedTable table(records, vt::Placement::End);
    const float pixel[4] = {0.25f, 0.5f, 0.75f, 1.f};
    float out[4];
    ASSERT_EQ(StatusOk, Curve4_32f_C4R(pixel, 0, out, 0, 0, 0, 1, 1, table.data(), 4.f));
    EXPECT_EQ(out[0], 0.75f);
    EXPECT_EQ(out[1], 0.25f);
    EXPECT_EQ(out[2], 0.3f);
    EXPECT_EQ(out[3], 1.f);
}

}  // namespace
