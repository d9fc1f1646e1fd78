// The local Laplacian filter: raises (alpha > 0) or smooths (alpha < 0) local contrast while
// keeping edges. The luminance sqrt(Y) is remapped around eight intensity samples g_k = k/7
// (r_k = L + alpha d 2^(-20 d^2), d = L - g_k); each level of the output Laplacian pyramid takes,
// pixel by pixel, the coefficient of the two remapped versions that bracket the local luminance,
// interpolated linearly; the collapsed result L' is applied back to the colour as the ratio of
// linear luminances (L'/L)^2, clamped to 0..1, alpha set to 1.
//
// Reduce and expand both use 1 4 6 4 1 / 16 (expand: 1 6 1 / 8 on even, 4 4 / 8 on odd
// positions), with taps beyond a level's edge dropped and the used weights renormalised. The
// coarsest output level interpolates the remapped versions' coarsest Gaussian level.
//
// Memory: the remapped pyramid is allocated whole (untouched pages cost nothing); its
// full-resolution level is never written (its rows are remapped from the luminance where they are
// read), each other level is released as soon as the output level above it is made, and the
// output pyramid is written over the luminance pyramid, which is not read again. Large planes come from the
// huge-page scratch path. In place, exactly the region; single-threaded.
#include <algorithm>
#include <cmath>

#include "core/cpu.h"
#include "core/frame.h"
#include "core/pyramid.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "core/xmmath.h"
#include "filter/convolve.h"
#include "filter/remap.h"

