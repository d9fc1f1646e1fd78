// The HSL edit by hue band, written once over the float batch: the SSE2 body runs four pixels a
// step, the AVX2 and AVX-512 bodies (hsl_avx2.cpp, hsl_avx512.cpp) eight and sixteen, with the
// same operations in the same order on every lane, so every level gives the same bits. The wide
// bodies look the per-lane band amounts up by permutes (color_lanes.h); the four-lane one picks
// them by comparisons.
#pragma once

#include <cstdint>

#if defined(__AVX2__)
#include <immintrin.h>
#endif

#include "adjust/color_rows.h"
#include "adjust/twin.h"
#include "core/xmmath.h"

namespace velmora::adjust::hsl {

// Band centres in degrees (red, orange, yellow, green, aqua, blue, purple, magenta), red again at 360.
inline constexpr float kCentre[9] = {0, 30, 60, 120, 180, 240, 270, 300, 360};

// Eight floats picked per lane by a segment index 0..7: by comparisons here, on the index held as
// floats; the wider levels specialise it with a permute on the index converted to integers once.
template <class B>
struct Pick8 {
    using Index = B;
    // The band segment of each lane's hue (centre k <= h < centre k + 1), 0 for NaN.
    static Index SegmentOf(B h) {
        B segment(0.0f);
        for (int k = 1; k < 8; ++k) segment = segment + Select(h >= B(kCentre[k]), B(1.0f), B(0.0f));
        return segment;
    }
    static B Pick(const float* table, Index index) {
        B out(table[0]);
        for (int k = 1; k < 8; ++k) out = Select(index == B(static_cast<float>(k)), B(table[k]), out);
        return out;
    }
};

// The wide forms find the segment from thirty-degree steps (every centre is a multiple of 30):
// step q = trunc(h x the float nearest 1/30) names the segment through kStepSegment; just below a
// multiple of 30 the product can round up to the next step, and where that crosses into the next
// segment the hue lies below that segment's start, which takes it back. NaN converts to the
// integer indefinite, whose low bits pick step 0: segment 0, as the comparisons give.
inline constexpr int32_t kStepSegment[16] = {0, 1, 2, 2, 3, 3, 4, 4, 5, 6, 7, 7, 7, 7, 7, 7};
inline constexpr float kSegmentStart[16] = {0, 30, 60, 120, 180, 240, 270, 300, 0, 0, 0, 0, 0, 0, 0, 0};

#if defined(__AVX2__)
template <>
struct Pick8<xsimd::batch<float, xsimd::avx2>> {
    using Index = __m256i;
    static Index SegmentOf(xsimd::batch<float, xsimd::avx2> h) {
        const __m256i q = _mm256_cvttps_epi32(_mm256_mul_ps(h, _mm256_set1_ps(1.0f / 30)));
        const __m256i low = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(kStepSegment)), q);
        const __m256i high = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(kStepSegment + 8)), q);
        const __m256i segment = _mm256_blendv_epi8(low, high, _mm256_cmpgt_epi32(q, _mm256_set1_epi32(7)));
        const __m256 below = _mm256_cmp_ps(h, _mm256_permutevar8x32_ps(_mm256_loadu_ps(kSegmentStart), segment), _CMP_LT_OQ);
        return _mm256_add_epi32(segment, _mm256_castps_si256(below));  // below is -1 where true
    }
    static xsimd::batch<float, xsimd::avx2> Pick(const float* table, Index index) {
        return _mm256_permutevar8x32_ps(_mm256_loadu_ps(table), index);
    }
};
#endif
#if defined(__AVX512F__)
template <>
struct Pick8<xsimd::batch<float, xsimd::avx512f>> {
    using Index = __m512i;
    static Index SegmentOf(xsimd::batch<float, xsimd::avx512f> h) {
        const __m512i q = _mm512_cvttps_epi32(_mm512_mul_ps(h, _mm512_set1_ps(1.0f / 30)));
        const __m512i segment = _mm512_permutexvar_epi32(q, _mm512_loadu_si512(kStepSegment));
        const __mmask16 below =
            _mm512_cmp_ps_mask(h, _mm512_permutexvar_ps(segment, _mm512_loadu_ps(kSegmentStart)), _CMP_LT_OQ);
        return _mm512_mask_sub_epi32(segment, below, segment, _mm512_set1_epi32(1));
    }
    static xsimd::batch<float, xsimd::avx512f> Pick(const float* table, Index index) {
        const __m512 entries = _mm512_castps256_ps512(_mm256_loadu_ps(table));  // lanes 8..15 never picked
        return _mm512_permutexvar_ps(index, entries);
    }
};
#endif

