// The eighteen swizzle exports behind one signature, and the inputs their tests share: orders
// on guarded memory, sources without NaNs, fills with junk above their bits.
#pragma once

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/guarded_plane.h"
#include "velmora/imaging.h"

namespace swizzle_test {

// One export seen through a common signature; in-place exports ignore src and work on dst.
struct Kernel {
    const char* name;
    int element_bytes, src_channels, dst_channels;
    bool in_place;
    std::function<StatusCode(const void* src, int32_t src_step, void* dst, int32_t dst_step, int32_t x, int32_t y,
                             int32_t w, int32_t h, const int32_t* order, uint32_t fill_bits)>
        call;
};

template <class T, class Fn>
Kernel Plain(const char* name, int src_ch, int dst_ch, Fn fn) {
    return {name, int(sizeof(T)), src_ch, dst_ch, false,
            [fn](const void* s, int32_t ss, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h,
                 const int32_t* o, uint32_t) { return fn(static_cast<const T*>(s), ss, static_cast<T*>(d), ds, x, y, w, h, o); }};
}
template <class T, class Fill, class Fn>
Kernel WithFill(const char* name, Fn fn) {
    return {name, int(sizeof(T)), 3, 4, false,
            [fn](const void* s, int32_t ss, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h,
                 const int32_t* o, uint32_t bits) {
                Fill fill;
                if constexpr (sizeof(Fill) == 4 && std::is_floating_point_v<Fill>) std::memcpy(&fill, &bits, 4);
                else fill = bits;
                return fn(static_cast<const T*>(s), ss, static_cast<T*>(d), ds, x, y, w, h, o, fill);
            }};
}
template <class T, class Fn>
Kernel InPlace(const char* name, int ch, Fn fn) {
    return {name, int(sizeof(T)), ch, ch, true,
            [fn](const void*, int32_t, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h,
                 const int32_t* o, uint32_t) { return fn(static_cast<T*>(d), ds, x, y, w, h, o); }};
}

inline void PrintTo(const Kernel& k, std::ostream* os) { *os << k.name; }

inline std::vector<Kernel> AllKernels() {
    return {
        Plain<uint8_t>("8u_C3R", 3, 3, Swizzle_8u_C3R),         Plain<uint8_t>("8u_C4R", 4, 4, Swizzle_8u_C4R),
        WithFill<uint8_t, uint32_t>("8u_C3C4R", Swizzle_8u_C3C4R), Plain<uint8_t>("8u_C4C3R", 4, 3, Swizzle_8u_C4C3R),
        InPlace<uint8_t>("8u_C3IR", 3, Swizzle_8u_C3IR),         InPlace<uint8_t>("8u_C4IR", 4, Swizzle_8u_C4IR),
        Plain<uint16_t>("16u_C3R", 3, 3, Swizzle_16u_C3R),       Plain<uint16_t>("16u_C4R", 4, 4, Swizzle_16u_C4R),
        WithFill<uint16_t, uint32_t>("16u_C3C4R", Swizzle_16u_C3C4R),
        Plain<uint16_t>("16u_C4C3R", 4, 3, Swizzle_16u_C4C3R),   InPlace<uint16_t>("16u_C3IR", 3, Swizzle_16u_C3IR),
        InPlace<uint16_t>("16u_C4IR", 4, Swizzle_16u_C4IR),      Plain<float>("32f_C3R", 3, 3, Swizzle_32f_C3R),
        Plain<float>("32f_C4R", 4, 4, Swizzle_32f_C4R),          WithFill<float, float>("32f_C3C4R", Swizzle_32f_C3C4R),
        Plain<float>("32f_C4C3R", 4, 3, Swizzle_32f_C4C3R),      InPlace<float>("32f_C3IR", 3, Swizzle_32f_C3IR),
        InPlace<float>("32f_C4IR", 4, Swizzle_32f_C4IR),
    };
}

// An order array on its own guarded page, so a read past its last entry crashes.
struct GuardedOrder {
    vt::GuardedPlane plane;
    explicit GuardedOrder(const std::vector<int32_t>& entries)
        : plane(int64_t(entries.size()) * 4, 1, 16, vt::Placement::End, 4) {
        std::memcpy(plane.data(), entries.data(), entries.size() * 4);
    }
    const int32_t* data() const { return plane.As<int32_t>(); }
};

// Random bytes for integers, values with distinct bit patterns (never NaN) for floats.
inline void FillSource(vt::GuardedPlane& p, int element_bytes, uint32_t seed) {
    std::mt19937 rng(seed);
    if (element_bytes == 4) p.FillRows<float>([&](int, int64_t) { return float(rng() % 100000) / 7.f; });
    else p.FillRandomBytes(seed);
}

inline std::string Describe(const std::vector<int32_t>& order) {
    std::string out = "order";
    for (int32_t e : order) out += " " + std::to_string(e);
    return out;
}

// Integer fills carry junk above their 8 or 16 bits, which the kernels must ignore.
inline uint32_t RandomFill(const Kernel& k, std::mt19937& rng) {
    if (k.element_bytes != 4) return rng();
    const float f = float(rng() % 1000) / 8.f;
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    return bits;
}

}  // namespace swizzle_test
