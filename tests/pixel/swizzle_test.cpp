// Channel swizzles against the plain reorder: every export on guarded planes, random shapes,
// sub-rectangles, random orders (repeats included), and the order array on guarded memory.
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "pixel/swizzle_kernels.h"
#include "reference/swizzle.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using namespace swizzle_test;

// The elements of rows [y0, y0 + h) starting at element x0, packed.
template <class T>
std::vector<T> Region(const vt::GuardedPlane& p, int x0, int y0, int count, int h) {
    std::vector<T> out;
    for (int y = 0; y < h; ++y) out.insert(out.end(), p.RowAs<T>(y0 + y) + x0, p.RowAs<T>(y0 + y) + x0 + count);
    return out;
}

// Legal bytes of every row outside the region [x0_bytes, x0_bytes + region_bytes) of rows
// [y0, y0 + h), packed: what a kernel must leave alone inside the rows it may touch.
std::vector<uint8_t> OutsideRegion(const vt::GuardedPlane& p, int64_t x0_bytes, int y0, int64_t region_bytes, int h) {
    std::vector<uint8_t> out;
    for (int y = 0; y < p.height(); ++y) {
        const uint8_t* row = p.Row(y);
        if (y < y0 || y >= y0 + h) {
            out.insert(out.end(), row, row + p.row_bytes());
        } else {
            out.insert(out.end(), row, row + x0_bytes);
            out.insert(out.end(), row + x0_bytes + region_bytes, row + p.row_bytes());
        }
    }
    return out;
}

template <class T>
::testing::AssertionResult CheckCall(const Kernel& k, const vt::Shape& s, const std::vector<int32_t>& order,
                                     uint32_t fill_bits, int step_align) {
    std::mt19937 rng(s.seed);
    const int x0 = rng() % 2 ? 0 : int(rng() % 6), y0 = rng() % 2 ? 0 : int(rng() % 3);
    const int w = s.width > 0 ? s.width : 0, h = s.height > 0 ? s.height : 0;
    const int64_t e = k.element_bytes;
    const int64_t src_row = (x0 + w) * k.src_channels * e, dst_row = (x0 + w) * k.dst_channels * e;
    vt::GuardedPlane src(src_row, y0 + h, vt::StepFor(s, src_row, s.pad_src, step_align), s.placement, 1);
    vt::GuardedPlane dst(dst_row, y0 + h, vt::StepFor(s, dst_row, s.pad_dst, step_align), s.placement, 1);
    FillSource(src, k.element_bytes, s.seed);
    FillSource(dst, k.element_bytes, s.seed ^ 0x5555u);
    const vt::GuardedPlane& in = k.in_place ? dst : src;
    const std::vector<T> source = Region<T>(in, x0 * k.src_channels, y0, w * k.src_channels, h);
    T fill;
    std::memcpy(&fill, &fill_bits, sizeof(T));
    const auto want = ref::Swizzle<T>(source, w, h, k.src_channels, k.dst_channels, order.data(), fill);
    const auto before = dst.Snapshot();
    const auto outside = OutsideRegion(dst, x0 * k.dst_channels * e, y0, w * k.dst_channels * e, h);
    const auto src_before = src.Snapshot();
    GuardedOrder guarded(order);
    const StatusCode status = k.call(src.data(), src.step(), dst.data(), dst.step(), x0, y0, s.width, s.height,
                                     guarded.data(), fill_bits);
    if (status != StatusOk) return ::testing::AssertionFailure() << "status " << status;
    if (!src.Unchanged(src_before)) return ::testing::AssertionFailure() << "source written";
    const auto got = Region<T>(dst, x0 * k.dst_channels, y0, w * k.dst_channels, h);
    auto match = vt::RowsMatch<T>([&](int y) { return &got[size_t(y) * w * k.dst_channels]; }, h,
                                  int64_t(w) * k.dst_channels, want);
    if (!match) return match;
    // Gaps between rows through the plane's own check, the bytes left of the region and the rows
    // above it through the packed copy.
    if (auto r = dst.OnlyRowsChanged(before, dst_row); !r) return r;
    if (OutsideRegion(dst, x0 * k.dst_channels * e, y0, w * k.dst_channels * e, h) != outside)
        return ::testing::AssertionFailure() << "wrote outside the region";
    return ::testing::AssertionSuccess();
}

// Steps are padded to a multiple of step_align bytes.
::testing::AssertionResult Check(const Kernel& k, const vt::Shape& s, const std::vector<int32_t>& order,
                                 uint32_t fill_bits, int step_align = 1) {
    if (k.element_bytes == 1) return CheckCall<uint8_t>(k, s, order, fill_bits, step_align);
    if (k.element_bytes == 2) return CheckCall<uint16_t>(k, s, order, fill_bits, step_align);
    return CheckCall<float>(k, s, order, fill_bits, step_align);
}

class SwizzleExports : public ::testing::TestWithParam<Kernel> {};

TEST_P(SwizzleExports, MatchesReferenceOnRandomShapesAndOrders) {
    const Kernel& k = GetParam();
    std::mt19937 rng(k.element_bytes * 100 + k.src_channels * 10 + k.dst_channels + (k.in_place ? 7 : 0));
    // Entries of 3 to 7 select the fill where the destination gains a channel.
    const uint32_t top = k.dst_channels > k.src_channels ? 8 : k.src_channels;
    for (const vt::Shape& s : vt::RandomShapes(rng(), 120)) {
        SCOPED_TRACE(vt::Describe(s));
        std::vector<int32_t> order(k.dst_channels);
        for (int32_t& e : order) e = int32_t(rng() % top);
        SCOPED_TRACE(Describe(order));
        ASSERT_TRUE(Check(k, s, order, RandomFill(k, rng)));
    }
}