// Twins pick half by half.
template <class B>
struct Pick8<Twin<B>> {
    struct Index {
        typename Pick8<B>::Index a, b;
    };
    static Index SegmentOf(Twin<B> h) { return {Pick8<B>::SegmentOf(h.a), Pick8<B>::SegmentOf(h.b)}; }
    static Twin<B> Pick(const float* table, Index index) {
        return {Pick8<B>::Pick(table, index.a), Pick8<B>::Pick(table, index.b)};
    }
};

// What moves a pixel: the hue shift in units of 30 degrees, the saturation amount and the
// luminance amount at its hue (band sums or curves), 0 for a grey.
template <class B>
struct Amounts {
    B hue, saturation, luminance;
};

// The hexcone hue in [0, 360) of R, G, B (NaN or inf for greys, which the caller masks).
template <class B>
inline B Hue(B r, B g, B b, B hi, B d) {
    // 60 (g - b) / d where red is largest, 60 ((b - r) / d + 2) where green is, 60 ((r - g) / d + 4)
    // where blue is: one division, the offset added only where it is not 0.
    const auto red = r == hi, green = g == hi;
    const B ratio = Select(red, g - b, Select(green, b - r, r - g)) / d;
    const B h = B(60.0f) * Select(red, ratio, ratio + Select(green, B(2.0f), B(4.0f)));
    // Only red's hue can be negative; -tiny + 360 rounds to 360, which wraps to 0 (as 360 - 360).
    const B turned = h + B(360.0f);
    return Select(h < B(0.0f), Select(turned >= B(360.0f), B(0.0f), turned), h);
}

// Tent weights between neighbouring centres: in segment k (centre k <= h < centre k + 1),
// t = (h - c_k) x (the float nearest 1 / (c_k+1 - c_k)), band k weighs 1 - t and band k + 1
// (mod 8) t. The segment's centre, width and both neighbours' amounts are looked up per lane.
// Lanes in no segment (a grey's NaN hue) take segment 0 and are masked by the caller.
template <class B>
struct Segment {
    typename Pick8<B>::Index index;
    B t, one_minus_t;
    explicit Segment(B h) {
        static constexpr float kPerWidth[8] = {1.0f / 30, 1.0f / 30, 1.0f / 60, 1.0f / 60,
                                               1.0f / 60, 1.0f / 30, 1.0f / 30, 1.0f / 60};
        index = Pick8<B>::SegmentOf(h);
        t = (h - Pick8<B>::Pick(kSegmentStart, index)) * Pick8<B>::Pick(kPerWidth, index);
        one_minus_t = B(1.0f) - t;
    }
    // amounts: the eight bands' values, then the same rotated by one (band k + 1 at k).
    B Sum(const float (&amounts)[16]) const {
        return one_minus_t * Pick8<B>::Pick(amounts, index) + t * Pick8<B>::Pick(amounts + 8, index);
    }
};

