// Bit-for-bit comparison of a kernel's faster bodies with its SSE2 body. Only the dispatch tests
// include this: they link the library's objects, so they may lower the active level. The same
// plane contents go through every level up to what this processor has; each run may change only
// its rows' allowed bytes, and the whole guarded mapping (rows, overrun, gaps) must come out
// byte-identical to the SSE2 run, NaN payloads included.
//
// One limit on "payloads included": where two different NaNs meet in one addition or product,
// which payload survives follows the operand order the compiler chose for that commutative
// operation, in any body at any level. Kernels that mix a pixel's lanes are therefore fed at most
// one NaN or infinity per pixel; a single NaN propagates the same way everywhere.
#pragma once

#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

#include "core/cpu.h"
#include "support/shapes.h"

namespace vt {

// Restores the detected level when a test ends, passed or failed.
struct DetectedLevelAtExit {
    ~DetectedLevelAtExit() { velmora::cpu::CapLevel(velmora::cpu::Detected()); }
};

// Runs fn once at every level this processor has, SSE2 first, with the level in failure
// messages. A family test that compares with an exact reference at every level proves each
// faster body bit-identical without a second copy of the test.
template <class Fn>
void ForEachLevel(Fn&& fn) {
    DetectedLevelAtExit restore;
    for (int level = 0; level <= static_cast<int>(velmora::cpu::Detected()); ++level) {
        velmora::cpu::CapLevel(static_cast<velmora::cpu::Level>(level));
        SCOPED_TRACE(::testing::Message() << "instruction-set level " << level);
        fn();
    }
}

// Nominal values in [0, scale) mixed with everything the lanes must agree on: zeros of both
// signs, 1, negatives, values past the range, values a hair either side of the kernel's branch
// thresholds, NaN with random payloads, infinities, denormals and arbitrary bit patterns.
inline float EdgeFloat(std::mt19937& rng, float scale, const std::vector<float>& thresholds) {
    auto uniform = [&](float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); };
    auto bits = [](uint32_t u) {
        float f;
        std::memcpy(&f, &u, 4);
        return f;
    };
    switch (rng() % 20) {
        case 0: return 0.0f;
        case 1: return -0.0f;
        case 2: return 1.0f;
        case 3: return uniform(-1.5f, 0.0f) * scale;
        case 4: return uniform(1.0f, 4.0f) * scale;
        case 5: return thresholds[rng() % thresholds.size()] * uniform(0.999f, 1.001f);
        case 6: return bits(0x7FC00000u | (static_cast<uint32_t>(rng()) & 0x803FFFFFu));  // quiet NaN
        case 7: return rng() % 2 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
        case 8: return bits((static_cast<uint32_t>(rng()) & 0x807FFFFFu) | 1u);  // denormal
        case 9: return bits(static_cast<uint32_t>(rng()));
        default: return uniform(0.0f, 1.0f) * scale;
    }
}

// Runs call(plane) at every level on a plane of row_bytes a row filled by fill(rng) from the
// shape's seed.
template <class Fill, class Call>
::testing::AssertionResult EveryLevelMatchesSse2(const Shape& s, int64_t row_bytes, Fill&& fill, Call&& call) {
    DetectedLevelAtExit restore;
    std::vector<uint8_t> sse2;
    for (int level = 0; level <= static_cast<int>(velmora::cpu::Detected()); ++level) {
        velmora::cpu::CapLevel(static_cast<velmora::cpu::Level>(level));
        GuardedPlane plane(row_bytes, s.height, StepFor(s, row_bytes, s.pad_dst), s.placement);
        plane.FillRandomBytes(s.seed);
        std::mt19937 rng(s.seed);
        plane.FillRows<float>([&](int, int64_t) { return fill(rng); });
        const auto before = plane.Snapshot();
        call(plane);
        if (auto touched = plane.OnlyRowsChanged(before, row_bytes); !touched) return touched << " at level " << level;
        const auto after = plane.Snapshot();
        if (level == 0) {
            sse2 = after;
            continue;
        }
        for (size_t i = 0; i < after.size(); ++i)
            if (after[i] != sse2[i])
                return ::testing::AssertionFailure() << "level " << level << " differs from SSE2 at mapping byte " << i;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace vt
