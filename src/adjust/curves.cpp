// Tone curves: every sample of the region is mapped through a float table the host sampled
// from its curve, with linear interpolation between neighbouring entries.
//
// An input at table position p uses T[k] and T[k + 1], k = trunc(p). The largest position is
// the table's interval count, so the top input reads the entry one past the last interval:
// tables carry one extra entry (the end value repeated). The kernels read nothing else of the
// table and nothing outside the region of the planes; there is no overrun.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "adjust/curves_avx2.h"
#include "adjust/curves_pairs.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/stream.h"
#include "core/vec4.h"

namespace velmora::curves {
namespace {

using v4::kInv65535;

// T[k] + (T[k + 1] - T[k]) * (p - k) for four non-negative positions. Each neighbour pair is one
// 64-bit load; the pairs are then split into the lower and upper entries. With KeepAlpha the
// four lanes are one pixel whose alpha lane is not looked up (it comes out 0).
template <bool KeepAlpha = false>
inline __m128 Interpolate(__m128 p, const float* table) {
    const __m128i k = _mm_cvttps_epi32(p);
    const __m128 frac = _mm_sub_ps(p, _mm_cvtepi32_ps(k));
    const __m128 pairs01 = TwoPairs(table, LowLanes(k));
    const __m128 pairs23 = HighPairs<KeepAlpha>(table, k);
    const __m128 lower = _mm_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(2, 0, 2, 0));
    const __m128 upper = _mm_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(3, 1, 3, 1));
    return _mm_add_ps(lower, _mm_mul_ps(_mm_sub_ps(upper, lower), frac));
}

// ---- 16-bit samples -------------------------------------------------------------------------

// Four codes (int32 lanes) through the curve, back to codes: clamped to [0, 1] (NaN from the
// table becomes 0), scaled and rounded half up by adding 0.5 before truncation.
template <bool KeepAlpha = false>
inline __m128i MapCodes(__m128i codes, const float* table, __m128 scale) {
    const __m128 p = _mm_mul_ps(_mm_cvtepi32_ps(codes), scale);
    const __m128 v = v4::Clamp01(Interpolate<KeepAlpha>(p, table));
    return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, v4::Set1(65535.f)), v4::Set1(0.5f)));
}

// Samples a row of `count` codes, eight a step. KeepAlpha rows hold four-channel pixels whose
// fourth sample is left as the destination had it: that lane is not looked up and the old
// destination value is merged back. Leftovers go one sample (one pixel with alpha) at a time
// through the same arithmetic.
template <bool Aligned, bool KeepAlpha>
void Curve16Row(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, __m128 scale) {
    const __m128i alpha = _mm_set_epi16(-1, 0, 0, 0, -1, 0, 0, 0);
    // Eight codes through the curve; `old` is the destination's previous content, read only to
    // keep its alpha.
    const auto map8 = [&](__m128i codes, __m128i old) {
        const __m128i lo = MapCodes<KeepAlpha>(v4::WidenLo16(codes), table, scale);
        const __m128i hi = MapCodes<KeepAlpha>(v4::WidenHi16(codes), table, scale);
        const __m128i mapped = v4::PackToWords(lo, hi);  // codes are clamped to 0..65535
        if constexpr (KeepAlpha) return v4::Select(mapped, old, alpha);
        else return mapped;
    };
    const auto load = [](const uint16_t* p) { return Aligned ? v4::LoadIAligned(p) : v4::LoadI(p); };
    int32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i mapped = map8(load(src + i), KeepAlpha ? load(dst + i) : _mm_setzero_si128());
        if constexpr (Aligned) v4::StoreIAligned(dst + i, mapped);
        else v4::StoreI(dst + i, mapped);
    }
    if constexpr (KeepAlpha) {
        for (; i + 4 <= count; i += 4) v4::Store64(dst + i, map8(v4::Load64(src + i), v4::Load64(dst + i)));
    } else {
        for (; i < count; ++i)
            dst[i] = static_cast<uint16_t>(_mm_cvtsi128_si32(MapCodes(_mm_cvtsi32_si128(src[i]), table, scale)));
    }
}

bool Aligned16(const void* a, const void* b) {
    return ((reinterpret_cast<uintptr_t>(a) | reinterpret_cast<uintptr_t>(b)) & 15u) == 0;
}

