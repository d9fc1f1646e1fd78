// Geometric gradient masks: single-channel float rows of values in 0..1 that select where a local
// adjustment applies. Linear (A to B), reflected (peak at a pivot between A and B), dual (a flat
// top around the middle of A and B) and radial (an ellipse or rounded rectangle, with linear,
// smoothstep or Gaussian falloff, inside or outside).
//
// The destination pointer is the region's first pixel; x and y only give the image coordinates
// of that pixel. Rows are written four floats at a time from column 0 while the group's first
// column is inside the width: up to three floats past the width are written (overrun, by design).
// Coordinates run as float vectors, x stepping by 4 and y by 1, so no pixel converts integers.
// Each export picks a body specialised by its mode and inversion, so inner loops do not branch.
#include <algorithm>
#include <cmath>

#include "core/frame.h"
#include "core/stream.h"
#include "core/vec4.h"
#include "core/xmmath.h"

namespace velmora::retouch {
namespace {

struct Region {
    int32_t x, y, width, height;
};

template <bool Streaming, class Value>
void FillRows(float* dst, int32_t step, const Region& r, Value&& value) {
    __m128 py = v4::Set1(static_cast<float>(r.y));
    const __m128 x0 = _mm_add_ps(v4::Set1(static_cast<float>(r.x)), _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f));
    for (int32_t row = 0; row < r.height; ++row, py = _mm_add_ps(py, v4::Set1(1.0f))) {
        float* out = frame::Row(dst, step, row);
        auto put = [&](int32_t col, __m128 v) {
            if constexpr (Streaming) _mm_stream_ps(out + col, v);
            else v4::Store(out + col, v);
        };
        // Four running x vectors sixteen columns apart, so their additions do not wait on each
        // other; whole numbers below 2^24 make every x exact however it was reached.
        __m128 px[4] = {x0, _mm_add_ps(x0, v4::Set1(4.0f)), _mm_add_ps(x0, v4::Set1(8.0f)), _mm_add_ps(x0, v4::Set1(12.0f))};
        int32_t col = 0;
        for (; col + 16 <= r.width; col += 16)
            for (int k = 0; k < 4; ++k) {
                put(col + 4 * k, value(px[k], py));
                px[k] = _mm_add_ps(px[k], v4::Set1(16.0f));
            }
        for (int k = 0; col < r.width; col += 4, ++k) put(col, value(px[k], py));
    }
}

// Runs value(px, py) -> four mask values over the region, four columns a step. Large aligned
// masks are written with streaming stores: a mask is written once and read later, so reading
// each line into the cache first would only double the memory traffic.
template <class Value>
void Fill(float* dst, int32_t step, const int32_t* region, Value&& value) {
    const Region r{region[0], region[1], region[2], region[3]};
    const bool aligned = ((reinterpret_cast<uintptr_t>(dst) | static_cast<uint32_t>(step)) & 15u) == 0;
    const int64_t bytes = int64_t{std::max(r.width, 0)} * 4 * std::max(r.height, 0);
    if (aligned && stream::Worthwhile(nullptr, dst, bytes)) {
        FillRows<true>(dst, step, r, value);
        _mm_sfence();
    } else {
        FillRows<false>(dst, step, r, value);
    }
}

__m128 Clamp01(__m128 v) { return _mm_min_ps(_mm_max_ps(v, v4::Zero()), v4::Set1(1.0f)); }
__m128 OneMinus(__m128 v) { return _mm_sub_ps(v4::Set1(1.0f), v); }
float ClampParameter(float v) { return std::min(std::max(v, 0.0001f), 0.9999f); }

// Direction A -> B: its length and unit vector, normalised a second time.
struct Axis {
    float dx, dy, length, nx, ny;
    Axis(const float* a, const float* b) : dx(b[0] - a[0]), dy(b[1] - a[1]) {
        length = std::sqrt(dx * dx + dy * dy);
        nx = dx / length, ny = dy / length;
        const float renorm = 1.0f / std::sqrt(nx * nx + ny * ny);
        nx *= renorm, ny *= renorm;
    }
};

// Projection of the pixels onto the axis minus an offset, with the constants held as vectors.
struct Projection {
    __m128 nx, ny, offset;
    Projection(const Axis& axis, float off) : nx(v4::Set1(axis.nx)), ny(v4::Set1(axis.ny)), offset(v4::Set1(off)) {}
    __m128 operator()(__m128 px, __m128 py) const {
        return _mm_sub_ps(_mm_add_ps(_mm_mul_ps(px, nx), _mm_mul_ps(py, ny)), offset);
    }
};

template <bool Invert>
__m128 Finish(__m128 v) {
    return Invert ? OneMinus(v) : v;
}

// Dual ramp: a plateau of 1 for |t| up to inner around the middle C of A and B, falling to 0 at A
// and B. Inverted, the clamped fall itself.
template <bool Invert>
void Dual(float* dst, int32_t step, const int32_t* region, const float* a, const float* b, float width) {
    const Axis axis(a, b);
    const float cx = a[0] + 0.5f * axis.dx, cy = a[1] + 0.5f * axis.dy;
    const float half = std::sqrt((cx - b[0]) * (cx - b[0]) + (cy - b[1]) * (cy - b[1]));
    const float inner = ClampParameter(width) * half;
    const __m128 k = v4::Set1(1.0f / (half - inner)), in = v4::Set1(inner);
    const Projection along(axis, axis.nx * cx + axis.ny * cy);
    Fill(dst, step, region, [&](__m128 px, __m128 py) {
        const __m128 t = along(px, py);
        const __m128 fall = Clamp01(_mm_mul_ps(_mm_sub_ps(_mm_max_ps(_mm_sub_ps(v4::Zero(), t), t), in), k));
        return Invert ? fall : OneMinus(fall);
    });
}

template <bool Invert>
void Linear(float* dst, int32_t step, const int32_t* region, const float* a, const float* b) {
    const Axis axis(a, b);
    const float c = -(a[1] * axis.ny + a[0] * axis.nx);
    const __m128 inv_length = v4::Set1(1.0f / axis.length), cc = v4::Set1(c);
    const __m128 nx = v4::Set1(axis.nx), ny = v4::Set1(axis.ny);
    Fill(dst, step, region, [&](__m128 px, __m128 py) {
        const __m128 along = _mm_add_ps(_mm_add_ps(_mm_mul_ps(px, nx), cc), _mm_mul_ps(py, ny));
        return Finish<Invert>(Clamp01(_mm_mul_ps(along, inv_length)));
    });
}

// The ramp crosses 0.5 at the midpoint m, each side linear.
template <bool Invert>
void LinearMidpoint(float* dst, int32_t step, const int32_t* region, const float* a, const float* b, float midpoint) {
    const Axis axis(a, b);
    const float m = ClampParameter(midpoint);
    const float c = -(a[1] * axis.ny + a[0] * axis.nx);
    const __m128 inv_length = v4::Set1(1.0f / axis.length), cc = v4::Set1(c), mm = v4::Set1(m);
    const __m128 above = v4::Set1(0.5f / (1.0f - m)), below = v4::Set1(0.5f / m), half = v4::Set1(0.5f);
    const __m128 nx = v4::Set1(axis.nx), ny = v4::Set1(axis.ny);
    Fill(dst, step, region, [&](__m128 px, __m128 py) {
        const __m128 along = _mm_add_ps(_mm_add_ps(_mm_mul_ps(px, nx), cc), _mm_mul_ps(py, ny));
        const __m128 v = Clamp01(_mm_mul_ps(along, inv_length));
        const __m128 high = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(v, mm), above), half);
        return Finish<Invert>(v4::Select(_mm_mul_ps(v, below), high, _mm_cmpge_ps(v, mm)));
    });
}

