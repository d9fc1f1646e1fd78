// Fenced local planes for the family's tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>

#include "support/guarded_plane.h"
#include "support/shapes.h"

namespace vt {

// A packed local plane of width x height floats (row step exactly width x 4 bytes), fenced by a
// no-access page at a random end, each value from value().
struct LocalMap {
    GuardedPlane plane;
    template <class Value>
    LocalMap(const Shape& s, std::mt19937& rng, Value&& value)
        : plane(int64_t{std::max(s.width, 0)} * 4, std::max(s.height, 0), std::max(s.width, 0) * 4,
                rng() % 2 ? Placement::End : Placement::Start, 4) {
        plane.FillRows<float>([&](int, int64_t) { return value(); });
    }
    const float* data() const { return plane.As<float>(); }
};

}  // namespace vt
