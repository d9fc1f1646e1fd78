// The weighted one-dimensional passes of the convolution kernels, over rows of floats holding C
// channels a pixel (C = 4 for four-float pixels, 1 for gray). Pixel x's channel ch is the float
// x*C + ch, so one formula covers both: a vector of four floats is one four-float pixel or four
// neighbouring gray pixels.
//
// Clipping rule: taps run from -centre to size-centre-1 around each output; those outside the
// readable span are dropped and the weighted sum is divided by the sum of exactly the weights
// used, both accumulated in tap order. The interior uses the same order and the full weight sum,
// so interior vectors, edge scalars and every body agree bit for bit.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/cpu.h"
#include "core/vec4.h"
#include "filter/convolve_body.h"

namespace velmora::filter {

// Eight- and sixteen-float bodies (convolve_avx2.cpp, convolve_avx512.cpp), run only where the
// processor has that level. Each starts at f0 (i0) and returns where it stopped.
int64_t RowInteriorAvx2(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w,
                        int32_t taps, body::Normalise norm);
int64_t ColumnInteriorAvx2(const float* const* rows, float* out, int64_t i0, int64_t n_floats, const float* w,
                           int32_t taps, body::Normalise norm);
int64_t RowInteriorAvx512(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w,
                          int32_t taps, body::Normalise norm);
int64_t ColumnInteriorAvx512(const float* const* rows, float* out, int64_t i0, int64_t n_floats, const float* w,
                             int32_t taps, body::Normalise norm);

struct Taps {
    const float* weights;
    int32_t size;
    int32_t centre;  // index of the weight applied to the output's own pixel
};

// Sum of weights lo..hi (tap offsets), in tap order.
inline float WeightSum(const Taps& k, int32_t lo, int32_t hi) {
    float s = k.weights[k.centre + lo];
    for (int32_t t = lo + 1; t <= hi; ++t) s += k.weights[k.centre + t];
    return s;
}

namespace detail {

struct Sse2 {
    using T = __m128;
    static constexpr int kLanes = 4;
    static T Load(const float* p) { return _mm_loadu_ps(p); }
    static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
    static T Set1(float f) { return _mm_set1_ps(f); }
    static T Mul(T a, T b) { return _mm_mul_ps(a, b); }
    static T Add(T a, T b) { return _mm_add_ps(a, b); }
    static T Div(T a, T b) { return _mm_div_ps(a, b); }
};

// Division by a weight sum. Where the sum is a power of two its reciprocal is exact and the
// product equals the quotient bit for bit, so the multiply is used instead (the binomial kernels
// always take this path in the interior).
inline body::Normalise NormaliseBy(float wsum) {
    int exponent = 0;
    const bool exact = std::isfinite(wsum) && std::fabs(std::frexp(wsum, &exponent)) == 0.5f &&
                       std::isnormal(1.0f / wsum);
    return {wsum, 1.0f / wsum, exact};
}

// The widest body first, then four floats, then the caller's scalar tail.
inline int64_t RowInterior(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w,
                           int32_t taps, body::Normalise norm) {
    if (cpu::Has(cpu::Level::Avx512)) f0 = RowInteriorAvx512(first, tap_stride, out, f0, f1, w, taps, norm);
    if (cpu::Has(cpu::Level::Avx2)) f0 = RowInteriorAvx2(first, tap_stride, out, f0, f1, w, taps, norm);
    return body::Row<Sse2>(first, tap_stride, out, f0, f1, w, taps, norm);
}

inline int64_t ColumnInterior(const float* const* rows, float* out, int64_t n, const float* w, int32_t taps,
                              body::Normalise norm) {
    int64_t i = 0;
    if (cpu::Has(cpu::Level::Avx512)) i = ColumnInteriorAvx512(rows, out, i, n, w, taps, norm);
    if (cpu::Has(cpu::Level::Avx2)) i = ColumnInteriorAvx2(rows, out, i, n, w, taps, norm);
    return body::Column<Sse2>(rows, out, i, n, w, taps, norm);
}

}  // namespace detail

// Horizontal clipping pass of one row: out[0 .. width*C) from `in`, whose readable pixels are
// -left .. width-1+right. `out` must not overlap `in`.
template <int C>
void ClippedRow(const float* in, float* out, int32_t width, int32_t left, int32_t right, const Taps& k) {
    const int32_t first_tap = -k.centre, last_tap = k.size - k.centre - 1;
    // Outputs whose whole kernel lies in the readable span: x + first_tap >= -left and
    // x + last_tap <= width - 1 + right.
    const int32_t x0 = std::clamp(-left - first_tap, 0, width);
    const int32_t x1 = std::max(x0, std::min(width, width + right - last_tap));
    auto edge = [&](int32_t x) {
        const int32_t lo = std::max(first_tap, -left - x), hi = std::min(last_tap, width - 1 + right - x);
        const float wsum = WeightSum(k, lo, hi);
        for (int ch = 0; ch < C; ++ch) {
            float acc = in[(x + lo) * C + ch] * k.weights[k.centre + lo];
            for (int32_t t = lo + 1; t <= hi; ++t) acc += in[(x + t) * C + ch] * k.weights[k.centre + t];
            out[x * C + ch] = acc / wsum;
        }
    };
    for (int32_t x = 0; x < x0; ++x) edge(x);
    const int64_t f = detail::RowInterior(in + first_tap * C, C, out, int64_t{x0} * C, int64_t{x1} * C, k.weights, k.size,
                                          detail::NormaliseBy(WeightSum(k, first_tap, last_tap)));
    for (int32_t x = static_cast<int32_t>(f / C); x < width; ++x) edge(x);
}

// Vertical clipping combination: out[i] = sum over taps t of rows[t][i] * weight, divided by the
// weight sum, for the n floats of a row. rows[t] holds the filtered row y+t for t in lo..hi (the
// taps already clipped by the caller).
inline void ClippedColumn(const float* const* rows, float* out, int64_t n, const Taps& k, int32_t lo, int32_t hi) {
    const float* w = k.weights + k.centre + lo;
    const float wsum = WeightSum(k, lo, hi);
    for (int64_t i = detail::ColumnInterior(rows + lo, out, n, w, hi - lo + 1, detail::NormaliseBy(wsum)); i < n; ++i) {
        float acc = rows[lo][i] * w[0];
        for (int32_t t = lo + 1; t <= hi; ++t) acc += rows[t][i] * w[t - lo];
        out[i] = acc / wsum;
    }
}

// Writes rows of 16-byte pixels transposed, four source rows at a time so that each output step
// stores four neighbouring pixels of one destination row at once. make_row(y, buffer) fills
// `count` pixels of 16 bytes for source row y; emit(dst, pixel, stride, n) stores n (1 to 4)
// neighbouring destination pixels, the i-th taken from pixel + i * stride floats.
template <class MakeRow, class Emit>
void WriteTransposed(int32_t rows, int32_t count, float* buffers, uint8_t* dst, int32_t dst_step, int32_t dst_pixel,
                     MakeRow&& make_row, Emit&& emit) {
    const int64_t stride = int64_t{count} * 4;
    for (int32_t y = 0; y < rows; y += 4) {
        const int32_t n = std::min(4, rows - y);
        for (int32_t i = 0; i < n; ++i) make_row(y + i, buffers + i * stride);
        for (int32_t x = 0; x < count; ++x) emit(dst + int64_t{x} * dst_step + int64_t{y} * dst_pixel, buffers + int64_t{x} * 4, stride, n);
    }
}

}  // namespace velmora::filter
