// Every instruction-set level of a kernel, and its bits against the SSE2 body's. Tests that
// include this link the library's objects, so they may lower the active level. A family's tests
// run their reference checks at every level up to what this processor has, and each faster run
// must leave the whole guarded mapping (rows, overrun, gaps) byte-identical to the SSE2 run.
//
// One limit on comparing NaN payloads: where two different NaNs meet in one addition or
// product, which payload survives follows the operand order the compiler chose for that
// commutative operation, in any body at any level. Inputs therefore carry at most one NaN per
// pixel where a kernel mixes a pixel's lanes.
#pragma once

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

// Bit-identity across levels inside a ForEachLevel run: the first (SSE2) run's bytes are kept,
// and every later run must give them again, NaN payloads and the gaps between rows included.
class SameAsSse2 {
public:
    ::testing::AssertionResult operator()(const std::vector<uint8_t>& bytes) {
        if (runs_++ == 0) first_ = bytes;
        return Verdict(bytes == first_);
    }
    // Compared in place: a plane of many megabytes is copied on the first run only.
    ::testing::AssertionResult operator()(const GuardedPlane& plane) {
        if (runs_++ == 0) first_ = plane.Snapshot();
        return Verdict(plane.Unchanged(first_));
    }

private:
    static ::testing::AssertionResult Verdict(bool same) {
        if (same) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "a faster body's bytes differ from the SSE2 body's";
    }
    int runs_ = 0;
    std::vector<uint8_t> first_;
};

}  // namespace vt