// Peak of 1 at the pivot A + m (B - A), falling to 0 at A and at B. Inverted, the clamped fall.
template <bool Invert>
void Reflected(float* dst, int32_t step, const int32_t* region, const float* a, const float* b, float midpoint) {
    const Axis axis(a, b);
    const float m = ClampParameter(midpoint);
    const float pvx = a[0] + m * axis.dx, pvy = a[1] + m * axis.dy;
    const Projection along(axis, axis.nx * pvx + axis.ny * pvy);
    const __m128 before = v4::Set1(-1.0f / (axis.length * m)), after = v4::Set1(1.0f / ((1.0f - m) * axis.length));
    Fill(dst, step, region, [&](__m128 px, __m128 py) {
        const __m128 t = along(px, py);
        const __m128 fall = Clamp01(v4::Select(_mm_mul_ps(t, after), _mm_mul_ps(t, before), _mm_cmplt_ps(t, v4::Zero())));
        return Invert ? fall : OneMinus(fall);
    });
}

// ---- Radial ------------------------------------------------------------------------------------

enum Selector { kEllipseLinear, kEllipseSmooth, kEllipseGaussian, kRoundedRectangle, kOutsideLinear, kOutsideSmooth };

// Normalised radius: 1 on the shape's edge, 0 at its centre; the ellipse's axes are rx along the
// angle and ry across it. The rounded rectangle measures the signed distance to a box of half
// sizes 1 whose corners are rounded by `corner` (0..1), plus 1.
template <bool Rectangle>
__m128 Radius(__m128 u, __m128 w, float corner) {
    if constexpr (!Rectangle) {
        return _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(u, u), _mm_mul_ps(w, w)));
    } else {
        const __m128 abs_mask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
        const __m128 inset = v4::Set1(1.0f - corner);
        const __m128 qx = _mm_sub_ps(_mm_and_ps(u, abs_mask), inset), qy = _mm_sub_ps(_mm_and_ps(w, abs_mask), inset);
        const __m128 ox = _mm_max_ps(qx, v4::Zero()), oy = _mm_max_ps(qy, v4::Zero());
        const __m128 outside = _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(ox, ox), _mm_mul_ps(oy, oy)));
        const __m128 inside = _mm_min_ps(_mm_max_ps(qx, qy), v4::Zero());
        return _mm_add_ps(_mm_add_ps(outside, inside), v4::Set1(1.0f - corner));
    }
}

