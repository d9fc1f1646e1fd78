// Processor queries and the plane fill.
#include <cpuid.h>

#include <vector>

#include "core/cpu.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

// Reads leaf 1 with the raw instruction, independent of the library's helper.
bool Leaf1Bit(bool ecx_word, int bit) {
    unsigned a, b, c, d;
    asm volatile("cpuid" : "=a"(a), "=b"(b), "=c"(c), "=d"(d) : "a"(0), "c"(0));
    if (a < 1) return false;
    asm volatile("cpuid" : "=a"(a), "=b"(b), "=c"(c), "=d"(d) : "a"(1), "c"(0));
    return (((ecx_word ? c : d) >> bit) & 1u) != 0;
}

TEST(ProcessorQueries, ReturnTheDocumentedCpuidBits) {
    EXPECT_EQ(VerifySSESupport(), Leaf1Bit(false, 1));
    EXPECT_EQ(VerifySSE2Support(), Leaf1Bit(false, 2));
    EXPECT_EQ(VerifySSE4Support(), Leaf1Bit(true, 19));
}

TEST(ImageClear, FillsRowZeroToTheBlockThenCopiesWholeSteps) {
    for (const vt::Shape& s : vt::RandomShapes(11, 60)) {
        SCOPED_TRACE(vt::Describe(s));
        const int64_t row0 = vt::RowBytes(s.width, 4, 4);
        const int32_t step = vt::StepFor(s, row0, s.pad_dst);
        const int64_t abs_step = step < 0 ? -int64_t{step} : step;
        // Rows after the first copy the whole step, so every row but the last is fully legal and
        // the last may be written up to |step| bytes when there are two rows or more.
        const int64_t legal = s.height >= 2 && s.width > 0 ? abs_step : row0;
        vt::GuardedPlane plane(legal, s.height, step, s.placement);
        plane.FillRandomBytes(s.seed);
        const auto before = plane.Snapshot();
        const ImageSize roi{s.width, s.height};
        const int32_t rows = ImageClear_Gray32F_SSE2_V2(plane.As<float>(), step, &roi, 0.625f);
        EXPECT_EQ(rows, s.height >= 2 && s.width > 0 ? s.height : 1);
        if (s.width <= 0 || s.height <= 0) {
            EXPECT_TRUE(plane.Unchanged(before));
            continue;
        }
        // Row 0: the value up to the block, the caller's bytes after it.
        const uint8_t* first = plane.Row(0);
        for (int64_t i = 0; i < row0 / 4; ++i) ASSERT_EQ(plane.RowAs<float>(0)[i], 0.625f) << i;
        std::vector<uint8_t> row0_copy(first, first + (s.height >= 2 ? abs_step : row0));
        for (int y = 1; y < s.height; ++y)
            ASSERT_EQ(0, std::memcmp(plane.Row(y), row0_copy.data(), row0_copy.size())) << "row " << y;
        EXPECT_TRUE(plane.OnlyRowsChanged(before, s.height >= 2 ? abs_step : row0));
    }
}

TEST(DispatchLevel, CapsButNeverRaises) {
    using velmora::cpu::Level;
    const Level detected = velmora::cpu::Detected();
    EXPECT_EQ(velmora::cpu::Active(), detected);
    velmora::cpu::CapLevel(Level::Sse2);
    EXPECT_EQ(velmora::cpu::Active(), Level::Sse2);
    EXPECT_FALSE(velmora::cpu::Has(Level::Ssse3));
    velmora::cpu::CapLevel(Level::Avx512);
    EXPECT_EQ(velmora::cpu::Active(), detected);
    EXPECT_TRUE(velmora::cpu::Has(detected));  // the active level's own bodies run, not the next lower
    // SSSE3 implies SSE2 and so on: the detected level agrees with the processor's own flags.
    const bool ssse3 = __builtin_cpu_supports("ssse3"), avx2 = __builtin_cpu_supports("avx2");
    EXPECT_EQ(static_cast<int>(detected) >= static_cast<int>(Level::Ssse3), ssse3);
    if (!avx2) EXPECT_LT(static_cast<int>(detected), static_cast<int>(Level::Avx2));
    if (!__builtin_cpu_supports("avx512f")) EXPECT_NE(detected, Level::Avx512);
}

}  // namespace
