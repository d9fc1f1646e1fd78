// Linearizing loaders against the scalar reference: every source format, identity and mixing
// matrices, tables on guard pages, block overruns, the n < 2 guard path and the in-place member.
#include <cstring>
#include <random>
#include <vector>

#include "reference/linearize.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

namespace rl = ref::linearize;
using rl::AlphaRule;

using Loader = StatusCode(VELMORA_CALL*)(const void*, int32_t, void*, int32_t, const ImageSize*, const float*, int32_t,
                                         const float*);

struct Case {
    const char* name;
    Loader call;
    rl::Layout layout;
    int block;
    bool words;  // Rgba64 destination (else Rgba128F)
};

// Element offsets are in bytes for 8-bit sources and in 16-bit words for 16-bit ones.
constexpr rl::Layout kBgr24{3, 2, 1, 0, -1, false, AlphaRule::Opaque, false};
constexpr rl::Layout kRgb24{3, 0, 1, 2, -1, false, AlphaRule::Opaque, false};
constexpr rl::Layout kBgra32{4, 2, 1, 0, 3, false, AlphaRule::Scaled, false};
constexpr rl::Layout kBgra32Premultiply{4, 2, 1, 0, 3, false, AlphaRule::Scaled, true};
constexpr rl::Layout kPbgra32Divided{4, 2, 1, 0, 3, false, AlphaRule::Divided, false};
constexpr rl::Layout kGray8{1, 0, 0, 0, -1, false, AlphaRule::Opaque, false};
constexpr rl::Layout kRgb48{6, 0, 1, 2, -1, true, AlphaRule::Opaque, false};
constexpr rl::Layout kRgba64{8, 0, 1, 2, 3, true, AlphaRule::Scaled, false};

const Case kCases[] = {
    {"Bgr24_Rgba128F", ImageToLinearRGB_Bgr24_Rgba128F_SSE2_X4, kBgr24, 4, false},
    {"Rgb24_Rgba128F", ImageToLinearRGB_Rgb24_Rgba128F_SSE2_X4, kRgb24, 4, false},
    {"Bgr32_Rgba128F", ImageToLinearRGB_Bgr32_Rgba128F_SSE2_X4, kBgra32, 4, false},
    {"Bgra32_Rgba128F", ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4, kBgra32, 4, false},
    {"Bgra32_Prgba128F", ImageToLinearRGB_Bgra32_Prgba128F_SSE2_X4, kBgra32Premultiply, 4, false},
    {"Pbgra32_Prgba128F", ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4, kBgra32, 4, false},
    {"Pbgra32_Prgba128F_2nd", _ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4, kPbgra32Divided, 4, false},
    {"Gray8_Rgba128F", ImageToLinearRGB_Gray8_Rgba128F_SSE2_X16, kGray8, 16, false},
    {"Bgr24_Rgba64", ImageToLinearRGB_Bgr24_Rgba64_SSE2_X4, kBgr24, 4, true},
    {"Rgb24_Rgba64", ImageToLinearRGB_Rgb24_Rgba64_SSE2_X4, kRgb24, 4, true},
    {"Rgb48_Rgba128F", ImageToLinearRGB_Rgb48_Rgba128F_SSE2_X4, kRgb48, 4, false},
    {"Rgb48_Rgba64", ImageToLinearRGB_Rgb48_Rgba64_SSE2_X4, kRgb48, 4, true},
    {"Rgba64_Rgba128F", ImageToLinearRGB_Rgba64_Rgba128F_SSE2_X2, kRgba64, 2, false},
    {"Rgba64_Rgba64", ImageToLinearRGB_Rgba64_SSE2_X2, kRgba64, 2, true},
};

int DstPixelBytes(const Case& c) { return c.words ? 8 : 16; }
int SrcElementBytes(const Case& c) { return c.layout.sixteen ? 2 : 1; }

constexpr float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
// Mixes every channel into every other with negative terms, so outputs leave [0, 1] both ways.
constexpr float kMixing[9] = {1.35f, -0.28f, 0.05f, -0.42f, 1.31f, -0.61f, 0.19f, -0.03f, 1.62f};

