// The curve exports seen through one signature, with the tables and samples their tests feed
// them: shared by the reference test (shipped library) and the dispatch test (every level).
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <random>
#include <type_traits>
#include <vector>

#include "support/guarded_plane.h"
#include "velmora/imaging.h"

namespace curves_test {

// One export seen through a common signature; `param` is n for 16-bit kernels, the scale for
// float ones. In-place exports ignore src and work on dst.
struct Kernel {
    const char* name;
    bool is_float;
    int channels;     // samples per pixel
    bool keep_alpha;  // the fourth sample of each pixel is never written
    bool four_curves;
    bool in_place;
    std::function<StatusCode(const void*, int32_t, void*, int32_t, int32_t, int32_t, int32_t, int32_t, const float*,
                             double)>
        call;
};

inline void PrintTo(const Kernel& k, std::ostream* os) { *os << k.name; }

template <class T, class P, class Fn>
auto Region(Fn fn) {
    return [fn](const void* s, int32_t ss, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h,
                const float* t, double param) {
        return fn(static_cast<const T*>(s), ss, static_cast<T*>(d), ds, x, y, w, h, t, static_cast<P>(param));
    };
}
template <class T, class P, class Fn>
auto InPlace(Fn fn) {
    return [fn](const void*, int32_t, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h,
                const float* t, double param) { return fn(static_cast<T*>(d), ds, x, y, w, h, t, static_cast<P>(param)); };
}

inline std::vector<Kernel> AllKernels() {
    using U = uint16_t;
    return {
        {"16u_C1R", false, 1, false, false, false, Region<U, int32_t>(Curve_16u_C1R)},
        {"16u_C1IR", false, 1, false, false, true, InPlace<U, int32_t>(Curve_16u_C1IR)},
        {"16u_C3R", false, 3, false, false, false, Region<U, int32_t>(Curve_16u_C3R)},
        {"16u_C3IR", false, 3, false, false, true, InPlace<U, int32_t>(Curve_16u_C3IR)},
        {"16u_C4R", false, 4, false, false, false, Region<U, int32_t>(Curve_16u_C4R)},
        {"16u_C4IR", false, 4, false, false, true, InPlace<U, int32_t>(Curve_16u_C4IR)},
        {"16u_AC4R", false, 4, true, false, false, Region<U, int32_t>(Curve_16u_AC4R)},
        {"16u_AC4IR", false, 4, true, false, true, InPlace<U, int32_t>(Curve_16u_AC4IR)},
        {"32f_C1R", true, 1, false, false, false, Region<float, float>(Curve_32f_C1R)},
        {"32f_C1IR", true, 1, false, false, true, InPlace<float, float>(Curve_32f_C1IR)},
        {"32f_C3R", true, 3, false, false, false, Region<float, float>(Curve_32f_C3R)},
        {"32f_C3IR", true, 3, false, false, true, InPlace<float, float>(Curve_32f_C3IR)},
        {"32f_C4R", true, 4, false, false, false, Region<float, float>(Curve_32f_C4R)},
        {"32f_C4IR", true, 4, false, false, true, InPlace<float, float>(Curve_32f_C4IR)},
        {"Curve4_C4R", true, 4, false, true, false, Region<float, float>(Curve4_32f_C4R)},
        {"Curve4_C4IR", true, 4, false, true, true, InPlace<float, float>(Curve4_32f_C4IR)},
    };
}

// A table on its own page, its last entry against a no-access page (or its first entry after
// one), so a read of any entry beyond the documented ones crashes.
struct GuardedTable {
    vt::GuardedPlane plane;
    GuardedTable(const std::vector<float>& entries, vt::Placement placement)
        : plane(int64_t(entries.size()) * 4, 1, 16, placement, 4) {
        std::memcpy(plane.data(), entries.data(), entries.size() * 4);
    }
    const float* data() const { return plane.As<float>(); }
};

// Entries the kernels may read: n + 2 for 16-bit tables, trunc(scale) + 2 (records for the
// four-curve kernels) for float ones.
inline size_t TableEntries(const Kernel& k, double param) {
    const size_t positions = size_t(param) + 2;
    return k.four_curves ? 4 * positions : positions;
}

// A table of the documented size with entries in [-0.2, 1.2], so that both the 16-bit clamp and
// the float kernels' unclamped output show.
inline std::vector<float> RandomTable(const Kernel& k, double param, std::mt19937& rng) {
    std::vector<float> entries(TableEntries(k, param));
    for (float& t : entries) t = float(int(rng() % 1401) - 200) / 1000.f;
    return entries;
}

// Source samples: any 16-bit code; floats mostly in [0, 1] with excursions both ways and NaN.
template <class T>
T RandomSample(std::mt19937& rng) {
    if constexpr (std::is_same_v<T, uint16_t>) {
        return T(rng());
    } else {
        const uint32_t r = rng() % 64;
        if (r == 0) return std::numeric_limits<float>::quiet_NaN();
        if (r == 1) return 1.5f;
        if (r == 2) return -0.25f;
        if (r == 3) return 1.f;
        return float(rng() % 100001) / 100000.f;
    }
}

}  // namespace curves_test
