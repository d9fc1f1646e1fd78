// Fenced local planes for the family's tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>

#include "support/guarded_plane.h"
#include "support/shapes.h"

namespace vt {

// A local plane of width x height floats, each from value(), fenced by a no-access page at a
// random end. Packed (row step exactly width x 4 bytes), or with the shape's destination padding
// and row order where `padded`.
struct LocalMap {
    GuardedPlane plane;
    template <class Value>
    LocalMap(const Shape& s, std::mt19937& rng, Value&& value, bool padded = false)
        : plane(int64_t{std::max(s.width, 0)} * 4, std::max(s.height, 0),
                padded ? StepFor(s, int64_t{std::max(s.width, 0)} * 4, s.pad_dst / 4 * 4, 4) : std::max(s.width, 0) * 4,
                rng() % 2 ? Placement::End : Placement::Start, 4) {
        plane.FillRows<float>([&](int, int64_t) { return value(); });
    }
    const float* data() const { return plane.As<float>(); }
    int32_t step() const { return plane.step(); }
    float at(int x, int y) const { return plane.RowAs<const float>(y)[x]; }
};

}  // namespace vt