std::vector<float> RandomTable(int n, std::mt19937& rng) {
    std::uniform_real_distribution<float> d(-0.25f, 1.25f);
    std::vector<float> t(n);
    for (float& v : t) v = d(rng);
    return t;
}

class LinearizingLoader : public ::testing::TestWithParam<Case> {};

// Each shape with its own table size, table and matrix (the table and matrix on guarded memory)
// as a row of the per-pixel table: every touched pixel (the row rounded up to the block) against
// the reference from the same source bytes, overrun bytes included.
TEST_P(LinearizingLoader, MatchesReferenceOnRandomShapes) {
    const Case& c = GetParam();
    const int table_sizes[] = {2, 256, 4096, 65536, 1021, 1022, 2049, 2050, 3};
    int index = 0;
    for (const vt::Shape& s : vt::RandomShapes(0x11ea, 40, 150, 5)) {
        std::mt19937 rng(s.seed);
        const int n = table_sizes[index % std::size(table_sizes)];
        SCOPED_TRACE(testing::Message() << vt::Describe(s) << " n " << n);
        const vt::GuardedArray<float> table(RandomTable(n, rng));
        const float* m = index++ % 2 ? kMixing : kIdentity;
        const vt::GuardedArray<float> matrix(std::vector<float>(m, m + 9));
        const int size = SrcElementBytes(c), elements = c.layout.pixel_bytes / size;
        vt::PixelKernel row{c.name, elements, 4, size, c.words ? 2 : 4, false, false,
                            [&](const void* src, int32_t ss, void* dst, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
                                const ImageSize roi{w, h};
                                EXPECT_EQ(c.call(src, ss, dst, ds, &roi, table.data(), n, matrix.data()), StatusOk);
                            },
                            [&](const float* p, float* q) {
                                uint8_t px[8];
                                for (int e = 0; e < elements && e < 4; ++e) {
                                    const uint16_t code = uint16_t(p[e]);
                                    if (size == 1) px[e] = uint8_t(code);
                                    else std::memcpy(px + 2 * e, &code, 2);
                                }
                                const rl::Rgba v = rl::LoadPixel(px, c.layout, table.data(), n, matrix.data());
                                const float lanes[4] = {v.r, v.g, v.b, v.a};
                                for (int k = 0; k < 4; ++k) q[k] = c.words ? ref::ToWord(lanes[k]) : lanes[k];
                            },
                            0, 0, 0};
        row.block = c.block;
        row.align = size;
        vt::Runs runs;
        ASSERT_TRUE(vt::CheckPixels(row, s, runs));
    }
}