// T[k] + (T[k + 1] - T[k]) (h - k), k = trunc(h), on a per-degree curve of 361 entries, read from
// pairs {T[k], T[k + 1] - T[k]} made once per call (the same difference the formula takes), so
// one 8-byte fetch per lane serves both terms. Greys' NaN looks up degree 0, then is masked.
// Four lanes fetch one by one; the wide levels gather every lane's pair at once and split the
// terms apart.
template <class B>
struct PairGather {
    using Index = B;  // whole degrees, held as floats
    static Index Truncate(B x) { return xsimd::trunc(x); }
    static B ToFloat(Index k) { return k; }
    static void Fetch(Index k, const double* base, B& t, B& d) {
        alignas(64) float lane[B::size], first[B::size], second[B::size];
        k.store_aligned(lane);
        const float* pairs = reinterpret_cast<const float*>(base);
        for (size_t i = 0; i < B::size; ++i) {
            const int32_t at = static_cast<int32_t>(lane[i]);
            first[i] = pairs[2 * at], second[i] = pairs[2 * at + 1];
        }
        t = B::load_aligned(first), d = B::load_aligned(second);
    }
};
#if defined(__AVX2__)
template <>
struct PairGather<xsimd::batch<float, xsimd::avx2>> {
    using B = xsimd::batch<float, xsimd::avx2>;
    using Index = __m256i;
    static Index Truncate(B x) { return _mm256_cvttps_epi32(x); }
    static B ToFloat(Index k) { return _mm256_cvtepi32_ps(k); }
    static void Fetch(Index k, const double* base, B& t, B& d) {
        // The masked form with a zero source: the plain one starts from an undefined vector,
        // which GCC 12 warns about.
        const __m256d all = _mm256_castsi256_pd(_mm256_set1_epi64x(-1)), none = _mm256_setzero_pd();
        const __m256 low = _mm256_castpd_ps(_mm256_mask_i32gather_pd(none, base, _mm256_castsi256_si128(k), all, 8));
        const __m256 high =
            _mm256_castpd_ps(_mm256_mask_i32gather_pd(none, base, _mm256_extracti128_si256(k, 1), all, 8));
        const __m256i even = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6), odd = _mm256_setr_epi32(1, 3, 5, 7, 1, 3, 5, 7);
        t = _mm256_blend_ps(_mm256_permutevar8x32_ps(low, even), _mm256_permutevar8x32_ps(high, even), 0xF0);
        d = _mm256_blend_ps(_mm256_permutevar8x32_ps(low, odd), _mm256_permutevar8x32_ps(high, odd), 0xF0);
    }
};
#endif
#if defined(__AVX512F__)
template <>
struct PairGather<xsimd::batch<float, xsimd::avx512f>> {
    using B = xsimd::batch<float, xsimd::avx512f>;
    using Index = __m512i;
    static Index Truncate(B x) { return _mm512_cvttps_epi32(x); }
    static B ToFloat(Index k) { return _mm512_cvtepi32_ps(k); }
    static void Fetch(Index k, const double* base, B& t, B& d) {
        const __m512 low = _mm512_castpd_ps(_mm512_i32gather_pd(_mm512_castsi512_si256(k), base, 8));
        const __m512 high = _mm512_castpd_ps(_mm512_i32gather_pd(_mm512_extracti64x4_epi64(k, 1), base, 8));
        const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
        t = _mm512_permutex2var_ps(low, even, high);
        d = _mm512_permutex2var_ps(low, _mm512_add_epi32(even, _mm512_set1_epi32(1)), high);
    }
};
#endif
template <class B, class G = PairGather<B>>
inline B DegreeCurve(B h, const float* pairs) {
    const B x = xsimd::select(h >= B(0.0f) && h < B(360.0f), h, B(0.0f));
    const typename G::Index k = G::Truncate(x);
    B t, d;
    G::Fetch(k, reinterpret_cast<const double*>(pairs), t, d);
    return t + d * (x - G::ToFloat(k));
}

template <class B>
inline Twin<B> DegreeCurve(Twin<B> h, const float* pairs) {
    return {DegreeCurve(h.a, pairs), DegreeCurve(h.b, pairs)};
}

// R, G, B of HSV (h in degrees, any value: wrapped to [0, 360)), sector by sector.
template <class B>
inline void FromHsv(B h, B s, B v, B& r, B& g, B& b) {
    // Whole turns off by the float nearest 1/360, sixths of a turn by the float nearest 1/60:
    // multiplications, not divisions (both land within a rounding step of the true quotients).
    h = h - B(360.0f) * Floor(h * B(1.0f / 360.0f));
    const B sixths = h * B(1.0f / 60.0f);
    const B sector = Min(Floor(sixths), B(5.0f));
    const B f = sixths - sector, one(1.0f);
    const B p = v * (one - s), q = v * (one - s * f), t = v * (one - s * (one - f));
    // By sector 0..5: R = v q p p t v, G = t v v q p p, B = p p t v v q; each channel changes
    // value at only a few sector boundaries, taken in rising order.
    const auto from1 = sector >= B(1.0f), from2 = sector >= B(2.0f), from3 = sector >= B(3.0f);
    const auto from4 = sector >= B(4.0f), from5 = sector >= B(5.0f);
    r = Select(from5, v, Select(from4, t, Select(from2, p, Select(from1, q, v))));
    g = Select(from4, p, Select(from3, q, Select(from1, v, t)));
    b = Select(from5, q, Select(from3, v, Select(from2, t, p)));
}

