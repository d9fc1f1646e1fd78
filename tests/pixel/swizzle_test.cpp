// Channel swizzles through the per-pixel table: every export, random shapes and sub-rectangles,
// random orders (repeats included) and every order on one shape, the order array on guarded
// memory; empty regions; streamed large destinations.
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

// One export: its elements and how it binds an order and fill (bits of the fill's own type)
// into a region call. In-place exports ignore src and work on dst.
struct Kernel {
    const char* name;
    int element_bytes, src_channels, dst_channels;
    bool in_place;
    vt::Region (*bind)(const int32_t* order, uint32_t fill_bits);
};

void PrintTo(const Kernel& k, std::ostream* os) { *os << k.name; }

template <auto F>
vt::Region Src(const int32_t* order, uint32_t) { return vt::Matrix(F, order); }
template <auto F>
vt::Region Own(const int32_t* order, uint32_t) { return vt::MatrixInPlace(F, order); }
template <auto F, class Fill>
vt::Region Filled(const int32_t* order, uint32_t bits) {
    Fill fill;
    if constexpr (std::is_floating_point_v<Fill>) std::memcpy(&fill, &bits, 4);
    else fill = bits;
    return vt::Matrix(F, order, fill);
}

std::vector<Kernel> AllKernels() {
    return {
        {"8u_C3R", 1, 3, 3, false, Src<Swizzle_8u_C3R>},        {"8u_C4R", 1, 4, 4, false, Src<Swizzle_8u_C4R>},
        {"8u_C3C4R", 1, 3, 4, false, Filled<Swizzle_8u_C3C4R, uint32_t>},
        {"8u_C4C3R", 1, 4, 3, false, Src<Swizzle_8u_C4C3R>},    {"8u_C3IR", 1, 3, 3, true, Own<Swizzle_8u_C3IR>},
        {"8u_C4IR", 1, 4, 4, true, Own<Swizzle_8u_C4IR>},       {"16u_C3R", 2, 3, 3, false, Src<Swizzle_16u_C3R>},
        {"16u_C4R", 2, 4, 4, false, Src<Swizzle_16u_C4R>},      {"16u_C3C4R", 2, 3, 4, false, Filled<Swizzle_16u_C3C4R, uint32_t>},
        {"16u_C4C3R", 2, 4, 3, false, Src<Swizzle_16u_C4C3R>},  {"16u_C3IR", 2, 3, 3, true, Own<Swizzle_16u_C3IR>},
        {"16u_C4IR", 2, 4, 4, true, Own<Swizzle_16u_C4IR>},     {"32f_C3R", 4, 3, 3, false, Src<Swizzle_32f_C3R>},
        {"32f_C4R", 4, 4, 4, false, Src<Swizzle_32f_C4R>},      {"32f_C3C4R", 4, 3, 4, false, Filled<Swizzle_32f_C3C4R, float>},
        {"32f_C4C3R", 4, 4, 3, false, Src<Swizzle_32f_C4C3R>},  {"32f_C3IR", 4, 3, 3, true, Own<Swizzle_32f_C3IR>},
        {"32f_C4IR", 4, 4, 4, true, Own<Swizzle_32f_C4IR>},
    };
}

std::string Describe(const std::vector<int32_t>& order) {
    std::string out = "order";
    for (int32_t e : order) out += " " + std::to_string(e);
    return out;
}

// Integer fills carry junk above their 8 or 16 bits, which the kernels must ignore.
uint32_t RandomFill(const Kernel& k, std::mt19937& rng) {
    if (k.element_bytes != 4) return rng();
    const float f = float(rng() % 1000) / 8.f;
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    return bits;
}