namespace velmora::filter {
namespace {

constexpr float kReduce[5] = {0.0625f, 0.25f, 0.375f, 0.25f, 0.0625f};
constexpr float kLumR = 0.28804f, kLumG = 0.711874f, kLumB = 0.000086f;

// A float plane of C-float pixels, rows `stride` floats apart, for the passes' intermediates.
struct Plane {
    int32_t w, h, c;
    size_t stride, bytes;
    float* data;
    Plane(int32_t w_, int32_t h_, int32_t c_)
        : w(w_), h(h_), c(c_), stride((static_cast<size_t>(w_) * c_ + 3) / 4 * 4),
          bytes(sizeof(float) * stride * std::max(h_, 1)), data(static_cast<float*>(scratch::Allocate(bytes))) {}
    ~Plane() { scratch::Free(data, bytes); }
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;
    float* Row(int32_t y) const { return data + stride * static_cast<size_t>(y); }
};

// A level's view: rows of C-float pixels `step` bytes apart.
struct View {
    float* data;
    int32_t step, w, h;
    float* Row(int32_t y) const { return frame::Row(data, step, y); }
};

template <class T>
View ViewOf(const XMImage<T>& img) {
    return {reinterpret_cast<float*>(img.Origin()), img.Pitch(), img.Width(), img.Height()};
}

// Pixels of C floats: acc = sum of in[t] * w[t] in tap order, divided by the weights' sum where
// taps were dropped at an edge (the full sums are exactly 1).
template <int C>
void Weigh(const float* const* in, const float* w, int count, float wsum, float* out) {
    if constexpr (C % 4 == 0) {
        for (int c = 0; c < C; c += 4) {
            __m128 acc = _mm_mul_ps(v4::Load(in[0] + c), v4::Set1(w[0]));
            for (int t = 1; t < count; ++t) acc = _mm_add_ps(acc, _mm_mul_ps(v4::Load(in[t] + c), v4::Set1(w[t])));
            v4::Store(out + c, wsum == 1.0f ? acc : _mm_div_ps(acc, v4::Set1(wsum)));
        }
    } else {
        for (int c = 0; c < C; ++c) {
            float acc = in[0][c] * w[0];
            for (int t = 1; t < count; ++t) acc += in[t][c] * w[t];
            out[c] = wsum == 1.0f ? acc : acc / wsum;
        }
    }
}

// The taps of output position o of a reduce (centred on 2o, 1 4 6 4 1 / 16) or an expand (from
// the coarse positions around o/2: 1 6 1 / 8 on even o, 4 4 / 8 on odd), as a Taps record and
// the first and last tap offsets that stay inside 0 .. n_in-1.
struct Stencil {
    Taps taps;
    int32_t origin;  // input position of tap offset 0
    int32_t lo, hi;
};
constexpr float kExpandEven[3] = {0.125f, 0.75f, 0.125f};
constexpr float kExpandOdd[2] = {0.5f, 0.5f};

Stencil ReduceStencil(int32_t o, int32_t n_in) {
    return {{kReduce, 5, 2}, 2 * o, std::max(-2, -2 * o), std::min(2, n_in - 1 - 2 * o)};
}
Stencil ExpandStencil(int32_t o, int32_t n_in) {
    const int32_t m = o / 2;
    if (o % 2 == 0) return {{kExpandEven, 3, 1}, m, std::max(-1, -m), std::min(1, n_in - 1 - m)};
    return {{kExpandOdd, 2, 0}, m, 0, std::min(1, n_in - 1 - m)};
}

using StencilFn = Stencil (*)(int32_t, int32_t);

// One separable resampling (reduce or expand) of a src_w x src_h source whose row y is
// src_row(y) into out_w x out_h, delivered row by row to sink(y, row): across each needed source
// row into a small ring (at most five rows are in use at once), then down through the clipping
// column combination of the convolutions. Each source row is asked for once and read at once.
template <int C, class Rows, class Sink>
void Resample(Rows&& src_row, int32_t src_w, int32_t src_h, int32_t out_w, int32_t out_h, StencilFn stencil,
              Sink&& sink) {
    constexpr int32_t kSlots = 6;
    Plane ring(out_w, kSlots + 1, C);
    int32_t held[kSlots];
    std::fill(held, held + kSlots, -1);
    auto across = [&](int32_t y) -> const float* {
        float* out = ring.Row(y % kSlots);
        if (held[y % kSlots] == y) return out;
        held[y % kSlots] = y;
        const float* in = src_row(y);
        for (int32_t x = 0; x < out_w; ++x) {
            const Stencil st = stencil(x, src_w);
            const float* rows[5];
            for (int32_t t = st.lo; t <= st.hi; ++t) rows[t - st.lo] = in + static_cast<size_t>(st.origin + t) * C;
            const float* w = st.taps.weights + st.taps.centre + st.lo;
            const float wsum = (st.hi - st.lo + 1 == st.taps.size) ? 1.0f : WeightSum(st.taps, st.lo, st.hi);
            Weigh<C>(rows, w, st.hi - st.lo + 1, wsum, out + static_cast<size_t>(x) * C);
        }
        return out;
    };
    float* row = ring.Row(kSlots);
    for (int32_t y = 0; y < out_h; ++y) {
        const Stencil st = stencil(y, src_h);
        const float* taps[5];
        for (int32_t t = st.lo; t <= st.hi; ++t) taps[t + st.taps.centre] = across(st.origin + t);
        ClippedColumn(taps + st.taps.centre, row, static_cast<int64_t>(out_w) * C, st.taps, st.lo, st.hi);
        sink(y, static_cast<const float*>(row));
    }
}

template <int C, class Sink>
void Resample(const View& src, int32_t out_w, int32_t out_h, StencilFn stencil, Sink&& sink) {
    Resample<C>([&](int32_t y) -> const float* { return src.Row(y); }, src.w, src.h, out_w, out_h, stencil, sink);
}

template <int C, class Rows>
void Reduce(Rows&& src_row, int32_t src_w, int32_t src_h, const View& dst) {
    Resample<C>(src_row, src_w, src_h, dst.w, dst.h, ReduceStencil, [&](int32_t y, const float* row) {
        std::copy_n(row, static_cast<size_t>(dst.w) * C, dst.Row(y));
    });
}
template <int C>
void Reduce(const View& src, const View& dst) {
    Reduce<C>([&](int32_t y) -> const float* { return src.Row(y); }, src.w, src.h, dst);
}

// Linear interpolation between the coefficients of the two remapped versions that bracket the
// luminance g: t = g (samples - 1), i = min(trunc t, samples - 2), c_i + (c_i+1 - c_i)(t - i).
float Interpolate(const float* c, float g, int32_t samples) {
    const float t = g * static_cast<float>(samples - 1);
    const int32_t i = std::min(static_cast<int32_t>(t), samples - 2);
    const float f = t - static_cast<float>(i);
    return c[i] + (c[i + 1] - c[i]) * f;
}

float Luminance(const float* px) { return std::sqrt(kLumR * px[0] + kLumG * px[1] + kLumB * px[2] + 0.0f * px[3]); }

// The eight remapped luminances of each of a row's luminances, at the widest level the processor
// has. The full-resolution level is never stored: a row is remapped where it is read, which costs
// less than writing, faulting in and reading back 32 bytes a pixel.
void RemapRow(const float* l, int32_t width, float alpha, float* r) {
    if (cpu::Has(cpu::Level::Avx512)) return RemapRowAvx512(l, width, alpha, r);
    if (cpu::Has(cpu::Level::Avx2)) return RemapRowAvx2(l, width, alpha, r);
    RemapRowSse2(l, width, alpha, r);
}

// L of every pixel.
void Luminances(const float* image, int32_t step, const View& lum) {
    for (int32_t y = 0; y < lum.h; ++y) {
        const float* px = frame::Row(image, step, y);
        float* l = lum.Row(y);
        for (int32_t x = 0; x < lum.w; ++x) l[x] = Luminance(px + 4 * x);
    }
}

}  // namespace

void RemapRowSse2(const float* l, int32_t width, float alpha, float* r) {
    RemapPixels<xsimd::batch<float, xsimd::sse2>>(l, 0, width, alpha, r);
}

}  // namespace velmora::filter

