// One harness for kernels that map each pixel on its own: a table row per export, checked against
// a per-pixel reference on guarded planes of random shapes at every instruction-set level, each
// level giving the SSE2 body's bits. Sub-rectangles where the export takes (x, y), in-place and
// separate planes, exactly the region (plus a documented block overrun) written.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace vt {

using Region = std::function<void(const void* src, int32_t src_step, void* dst, int32_t dst_step, int32_t x, int32_t y,
                                  int32_t w, int32_t h)>;

// One export seen through a common signature. A pixel is `in` elements of the source and `out` of
// the destination, each element in_size / out_size bytes (1 and 2: codes, 4: a float); the
// reference maps one pixel's source elements (codes as their values) to the destination's, which
// hold the old destination on entry.
struct PixelKernel {
    std::string name;
    int in, out, in_size, out_size;
    bool in_place, sub_rect;
    Region call;
    std::function<void(const float*, float*)> reference;
    double tolerance;       // 0: within `ulps` (identical bits by default); else absolute
    float lo, hi;           // float source values drawn from [lo, hi)
    bool relative = false;  // the tolerance scales with the value's size beyond 1
    bool blocked_in = false, blocked_out = false;  // four pixels a block, component by component
    int block = 1;          // the kernel writes whole blocks of this many pixels
    int64_t ulps = 0;
    float (*sample)(std::mt19937&) = nullptr;  // float source values instead of [lo, hi)
    int align = 4;          // row alignment the export demands
    // Instead of `reference`, where a pixel's result depends on where it is in the region.
    std::function<void(const float*, float*, int x, int y)> reference_at = nullptr;
    // Instead of `tolerance`: the absolute bound for lane c of a pixel, from its source elements.
    std::function<double(const float* in, int c, float want)> bound = nullptr;
};
inline void PrintTo(const PixelKernel& k, std::ostream* os) { *os << k.name; }
inline const auto kKernelName = [](const auto& info) { return info.param.name; };

// Adapters from each export's own signature; trailing arguments are bound here. A returned
// status must be StatusOk.
template <class R, class Call>
void Expect(Call&& call) {
    if constexpr (std::is_same_v<R, StatusCode>) EXPECT_EQ(call(), StatusOk);
    else call();
}
template <class S, class D, class R, class... A>
Region Matrix(R(VELMORA_CALL* f)(const S*, int32_t, D*, int32_t, int32_t, int32_t, int32_t, int32_t, A...), A... extra) {
    return [=](const void* s, int32_t ss, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h) {
        Expect<R>([&] { return f(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, x, y, w, h, extra...); });
    };
}
template <class T, class R, class... A>
Region MatrixInPlace(R(VELMORA_CALL* f)(T*, int32_t, int32_t, int32_t, int32_t, int32_t, A...), A... extra) {
    return [=](const void*, int32_t, void* d, int32_t ds, int32_t x, int32_t y, int32_t w, int32_t h) {
        Expect<R>([&] { return f(static_cast<T*>(d), ds, x, y, w, h, extra...); });
    };
}
template <class S, class D, class R, class... A>
Region Own(R(VELMORA_CALL* f)(const S*, int32_t, D*, int32_t, const ImageSize*, A...), A... extra) {
    return [=](const void* s, int32_t ss, void* d, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
        const ImageSize roi{w, h};
        Expect<R>([&] { return f(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, &roi, extra...); });
    };
}
template <class T, class R, class... A>
Region OwnInPlace(R(VELMORA_CALL* f)(T*, int32_t, const ImageSize*, A...), A... extra) {
    return [=](const void*, int32_t, void* d, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
        const ImageSize roi{w, h};
        Expect<R>([&] { return f(static_cast<T*>(d), ds, &roi, extra...); });
    };
}

// Float source values: mostly in [lo, hi), with exact 0 and 1.
inline float Sample(const PixelKernel& k, std::mt19937& rng) {
    if (k.sample) return k.sample(rng);
    switch (rng() % 24) {
        case 0: return 0.0f;
        case 1: return 1.0f;
        default: return std::uniform_real_distribution<float>(k.lo, k.hi)(rng);
    }
}

inline float Element(const GuardedPlane& p, int size, bool blocked, int n, int y, int x, int c) {
    const int64_t i = blocked ? 16 * (x / 4) + 4 * c + x % 4 : int64_t(x) * n + c;
    return size == 1 ? float(p.Row(y)[i]) : size == 2 ? float(p.RowAs<uint16_t>(y)[i]) : p.RowAs<float>(y)[i];
}