// The 16-bit kernel over `samples_per_pixel`-sample pixels. n is the table's interval count:
// code c sits at position c * n / 65535.
template <bool KeepAlpha>
StatusCode Curve16(const uint16_t* src, int32_t src_step, uint16_t* dst, int32_t dst_step, int32_t x, int32_t y,
                   int32_t width, int32_t height, const float* table, int32_t n) {
    if (height < 1) return StatusOk;
    const float factor = static_cast<float>(n) * kInv65535;
    const __m128 scale = v4::Set1(factor);
    const bool avx2 = cpu::Has(cpu::Level::Avx2);
    src = frame::Row(src, src_step, y) + x;
    dst = frame::Row(dst, dst_step, y) + x;
    for (int32_t row = 0; row < height; ++row) {
        const uint16_t* s = frame::Row(src, src_step, row);
        uint16_t* d = frame::Row(dst, dst_step, row);
        int32_t done = 0;
        if (avx2)
            done = KeepAlpha ? Curve16AlphaRowAvx2(s, d, width, table, factor) : Curve16RowAvx2(s, d, width, table, factor);
        if (Aligned16(s + done, d + done)) Curve16Row<true, KeepAlpha>(s + done, d + done, width - done, table, scale);
        else Curve16Row<false, KeepAlpha>(s + done, d + done, width - done, table, scale);
    }
    return StatusOk;
}

// ---- Float samples ----------------------------------------------------------------------------

// Whether the AVX2 float bodies stream a destination of width x height items of item_bytes.
inline bool Streams(const void* src, const void* dst, int32_t width, int32_t height, int64_t item_bytes) {
    return width > 0 && stream::Worthwhile(src, dst, int64_t{width} * height * item_bytes);
}

// Inputs are clamped to [0, 1] first (NaN becomes 0), so positions stay inside [0, scale]; the
// result is stored unclamped, so tables may leave [0, 1].
inline __m128 MapFloats(__m128 v, const float* table, __m128 scale) {
    return Interpolate(_mm_mul_ps(v4::Clamp01(v), scale), table);
}

template <bool SrcAligned, bool DstAligned>
void Curve32Row(const float* src, float* dst, int32_t count, const float* table, __m128 scale) {
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128 v = SrcAligned ? v4::LoadAligned(src + i) : v4::Load(src + i);
        const __m128 mapped = MapFloats(v, table, scale);
        if constexpr (DstAligned) v4::StoreAligned(dst + i, mapped);
        else v4::Store(dst + i, mapped);
    }
    for (; i < count; ++i) _mm_store_ss(dst + i, MapFloats(_mm_load_ss(src + i), table, scale));
}

StatusCode Curve32(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x, int32_t y,
                   int32_t width, int32_t height, const float* table, float scale) {
    if (height < 1) return StatusOk;
    const __m128 s = v4::Set1(scale);
    // One row body per combination of source and destination alignment.
    using RowFn = void (*)(const float*, float*, int32_t, const float*, __m128);
    constexpr RowFn kRows[4] = {Curve32Row<false, false>, Curve32Row<false, true>, Curve32Row<true, false>,
                                Curve32Row<true, true>};
    const bool avx2 = cpu::Has(cpu::Level::Avx2);
    const bool stream = Streams(src, dst, width, height, 4);
    src = frame::Row(src, src_step, y) + x;
    dst = frame::Row(dst, dst_step, y) + x;
    for (int32_t row = 0; row < height; ++row) {
        const float* r = frame::Row(src, src_step, row);
        float* w = frame::Row(dst, dst_step, row);
        int32_t done = 0;
        if (avx2) done = Curve32RowAvx2(r, w, width, table, scale, stream);
        r += done;
        w += done;
        const int src_aligned = (reinterpret_cast<uintptr_t>(r) & 15u) == 0;
        const int dst_aligned = (reinterpret_cast<uintptr_t>(w) & 15u) == 0;
        kRows[src_aligned * 2 + dst_aligned](r, w, width - done, table, s);
    }
    return StatusOk;
}

// ---- Four curves over four-channel float pixels ----------------------------------------------

// The table is an array of four-float records, record i holding every channel's value at
// position i; channel c of a pixel reads column c. Each pixel's four positions pick their own
// records, and the diagonal of those four records is the pixel's lower (or upper) entries.
inline __m128 Diagonal(__m128 r0, __m128 r1, __m128 r2, __m128 r3) {
    const __m128 first_two = _mm_move_ss(r1, r0);                            // r0.x r1.y . .
    const __m128 last_two = _mm_shuffle_ps(r2, r3, _MM_SHUFFLE(3, 2, 3, 2));  // r2.z . . r3.w
    return _mm_shuffle_ps(first_two, last_two, _MM_SHUFFLE(3, 0, 1, 0));
}

// Record positions whose entry offsets 4k still fit in 32 bits.
constexpr float kOffsetReach = 536870912.f;

inline __m128 MapPixel(__m128 v, const float* table, __m128 scale) {
    const __m128 p = _mm_mul_ps(v4::Clamp01(v), scale);
    const __m128i k = _mm_cvttps_epi32(p);
    const __m128 frac = _mm_sub_ps(p, _mm_cvtepi32_ps(k));
    const TwoOffsets k01 = LowLanes(k), k23 = HighLanes(k);
    const float* r0 = table + 4 * k01.first;
    const float* r1 = table + 4 * k01.second;
    const float* r2 = table + 4 * k23.first;
    const float* r3 = table + 4 * k23.second;
    const __m128 lower = Diagonal(v4::Load(r0), v4::Load(r1), v4::Load(r2), v4::Load(r3));
    const __m128 upper = Diagonal(v4::Load(r0 + 4), v4::Load(r1 + 4), v4::Load(r2 + 4), v4::Load(r3 + 4));
    return _mm_add_ps(lower, _mm_mul_ps(_mm_sub_ps(upper, lower), frac));
}

