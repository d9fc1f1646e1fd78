// The develop recipe and its row walks, written once over a lane layout: the SSE2 body (one group
// of four pixels a vector) and the AVX2 body (two groups a vector, one in each 128-bit half) run
// the same operations in the same order on each lane, so both give the same bits. Nothing here
// may use a fused multiply-add; the library is built without contraction.
//
// A lane layout L provides the batch type L::B, the pixels one vector holds (L::kPixels), the
// vectors a row step develops side by side (L::kGroups), and Load/Store of the four component
// vectors (Quad) and LoadLocal of the map values at pixel x of a row.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>

#include <xsimd/xsimd.hpp>

#include "adjust/lane_ops.h"
#include "core/xmmath.h"
#include "pixel/srgb_math.h"
#include "velmora/imaging.h"

namespace velmora::adjust::develop {

// ProPhoto luminance weights (the D50 Y row).
constexpr float kLumR = 0.28804f, kLumG = 0.711874f, kLumB = 8.6e-05f;
// Keeps the gain finite for black pixels: g = (N + eps) / (Y + eps).
constexpr float kEpsilon = 1.1920929e-07f;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// x^y as e^(y ln x), the library's fast power.
template <class B>
inline B Pow(B x, B y) {
    return xsimd::exp(xsimd::log(x) * y);
}

// Four pixels a group, one vector per component.
template <class B>
struct Quad {
    B r, g, b, l;
};

template <class B>
inline B Luminance(const Quad<B>& q) {
    return (q.r * B(kLumR) + q.g * B(kLumG)) + q.b * B(kLumB);
}

// Exposure on linear light: x times the factor, capped at `cap` (1, or infinity for the unclamped
// negative global amount). The cap is the first operand so a NaN passes through both forms alike.
template <class B>
inline B Expose(B x, B factor, B cap) {
    return Min(cap, x * factor);
}

// S-curve around 0.5 that keeps 0, 0.5 and 1: s(b) = (b - 0.5) / (|b - 0.5| + 0.5) + 0.5, blended in
// by the amount.
template <class B>
inline B Contrast(B b, B amount) {
    const B half(0.5f);
    const B centred = b - half;
    const B spread = Max(centred, half - b);
    const B s = centred / (spread + half) + half;
    return b + (s - b) * amount;
}

// Shadows and highlights: lifts weighted by e^(-14 b^1.6) and e^(-14 (1 - b)^1.6). The power bases
// are held at 0 or above: b may sit a rounding step past 1 (or past 0 after strong contrast), and a
// negative base would turn a clipped white into NaN through the logarithm of the vector power.
template <class B>
inline B ToneTerm(B b, B shadows, B highlights) {
    const B exponent(1.6f), slope(-14.0f), one(1.0f);
    const B dark = Max(b, B(0.0f));
    const B light = Max(one - b, B(0.0f));
    const B w_shadows = xsimd::exp(slope * Pow(dark, exponent));
    const B w_highlights = xsimd::exp(slope * Pow(light, exponent));
    return (shadows * b) * w_shadows + (highlights * (one - b)) * w_highlights;
}

// The sRGB encoding of luminance, clamped to [0, 1] first (NaN becomes 0).
template <class B>
inline B LinearToSrgb(B v) {
    return pixel::srgb::EncodeByFormula(Clamp01(v));
}

// sRGB decoding of the new luminance, both branches computed and blended per lane.
template <class B>
inline B SrgbToLinear(B n) {
    const B high = Pow((n + B(0.055f)) * B(0.94786733f), B(2.4f));
    const B low = n * B(0.07739938f);
    return xsimd::select(n > B(0.04045f), high, low);
}

// Saturation around the target luminance N: N + (p - N) f on R, G, B; the fourth lane keeps
// factor 1, so it ends as the gained base (and is clamped with the rest when the result is).
template <bool ClampResult, class B>
inline void Saturate(Quad<B>& q, B target, B factor) {
    auto spread = [&](B c, B f) {
        const B v = target + (c - target) * f;
        return ClampResult ? Clamp01(v) : v;
    };
    q.r = spread(q.r, factor);
    q.g = spread(q.g, factor);
    q.b = spread(q.b, factor);
    q.l = spread(q.l, B(1.0f));
}

// Which steps run. Constant in the specialised loops (the dead steps fold away), per call in the
// masked pass.
struct Steps {
    bool exposure, brightness, tone, contrast, clarity, saturation, clamp_saturation;
};

// The amounts of a call, in the form each step uses.
struct Params {
    float exposure_factor, exposure_cap;  // 2^stops and 1 or infinity
    float brightness_exponent;            // 2^-amount
    float shadows, highlights, contrast;
    float clarity_factor;                 // 1 + amount
    float saturation_factor;              // 1 + amount
};

// The amounts one vector of pixels is developed with: the call's, or per pixel from the maps.
template <class B>
struct Amounts {
    B exposure_factor, exposure_cap, brightness_exponent, shadows, highlights, contrast, clarity_factor,
        saturation_factor;

