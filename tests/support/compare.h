// Comparisons with a reference: exact by default, a stated ULP bound where the operation order
// truly differs. NaN equals NaN; the first mismatch is reported with its row and element.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace vt {

// Distance in units in the last place between two floats (0 for equal, NaN pairs equal).
inline int64_t UlpDistance(float a, float b) {
    if (std::isnan(a) && std::isnan(b)) return 0;
    if (std::isnan(a) || std::isnan(b)) return INT64_MAX;
    auto key = [](float f) {
        int32_t i;
        std::memcpy(&i, &f, 4);
        return i < 0 ? int64_t{INT32_MIN} - i : int64_t{i};
    };
    const int64_t d = key(a) - key(b);
    return d < 0 ? -d : d;
}

template <class T>
inline bool Same(T a, T b, int64_t ulps) {
    if constexpr (std::is_floating_point_v<T>) return UlpDistance(a, b) <= ulps;
    else return a == b;
}

// Compares `count` elements of each row of a plane (rows reached through row(y)) with a packed
// reference of height x count elements.
template <class T, class RowFn>
::testing::AssertionResult RowsMatch(RowFn&& row, int height, int64_t count, const std::vector<T>& want,
                                     int64_t ulps = 0) {
    for (int y = 0; y < height; ++y) {
        const T* got = row(y);
        for (int64_t i = 0; i < count; ++i) {
            const T w = want[static_cast<size_t>(y * count + i)];
            if (!Same(got[i], w, ulps))
                return ::testing::AssertionFailure() << "row " << y << " element " << i << ": got " << +got[i]
                                                     << ", want " << +w;
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace vt