StatusCode Curve4(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t x, int32_t y,
                  int32_t width, int32_t height, const float* table, float scale) {
    if (height < 1) return StatusOk;
    const __m128 s = v4::Set1(scale);
    // The AVX2 body forms record offsets 4k in 32 bits: positions that far out, or a NaN scale,
    // stay on the SSE2 body, which forms its addresses in pointer width.
    const bool avx2 = cpu::Has(cpu::Level::Avx2) && scale > -kOffsetReach && scale < kOffsetReach;
    const bool stream = Streams(src, dst, width, height, 16);
    src = frame::Row(src, src_step, y) + 4 * ptrdiff_t{x};
    dst = frame::Row(dst, dst_step, y) + 4 * ptrdiff_t{x};
    for (int32_t row = 0; row < height; ++row) {
        const float* r = frame::Row(src, src_step, row);
        float* w = frame::Row(dst, dst_step, row);
        const int32_t done = avx2 ? Curve4RowAvx2(r, w, width, table, scale, stream) : 0;
        for (int32_t i = done; i < width; ++i) v4::Store(w + 4 * i, MapPixel(v4::Load(r + 4 * i), table, s));
    }
    return StatusOk;
}

}  // namespace
}  // namespace velmora::curves

using namespace velmora::curves;

// 16-bit: the tenth argument is the table's interval count n (the table holds n + 2 entries).
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C1R(const uint16_t* src, int32_t src_step, uint16_t* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, int32_t n) {
    return Curve16<false>(src, src_step, dst, dst_step, x, y, width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C3R(const uint16_t* src, int32_t src_step, uint16_t* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, int32_t n) {
    return Curve_16u_C1R(src, src_step, dst, dst_step, 3 * x, y, 3 * width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C4R(const uint16_t* src, int32_t src_step, uint16_t* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, int32_t n) {
    return Curve_16u_C1R(src, src_step, dst, dst_step, 4 * x, y, 4 * width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_AC4R(const uint16_t* src, int32_t src_step, uint16_t* dst,
                                                              int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                              int32_t height, const float* table, int32_t n) {
    return Curve16<true>(src, src_step, dst, dst_step, 4 * x, y, 4 * width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C1IR(uint16_t* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              int32_t n) {
    return Curve_16u_C1R(data, step, data, step, x, y, width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C3IR(uint16_t* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              int32_t n) {
    return Curve_16u_C3R(data, step, data, step, x, y, width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_C4IR(uint16_t* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              int32_t n) {
    return Curve_16u_C4R(data, step, data, step, x, y, width, height, table, n);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_16u_AC4IR(uint16_t* data, int32_t step, int32_t x, int32_t y,
                                                               int32_t width, int32_t height, const float* table,
                                                               int32_t n) {
    return Curve_16u_AC4R(data, step, data, step, x, y, width, height, table, n);
}

// Float: the tenth argument scales the clamped input to a table position.
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C1R(const float* src, int32_t src_step, float* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, float scale) {
    return Curve32(src, src_step, dst, dst_step, x, y, width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C3R(const float* src, int32_t src_step, float* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, float scale) {
    return Curve_32f_C1R(src, src_step, dst, dst_step, 3 * x, y, 3 * width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C4R(const float* src, int32_t src_step, float* dst,
                                                             int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                             int32_t height, const float* table, float scale) {
    return Curve_32f_C1R(src, src_step, dst, dst_step, 4 * x, y, 4 * width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C1IR(float* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              float scale) {
    return Curve_32f_C1R(data, step, data, step, x, y, width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C3IR(float* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              float scale) {
    return Curve_32f_C3R(data, step, data, step, x, y, width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve_32f_C4IR(float* data, int32_t step, int32_t x, int32_t y,
                                                              int32_t width, int32_t height, const float* table,
                                                              float scale) {
    return Curve_32f_C4R(data, step, data, step, x, y, width, height, table, scale);
}

// Four curves: the table is trunc(scale) + 2 records of four floats, one column per channel.
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve4_32f_C4R(const float* src, int32_t src_step, float* dst,
                                                              int32_t dst_step, int32_t x, int32_t y, int32_t width,
                                                              int32_t height, const float* table, float scale) {
    return Curve4(src, src_step, dst, dst_step, x, y, width, height, table, scale);
}
extern "C" VELMORA_API StatusCode VELMORA_CALL Curve4_32f_C4IR(float* data, int32_t step, int32_t x, int32_t y,
                                                               int32_t width, int32_t height, const float* table,
                                                               float scale) {
    return Curve4_32f_C4R(data, step, data, step, x, y, width, height, table, scale);
}
