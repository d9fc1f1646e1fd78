// Pixel rows four at a time as channel planes, for the colour kernels whose formulas mix a
// pixel's channels: four pixels are loaded and transposed so that each vector holds one channel
// of the four, the kernel's formula runs on those planes exactly as written, and the result is
// transposed back. A row's last one to three pixels go through copies on the stack with the same
// arithmetic, so every kernel built on this reads and writes exactly the region.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "adjust/twin.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"

namespace velmora::color {

// Channel c of four pixels in v[c]: R, G, B and the fourth channel, whatever the stored order.
using Planes = Batch4[4];

// The 4 x 4 transpose inside every 128-bit lane of four vectors: four pixels of four floats to
// four channel planes and back. Wider vectors specialise it (color_lanes.h, in the files compiled
// for their level); their planes then hold the pixels in an interleaved order, which nothing
// notices because every formula here works lane by lane.
template <class B>
struct InLane;
template <>
struct InLane<Batch4> {
    static void Transpose(Batch4 (&v)[4]) {
        __m128 a = v[0], b = v[1], c = v[2], d = v[3];
        v4::Transpose4(a, b, c, d);
        v[0] = a, v[1] = b, v[2] = c, v[3] = d;
    }
};

inline void TransposePlanes(Planes& v) { InLane<Batch4>::Transpose(v); }

// ---- Pixel layouts: how stored pixels become planes and back ---------------------------------

// Four floats a pixel, all four written; B::size pixels at a time.
struct Rgba128 {
    using T = float;
    static constexpr int kElements = 4;
    template <class B>
    static void Load(const float* p, B (&v)[4]) {
        for (int i = 0; i < 4; ++i) v[i] = B::load_unaligned(p + i * B::size);
        InLane<B>::Transpose(v);
    }
    template <class B>
    static void Store(float* p, B (&v)[4]) {
        InLane<B>::Transpose(v);
        for (int i = 0; i < 4; ++i) v[i].store_unaligned(p + i * B::size);
    }
};

// Four floats a pixel; the destination's fourth float keeps the value it had (it is read back
// and merged, so an in-place call rewrites it with itself).
struct Rgba128KeepAlpha : Rgba128 {
    template <class B>
    static void Store(float* p, B (&v)[4]) {
        B old[4];
        Rgba128::Load(p, old);
        v[3] = old[3];
        Rgba128::Store(p, v);
    }
};

// Four floats a pixel written with streaming stores, sixteen bytes at a time: for large
// destinations whose rows all start 16-byte aligned (core/stream.h says when that pays).
struct Rgba128Streamed : Rgba128 {
    template <class B>
    static void Store(float* p, B (&v)[4]) {
        InLane<B>::Transpose(v);
        alignas(64) float lanes[4 * B::size];
        for (int i = 0; i < 4; ++i) v[i].store_aligned(lanes + i * B::size);
        for (size_t k = 0; k < 4 * B::size; k += 4) _mm_stream_ps(p + k, _mm_load_ps(lanes + k));
    }
};

// Three packed floats a pixel (R, G, B in 12 bytes); the fourth plane loads as zero.
struct Rgb96 {
    using T = float;
    static constexpr int kElements = 3;
    static void Load(const float* p, Planes& v) {
        const __m128 a = v4::Load(p), b = v4::Load(p + 4), c = v4::Load(p + 8);  // r0g0b0r1 g1b1r2g2 b2r3g3b3
        const __m128 b2b3c0c1 = _mm_shuffle_ps(b, c, _MM_SHUFFLE(1, 0, 3, 2));
        v[0] = _mm_shuffle_ps(a, b2b3c0c1, _MM_SHUFFLE(3, 0, 3, 0));
        v[1] = _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(0, 0, 1, 1)), _mm_shuffle_ps(b, c, _MM_SHUFFLE(2, 2, 3, 3)),
                              _MM_SHUFFLE(2, 0, 2, 0));
        v[2] = _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 1, 2, 2)), _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 3, 0, 0)),
                              _MM_SHUFFLE(2, 0, 2, 0));
        v[3] = Batch4(0.0f);
    }
    static void Store(float* p, Planes& v) {
        const __m128 r = v[0], g = v[1], b = v[2];
        const __m128 rg01 = _mm_unpacklo_ps(r, g), rg23 = _mm_unpackhi_ps(r, g);
        const __m128 b0b0r1r1 = _mm_shuffle_ps(b, r, _MM_SHUFFLE(1, 1, 0, 0));
        const __m128 g1g1b1b1 = _mm_shuffle_ps(g, b, _MM_SHUFFLE(1, 1, 1, 1));
        const __m128 b2b3r3g3 = _mm_shuffle_ps(b, rg23, _MM_SHUFFLE(3, 2, 3, 2));
        v4::Store(p, _mm_shuffle_ps(rg01, b0b0r1r1, _MM_SHUFFLE(2, 0, 1, 0)));
        v4::Store(p + 4, _mm_shuffle_ps(g1g1b1b1, rg23, _MM_SHUFFLE(1, 0, 2, 0)));
        v4::Store(p + 8, _mm_shuffle_ps(b2b3r3g3, b2b3r3g3, _MM_SHUFFLE(1, 3, 2, 0)));
    }
};