// Every order of in-range entries, repeats included, on one shape with a full block, a tail and
// a sub-rectangle: each way channels can move and share a movement.
TEST_P(SwizzleExports, EveryOrderMatchesReference) {
    const Kernel& k = GetParam();
    const int top = k.dst_channels > k.src_channels ? 4 : k.src_channels;
    int combinations = 1;
    for (int c = 0; c < k.dst_channels; ++c) combinations *= top;
    std::mt19937 rng(5);
    for (int i = 0; i < combinations; ++i) {
        std::vector<int32_t> order(k.dst_channels);
        for (int c = 0, rest = i; c < k.dst_channels; ++c, rest /= top) order[c] = rest % top;
        SCOPED_TRACE(Describe(order));
        vt::Shape s{21, 2};
        s.seed = rng();
        s.pad_src = 8;
        s.pad_dst = 3;
        ASSERT_TRUE(Check(k, s, order, RandomFill(k, rng)));
    }
}

TEST_P(SwizzleExports, EmptyRegionsTouchNothingAndReadNoOrder) {
    const Kernel& k = GetParam();
    const int64_t row = 8 * 4 * k.element_bytes;
    vt::GuardedPlane src(row, 2, 256), dst(row, 2, 256);
    src.FillRandomBytes(1);
    dst.FillRandomBytes(2);
    const auto before = dst.Snapshot();
    for (auto [w, h] : {std::pair{0, 2}, {5, 0}, {-1, 2}, {5, -3}}) {
        EXPECT_EQ(StatusOk, k.call(src.data(), src.step(), dst.data(), dst.step(), 1, 1, w, h, nullptr, 0));
        EXPECT_TRUE(dst.Unchanged(before));
    }
}

INSTANTIATE_TEST_SUITE_P(All, SwizzleExports, ::testing::ValuesIn(AllKernels()),
                         [](const auto& info) { return std::string(info.param.name); });

// Destinations of 16 MiB or more take streaming stores from their first 16-byte aligned pixel
// on, when the step keeps that alignment: such regions, starting anywhere, still match.
TEST(SwizzleLarge, StreamedRegionsMatchReference) {
    std::mt19937 rng(9);
    for (const Kernel& k : AllKernels()) {
        if (k.element_bytes != 1 || k.in_place) continue;
        SCOPED_TRACE(k.name);
        vt::Shape s{4099, 0};
        s.height = int((int64_t{17} << 20) / (int64_t{s.width} * k.dst_channels) + 1);
        s.pad_src = int(rng() % 16);
        s.pad_dst = int(rng() % 16);
        s.negative_step = k.dst_channels == 3;
        for (int i = 0; i < 3; ++i) {
            s.seed = rng();
            std::vector<int32_t> order(k.dst_channels);
            for (int32_t& e : order) e = int32_t(rng() % (k.dst_channels > k.src_channels ? 5 : k.src_channels));
            SCOPED_TRACE(vt::Describe(s) + " " + Describe(order));
            ASSERT_TRUE(Check(k, s, order, RandomFill(k, rng), 16));
        }
    }
}

// The editor's everyday reorders with hand-written expectations.
TEST(SwizzleExamples, EverydayReorders) {
    const uint8_t bgra[8] = {10, 20, 30, 40, 11, 21, 31, 41};
    uint8_t out[8] = {};
    const int32_t to_rgba[4] = {2, 1, 0, 3};
    EXPECT_EQ(StatusOk, Swizzle_8u_C4R(bgra, 8, out, 8, 0, 0, 2, 1, to_rgba));
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{30, 20, 10, 40, 31, 21, 11, 41}));

    const uint8_t bgr[6] = {1, 2, 3, 4, 5, 6};
    const int32_t opaque[4] = {0, 1, 2, 3}, opaque_swapped[4] = {2, 1, 0, 7};
    EXPECT_EQ(StatusOk, Swizzle_8u_C3C4R(bgr, 6, out, 8, 0, 0, 2, 1, opaque, 255));
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{1, 2, 3, 255, 4, 5, 6, 255}));
    EXPECT_EQ(StatusOk, Swizzle_8u_C3C4R(bgr, 6, out, 8, 0, 0, 2, 1, opaque_swapped, 0x1FF));
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{3, 2, 1, 255, 6, 5, 4, 255}));

    uint8_t image[6] = {1, 2, 3, 4, 5, 6};
    const int32_t swap[3] = {2, 1, 0};
    EXPECT_EQ(StatusOk, Swizzle_8u_C3IR(image, 6, 0, 0, 2, 1, swap));
    EXPECT_EQ(std::vector<uint8_t>(image, image + 6), (std::vector<uint8_t>{3, 2, 1, 6, 5, 4}));

    // In place with every entry the same: each pixel is read whole before it is written.
    float pixels[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f};
    const int32_t rotate[4] = {3, 0, 0, 1};
    EXPECT_EQ(StatusOk, Swizzle_32f_C4IR(pixels, 32, 0, 0, 2, 1, rotate));
    EXPECT_EQ(std::vector<float>(pixels, pixels + 8),
              (std::vector<float>{0.4f, 0.1f, 0.1f, 0.2f, 0.8f, 0.5f, 0.5f, 0.6f}));
}

}  // namespace
