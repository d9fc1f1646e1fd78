// The inner loops of the clipping convolutions, written once over a vector type V (four floats
// for the SSE2 body, eight for AVX2). Only templates live here: each body's file instantiates
// them with its own vector type, declared in that file's anonymous namespace, so the bodies
// compiled for different instruction sets never share a symbol.
//
// Every output float is acc = x[0]*w[0], then acc = acc + x[t]*w[t] for each further tap, then
// acc / wsum (or acc * (1/wsum) where that reciprocal is exact): the same operations in the same
// order whatever the vector width, hence the same bits.
#pragma once

#include <cstdint>

namespace velmora::filter::body {

struct Normalise {
    float wsum, inverse;
    bool exact_inverse;  // 1/wsum is exact: multiplying equals dividing
};

// The weights of one pass as vectors, and the final division. Taps known at compile time
// (N > 0) unroll fully with the weights held in registers.
template <class V, int N>
struct Weights {
    typename V::T held[N > 0 ? N : 1];
    const float* w;
    typename V::T by;
    bool exact_inverse;
    Weights(const float* weights, Normalise norm)
        : w(weights), by(V::Set1(norm.exact_inverse ? norm.inverse : norm.wsum)), exact_inverse(norm.exact_inverse) {
        if constexpr (N > 0)
            for (int32_t t = 0; t < N; ++t) held[t] = V::Set1(w[t]);
    }
    typename V::T operator[](int32_t t) const {
        if constexpr (N > 0) return held[t];
        else return V::Set1(w[t]);
    }
    typename V::T Finish(typename V::T acc) const { return exact_inverse ? V::Mul(acc, by) : V::Div(acc, by); }
};

template <class V, int N>
int64_t RowInterior(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w,
                    int32_t taps, Normalise norm) {
    const int32_t n = N > 0 ? N : taps;
    const Weights<V, N> weight(w, norm);
    int64_t f = f0;
    for (; f + V::kLanes <= f1; f += V::kLanes) {
        const float* p = first + f;
        auto acc = V::Mul(V::Load(p), weight[0]);
        for (int32_t t = 1; t < n; ++t) acc = V::Add(acc, V::Mul(V::Load(p + t * tap_stride), weight[t]));
        V::Store(out + f, weight.Finish(acc));
    }
    return f;
}

template <class V, int N>
int64_t ColumnInterior(const float* const* rows, float* out, int64_t i0, int64_t n_floats, const float* w,
                       int32_t taps, Normalise norm) {
    const int32_t n = N > 0 ? N : taps;
    const Weights<V, N> weight(w, norm);
    int64_t i = i0;
    for (; i + V::kLanes <= n_floats; i += V::kLanes) {
        auto acc = V::Mul(V::Load(rows[0] + i), weight[0]);
        for (int32_t t = 1; t < n; ++t) acc = V::Add(acc, V::Mul(V::Load(rows[t] + i), weight[t]));
        V::Store(out + i, weight.Finish(acc));
    }
    return i;
}

// Picks the unrolled loop for kernels of up to nine taps. Returns where it stopped: the floats
// from there on are left to the caller's narrower or scalar code.
template <class V>
int64_t Row(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w, int32_t taps,
            Normalise norm) {
    switch (taps) {
#define VELMORA_TAPS(k) \
    case k: return RowInterior<V, k>(first, tap_stride, out, f0, f1, w, taps, norm);
        VELMORA_TAPS(1) VELMORA_TAPS(2) VELMORA_TAPS(3) VELMORA_TAPS(4) VELMORA_TAPS(5)
        VELMORA_TAPS(6) VELMORA_TAPS(7) VELMORA_TAPS(8) VELMORA_TAPS(9)
#undef VELMORA_TAPS
        default: return RowInterior<V, 0>(first, tap_stride, out, f0, f1, w, taps, norm);
    }
}

template <class V>
int64_t Column(const float* const* rows, float* out, int64_t i0, int64_t n_floats, const float* w, int32_t taps,
               Normalise norm) {
    switch (taps) {
#define VELMORA_TAPS(k) \
    case k: return ColumnInterior<V, k>(rows, out, i0, n_floats, w, taps, norm);
        VELMORA_TAPS(1) VELMORA_TAPS(2) VELMORA_TAPS(3) VELMORA_TAPS(4) VELMORA_TAPS(5)
        VELMORA_TAPS(6) VELMORA_TAPS(7) VELMORA_TAPS(8) VELMORA_TAPS(9)
#undef VELMORA_TAPS
        default: return ColumnInterior<V, 0>(rows, out, i0, n_floats, w, taps, norm);
    }
}

}  // namespace velmora::filter::body

// Defines a body's two entry points, RowInterior<Name> and ColumnInterior<Name>, on its vector type.
#define VELMORA_CONVOLVE_BODIES(Name)                                                                              \
    int64_t RowInterior##Name(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1,          \
                              const float* w, int32_t taps, body::Normalise norm) {                                \
        return body::Row<Name>(first, tap_stride, out, f0, f1, w, taps, norm);                                     \
    }                                                                                                              \
    int64_t ColumnInterior##Name(const float* const* rows, float* out, int64_t i0, int64_t n_floats, const float* w, \
                                 int32_t taps, body::Normalise norm) {                                             \
        return body::Column<Name>(rows, out, i0, n_floats, w, taps, norm);                                         \
    }