// Four bytes a pixel stored B, G, R, A. Loads scale by the float nearest 1/255; stores clamp to
// [0, 1] (NaN to 0), scale by 255 and round half to even, all four channels.
struct Bgra32 {
    using T = uint8_t;
    static constexpr int kElements = 4;
    static void Load(const uint8_t* p, Planes& v) {
        const __m128i bytes = v4::LoadI(p);
        const __m128i lo = v4::WidenLo8(bytes), hi = v4::WidenHi8(bytes);
        const __m128i px[4] = {v4::WidenLo16(lo), v4::WidenHi16(lo), v4::WidenLo16(hi), v4::WidenHi16(hi)};
        for (int i = 0; i < 4; ++i) v[i] = _mm_mul_ps(_mm_cvtepi32_ps(px[i]), v4::Set1(v4::kInv255));
        TransposePlanes(v);
        std::swap(v[0], v[2]);
    }
    static void Store(uint8_t* p, Planes& v) {
        std::swap(v[0], v[2]);
        TransposePlanes(v);
        const __m128 scale = v4::Set1(255.0f);
        v4::StoreI(p, v4::PackToBytes(v4::ToCode(v[0], scale), v4::ToCode(v[1], scale), v4::ToCode(v[2], scale),
                                      v4::ToCode(v[3], scale)));
    }
};

// The ProPhoto luminance 0.28804 R + 0.711874 G + 0.000086 B, left to right (on batches or floats).
template <class B>
inline B LumaProPhoto(B r, B g, B b) {
    return (r * B(0.28804f) + g * B(0.711874f)) + b * B(0.000086f);
}

// ((m[0] a + m[1] b) + m[2] c): one matrix row over three planes, the matrix taken at run time.
template <class B>
inline B Row3(B a, B b, B c, const float* m) {
    return (a * B(m[0]) + b * B(m[1])) + c * B(m[2]);
}

// The gain rule's factor (to + eps) / (from + eps): a pixel multiplied by it moves from luminance
// `from` to `to` keeping its hue and saturation ratios; eps keeps black finite. A colour whose
// luminance is at most eps also counts as having no hue.
inline constexpr float kGainEpsilon = 1.1920929e-07f;
template <class B>
inline B Gain(B to, B from) {
    return (to + B(kGainEpsilon)) / (from + B(kGainEpsilon));
}

// The curve kernels' lookup, lane by lane in single precision: p = clamp(t, 0, 1) x n (NaN at 0),
// k = trunc(p), T[k] + (T[k + 1] - T[k]) (p - k).
template <class B>
inline B CurveLookup(B t, const float* table, float n) {
    alignas(64) float lane[B::size];
    t.store_aligned(lane);
    for (float& v : lane) {
        const float p = (v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f) * n;
        const int32_t k = static_cast<int32_t>(p);
        v = table[k] + (table[k + 1] - table[k]) * (p - static_cast<float>(k));
    }
    return B::load_aligned(lane);
}

// ---- Row walks ------------------------------------------------------------------------------