    static Amounts Of(const Params& p) {
        return {B(p.exposure_factor), B(p.exposure_cap), B(p.brightness_exponent), B(p.shadows),
                B(p.highlights),      B(p.contrast),     B(p.clarity_factor),       B(p.saturation_factor)};
    }
};

// The recipe on N vectors of pixels (already offset by any black level), step by step across
// the vectors so their chains of exp/log overlap.
template <int N, class B>
inline void Develop(Quad<B>* q, const Amounts<B>* a, const Steps on) {
    B lum[N], y[N], b[N], n[N];
    for (int i = 0; i < N; ++i) {
        lum[i] = Luminance(q[i]);
        y[i] = lum[i];
        b[i] = q[i].l;
    }
    if (on.exposure)
        for (int i = 0; i < N; ++i) {
            y[i] = Expose(y[i], a[i].exposure_factor, a[i].exposure_cap);
            b[i] = Expose(b[i], a[i].exposure_factor, a[i].exposure_cap);
        }
    for (int i = 0; i < N; ++i) y[i] = LinearToSrgb(y[i]);
    if (on.brightness || on.contrast || on.tone || on.clarity) {
        B detail[N];
        for (int i = 0; i < N; ++i) {
            b[i] = LinearToSrgb(b[i]);
            detail[i] = y[i] - b[i];
        }
        if (on.brightness)
            for (int i = 0; i < N; ++i) b[i] = Pow(b[i], a[i].brightness_exponent);
        if (on.contrast)
            for (int i = 0; i < N; ++i) b[i] = Contrast(b[i], a[i].contrast);
        if (on.clarity)
            for (int i = 0; i < N; ++i) detail[i] = detail[i] * a[i].clarity_factor;
        for (int i = 0; i < N; ++i) n[i] = on.tone ? ToneTerm(b[i], a[i].shadows, a[i].highlights) + b[i] : b[i];
        for (int i = 0; i < N; ++i) n[i] = Clamp01(n[i] + detail[i]);
    } else {
        // Nothing reshapes the base: b + (y - b) is y within a rounding step, so the base's
        // encoding (a third of this road's cost) is skipped.
        for (int i = 0; i < N; ++i) n[i] = Clamp01(y[i]);
    }
    for (int i = 0; i < N; ++i) {
        const B target = SrgbToLinear(n[i]);
        const B eps(kEpsilon);
        const B gain = (target + eps) / (lum[i] + eps);
        q[i].r = q[i].r * gain;
        q[i].g = q[i].g * gain;
        q[i].b = q[i].b * gain;
        q[i].l = q[i].l * gain;
        if (on.saturation) {
            if (on.clamp_saturation) Saturate<true>(q[i], target, a[i].saturation_factor);
            else Saturate<false>(q[i], target, a[i].saturation_factor);
        }
    }
}

// Walks a row L::kGroups vectors at a time, then vector by vector; `prepare` offsets the loaded
// pixels and fills the amounts of the vector at pixel x. A step runs while its last vector has a
// pixel of the row in its last group of four, so every group a step touches is one the
// group-by-group walk would touch too: the last group may run up to three pixels past the width,
// and no group lies wholly past it.
template <class L, class Prepare>
inline void WalkRow(float* px, int32_t width, Amounts<typename L::B>* a, const Steps on, Prepare&& prepare) {
    using B = typename L::B;
    constexpr int32_t kPixels = L::kPixels, kGroups = L::kGroups;
    int32_t x = 0;
    for (; x + kPixels * kGroups - 4 < width; x += kPixels * kGroups, px += 4 * kPixels * kGroups) {
        Quad<B> q[kGroups];
        for (int i = 0; i < kGroups; ++i) {
            q[i] = L::Load(px + 4 * kPixels * i, x + kPixels * i, width);
            prepare(q[i], a[i], x + kPixels * i);
        }
        Develop<kGroups>(q, a, on);
        for (int i = 0; i < kGroups; ++i) L::Store(px + 4 * kPixels * i, q[i], x + kPixels * i, width);
    }
    for (; x < width; x += kPixels, px += 4 * kPixels) {
        Quad<B> q = L::Load(px, x, width);
        prepare(q, a[0], x);
        Develop<1>(&q, a, on);
        L::Store(px, q, x, width);
    }
}

// ---- Unmasked: global amounts only, one loop per combination of the six flags ----

enum Flag : unsigned {
    kExposure = 1,
    kBrightness = 2,
    kTone = 4,  // shadows or highlights: the two share one loop
    kContrast = 8,
    kClarity = 16,
    kSaturation = 32,
};

using RowFn = void (*)(float* px, int32_t width, const Params& p);

// The row functions are VELMORA_FLATTEN loops: the vector math is inlined whole into each.

template <class L, unsigned F>
VELMORA_FLATTEN void DevelopRow(float* px, int32_t width, const Params& p) {
    constexpr Steps on{(F & kExposure) != 0, (F & kBrightness) != 0, (F & kTone) != 0, (F & kContrast) != 0,
                       (F & kClarity) != 0,  (F & kSaturation) != 0, true};
    Amounts<typename L::B> same[L::kGroups];
    std::fill(std::begin(same), std::end(same), Amounts<typename L::B>::Of(p));
    WalkRow<L>(px, width, same, on, [](auto&, auto&, int32_t) {});
}

// Saturation alone skips the tone round trip: every lane, the fourth included, moves away from
// the pixel's luminance, with no clamp.
template <class L>
VELMORA_FLATTEN void SaturationOnlyRow(float* px, int32_t width, const Params& p) {
    using B = typename L::B;
    const B factor(p.saturation_factor);
    for (int32_t x = 0; x < width; x += L::kPixels, px += 4 * L::kPixels) {
        Quad<B> q = L::Load(px, x, width);
        const B lum = Luminance(q);
        q.r = lum + (q.r - lum) * factor;
        q.g = lum + (q.g - lum) * factor;
        q.b = lum + (q.b - lum) * factor;
        q.l = lum + (q.l - lum) * factor;
        L::Store(px, q, x, width);
    }
}

template <class L, unsigned F>
constexpr RowFn RowFor() {
    if constexpr (F == kSaturation) return &SaturationOnlyRow<L>;
    else return &DevelopRow<L, F>;
}

template <class L, size_t... F>
constexpr std::array<RowFn, sizeof...(F)> MakeRowTable(std::index_sequence<F...>) {
    return {RowFor<L, F>()...};
}

// Indexed by the flag bits: 63 specialised loops and the saturation-only loop.
template <class L>
constexpr auto kRows = MakeRowTable<L>(std::make_index_sequence<64>());

// ---- Masked: per-pixel amounts from the local maps ----

// How one adjustment's amount is formed, chosen once per call.
enum class Mode { Identity, Global, Local, Both };

struct Adjustment {
    Mode mode;
    float amount;
    const float* map;  // row 0; row y starts width x y floats on
};

struct MaskedCall {
    Adjustment exposure, brightness, contrast, clarity, saturation;
    Params fixed;  // the global forms, and the shadows/highlights amounts
    Steps on;
    float black;
};

// Fills the per-pixel amounts of one vector; local(adjustment) gives its map values there.
template <class B, class Local>
inline void LocalAmounts(const MaskedCall& c, Amounts<B>& a, Local&& local) {
    switch (c.exposure.mode) {
    case Mode::Both: {
        const B sum = B(c.exposure.amount) + local(c.exposure);
        const B stops = c.exposure.amount > 0.0f ? Min(sum, B(5.0f)) : Max(sum, B(-5.0f));
        a.exposure_factor = xsimd::exp2(stops);
        break;
    }
    case Mode::Local: a.exposure_factor = xsimd::exp2(local(c.exposure)); break;
    default: break;
    }
    switch (c.brightness.mode) {
    case Mode::Both:
        a.brightness_exponent = xsimd::exp2(B(0.0f) - Clamp01(B(c.brightness.amount) + local(c.brightness)));
        break;
    case Mode::Local: a.brightness_exponent = xsimd::exp2(B(0.0f) - local(c.brightness)); break;
    default: break;
    }
    switch (c.contrast.mode) {
    case Mode::Both: a.contrast = Clamp01(B(c.contrast.amount) + local(c.contrast)); break;
    case Mode::Local: a.contrast = local(c.contrast); break;
    default: break;
    }
    switch (c.clarity.mode) {
    case Mode::Both: a.clarity_factor = Clamp(B(c.fixed.clarity_factor) + local(c.clarity), 0.0f, 2.0f); break;
    case Mode::Local: a.clarity_factor = B(1.0f) + local(c.clarity); break;
    default: break;
    }
    // With a global amount and a map together the factor is capped at 1: local saturation can
    // only take colour away from a globally saturated image.
    switch (c.saturation.mode) {
    case Mode::Both: a.saturation_factor = Clamp01(local(c.saturation) + B(c.fixed.saturation_factor)); break;
    case Mode::Local: a.saturation_factor = B(1.0f) + local(c.saturation); break;
    default: break;
    }
}

// One row of the masked pass; row_offset is where the row's values start in every map.
template <class L>
VELMORA_FLATTEN void MaskedRow(float* px, int32_t width, int64_t row_offset, const MaskedCall& c) {
    using B = typename L::B;
    const B black(c.black);
    Amounts<B> a[L::kGroups];
    std::fill(std::begin(a), std::end(a), Amounts<B>::Of(c.fixed));
    WalkRow<L>(px, width, a, c.on, [&](Quad<B>& q, Amounts<B>& vector, int32_t x) {
        q.r = q.r - black;
        q.g = q.g - black;
        q.b = q.b - black;
        q.l = q.l - black;
        LocalAmounts(c, vector, [&](const Adjustment& adj) { return L::LoadLocal(adj.map + row_offset, x, width); });
    });
}

// The local values of pixels x..x+3 of a map row; past the width the lanes are 0 and nothing is
// read. Internal linkage: each body's file compiles its own copy with its own instructions.
namespace {
inline __m128 LoadLocalGroup(const float* row_map, int32_t x, int32_t width) {
    const float* p = row_map + x;
    switch (width - x) {
    case 1: return _mm_load_ss(p);
    case 2: return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    case 3: return _mm_movelh_ps(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))), _mm_load_ss(p + 2));
    default: return _mm_loadu_ps(p);
    }
}
}  // namespace

// The AVX2 body (develop_avx2.cpp), run only when the processor has AVX2: the same recipe and
// walks, two groups of four pixels a vector, touching exactly the pixels and map values the SSE2
// body touches.
RowFn DevelopRowAvx2(unsigned flags);
void MaskedRowAvx2(float* px, int32_t width, int64_t row_offset, const MaskedCall& c);

}  // namespace velmora::adjust::develop