template <Selector S, bool Invert>
void Radial(float* dst, int32_t step, const int32_t* region, const float* centre, const float* radii, float angle,
            float feather, float shape) {
    const float c = std::cos(angle), s = std::sin(angle);
    const float f = std::min(std::max(feather, 0.0001f), 1.0f);
    const float corner = std::min(std::max(shape, 0.0f), 1.0f);
    const __m128 cu = v4::Set1(c / radii[0]), su = v4::Set1(s / radii[0]);
    const __m128 cw = v4::Set1(c / radii[1]), sw = v4::Set1(s / radii[1]);
    const __m128 cx = v4::Set1(centre[0]), cy = v4::Set1(centre[1]);
    const __m128 inv_f = v4::Set1(1.0f / f), inner = v4::Set1(1.0f - f);
    const __m128 gauss = v4::Set1(-4.5f / (f * f));  // sigma f/3: e^-4.5 (about 0.011) on the edge
    Fill(dst, step, region, [&](__m128 px, __m128 py) {
        const __m128 dx = _mm_sub_ps(px, cx), dy = _mm_sub_ps(py, cy);
        const __m128 u = _mm_add_ps(_mm_mul_ps(dx, cu), _mm_mul_ps(dy, su));
        const __m128 w = _mm_sub_ps(_mm_mul_ps(dy, cw), _mm_mul_ps(dx, sw));
        const __m128 rho = Radius<S == kRoundedRectangle>(u, w, corner);
        // Linear fall across the feather band, from 1 at 1 - f to 0 at the edge.
        const __m128 ramp = Clamp01(_mm_mul_ps(_mm_sub_ps(v4::Set1(1.0f), rho), inv_f));
        __m128 v;
        if constexpr (S == kEllipseSmooth || S == kOutsideSmooth) {
            v = _mm_mul_ps(_mm_mul_ps(ramp, ramp), _mm_sub_ps(v4::Set1(3.0f), _mm_add_ps(ramp, ramp)));
        } else if constexpr (S == kEllipseGaussian) {
            const __m128 beyond = _mm_max_ps(_mm_sub_ps(rho, inner), v4::Zero());
            v = XMVectorExpE(_mm_mul_ps(_mm_mul_ps(beyond, beyond), gauss));
        } else {
            v = ramp;
        }
        if constexpr (S == kOutsideLinear || S == kOutsideSmooth) v = OneMinus(v);
        return Finish<Invert>(v);
    });
}

