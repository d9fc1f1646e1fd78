// Every curve export at each instruction-set level this processor offers against the SSE2
// level: on the same guarded planes and guarded tables, the whole destination mapping (region,
// row gaps, slack) must come out byte for byte the same, and no level may touch a byte of the
// table past the documented entries (or before the first) without crashing the test. Large
// float regions, written past the cache, get a case of their own.
#include <string>
#include <vector>

#include "core/cpu.h"
#include "curves_kernels.h"
#include "support/dispatch.h"
#include "support/shapes.h"

namespace {

using namespace curves_test;
using velmora::cpu::Level;

// Samples for the level comparison: any 16-bit code; for floats the edge values every lane must
// agree on (NaN payloads, infinities, denormals, both clamp ends) among values in [0, 1].
template <class T>
T LevelSample(std::mt19937& rng) {
    if constexpr (std::is_same_v<T, uint16_t>) return RandomSample<T>(rng);
    else return vt::EdgeFloat(rng, 1.f, {0.f, 1.f});
}

// One call at one level on freshly filled planes; returns the destination mapping afterwards.
template <class T>
std::vector<uint8_t> RunAt(Level level, const Kernel& k, const vt::Shape& s, int x0, int y0, const GuardedTable& table,
                           double param) {
    const int w = s.width > 0 ? s.width : 0, h = s.height > 0 ? s.height : 0;
    const int64_t row = int64_t(x0 + w) * k.channels * int64_t(sizeof(T));
    vt::GuardedPlane src(row, y0 + h, vt::StepFor(s, row, s.pad_src, 1), s.placement, 1);
    vt::GuardedPlane dst(row, y0 + h, vt::StepFor(s, row, s.pad_dst, 1), s.placement, 1);
    std::mt19937 rng(s.seed);
    src.FillRows<T>([&](int, int64_t) { return LevelSample<T>(rng); });
    dst.FillRows<T>([&](int, int64_t) { return LevelSample<T>(rng); });
    const vt::DetectedLevelAtExit restore;
    velmora::cpu::CapLevel(level);
    EXPECT_EQ(StatusOk,
              k.call(src.data(), src.step(), dst.data(), dst.step(), x0, y0, s.width, s.height, table.data(), param));
    return dst.Snapshot();
}

class CurveLevels : public ::testing::TestWithParam<Kernel> {};

TEST_P(CurveLevels, EveryLevelMatchesSse2) {
    const Kernel& k = GetParam();
    std::mt19937 rng(std::hash<std::string>{}(k.name) & 0xFFFF);
    // Coarse to fine tables, and float scales with fractional parts.
    const double int_params[] = {0, 1, 7, 255, 1023, 4096, 65535};
    const double float_params[] = {0.f, 1.f, 2.5f, 255.f, 1023.75f, 4096.f};
    const int detected = static_cast<int>(velmora::cpu::Detected());
    for (const vt::Shape& s : vt::RandomShapes(rng(), 60, 300, 4)) {
        SCOPED_TRACE(vt::Describe(s));
        const double param = k.is_float ? float_params[rng() % 6] : int_params[rng() % 7];
        SCOPED_TRACE("param " + std::to_string(param));
        const GuardedTable table(RandomTable(k, param, rng), rng() % 2 ? vt::Placement::End : vt::Placement::Start);
        const int x0 = rng() % 2 ? 0 : int(rng() % 5), y0 = rng() % 2 ? 0 : int(rng() % 3);
        const auto run = [&](Level level) {
            return k.is_float ? RunAt<float>(level, k, s, x0, y0, table, param)
                              : RunAt<uint16_t>(level, k, s, x0, y0, table, param);
        };
        const std::vector<uint8_t> want = run(Level::Sse2);
        for (int level = 1; level <= detected; ++level) {
            SCOPED_TRACE("level " + std::to_string(level));
            ASSERT_TRUE(run(static_cast<Level>(level)) == want) << "differs from the SSE2 level";
        }
    }
}

// Destinations of 32 MB and more are written past the cache on the float paths that can; a
// row step of 16 modulo 32 alternates rows that allow it (32-byte aligned) with rows that do not.
TEST(CurveLevelsLarge, StreamedFloatRowsMatchSse2) {
    std::mt19937 rng(5);
    vt::Shape s{2049, 1025};
    s.placement = vt::Placement::Start;
    s.seed = 77;
    for (const Kernel& k : AllKernels()) {
        if (std::string(k.name) != "32f_C4R" && std::string(k.name) != "Curve4_C4IR") continue;
        SCOPED_TRACE(k.name);
        const double param = 1023.75;
        const GuardedTable table(RandomTable(k, param, rng), vt::Placement::End);
        const std::vector<uint8_t> want = RunAt<float>(Level::Sse2, k, s, 0, 1, table, param);
        for (int level = 1; level <= static_cast<int>(velmora::cpu::Detected()); ++level)
            ASSERT_TRUE(RunAt<float>(static_cast<Level>(level), k, s, 0, 1, table, param) == want) << "level " << level;
    }
}

INSTANTIATE_TEST_SUITE_P(All, CurveLevels, ::testing::ValuesIn(AllKernels()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