namespace filter = velmora::filter;
using velmora::ImagePyramid;
using velmora::XMFLOAT8;

extern "C" VELMORA_API void VELMORA_CALL LocalLaplacian_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                                 float alpha, int32_t levels, int32_t samples) {
    using filter::View;
    const int32_t w = roi->width, h = roi->height;
    if (w <= 0 || h <= 0) return;
    samples = std::clamp(samples, 2, 8);  // eight versions exist to be read
    ImagePyramid<float> lum(w, h, levels, 128, 32);
    ImagePyramid<XMFLOAT8> remapped(w, h, levels, 4, 1);
    const int32_t n = lum.Count();
    const View lum0 = filter::ViewOf(*lum.Level(0));
    filter::Luminances(image, step, lum0);
    for (int32_t i = 1; i < n; ++i) filter::Reduce<1>(filter::ViewOf(*lum.Level(i - 1)), filter::ViewOf(*lum.Level(i)));
    // Row y of the remapped full-resolution level, made in `g0` from luminance row y (read
    // before that row is overwritten).
    filter::Plane g0(w, 1, 8);
    auto remapped0 = [&](int32_t y) -> const float* {
        filter::RemapRow(lum0.Row(y), w, alpha, g0.data);
        return g0.data;
    };
    // Output level i = interpolated Laplacian coefficients G_i - expand(G_i+1) of the remapped
    // versions, written over luminance level i once that row's luminance has been read.
    for (int32_t i = 0; i + 1 < n; ++i) {
        const View coarse = filter::ViewOf(*remapped.Level(i + 1));
        const View l = filter::ViewOf(*lum.Level(i));
        const View g = i > 0 ? filter::ViewOf(*remapped.Level(i)) : View{nullptr, 0, w, h};
        auto g_row = [&](int32_t y) -> const float* { return i > 0 ? g.Row(y) : remapped0(y); };
        filter::Reduce<8>(g_row, g.w, g.h, coarse);
        filter::Resample<8>(coarse, g.w, g.h, filter::ExpandStencil, [&](int32_t y, const float* expanded) {
            const float* gy = g_row(y);
            float* ly = l.Row(y);
            for (int32_t x = 0; x < g.w; ++x) {
                float c[8];
                for (int k = 0; k < 8; ++k) c[k] = gy[8 * x + k] - expanded[8 * x + k];
                ly[x] = filter::Interpolate(c, ly[x], samples);
            }
        });
        if (i > 0) remapped.Release(i);
    }
    {  // the coarsest level interpolates the Gaussian level itself
        const View l = filter::ViewOf(*lum.Level(n - 1));
        const View g = n > 1 ? filter::ViewOf(*remapped.Level(n - 1)) : View{nullptr, 0, w, h};
        for (int32_t y = 0; y < l.h; ++y) {
            const float* gy = n > 1 ? g.Row(y) : remapped0(y);
            for (int32_t x = 0; x < l.w; ++x) l.Row(y)[x] = filter::Interpolate(gy + 8 * x, l.Row(y)[x], samples);
        }
        remapped.Release(n - 1);
    }
    // Collapse: each level adds the expansion of the coarser collapsed one.
    for (int32_t i = n - 2; i >= 0; --i) {
        const View fine = filter::ViewOf(*lum.Level(i));
        filter::Resample<1>(filter::ViewOf(*lum.Level(i + 1)), fine.w, fine.h, filter::ExpandStencil,
                            [&](int32_t y, const float* expanded) {
                                float* row = fine.Row(y);
                                for (int32_t x = 0; x < fine.w; ++x) row[x] += expanded[x];
                            });
    }
    // Ratio of the linear luminances onto R, G and B; 0 > v gives 0, else min(v, 1), which also
    // turns NaN into 1; alpha 1.
    const View out = filter::ViewOf(*lum.Level(0));
    const __m128 one = velmora::v4::Set1(1.0f), zero = velmora::v4::Zero();
    const __m128 alpha_lane = _mm_castsi128_ps(_mm_setr_epi32(0, 0, 0, -1));
    for (int32_t y = 0; y < h; ++y) {
        float* px = velmora::frame::Row(image, step, y);
        const float* lp = out.Row(y);
        for (int32_t x = 0; x < w; ++x, px += 4) {
            const float L = filter::Luminance(px);
            const float s = (lp[x] * lp[x]) / (L * L);
            const __m128 v = _mm_mul_ps(velmora::v4::Load(px), velmora::v4::Set1(s));
            const __m128 clamped = velmora::v4::Select(_mm_min_ps(v, one), zero, _mm_cmpgt_ps(zero, v));
            velmora::v4::Store(px, velmora::v4::Select(clamped, one, alpha_lane));
        }
    }
}