// The edit on planes, in this order: the hue shifted by 30 degrees times the hue amount and R, G,
// B rebuilt at the same HSV saturation and value; saturation mixed around the shifted pixel's Y;
// R, G, B times 2^(s x luminance amount), s the original chroma ratio. A zero amount skips its
// step, lane by lane, so it changes no bit; greys get all amounts 0.
template <class B, class AmountsAt>
[[gnu::always_inline]] inline void Edit(B (&v)[4], const AmountsAt& amounts_at) {
    const B r = v[0], g = v[1], b = v[2], zero(0.0f);
    const B hi = Max(Max(r, g), b), lo = Min(Min(r, g), b), d = hi - lo;
    const auto grey = d == zero || hi <= B(color::kGainEpsilon);
    const B chroma = Select(grey, zero, d / hi);
    const B h = Hue(r, g, b, hi, d);
    const Amounts<B> a = amounts_at(h);
    const B hue = Select(grey, zero, a.hue), sat = Select(grey, zero, a.saturation);
    const B lum = Select(grey, zero, a.luminance);
    B c[3];
    FromHsv(h + B(30.0f) * hue, chroma, hi, c[0], c[1], c[2]);
    const auto turn = hue != zero;
    for (int i = 0; i < 3; ++i) c[i] = Select(turn, c[i], v[i]);
    const B y = color::LumaProPhoto(c[0], c[1], c[2]);
    const B gain = Exp2(chroma * lum);
    for (int i = 0; i < 3; ++i) v[i] = Select(sat != zero, y + (c[i] - y) * (B(1.0f) + sat), c[i]) * gain;
}

// The bands as lookup tables: each sum's eight amounts and the same rotated by one.
struct Bands {
    float table[3][16];
    explicit Bands(const float* bands) {
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 8; ++k) table[j][k] = bands[8 * j + k], table[j][8 + k] = bands[8 * j + (k + 1) % 8];
    }
    template <class B>
    Amounts<B> operator()(B h) const {
        const Segment<B> segment(h);
        return {segment.Sum(table[0]), segment.Sum(table[1]), segment.Sum(table[2])};
    }
};

// The three per-degree curves (361 entries each) as lookup pairs.
struct Curves {
    alignas(64) float pairs[3][720];
    explicit Curves(const float* curves) {
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 360; ++k) {
                const float* c = curves + 361 * j;
                pairs[j][2 * k] = c[k], pairs[j][2 * k + 1] = c[k + 1] - c[k];
            }
    }
    template <class B>
    Amounts<B> operator()(B h) const {
        return {DegreeCurve(h, pairs[0]), DegreeCurve(h, pairs[1]), DegreeCurve(h, pairs[2])};
    }
};

// The edit in place on four-float pixels, two vectors at a time as a twin.
template <class B, class AmountsAt>
void Rows(float* image, int32_t step, int32_t width, int32_t height, const AmountsAt& at) {
    color::TwinRows<B, color::Rgba128, color::Rgba128>(image, step, image, step, width, height,
                                                        [&](auto& v) { Edit(v, at); });
}

// The wider bodies, run only when the processor has the level.
void BandRowsAvx2(float* image, int32_t step, int32_t width, int32_t height, const Bands& bands);
void BandRowsAvx512(float* image, int32_t step, int32_t width, int32_t height, const Bands& bands);
void CurveRowsAvx2(float* image, int32_t step, int32_t width, int32_t height, const Curves& curves);
void CurveRowsAvx512(float* image, int32_t step, int32_t width, int32_t height, const Curves& curves);

}  // namespace velmora::adjust::hsl