// The export with one order (on guarded memory) and fill, as a row of the per-pixel table: channel
// c takes source channel order[c], or the fill where a three-channel source grows to four and the
// entry is 3 or more. Float sources have distinct bit patterns, never NaN. Steps are padded to a
// multiple of `align` bytes. The shape is checked at every level.
void Check(const Kernel& k, const vt::Shape& s, const std::vector<int32_t>& order, uint32_t fill_bits, int align = 1) {
    const vt::GuardedArray<int32_t> guarded(order);
    float fill;
    if (k.element_bytes == 4) std::memcpy(&fill, &fill_bits, 4);
    else fill = float(fill_bits & (k.element_bytes == 1 ? 0xFFu : 0xFFFFu));
    vt::PixelKernel row{k.name, k.src_channels, k.dst_channels, k.element_bytes, k.element_bytes, k.in_place, true,
                        k.bind(guarded.data(), fill_bits),
                        [&](const float* p, float* q) {
                            for (int c = 0; c < k.dst_channels; ++c) q[c] = k.dst_channels > k.src_channels && order[c] >= 3 ? fill : p[order[c]];
                        },
                        0, 0, 0};
    row.sample = [](std::mt19937& rng) { return float(rng() % 100000) / 7.f; };
    row.align = align;
    vt::CheckAtEveryLevel(row, s);
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
        const uint32_t fill = RandomFill(k, rng);
        Check(k, s, order, fill);
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
        const uint32_t fill = RandomFill(k, rng);
        Check(k, s, order, fill);
    }
}

// Entries outside the source's channels give unspecified values, but the same from every body,
// and nothing outside the region is read or written: planes hold exactly the region. (Growing
// kernels write the fill for such entries, which the table checks.)
TEST_P(SwizzleExports, OutOfRangeEntriesGiveTheSse2BodysBytes) {
    const Kernel& k = GetParam();
    if (k.dst_channels > k.src_channels) GTEST_SKIP();
    const int64_t e = k.element_bytes;
    std::mt19937 rng(uint32_t(e * 10 + k.src_channels + k.dst_channels));
    for (int round = 0; round < 20; ++round) {
        const int w = 1 + int(rng() % 40);
        std::vector<int32_t> order(k.dst_channels);
        for (int32_t& entry : order) entry = int32_t(rng() % 13) - 3;
        order[rng() % order.size()] = k.src_channels + int32_t(rng() % 2);
        SCOPED_TRACE(Describe(order) + " width " + std::to_string(w));
        const vt::GuardedArray<int32_t> guarded(order);
        const auto side = rng() % 2 ? vt::Placement::End : vt::Placement::Start;
        vt::GuardedPlane src(w * k.src_channels * e, 2, int32_t(w * k.src_channels * e), side, 1),
            dst(w * k.dst_channels * e, 2, int32_t(w * k.dst_channels * e), side, 1);
        vt::SameAsSse2 same;
        vt::ForEachLevel([&] {
            src.FillRandomBytes(uint32_t(round));
            dst.FillRandomBytes(uint32_t(round) + 1);
            vt::GuardedPlane& out = k.in_place ? src : dst;
            k.bind(guarded.data(), 0)(src.data(), src.step(), out.data(), out.step(), 0, 0, w, 2);
            EXPECT_TRUE(same(out));
        });
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
        k.bind(nullptr, 0)(src.data(), src.step(), dst.data(), dst.step(), 1, 1, w, h);
        EXPECT_TRUE(dst.Unchanged(before));
    }
}

INSTANTIATE_TEST_SUITE_P(All, SwizzleExports, ::testing::ValuesIn(AllKernels()), vt::kKernelName);

// Destinations of 16 MiB or more take streaming stores from their first 16-byte aligned pixel
// on, when the step keeps that alignment: such regions, starting anywhere, still match.
TEST(SwizzleLarge, StreamedRegionsMatchReference) {
    std::mt19937 rng(9);
    for (const Kernel& k : AllKernels()) {
        if (k.element_bytes != 1 || k.in_place || k.src_channels == k.dst_channels) continue;  // both store widths
        SCOPED_TRACE(k.name);
        vt::Shape s{4099, 0};
        s.height = int((int64_t{17} << 20) / (int64_t{s.width} * k.dst_channels) + 1);
        s.pad_src = int(rng() % 16);
        s.pad_dst = int(rng() % 16);
        s.negative_step = k.dst_channels == 3;
        s.seed = rng();
        std::vector<int32_t> order(k.dst_channels);
        for (int32_t& e : order) e = int32_t(rng() % (k.dst_channels > k.src_channels ? 5 : k.src_channels));
        SCOPED_TRACE(vt::Describe(s) + " " + Describe(order));
        const uint32_t fill = RandomFill(k, rng);
        Check(k, s, order, fill, 16);
    }
}

}  // namespace
