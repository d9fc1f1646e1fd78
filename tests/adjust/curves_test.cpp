// Tone curves against the per-sample reference at every instruction-set level: every export on
// guarded planes with its table on a guarded page sized exactly as documented (the extra entry
// included), sub-rectangles, clamps on both sides, alpha kept where documented.
#include <cmath>
#include <functional>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "reference/curves.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

// One export: its samples, and how it binds a table and its parameter (n for 16-bit kernels, the
// scale for float ones) into a region call. In-place exports ignore src and work on dst.
struct Kernel {
    const char* name;
    bool is_float;
    int channels;     // samples per pixel
    bool keep_alpha;  // the fourth sample of each pixel is never written
    bool four_curves;
    bool in_place;
    vt::Region (*bind)(const float* table, double param);
};

void PrintTo(const Kernel& k, std::ostream* os) { *os << k.name; }

template <auto F, class P>
vt::Region Src(const float* t, double param) { return vt::Matrix(F, t, static_cast<P>(param)); }
template <auto F, class P>
vt::Region Own(const float* t, double param) { return vt::MatrixInPlace(F, t, static_cast<P>(param)); }

std::vector<Kernel> AllKernels() {
    using I = int32_t;
    return {
        {"16u_C1R", false, 1, false, false, false, Src<Curve_16u_C1R, I>},
        {"16u_C1IR", false, 1, false, false, true, Own<Curve_16u_C1IR, I>},
        {"16u_C3R", false, 3, false, false, false, Src<Curve_16u_C3R, I>},
        {"16u_C3IR", false, 3, false, false, true, Own<Curve_16u_C3IR, I>},
        {"16u_C4R", false, 4, false, false, false, Src<Curve_16u_C4R, I>},
        {"16u_C4IR", false, 4, false, false, true, Own<Curve_16u_C4IR, I>},
        {"16u_AC4R", false, 4, true, false, false, Src<Curve_16u_AC4R, I>},
        {"16u_AC4IR", false, 4, true, false, true, Own<Curve_16u_AC4IR, I>},
        {"32f_C1R", true, 1, false, false, false, Src<Curve_32f_C1R, float>},
        {"32f_C1IR", true, 1, false, false, true, Own<Curve_32f_C1IR, float>},
        {"32f_C3R", true, 3, false, false, false, Src<Curve_32f_C3R, float>},
        {"32f_C3IR", true, 3, false, false, true, Own<Curve_32f_C3IR, float>},
        {"32f_C4R", true, 4, false, false, false, Src<Curve_32f_C4R, float>},
        {"32f_C4IR", true, 4, false, false, true, Own<Curve_32f_C4IR, float>},
        {"Curve4_C4R", true, 4, false, true, false, Src<Curve4_32f_C4R, float>},
        {"Curve4_C4IR", true, 4, false, true, true, Own<Curve4_32f_C4IR, float>},
    };
}

// Entries the kernels may read: n + 2 for 16-bit tables, trunc(scale) + 2 (records for the
// four-curve kernels) for float ones.
size_t TableEntries(const Kernel& k, double param) {
    const size_t positions = size_t(param) + 2;
    return k.four_curves ? 4 * positions : positions;
}

// A table of the documented size with entries in [-0.2, 1.2], so that both the 16-bit clamp and
// the float kernels' unclamped output show.
std::vector<float> RandomTable(const Kernel& k, double param, std::mt19937& rng) {
    std::vector<float> entries(TableEntries(k, param));
    for (float& t : entries) t = float(int(rng() % 1401) - 200) / 1000.f;
    return entries;
}

// Float samples mostly in [0, 1] with excursions both ways and NaN (16-bit sources: any code).
float RandomSample(std::mt19937& rng) {
    const uint32_t r = rng() % 64;
    if (r == 0) return std::numeric_limits<float>::quiet_NaN();
    if (r == 1) return 1.5f;
    if (r == 2) return -0.25f;
    if (r == 3) return 1.f;
    return float(rng() % 100001) / 100000.f;
}

// The export with one table (on guarded memory) and parameter as a row of the per-pixel table, on
// one shape at every level.
void Check(const Kernel& k, const vt::Shape& s, const std::vector<float>& table, double param,
           vt::Placement table_placement = vt::Placement::End) {
    const vt::GuardedArray<float> guarded(table, table_placement);
    const int size = k.is_float ? 4 : 2;
    vt::PixelKernel row{k.name, k.channels, k.channels, size, size, k.in_place, true, k.bind(guarded.data(), param),
                        [&](const float* p, float* q) {
                            for (int c = 0; c < k.channels; ++c)
                                if (!(k.keep_alpha && c == 3))
                                    q[c] = !k.is_float ? ref::Curve16(uint16_t(p[c]), table.data(), int32_t(param))
                                           : k.four_curves ? ref::Curve4(p[c], c, table.data(), float(param))
                                                           : ref::Curve32(p[c], table.data(), float(param));
                        },
                        0, 0, 0};
    row.sample = RandomSample;
    row.align = 1;
    vt::CheckAtEveryLevel(row, s);
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
        Check(k, s, table, param, placement);
    }
}

INSTANTIATE_TEST_SUITE_P(All, CurveExports, ::testing::ValuesIn(AllKernels()), vt::kKernelName);

// Code 65535 sits at position n and reads the entry after the last interval: poisoning that
// entry with NaN shows through the top code (the clamp sends NaN to 0) where the position is
// exactly n, and nowhere else.
TEST(CurveProperties, TopCodeReadsTheExtraEntry) {
    for (int32_t n : {1, 255, 4096}) {
        SCOPED_TRACE(n);
        std::vector<float> entries(n + 2, 0.75f);
        entries[n + 1] = std::numeric_limits<float>::quiet_NaN();
        const vt::GuardedArray<float> table(entries);
        const uint16_t codes[3] = {0, 32768, 65535};
        uint16_t out[3];
        ASSERT_EQ(StatusOk, Curve_16u_C1R(codes, 0, out, 0, 0, 0, 3, 1, table.data(), n));
        ASSERT_EQ(float(n) * (1.f / 65535.f) * 65535.f, float(n)) << "position of 65535 is not n";
        EXPECT_EQ(out[0], 49151);
        EXPECT_EQ(out[1], 49151);
        EXPECT_EQ(out[2], 0);
    }
}

// Destinations of 32 MB and more are written past the cache on the float paths that can; a
// row step of 16 modulo 32 alternates rows that allow it (32-byte aligned) with rows that do not.
TEST(CurveExportsLarge, StreamedFloatRowsMatchReference) {
    std::mt19937 rng(5);
    vt::Shape s{2049, 1025};
    s.placement = vt::Placement::Start;
    s.seed = 77;
    for (const Kernel& k : AllKernels()) {
        if (std::string(k.name) != "32f_C4R" && std::string(k.name) != "Curve4_C4IR") continue;
        SCOPED_TRACE(k.name);
        const std::vector<float> table = RandomTable(k, 1023.75, rng);
        Check(k, s, table, 1023.75);
    }
}

}  // namespace