// What the runs of one shape share across levels: the reference's result (every level gets the
// same inputs) and the SSE2 body's bytes.
struct Runs {
    SameAsSse2 same;
    std::vector<float> want, in;  // in: the source elements, kept for a bound that needs them
    bool reference_done = false;
};

inline ::testing::AssertionResult CheckPixels(const PixelKernel& k, const Shape& s, Runs& runs) {
    std::mt19937 rng(s.seed);
    const int x0 = k.sub_rect ? int(rng() % 4) : 0, y0 = k.sub_rect ? int(rng() % 3) : 0;
    // The overrun pixels of a block are checked like the region's.
    const int w = std::max(s.width, 0), h = std::max(s.height, 0), wb = (w + k.block - 1) / k.block * k.block;
    const int64_t src_row = int64_t(x0 + wb) * k.in * k.in_size, dst_row = int64_t(x0 + wb) * k.out * k.out_size;
    // In-place kernels read no source: their source plane holds no rows.
    GuardedPlane src(src_row, k.in_place ? 0 : y0 + h, StepFor(s, src_row, s.pad_src, k.align), s.placement, k.align);
    GuardedPlane dst(dst_row, y0 + h, StepFor(s, dst_row, s.pad_dst, k.align), s.placement, k.align);
    GuardedPlane& in = k.in_place ? dst : src;
    src.FillRandomBytes(s.seed ^ 1);
    dst.FillRandomBytes(s.seed);
    if (k.in_size == 4) in.FillRows<float>([&](int, int64_t) { return Sample(k, rng); });
    if (!k.in_place && k.out_size == 4) dst.FillRows<float>([&](int, int64_t) { return Sample(k, rng); });
    std::vector<float>& want = runs.want;
    if (!runs.reference_done) want.reserve(size_t(h) * size_t(wb) * size_t(k.out));
    for (int y = y0; y < y0 + h && !runs.reference_done; ++y)
        for (int x = x0; x < x0 + wb; ++x) {
            float pin[4], pout[4];
            for (int c = 0; c < k.in; ++c) pin[c] = Element(in, k.in_size, k.blocked_in, k.in, y, x, c);
            for (int c = 0; c < k.out; ++c) pout[c] = Element(dst, k.out_size, k.blocked_out, k.out, y, x, c);
            if (k.bound) runs.in.insert(runs.in.end(), pin, pin + k.in);
            if (k.reference_at) k.reference_at(pin, pout, x - x0, y - y0);
            else k.reference(pin, pout);
            want.insert(want.end(), pout, pout + k.out);
        }
    runs.reference_done = true;
    const auto before = dst.Snapshot();
    const uint64_t src_before = src.Digest();
    k.call(src.data(), src.step(), dst.data(), dst.step(), x0, y0, s.width, s.height);
    if (!k.in_place && src.Digest() != src_before) return ::testing::AssertionFailure() << "source written";
    const int64_t pixel_bytes = int64_t(k.out) * k.out_size;
    if (auto r = dst.OnlyRegionChanged(before, x0 * pixel_bytes, y0, wb * pixel_bytes, h); !r) return r;
    for (int y = 0, i = 0; y < h; ++y)
        for (int x = 0; x < wb; ++x)
            for (int c = 0; c < k.out; ++c, ++i) {
                const float got = Element(dst, k.out_size, k.blocked_out, k.out, y0 + y, x0 + x, c), expect = want[size_t(i)];
                const double bound = k.bound ? k.bound(&runs.in[size_t(i / k.out * k.in)], c, expect)
                                             : k.tolerance * (k.relative ? std::max(1.0, std::fabs(double(expect))) : 1.0);
                const bool ok = Same(got, expect, k.ulps) || std::fabs(got - expect) <= bound;
                if (!ok) return ::testing::AssertionFailure() << "row " << y << " pixel " << x << " lane " << c << ": got " << got << ", want " << expect;
            }
    return runs.same(dst);
}

// The row's export on one shape at every level.
inline void CheckAtEveryLevel(const PixelKernel& k, const Shape& s) {
    Runs runs;
    ForEachLevel([&] { ASSERT_TRUE(CheckPixels(k, s, runs)); });
}

// The row's export on random shapes, each at every level.
inline void CheckOnRandomShapes(const PixelKernel& k) {
    for (const Shape& s : RandomShapes(std::hash<std::string>{}(k.name) & 0xFFFF, 60, 70, 5)) {
        SCOPED_TRACE(Describe(s));
        CheckAtEveryLevel(k, s);
    }
}

}  // namespace vt
