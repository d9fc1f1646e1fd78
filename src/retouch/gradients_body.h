// The gradient masks written once over the vector type B: batch<float, sse2> for the SSE2 body,
// eight or sixteen lanes for the AVX2 and AVX-512 bodies. Every lane runs the same operations in
// the same order with constants computed by the same scalar code, and every x coordinate is a
// whole number below 2^24 however it was reached, so the wide bodies write the SSE2 body's bits.
//
// The destination pointer is the region's first pixel; x and y only give the image coordinates
// of that pixel. A row is written in groups of four floats from column 0 while the group's first
// column is inside the width: up to three floats past the width are written (the documented overrun).
// The wide bodies write B's lanes while whole groups remain and finish the row four at a time.
// Each request picks a body specialised by its mode and inversion, so inner loops do not branch.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include <xsimd/xsimd.hpp>

#include "core/frame.h"
#include "core/stream.h"
#include "core/xmmath.h"
#include "retouch/gradients.h"

namespace velmora::retouch::gradients {
namespace {

// Stores one vector of mask values at p, which is 16-byte aligned when streaming. Rows are only
// 16-byte aligned, so a wide vector streams as its four-float quarters.
template <class V>
inline void Put(float* p, V v, bool streaming) {
    if (!streaming) return v.store_unaligned(p);
    if constexpr (V::size == 4) {
        _mm_stream_ps(p, v);
    } else if constexpr (V::size == 8) {
        const __m256 w = v;
        _mm_stream_ps(p, _mm256_castps256_ps128(w));
        _mm_stream_ps(p + 4, _mm256_extractf128_ps(w, 1));
    } else {
        const __m512 w = v;
        _mm_stream_ps(p, _mm512_castps512_ps128(w));
        _mm_stream_ps(p + 4, _mm512_extractf32x4_ps(w, 1));
        _mm_stream_ps(p + 8, _mm512_extractf32x4_ps(w, 2));
        _mm_stream_ps(p + 12, _mm512_extractf32x4_ps(w, 3));
    }
}

template <class V>
inline V Iota() {
    alignas(64) float lanes[V::size];
    for (size_t i = 0; i < V::size; ++i) lanes[i] = static_cast<float>(i);
    return V::load_aligned(lanes);
}

// Runs value(px, py) over the region: B's lanes a step while whole groups of four remain, then
// four at a time (x computed afresh there, exact as the running x is). Large aligned masks are written with streaming stores: a mask is written once
// and read later, so reading each line into the cache first would only double the traffic.
template <class B, class Value>
VELMORA_FLATTEN void Fill(const Request& q, Value&& value) {
    using B4 = xsimd::batch<float, xsimd::sse2>;
    constexpr int32_t kLanes = static_cast<int32_t>(B::size);
    const int32_t width = q.region[2], height = q.region[3];
    const int64_t bytes = int64_t{std::max(width, 0)} * 4 * std::max(height, 0);
    const bool streaming = stream::WorthwhileRows(nullptr, q.dst, q.step, bytes);
    const int32_t written = width > 0 ? (width + 3) / 4 * 4 : 0;
    const float x0 = static_cast<float>(q.region[0]);
    const B lane_x = B(x0) + Iota<B>();
    for (int32_t row = 0; row < height; ++row) {
        float* out = frame::Row(q.dst, q.step, row);
        const float y = static_cast<float>(q.region[1]) + static_cast<float>(row);
        const B py(y);
        // Two running x vectors a whole vector apart, so their additions do not wait on each other.
        B px[2] = {lane_x, lane_x + B(static_cast<float>(kLanes))};
        int32_t col = 0;
        for (; col + 2 * kLanes <= written; col += 2 * kLanes)
            for (int k = 0; k < 2; ++k) {
                Put(out + col + k * kLanes, value(px[k], py), streaming);
                px[k] = px[k] + B(static_cast<float>(2 * kLanes));
            }
        for (; col < written; col += 4)
            Put(out + col, value(B4(x0 + static_cast<float>(col)) + Iota<B4>(), B4(y)), streaming);
    }
    if (streaming) _mm_sfence();
}

template <class V>
V Clamp01(V v) {
    return xsimd::min(xsimd::max(v, V(0.0f)), V(1.0f));
}
template <class V>
V OneMinus(V v) {
    return V(1.0f) - v;
}
inline float ClampParameter(float v) { return std::min(std::max(v, 0.0001f), 0.9999f); }

template <bool Invert, class V>
V Finish(V v) {
    return Invert ? OneMinus(v) : v;
}

// Direction A -> B: its length and unit vector, normalised a second time.
struct Axis {
    float dx, dy, length, nx, ny;
    Axis(const float* a, const float* b) : dx(b[0] - a[0]), dy(b[1] - a[1]) {
        length = std::sqrt(dx * dx + dy * dy);
        nx = dx / length, ny = dy / length;
        const float renorm = 1.0f / std::sqrt(nx * nx + ny * ny);
        nx *= renorm, ny *= renorm;
    }
    // Projection of the pixels onto the axis minus an offset.
    template <class V>
    V Along(V px, V py, float offset) const {
        return (px * V(nx) + py * V(ny)) - V(offset);
    }
};

// Dual ramp: a plateau of 1 for |t| up to inner around the middle C of A and B, falling to 0 at A
// and B. Inverted, the clamped fall itself.
template <class B, bool Invert>
void Dual(const Request& q, float width) {
    const Axis axis(q.a, q.b);
    const float cx = q.a[0] + 0.5f * axis.dx, cy = q.a[1] + 0.5f * axis.dy;
    const float half = std::sqrt((cx - q.b[0]) * (cx - q.b[0]) + (cy - q.b[1]) * (cy - q.b[1]));
    const float inner = ClampParameter(width) * half;
    const float k = 1.0f / (half - inner), offset = axis.nx * cx + axis.ny * cy;
    Fill<B>(q, [&](auto px, auto py) {
        using V = decltype(px);
        const V t = axis.Along(px, py, offset);
        const V fall = Clamp01((xsimd::max(V(0.0f) - t, t) - V(inner)) * V(k));
        return Invert ? fall : OneMinus(fall);
    });
}

template <class B, bool Invert>
void Linear(const Request& q) {
    const Axis axis(q.a, q.b);
    const float c = -(q.a[1] * axis.ny + q.a[0] * axis.nx), inv_length = 1.0f / axis.length;
    Fill<B>(q, [&](auto px, auto py) {
        using V = decltype(px);
        const V along = (px * V(axis.nx) + V(c)) + py * V(axis.ny);
        return Finish<Invert>(Clamp01(along * V(inv_length)));
    });
}

// The ramp crosses 0.5 at the midpoint m, each side linear.
template <class B, bool Invert>
void LinearMidpoint(const Request& q) {
    const Axis axis(q.a, q.b);
    const float m = ClampParameter(q.amount);
    const float c = -(q.a[1] * axis.ny + q.a[0] * axis.nx), inv_length = 1.0f / axis.length;
    const float above = 0.5f / (1.0f - m), below = 0.5f / m;
    Fill<B>(q, [&](auto px, auto py) {
        using V = decltype(px);
        const V along = (px * V(axis.nx) + V(c)) + py * V(axis.ny);
        const V v = Clamp01(along * V(inv_length));
        const V high = (v - V(m)) * V(above) + V(0.5f);
        return Finish<Invert>(xsimd::select(v >= V(m), high, v * V(below)));
    });
}

// Peak of 1 at the pivot A + m (B - A), falling to 0 at A and at B. Inverted, the clamped fall.
template <class B, bool Invert>
void Reflected(const Request& q) {
    const Axis axis(q.a, q.b);
    const float m = ClampParameter(q.amount);
    const float pvx = q.a[0] + m * axis.dx, pvy = q.a[1] + m * axis.dy;
    const float offset = axis.nx * pvx + axis.ny * pvy;
    const float before = -1.0f / (axis.length * m), after = 1.0f / ((1.0f - m) * axis.length);
    Fill<B>(q, [&](auto px, auto py) {
        using V = decltype(px);
        const V t = axis.Along(px, py, offset);
        const V fall = Clamp01(xsimd::select(t < V(0.0f), t * V(before), t * V(after)));
        return Invert ? fall : OneMinus(fall);
    });
}

// ---- Radial ------------------------------------------------------------------------------------

enum Selector { kEllipseLinear, kEllipseSmooth, kEllipseGaussian, kRoundedRectangle, kOutsideLinear, kOutsideSmooth };

// Normalised radius: 1 on the shape's edge, 0 at its centre; the ellipse's axes are rx along the
// angle and ry across it. The rounded rectangle measures the signed distance to a box of half
// sizes 1 whose corners are rounded by `corner` (0..1), plus 1.
template <bool Rectangle, class V>
V Radius(V u, V w, float corner) {
    if constexpr (!Rectangle) {
        return xsimd::sqrt(u * u + w * w);
    } else {
        const V qx = xsimd::abs(u) - V(1.0f - corner), qy = xsimd::abs(w) - V(1.0f - corner);
        const V ox = xsimd::max(qx, V(0.0f)), oy = xsimd::max(qy, V(0.0f));
        const V outside = xsimd::sqrt(ox * ox + oy * oy);
        const V inside = xsimd::min(xsimd::max(qx, qy), V(0.0f));
        return (outside + inside) + V(1.0f - corner);
    }
}

template <class B, Selector S, bool Invert>
void Radial(const Request& q) {
    const float c = std::cos(q.angle), s = std::sin(q.angle);
    const float f = std::min(std::max(q.feather, 0.0001f), 1.0f);
    const float corner = std::min(std::max(q.shape, 0.0f), 1.0f);
    const float* centre = q.a;
    const float* radii = q.b;
    const float cu = c / radii[0], su = s / radii[0], cw = c / radii[1], sw = s / radii[1];
    const float inv_f = 1.0f / f, inner = 1.0f - f;
    const float gauss = -4.5f / (f * f);  // sigma f/3: e^-4.5 (about 0.011) on the edge
    Fill<B>(q, [&](auto px, auto py) {
        using V = decltype(px);
        const V dx = px - V(centre[0]), dy = py - V(centre[1]);
        const V u = dx * V(cu) + dy * V(su);
        const V w = dy * V(cw) - dx * V(sw);
        const V rho = Radius<S == kRoundedRectangle>(u, w, corner);
        // Linear fall across the feather band, from 1 at 1 - f to 0 at the edge.
        const V ramp = Clamp01((V(1.0f) - rho) * V(inv_f));
        V v;
        if constexpr (S == kEllipseSmooth || S == kOutsideSmooth) {
            v = (ramp * ramp) * (V(3.0f) - (ramp + ramp));
        } else if constexpr (S == kEllipseGaussian) {
            const V beyond = xsimd::max(rho - V(inner), V(0.0f));
            v = XMVectorExpE((beyond * beyond) * V(gauss));
        } else {
            v = ramp;
        }
        if constexpr (S == kOutsideLinear || S == kOutsideSmooth) v = OneMinus(v);
        return Finish<Invert>(v);
    });
}

template <class B, Selector S>
void RadialFor(const Request& q) {
    q.invert ? Radial<B, S, true>(q) : Radial<B, S, false>(q);
}

// The request's body at vector type B.
template <class B>
void Run(const Request& q) {
    switch (q.kind) {
        case Kind::Linear:
            if (std::fabs(q.amount - 0.5f) < 1e-6f) return q.invert ? Linear<B, true>(q) : Linear<B, false>(q);
            return q.invert ? LinearMidpoint<B, true>(q) : LinearMidpoint<B, false>(q);
        case Kind::Reflected:
            // At the middle the reflected ramp is the dual ramp with no plateau (its width
            // clamps to 0.0001).
            if (std::fabs(q.amount - 0.5f) < 1e-6f) return q.invert ? Dual<B, true>(q, 0.0f) : Dual<B, false>(q, 0.0f);
            return q.invert ? Reflected<B, true>(q) : Reflected<B, false>(q);
        case Kind::Dual:
            return q.invert ? Dual<B, true>(q, q.amount) : Dual<B, false>(q, q.amount);
        case Kind::Radial:
            switch (q.selector) {
                case kEllipseLinear: return RadialFor<B, kEllipseLinear>(q);
                case kEllipseSmooth: return RadialFor<B, kEllipseSmooth>(q);
                case kEllipseGaussian: return RadialFor<B, kEllipseGaussian>(q);
                case kRoundedRectangle: return RadialFor<B, kRoundedRectangle>(q);
                case kOutsideLinear: return RadialFor<B, kOutsideLinear>(q);
                default: return RadialFor<B, kOutsideSmooth>(q);
            }
    }
}

}  // namespace
}  // namespace velmora::retouch::gradients
