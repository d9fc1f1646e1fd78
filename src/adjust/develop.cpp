// The develop pass: seven tone and colour adjustments in one in-place pass over a linear ProPhoto
// RgbL128F image (R, G, B and the caller's base luminance L in the fourth lane).
//
// The tone operators work on the sRGB-encoded luminance y of the pixel and b of its base; the
// detail d = y - b rides on top of the adjusted base, and the new luminance goes back to each
// pixel as one linear gain on all four lanes, so only saturation changes the ratios of R, G, B.
//
// Memory: each row runs in groups of four pixels, so the last group reads and rewrites up to three
// pixels past the width. Local maps are packed planes of width x height floats; their last group
// of a row loads only the values inside the region, so the next row's values start exactly at
// width x y and nothing past the map's end is read.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"
#include "velmora/imaging.h"

namespace velmora::develop {
namespace {

// ProPhoto luminance weights (the D50 Y row).
constexpr float kLumR = 0.28804f, kLumG = 0.711874f, kLumB = 8.6e-05f;
// Keeps the gain finite for black pixels: g = (N + eps) / (Y + eps).
constexpr float kEpsilon = 1.1920929e-07f;
// The unmasked loops treat |amount| below this as off; the float is widened, so 0.0001f is on.
constexpr double kFastOff = static_cast<double>(0.0001f);
// The masked pass's own, finer off threshold.
constexpr float kMaskedOff = 1e-06f;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Four pixels side by side: one vector per lane.
struct Quad {
    __m128 r, g, b, l;
};

inline Quad LoadQuad(const float* p) {
    Quad q{v4::Load(p), v4::Load(p + 4), v4::Load(p + 8), v4::Load(p + 12)};
    v4::Transpose4(q.r, q.g, q.b, q.l);
    return q;
}

inline void StoreQuad(float* p, Quad q) {
    v4::Transpose4(q.r, q.g, q.b, q.l);
    v4::Store(p, q.r);
    v4::Store(p + 4, q.g);
    v4::Store(p + 8, q.b);
    v4::Store(p + 12, q.l);
}

inline __m128 Add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128 Sub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
inline __m128 Mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
// Clamp to [lo, hi], lower bound first, so NaN becomes lo like v4::Clamp01.
inline __m128 Clamp(__m128 v, float lo, float hi) { return _mm_min_ps(_mm_max_ps(v, v4::Set1(lo)), v4::Set1(hi)); }

inline __m128 Luminance(const Quad& q) {
    return Add(Add(Mul(q.r, v4::Set1(kLumR)), Mul(q.g, v4::Set1(kLumG))), Mul(q.b, v4::Set1(kLumB)));
}

// Exposure on linear light: x times the factor, capped at `cap` (1, or infinity for the unclamped
// negative global amount). The cap is the first operand so a NaN passes through both forms alike.
inline __m128 Expose(__m128 x, __m128 factor, __m128 cap) { return _mm_min_ps(cap, Mul(x, factor)); }

// S-curve around 0.5 that keeps 0, 0.5 and 1: s(b) = (b - 0.5) / (|b - 0.5| + 0.5) + 0.5, blended in
// by the amount.
inline __m128 Contrast(__m128 b, __m128 amount) {
    const __m128 half = v4::Set1(0.5f);
    const __m128 centred = Sub(b, half);
    const __m128 spread = _mm_max_ps(centred, Sub(half, b));
    const __m128 s = Add(_mm_div_ps(centred, Add(spread, half)), half);
    return Add(b, Mul(Sub(s, b), amount));
}

// Shadows and highlights: lifts weighted by e^(-14 b^1.6) and e^(-14 (1 - b)^1.6). The power bases
// are held at 0 or above: b may sit a rounding step past 1 (or past 0 after strong contrast), and a
// negative base would turn a clipped white into NaN through the logarithm of the vector power.
inline __m128 ToneTerm(__m128 b, __m128 shadows, __m128 highlights) {
    const __m128 exponent = v4::Set1(1.6f), slope = v4::Set1(-14.0f);
    const __m128 dark = _mm_max_ps(b, v4::Zero());
    const __m128 light = _mm_max_ps(Sub(v4::Set1(1.0f), b), v4::Zero());
    const __m128 w_shadows = XMVectorExpE(Mul(slope, XMVectorPowFast(dark, exponent)));
    const __m128 w_highlights = XMVectorExpE(Mul(slope, XMVectorPowFast(light, exponent)));
    return Add(Mul(Mul(shadows, b), w_shadows), Mul(Mul(highlights, Sub(v4::Set1(1.0f), b)), w_highlights));
}

// sRGB decoding of the new luminance, both branches computed and blended per lane.
inline __m128 SrgbToLinear(__m128 n) {
    const __m128 high = XMVectorPowFast(Mul(Add(n, v4::Set1(0.055f)), v4::Set1(0.94786733f)), v4::Set1(2.4f));
    const __m128 low = Mul(n, v4::Set1(0.07739938f));
    return v4::Select(low, high, _mm_cmpgt_ps(n, v4::Set1(0.04045f)));
}

// Saturation around the target luminance N: N + (p - N) f on R, G, B; the fourth lane keeps
// factor 1, so it ends as the gained base (and is clamped with the rest when the result is).
template <bool ClampResult>
inline void Saturate(Quad& q, __m128 target, __m128 factor) {
    auto spread = [&](__m128 c, __m128 f) {
        const __m128 v = Add(target, Mul(Sub(c, target), f));
        return ClampResult ? v4::Clamp01(v) : v;
    };
    q.r = spread(q.r, factor);
    q.g = spread(q.g, factor);
    q.b = spread(q.b, factor);
    q.l = spread(q.l, v4::Set1(1.0f));
}

// Which steps run. Constant in the specialised loops (the dead steps fold away), per call in the
// masked pass.
struct Steps {
    bool exposure, brightness, tone, contrast, clarity, saturation, clamp_saturation;
};

// The amounts one group of four pixels is developed with, already in the form each step uses.
struct Amounts {
    __m128 exposure_factor, exposure_cap;  // 2^stops and 1 or infinity
    __m128 brightness_exponent;            // 2^-amount
    __m128 shadows, highlights, contrast;
    __m128 clarity_factor;                 // 1 + amount
    __m128 saturation_factor;              // 1 + amount
};

// Groups of four pixels a row iteration develops side by side. Each step of the recipe is a chain
// of vector exp/log whose latency one group alone cannot hide; three measured best (two lose about
// 5 %, four spill registers).
constexpr int kGroups = 3;

// The recipe on N groups of four pixels (already offset by any black level), step by step across
// the groups so their chains overlap.
template <int N>
inline void Develop(Quad* q, const Amounts* a, const Steps on) {
    __m128 lum[N], y[N], b[N], n[N];
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
    for (int i = 0; i < N; ++i) y[i] = XMVectorLinearToSrgb(y[i]);
    if (on.brightness || on.contrast || on.tone || on.clarity) {
        __m128 detail[N];
        for (int i = 0; i < N; ++i) {
            b[i] = XMVectorLinearToSrgb(b[i]);
            detail[i] = Sub(y[i], b[i]);
        }
        if (on.brightness)
            for (int i = 0; i < N; ++i) b[i] = XMVectorPowFast(b[i], a[i].brightness_exponent);
        if (on.contrast)
            for (int i = 0; i < N; ++i) b[i] = Contrast(b[i], a[i].contrast);
        if (on.clarity)
            for (int i = 0; i < N; ++i) detail[i] = Mul(detail[i], a[i].clarity_factor);
        for (int i = 0; i < N; ++i) n[i] = on.tone ? Add(ToneTerm(b[i], a[i].shadows, a[i].highlights), b[i]) : b[i];
        for (int i = 0; i < N; ++i) n[i] = v4::Clamp01(Add(n[i], detail[i]));
    } else {
        // Nothing reshapes the base: b + (y - b) is y within a rounding step, so the base's
        // encoding (a third of this road's cost) is skipped.
        for (int i = 0; i < N; ++i) n[i] = v4::Clamp01(y[i]);
    }
    for (int i = 0; i < N; ++i) {
        const __m128 target = SrgbToLinear(n[i]);
        const __m128 eps = v4::Set1(kEpsilon);
        const __m128 gain = _mm_div_ps(Add(target, eps), Add(lum[i], eps));
        q[i].r = Mul(q[i].r, gain);
        q[i].g = Mul(q[i].g, gain);
        q[i].b = Mul(q[i].b, gain);
        q[i].l = Mul(q[i].l, gain);
        if (on.saturation) {
            if (on.clamp_saturation) Saturate<true>(q[i], target, a[i].saturation_factor);
            else Saturate<false>(q[i], target, a[i].saturation_factor);
        }
    }
}

// Walks a row kGroups groups at a time, then group by group; `prepare` offsets the loaded pixels
// and fills the amounts of the group at pixel x. The last group may run up to three pixels past
// the width.
template <class Prepare>
inline void WalkRow(float* px, int32_t width, Amounts* a, const Steps on, Prepare&& prepare) {
    int32_t x = 0;
    for (; x + 4 * (kGroups - 1) < width; x += 4 * kGroups, px += 16 * kGroups) {
        Quad q[kGroups];
        for (int i = 0; i < kGroups; ++i) {
            q[i] = LoadQuad(px + 16 * i);
            prepare(q[i], a[i], x + 4 * i);
        }
        Develop<kGroups>(q, a, on);
        for (int i = 0; i < kGroups; ++i) StoreQuad(px + 16 * i, q[i]);
    }
    for (; x < width; x += 4, px += 16) {
        Quad q = LoadQuad(px);
        prepare(q, a[0], x);
        Develop<1>(&q, a, on);
        StoreQuad(px, q);
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

using RowFn = void (*)(float* px, int32_t width, const Amounts& a);

// The row functions are flattened: the vector math is inlined whole, because a call would spill
// every live vector of the groups (all xmm registers are caller-saved).

template <unsigned F>
__attribute__((flatten)) void DevelopRow(float* px, int32_t width, const Amounts& a) {
    constexpr Steps on{(F & kExposure) != 0, (F & kBrightness) != 0, (F & kTone) != 0, (F & kContrast) != 0,
                       (F & kClarity) != 0,  (F & kSaturation) != 0, true};
    Amounts same[kGroups];
    std::fill(std::begin(same), std::end(same), a);
    WalkRow(px, width, same, on, [](Quad&, Amounts&, int32_t) {});
}

// Saturation alone skips the tone round trip: every lane, the fourth included, moves away from
// the pixel's luminance, with no clamp.
__attribute__((flatten)) void SaturationOnlyRow(float* px, int32_t width, const Amounts& a) {
    for (int32_t x = 0; x < width; x += 4, px += 16) {  // the last group may run 3 pixels past the width
        Quad q = LoadQuad(px);
        const __m128 lum = Luminance(q);
        q.r = Add(lum, Mul(Sub(q.r, lum), a.saturation_factor));
        q.g = Add(lum, Mul(Sub(q.g, lum), a.saturation_factor));
        q.b = Add(lum, Mul(Sub(q.b, lum), a.saturation_factor));
        q.l = Add(lum, Mul(Sub(q.l, lum), a.saturation_factor));
        StoreQuad(px, q);
    }
}

template <unsigned F>
constexpr RowFn RowFor() {
    if constexpr (F == kSaturation) return &SaturationOnlyRow;
    else return &DevelopRow<F>;
}

template <size_t... F>
constexpr std::array<RowFn, sizeof...(F)> MakeRowTable(std::index_sequence<F...>) {
    return {RowFor<F>()...};
}

// Indexed by the flag bits: 63 specialised loops and the saturation-only loop.
constexpr auto kRows = MakeRowTable(std::make_index_sequence<64>());

bool FastOn(float amount) { return std::fabs(static_cast<double>(amount)) >= kFastOff; }

// Exposure and brightness constants of a call, formed with the runtime's exp2f.
void SetExposure(Amounts& a, float stops) {
    a.exposure_factor = v4::Set1(std::exp2f(stops));
    a.exposure_cap = v4::Set1(stops > 0.0f ? 1.0f : kInfinity);
}

// ---- Masked: per-pixel amounts from the local maps ----

// How one adjustment's amount is formed, chosen once per call.
enum class Mode { Identity, Global, Local, Both };

struct Adjustment {
    Mode mode = Mode::Identity;
    float amount = 0.0f;
    const float* map = nullptr;  // row 0; row y starts width x y floats on
};

Adjustment Classify(const DevelopParameter& p) {
    const bool global = std::fabs(p.amount) >= kMaskedOff;
    if (p.localMap == nullptr) return {global ? Mode::Global : Mode::Identity, p.amount, nullptr};
    return {global ? Mode::Both : Mode::Local, global ? p.amount : 0.0f, p.localMap};
}

// The local values of pixels x..x+3; past the width the lanes are 0 and nothing is read.
inline __m128 LoadLocal(const float* row_map, int32_t x, int32_t width) {
    const float* p = row_map + x;
    switch (width - x) {
    case 1: return _mm_load_ss(p);
    case 2: return _mm_castsi128_ps(v4::Load64(p));
    case 3: return _mm_movelh_ps(_mm_castsi128_ps(v4::Load64(p)), _mm_load_ss(p + 2));
    default: return v4::Load(p);
    }
}

struct MaskedCall {
    Adjustment exposure, brightness, contrast, clarity, saturation;
    Amounts fixed;  // the global forms, and the shadows/highlights amounts
    Steps on;
    float black;
};

// Fills the per-pixel amounts of one group from the maps of row y.
inline void LocalAmounts(const MaskedCall& c, Amounts& a, int64_t row_offset, int32_t x, int32_t width) {
    auto local = [&](const Adjustment& adj) { return LoadLocal(adj.map + row_offset, x, width); };
    switch (c.exposure.mode) {
    case Mode::Both: {
        const __m128 sum = Add(v4::Set1(c.exposure.amount), local(c.exposure));
        const __m128 stops = c.exposure.amount > 0.0f ? _mm_min_ps(sum, v4::Set1(5.0f)) : _mm_max_ps(sum, v4::Set1(-5.0f));
        a.exposure_factor = XMVectorExp2(stops);
        break;
    }
    case Mode::Local: a.exposure_factor = XMVectorExp2(local(c.exposure)); break;
    default: break;
    }
    switch (c.brightness.mode) {
    case Mode::Both:
        a.brightness_exponent =
            XMVectorExp2(Sub(v4::Zero(), v4::Clamp01(Add(v4::Set1(c.brightness.amount), local(c.brightness)))));
        break;
    case Mode::Local: a.brightness_exponent = XMVectorExp2(Sub(v4::Zero(), local(c.brightness))); break;
    default: break;
    }
    switch (c.contrast.mode) {
    case Mode::Both: a.contrast = v4::Clamp01(Add(v4::Set1(c.contrast.amount), local(c.contrast))); break;
    case Mode::Local: a.contrast = local(c.contrast); break;
    default: break;
    }
    switch (c.clarity.mode) {
    case Mode::Both: a.clarity_factor = Clamp(Add(c.fixed.clarity_factor, local(c.clarity)), 0.0f, 2.0f); break;
    case Mode::Local: a.clarity_factor = Add(v4::Set1(1.0f), local(c.clarity)); break;
    default: break;
    }
    // With a global amount and a map together the factor is capped at 1: local saturation can
    // only take colour away from a globally saturated image.
    switch (c.saturation.mode) {
    case Mode::Both: a.saturation_factor = v4::Clamp01(Add(local(c.saturation), c.fixed.saturation_factor)); break;
    case Mode::Local: a.saturation_factor = Add(v4::Set1(1.0f), local(c.saturation)); break;
    default: break;
    }
}

__attribute__((flatten)) void MaskedRow(float* px, int32_t width, int64_t row_offset, const MaskedCall& c) {
    const __m128 black = v4::Set1(c.black);
    Amounts a[kGroups];
    std::fill(std::begin(a), std::end(a), c.fixed);
    WalkRow(px, width, a, c.on, [&](Quad& q, Amounts& group, int32_t x) {
        q.r = Sub(q.r, black);
        q.g = Sub(q.g, black);
        q.b = Sub(q.b, black);
        q.l = Sub(q.l, black);
        LocalAmounts(c, group, row_offset, x, width);
    });
}

MaskedCall PrepareMasked(const DevelopParameter* const p[7], float black) {
    MaskedCall c{};
    c.exposure = Classify(*p[0]);
    c.brightness = Classify(*p[1]);
    c.contrast = Classify(*p[4]);
    c.clarity = Classify(*p[5]);
    c.saturation = Classify(*p[6]);
    c.black = black;
    Amounts& f = c.fixed;
    SetExposure(f, c.exposure.amount);
    if (c.exposure.mode != Mode::Global) f.exposure_cap = v4::Set1(1.0f);
    f.brightness_exponent = v4::Set1(std::exp2f(-c.brightness.amount));
    // Shadows and highlights have no per-pixel form: their maps only select this pass.
    f.shadows = v4::Set1(p[2]->amount);
    f.highlights = v4::Set1(p[3]->amount);
    f.contrast = v4::Set1(c.contrast.amount);
    f.clarity_factor = v4::Set1(1.0f + c.clarity.amount);
    f.saturation_factor = v4::Set1(1.0f + c.saturation.amount);
    const bool tone = std::fabs(p[2]->amount) >= kMaskedOff || std::fabs(p[3]->amount) >= kMaskedOff;
    c.on = {c.exposure.mode != Mode::Identity,   c.brightness.mode != Mode::Identity, tone,
            c.contrast.mode != Mode::Identity,   c.clarity.mode != Mode::Identity,
            c.saturation.mode != Mode::Identity, c.saturation.mode == Mode::Global};
    return c;
}

}  // namespace
}  // namespace velmora::develop

using namespace velmora;

extern "C" VELMORA_API StatusCode VELMORA_CALL ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(
    float* image, int32_t step, const ImageSize* roi, const DevelopParameter* exposure,
    const DevelopParameter* brightness, const DevelopParameter* shadows, const DevelopParameter* highlights,
    const DevelopParameter* contrast, const DevelopParameter* clarity, const DevelopParameter* saturation,
    int32_t, int32_t, int32_t, float blackLevel, int32_t, int32_t, int32_t) {
    using namespace velmora::develop;
    const DevelopParameter* const p[7] = {exposure, brightness, shadows, highlights, contrast, clarity, saturation};
    bool masked = false;
    for (const DevelopParameter* q : p) masked = masked || q->localMap != nullptr;
    if (masked) {
        const MaskedCall c = PrepareMasked(p, blackLevel);
        for (int32_t y = 0; y < roi->height; ++y)
            MaskedRow(frame::Row(image, step, y), roi->width, int64_t{roi->width} * y, c);
        return StatusOk;
    }
    Amounts a{};
    SetExposure(a, exposure->amount);
    a.brightness_exponent = v4::Set1(std::exp2f(-brightness->amount));
    a.shadows = v4::Set1(shadows->amount);
    a.highlights = v4::Set1(highlights->amount);
    a.contrast = v4::Set1(contrast->amount);
    a.clarity_factor = v4::Set1(1.0f + clarity->amount);
    a.saturation_factor = v4::Set1(1.0f + saturation->amount);
    const unsigned flags = (FastOn(exposure->amount) ? kExposure : 0u) | (FastOn(brightness->amount) ? kBrightness : 0u) |
                           (FastOn(shadows->amount) || FastOn(highlights->amount) ? kTone : 0u) |
                           (FastOn(contrast->amount) ? kContrast : 0u) | (FastOn(clarity->amount) ? kClarity : 0u) |
                           (FastOn(saturation->amount) ? kSaturation : 0u);
    const RowFn row = kRows[flags];
    for (int32_t y = 0; y < roi->height; ++y) row(frame::Row(image, step, y), roi->width, a);
    return StatusOk;
}
