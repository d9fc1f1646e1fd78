// Two vectors worked as one: every operation applies to both halves, one after the other, so
// the two halves' instructions interleave. A long dependent chain of vector steps (the HSL edit:
// a division, the hue, table picks, the HSV rebuild, 2^x) otherwise leaves the processor waiting
// on each step's latency; two independent chains side by side fill those waits. Each half gets
// exactly the operations a single vector would, so results are bit for bit the same.
// The kernel code calls Select, Max, Min, Floor and Exp2 unqualified; the overloads for plain
// xsimd batches sit beside the ones for twins (Max and Min come from lane_ops.h, which fixes the
// NaN rule to the instructions').
#pragma once

#include "adjust/lane_ops.h"
#include "core/xmmath.h"

namespace velmora::adjust {

template <class B>
struct Twin {
    B a, b;
    Twin() = default;
    Twin(B x, B y) : a(x), b(y) {}
    explicit Twin(float v) : a(v), b(v) {}
};

template <class M>
struct TwinMask {
    M a, b;
};

#define VELMORA_TWIN_OP(op)                                                                       \
    template <class B>                                                                            \
    inline Twin<B> operator op(const Twin<B>& x, const Twin<B>& y) {                              \
        return {x.a op y.a, x.b op y.b};                                                          \
    }
VELMORA_TWIN_OP(+)
VELMORA_TWIN_OP(-)
VELMORA_TWIN_OP(*)
VELMORA_TWIN_OP(/)
#undef VELMORA_TWIN_OP

#define VELMORA_TWIN_COMPARE(op)                                                                  \
    template <class B>                                                                            \
    inline auto operator op(const Twin<B>& x, const Twin<B>& y) {                                 \
        return TwinMask<decltype(x.a op y.a)>{x.a op y.a, x.b op y.b};                            \
    }
VELMORA_TWIN_COMPARE(==)
VELMORA_TWIN_COMPARE(!=)
VELMORA_TWIN_COMPARE(<)
VELMORA_TWIN_COMPARE(<=)
VELMORA_TWIN_COMPARE(>=)
#undef VELMORA_TWIN_COMPARE

template <class M>
inline TwinMask<M> operator||(const TwinMask<M>& x, const TwinMask<M>& y) {
    return {x.a || y.a, x.b || y.b};
}

// The plain batch forms.
template <class M, class B>
inline B Select(const M& m, const B& x, const B& y) { return xsimd::select(m, x, y); }
template <class B>
inline B Floor(const B& x) { return xsimd::floor(x); }
template <class B>
inline B Exp2(const B& x) { return XMVectorExp2(x); }

// The twin forms, half by half.
template <class M, class B>
inline Twin<B> Select(const TwinMask<M>& m, const Twin<B>& x, const Twin<B>& y) {
    return {xsimd::select(m.a, x.a, y.a), xsimd::select(m.b, x.b, y.b)};
}
template <class B>
inline Twin<B> Max(const Twin<B>& x, const Twin<B>& y) { return {xsimd::max(x.a, y.a), xsimd::max(x.b, y.b)}; }
template <class B>
inline Twin<B> Min(const Twin<B>& x, const Twin<B>& y) { return {xsimd::min(x.a, y.a), xsimd::min(x.b, y.b)}; }
template <class B>
inline Twin<B> Floor(const Twin<B>& x) { return {xsimd::floor(x.a), xsimd::floor(x.b)}; }
template <class B>
inline Twin<B> Exp2(const Twin<B>& x) { return {XMVectorExp2(x.a), XMVectorExp2(x.b)}; }

}  // namespace velmora::adjust