// Fewer than two entries: the region is cleared to zero (exactly width pixels) and the source,
// table and matrix are never read; here all three point into a no-access page.
TEST_P(LinearizingLoader, TableOfFewerThanTwoEntriesClearsTheRegionReadingNothing) {
    const Case& c = GetParam();
    const int64_t page = vt::pages::Size();
    void* none = vt::pages::Map(page);
    vt::pages::NoAccess(static_cast<uint8_t*>(none), page);
    for (int n : {1, 0, -3}) {
        for (int width : {1, 5, 19}) {
            SCOPED_TRACE(testing::Message() << "n " << n << " width " << width);
            const int32_t step = (width * DstPixelBytes(c) + 40 + 15) / 16 * 16;
            vt::GuardedPlane dst(step, 3, step, vt::Placement::End, 1);
            const auto before = dst.Snapshot();
            const ImageSize roi{width, 3};
            EXPECT_EQ(c.call(none, 64, dst.data(), step, &roi, static_cast<const float*>(none), n,
                             static_cast<const float*>(none)),
                      StatusOk);
            EXPECT_TRUE(dst.OnlyRowsChanged(before, int64_t{width} * DstPixelBytes(c)));
            for (int y = 0; y < 3; ++y)
                for (int i = 0; i < width * DstPixelBytes(c); ++i) ASSERT_EQ(dst.Row(y)[i], 0) << y << " " << i;
        }
    }
    vt::pages::Unmap(static_cast<uint8_t*>(none), page);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, LinearizingLoader, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Every code of both depths through every table size from 2 to 4096 and 65536, against the
// formula with the neighbours' indices bounded (where single precision puts a code on n - 1 the
// missing neighbour has weight 0: n = 65536 with 16-bit codes maps each code to its own entry).
// The table ends against a no-access page, so reading T[n] would crash.
TEST(LinearizingProperties, EveryCodeOfEveryTableSizeIsTheFormula) {
    // Rows round up to the loaders' block of four pixels: 88 Rgb24 pixels hold codes 0 .. 255,
    // 21848 Rgb48 pixels codes 0 .. 65535 (and a few more, wrapped).
    std::vector<uint8_t> bytes(264);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
    std::vector<uint8_t> words(21848 * 6);
    for (size_t i = 0; i < words.size() / 2; ++i) {
        const uint16_t code = static_cast<uint16_t>(i);
        std::memcpy(&words[2 * i], &code, 2);
    }
    std::mt19937 rng(9);
    std::vector<int> sizes;
    for (int n = 2; n <= 4096; ++n) sizes.push_back(n);
    sizes.push_back(65536);
    for (int n : sizes) {
        SCOPED_TRACE(testing::Message() << "n " << n);
        const vt::GuardedArray<float> table(RandomTable(n, rng));
        for (bool sixteen : {false, true}) {
            const int pixels = sixteen ? 21848 : 88;
            const std::vector<float> out(size_t(pixels) * 4);
            const ImageSize roi{pixels, 1};
            auto* call = sixteen ? ImageToLinearRGB_Rgb48_Rgba128F_SSE2_X4 : ImageToLinearRGB_Rgb24_Rgba128F_SSE2_X4;
            call(sixteen ? words.data() : bytes.data(), 0, const_cast<float*>(out.data()), 0, &roi, table.data(), n, kIdentity);
            for (int i = 0; i < pixels * 3; ++i) {
                const int code = i % (sixteen ? 65536 : 256);
                const float want = rl::Transfer(table.data(), n, code, sixteen);
                if (out[size_t(i / 3) * 4 + i % 3] != want)
                    FAIL() << (sixteen ? "16" : "8") << "-bit code " << code << ": got " << out[size_t(i / 3) * 4 + i % 3]
                           << ", want " << want;
            }
        }
    }
    EXPECT_FALSE(rl::TopCodeReachesEnd(256, false));
    EXPECT_TRUE(rl::TopCodeReachesEnd(4096, false));
    EXPECT_TRUE(rl::TopCodeReachesEnd(65536, true));
}

// Scaled so the results overflow 32767 and fall below -32768 as well as staying in range.
constexpr float kWide[9] = {0.9f, -1.2f, 0.3f, 0.4f, 0.2f, -0.7f, -0.35f, 0.6f, 0.5f};

// The in-place member through the per-pixel table: optional direct table, matrix, signed
// saturation, alpha untouched.
TEST(LinearizeInPlace, MatchesReferenceOnRandomShapes) {
    std::mt19937 rng(21);
    std::vector<uint16_t> direct(65536);
    for (auto& v : direct) v = static_cast<uint16_t>(rng());
    const vt::GuardedArray<uint16_t> table16(direct);
    const float* matrices[] = {kIdentity, kMixing, kWide};
    int index = 0;
    for (const vt::Shape& s : vt::RandomShapes(0x5e, 60, 300, 40)) {  // rows enough for the team to split
        SCOPED_TRACE(vt::Describe(s));
        const vt::GuardedArray<float> matrix(std::vector<float>(matrices[index % 3], matrices[index % 3] + 9));
        const uint16_t* table = index++ % 2 ? table16.data() : nullptr;
        vt::PixelKernel row{"", 4, 4, 2, 2, true, false,
                            [&](const void*, int32_t, void* d, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
                                EXPECT_EQ(SSE_Linearize_Rgba64_VecX2(static_cast<uint16_t*>(d), ds, w, h, table, matrix.data()), StatusOk);
                            },
                            [&](const float* p, float* q) {
                                uint16_t px[4] = {uint16_t(p[0]), uint16_t(p[1]), uint16_t(p[2]), uint16_t(p[3])};
                                rl::LinearizeInPlace(px, table, matrix.data());
                                for (int c = 0; c < 4; ++c) q[c] = px[c];
                            },
                            0, 0, 0};
        row.align = 2;
        vt::Runs runs;
        EXPECT_TRUE(vt::CheckPixels(row, s, runs));
    }
}

}  // namespace
