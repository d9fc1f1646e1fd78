// Every swizzle export at each instruction-set level this processor has, against the SSE2
// level: the same inputs must leave the whole destination mapping (region, gaps, rows around
// it) byte for byte the same. Shapes cover sub-rectangles, odd widths, padded and bottom-up
// steps on guarded planes; orders cover every three-channel order, repeats included, a sample
// of four-channel ones, the fill, and entries outside the channels.
#include <random>
#include <string>
#include <vector>

#include "core/cpu.h"
#include "pixel/swizzle_kernels.h"
#include "support/dispatch.h"
#include "support/shapes.h"

namespace {

using namespace swizzle_test;
using velmora::cpu::Level;

// The destination mapping after one call on fresh planes made from the shape's seed.
std::vector<uint8_t> CallOnFreshPlanes(const Kernel& k, const vt::Shape& s, const std::vector<int32_t>& order, uint32_t fill_bits,
                         int step_align) {
    std::mt19937 rng(s.seed);
    const int x0 = int(rng() % 6), y0 = int(rng() % 3);
    const int w = s.width > 0 ? s.width : 0, h = s.height > 0 ? s.height : 0;
    const int64_t src_row = int64_t{x0 + w} * k.src_channels * k.element_bytes;
    const int64_t dst_row = int64_t{x0 + w} * k.dst_channels * k.element_bytes;
    vt::GuardedPlane src(src_row, y0 + h, vt::StepFor(s, src_row, s.pad_src, step_align), s.placement, 1);
    vt::GuardedPlane dst(dst_row, y0 + h, vt::StepFor(s, dst_row, s.pad_dst, step_align), s.placement, 1);
    FillSource(src, k.element_bytes, s.seed);
    FillSource(dst, k.element_bytes, s.seed ^ 0x5555u);
    GuardedOrder guarded(order);
    EXPECT_EQ(StatusOk, k.call(src.data(), src.step(), dst.data(), dst.step(), x0, y0, s.width, s.height,
                               guarded.data(), fill_bits));
    return dst.Snapshot();
}

// Orders to try: every one of in-range entries for three destination channels, a random sample
// for four, and a few with entries below 0 or past the channels.
std::vector<std::vector<int32_t>> Orders(const Kernel& k, std::mt19937& rng) {
    const int top = k.dst_channels > k.src_channels ? 5 : k.src_channels;  // 3 and 4 select the fill
    std::vector<std::vector<int32_t>> orders;
    if (k.dst_channels == 3) {
        for (int i = 0; i < top * top * top; ++i) orders.push_back({i % top, i / top % top, i / (top * top)});
    } else {
        orders = {{0, 1, 2, 3}, {2, 1, 0, 3}, {3, 2, 1, 0}, {3, 3, 3, 3}, {1, 1, 0, 0}};
        for (int i = 0; i < 40; ++i) {
            std::vector<int32_t> o(4);
            for (int32_t& e : o) e = int32_t(rng() % top);
            orders.push_back(o);
        }
    }
    for (int i = 0; i < 6; ++i) {
        std::vector<int32_t> o(k.dst_channels);
        for (int32_t& e : o) e = int32_t(rng() % 10) - 2;
        orders.push_back(o);
    }
    return orders;
}

// Each level above SSE2 up to the detected one gives the SSE2 level's bytes. Leaves the level
// where it found it.
void ExpectLevelsAgree(const Kernel& k, const vt::Shape& s, const std::vector<int32_t>& order, uint32_t fill_bits,
                       int step_align = 1) {
    vt::DetectedLevelAtExit restore;
    velmora::cpu::CapLevel(Level::Sse2);
    const std::vector<uint8_t> baseline = CallOnFreshPlanes(k, s, order, fill_bits, step_align);
    for (int level = 1; level <= static_cast<int>(velmora::cpu::Detected()); ++level) {
        SCOPED_TRACE("level " + std::to_string(level));
        velmora::cpu::CapLevel(static_cast<Level>(level));
        ASSERT_TRUE(CallOnFreshPlanes(k, s, order, fill_bits, step_align) == baseline);
    }
}

class SwizzleDispatch : public ::testing::TestWithParam<Kernel> {};

TEST_P(SwizzleDispatch, EveryLevelMatchesSse2) {
    const Kernel& k = GetParam();
    std::mt19937 rng(k.element_bytes * 100 + k.src_channels * 10 + k.dst_channels + (k.in_place ? 7 : 0));
    const std::vector<vt::Shape> shapes = vt::RandomShapes(rng(), 40, 130);
    for (const std::vector<int32_t>& order : Orders(k, rng)) {
        SCOPED_TRACE(Describe(order));
        for (int i = 0; i < vt::Scaled(6); ++i) {
            const vt::Shape& s = shapes[rng() % shapes.size()];
            SCOPED_TRACE(vt::Describe(s));
            ExpectLevelsAgree(k, s, order, RandomFill(k, rng));
        }
    }
    // Every edge shape once, with the fastest order body.
    for (const vt::Shape& s : shapes) {
        SCOPED_TRACE(vt::Describe(s));
        ExpectLevelsAgree(k, s, Orders(k, rng).front(), RandomFill(k, rng));
    }
}

INSTANTIATE_TEST_SUITE_P(All, SwizzleDispatch, ::testing::ValuesIn(AllKernels()),
                         [](const auto& info) { return std::string(info.param.name); });

// Regions large enough for streaming stores, from an unaligned first pixel: one export that
// packs three-channel blocks and one that drops a channel (the walk is shared by all).
TEST(SwizzleDispatchLarge, StreamedRegionsMatchSse2) {
    std::mt19937 rng(17);
    for (const Kernel& k : AllKernels()) {
        if (std::string(k.name) != "16u_C3R" && std::string(k.name) != "16u_C4C3R") continue;
        SCOPED_TRACE(k.name);
        vt::Shape s{2051, 0};
        s.height = int((int64_t{17} << 20) / (int64_t{s.width} * k.dst_channels * k.element_bytes) + 1);
        s.seed = rng();
        s.pad_dst = 16;
        const std::vector<int32_t> order = Orders(k, rng)[5];
        SCOPED_TRACE(Describe(order));
        ExpectLevelsAgree(k, s, order, RandomFill(k, rng), 16);
    }
}

}  // namespace