// Runs fn(planes) on every pixel of width x height, B::size pixels at a time (the layout loads and
// stores them; the four-float layouts take any width of batch, the others four lanes).
// A row's last pixels that do not fill a batch are copied to the stack (the destination's too,
// for layouts that keep part of it), processed as a whole batch and copied back, so nothing
// outside the region is touched and every lane sees the arithmetic of the others.
template <class B, class In, class Out, class Fn>
void PlaneRows(const typename In::T* src, int32_t src_step, typename Out::T* dst, int32_t dst_step, int32_t width,
               int32_t height, Fn&& fn) {
    using S = typename In::T;
    using D = typename Out::T;
    constexpr int32_t kPixels = static_cast<int32_t>(B::size);
    const auto batch = [&](const S* s, D* d) {
        B v[4];
        In::Load(s, v);
        fn(v);
        Out::Store(d, v);
    };
    for (int32_t y = 0; y < height; ++y) {
        const S* s = frame::Row(src, src_step, y);
        D* d = frame::Row(dst, dst_step, y);
        int32_t x = 0;
        for (; x + kPixels <= width; x += kPixels) batch(s + In::kElements * x, d + Out::kElements * x);
        if (x < width) {
            const size_t n = static_cast<size_t>(width - x);
            alignas(64) S in[kPixels * In::kElements] = {};
            alignas(64) D out[kPixels * Out::kElements] = {};
            std::memcpy(in, s + In::kElements * x, n * In::kElements * sizeof(S));
            std::memcpy(out, d + Out::kElements * x, n * Out::kElements * sizeof(D));
            batch(in, out);
            std::memcpy(d + Out::kElements * x, out, n * Out::kElements * sizeof(D));
        }
    }
}

// The same walk two vectors at a time as one adjust::Twin, for kernels whose per-pixel chain is
// so long that its latency, not its work, sets the pace: fn takes Twin<B>(&)[4] there and B(&)[4]
// for the rest of each row.
template <class B, class In, class Out, class Fn>
void TwinRows(const typename In::T* src, int32_t src_step, typename Out::T* dst, int32_t dst_step, int32_t width,
              int32_t height, Fn&& fn) {
    constexpr int32_t kPixels = static_cast<int32_t>(B::size);
    const int32_t paired = width / (2 * kPixels) * (2 * kPixels);
    for (int32_t y = 0; y < height; ++y) {
        const typename In::T* s = frame::Row(src, src_step, y);
        typename Out::T* d = frame::Row(dst, dst_step, y);
        for (int32_t x = 0; x < paired; x += 2 * kPixels) {
            B first[4], second[4];
            In::Load(s + In::kElements * x, first);
            In::Load(s + In::kElements * (x + kPixels), second);
            adjust::Twin<B> v[4];
            for (int i = 0; i < 4; ++i) v[i] = {first[i], second[i]};
            fn(v);
            for (int i = 0; i < 4; ++i) first[i] = v[i].a, second[i] = v[i].b;
            Out::Store(d + Out::kElements * x, first);
            Out::Store(d + Out::kElements * (x + kPixels), second);
        }
        if (paired < width)
            PlaneRows<B, In, Out>(s + In::kElements * paired, src_step, d + Out::kElements * paired, dst_step,
                                  width - paired, 1, fn);
    }
}

// Four pixels at a time: the memory-bound kernels gain nothing from wider vectors.
template <class In, class Out, class Fn>
void QuadRows(const typename In::T* src, int32_t src_step, typename Out::T* dst, int32_t dst_step, int32_t width,
              int32_t height, Fn&& fn) {
    PlaneRows<Batch4, In, Out>(src, src_step, dst, dst_step, width, height, fn);
}

// The same walk on a matrix-style region: the planes are moved to pixel (x, y) first.
template <class In, class Out, class Fn>
StatusCode QuadRegion(const typename In::T* src, int32_t src_step, typename Out::T* dst, int32_t dst_step, int32_t x,
                      int32_t y, int32_t width, int32_t height, Fn&& fn) {
    if (width < 1 || height < 1) return StatusOk;
    src = frame::Row(src, src_step, y) + In::kElements * static_cast<ptrdiff_t>(x);
    dst = frame::Row(dst, dst_step, y) + Out::kElements * static_cast<ptrdiff_t>(x);
    QuadRows<In, Out>(src, src_step, dst, dst_step, width, height, fn);
    return StatusOk;
}

}  // namespace velmora::color