template <Selector S>
void RadialFor(bool invert, float* dst, int32_t step, const int32_t* region, const float* centre, const float* radii,
               float angle, float feather, float shape) {
    invert ? Radial<S, true>(dst, step, region, centre, radii, angle, feather, shape)
           : Radial<S, false>(dst, step, region, centre, radii, angle, feather, shape);
}

}  // namespace
}  // namespace velmora::retouch

namespace retouch = velmora::retouch;

extern "C" VELMORA_API void VELMORA_CALL ImageLinearGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                               const int32_t* region,
                                                                               const float* pointA, const float* pointB,
                                                                               float midpoint, bool invert) {
    if (std::fabs(midpoint - 0.5f) < 1e-6f)
        invert ? retouch::Linear<true>(dst, dstStep, region, pointA, pointB)
               : retouch::Linear<false>(dst, dstStep, region, pointA, pointB);
    else
        invert ? retouch::LinearMidpoint<true>(dst, dstStep, region, pointA, pointB, midpoint)
               : retouch::LinearMidpoint<false>(dst, dstStep, region, pointA, pointB, midpoint);
}

extern "C" VELMORA_API void VELMORA_CALL ImageReflectedGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                                  const int32_t* region,
                                                                                  const float* pointA,
                                                                                  const float* pointB, float midpoint,
                                                                                  bool invert) {
    // At the middle the reflected ramp is the dual ramp with no plateau (its width clamps to 0.0001).
    if (std::fabs(midpoint - 0.5f) < 1e-6f)
        invert ? retouch::Dual<true>(dst, dstStep, region, pointA, pointB, 0.0f)
               : retouch::Dual<false>(dst, dstStep, region, pointA, pointB, 0.0f);
    else
        invert ? retouch::Reflected<true>(dst, dstStep, region, pointA, pointB, midpoint)
               : retouch::Reflected<false>(dst, dstStep, region, pointA, pointB, midpoint);
}

extern "C" VELMORA_API void VELMORA_CALL ImageDualGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                             const int32_t* region, const float* pointA,
                                                                             const float* pointB, float width,
                                                                             bool invert) {
    invert ? retouch::Dual<true>(dst, dstStep, region, pointA, pointB, width)
           : retouch::Dual<false>(dst, dstStep, region, pointA, pointB, width);
}

extern "C" VELMORA_API void VELMORA_CALL ImageRadialGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                               const int32_t* region,
                                                                               const float* centre, const float* radii,
                                                                               float angle, float feather, float shape,
                                                                               bool invert, int32_t selector) {
    using namespace retouch;
    switch (selector) {
        case kEllipseLinear: return RadialFor<kEllipseLinear>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        case kEllipseSmooth: return RadialFor<kEllipseSmooth>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        case kEllipseGaussian: return RadialFor<kEllipseGaussian>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        case kRoundedRectangle: return RadialFor<kRoundedRectangle>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        case kOutsideLinear: return RadialFor<kOutsideLinear>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        case kOutsideSmooth: return RadialFor<kOutsideSmooth>(invert, dst, dstStep, region, centre, radii, angle, feather, shape);
        default: return;  // an unknown shape writes nothing
    }
}
