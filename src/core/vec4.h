// A thin layer of named helpers over the four-float SSE2 vector: what every kernel repeats
// (loads, stores, clamping, rounding, packing). Raw intrinsics stay fine inside a kernel where
// a helper would hide the point.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace velmora::v4 {

// The floats nearest 1/255 (0x3B808081) and 1/65535 (0x37800080): integer codes are multiplied
// by these, never divided, so every conversion to float agrees bit for bit.
inline constexpr float kInv255 = 0.003921569f;
inline constexpr float kInv65535 = 1.5259022e-05f;

// Host planes promise no alignment unless a kernel checked it, so the plain forms are unaligned.
inline __m128 Load(const float* p) { return _mm_loadu_ps(p); }
inline __m128 LoadAligned(const float* p) { return _mm_load_ps(p); }
inline void Store(float* p, __m128 v) { _mm_storeu_ps(p, v); }
inline void StoreAligned(float* p, __m128 v) { _mm_store_ps(p, v); }
inline __m128i LoadI(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i LoadIAligned(const void* p) { return _mm_load_si128(static_cast<const __m128i*>(p)); }
inline void StoreI(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
inline void StoreIAligned(void* p, __m128i v) { _mm_store_si128(static_cast<__m128i*>(p), v); }
inline __m128i Load64(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline void Store64(void* p, __m128i v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }
inline __m128i Load32(const void* p) {
    int32_t word;
    __builtin_memcpy(&word, p, 4);
    return _mm_cvtsi32_si128(word);
}
inline void Store32(void* p, __m128i v) {
    const int32_t word = _mm_cvtsi128_si32(v);
    __builtin_memcpy(p, &word, 4);
}

inline __m128 Set1(float f) { return _mm_set1_ps(f); }
inline __m128 Zero() { return _mm_setzero_ps(); }

// Clamps to [0, 1]. The maximum with zero comes first and takes zero as its second operand,
// which SSE returns when the first is NaN: NaN therefore becomes 0, as integer outputs promise.
inline __m128 Clamp01(__m128 v) { return _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(1.f)); }

// Rounds half to even: _mm_cvtps_epi32 obeys MXCSR, which the host leaves at its default.
inline __m128i RoundToInt(__m128 v) { return _mm_cvtps_epi32(v); }

// Picks b where the mask lanes are set, a elsewhere.
inline __m128 Select(__m128 a, __m128 b, __m128 mask) {
    return _mm_or_ps(_mm_andnot_ps(mask, a), _mm_and_ps(mask, b));
}
inline __m128i Select(__m128i a, __m128i b, __m128i mask) {
    return _mm_or_si128(_mm_andnot_si128(mask, a), _mm_and_si128(mask, b));
}

// Exchanges lanes 0 and 2 (R, G, B, A <-> B, G, R, A).
inline __m128 SwapRB(__m128 v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 0, 1, 2)); }

template <int Lane>
inline __m128 Broadcast(__m128 v) {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(Lane, Lane, Lane, Lane));
}

// Widening of packed bytes and words to 32-bit lanes (zero extension).
inline __m128i WidenLo8(__m128i v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }
inline __m128i WidenHi8(__m128i v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }
inline __m128i WidenLo16(__m128i v) { return _mm_unpacklo_epi16(v, _mm_setzero_si128()); }
inline __m128i WidenHi16(__m128i v) { return _mm_unpackhi_epi16(v, _mm_setzero_si128()); }

// Four bytes (one 8-bit pixel) to four floats.
inline __m128 BytesToFloat(__m128i four_bytes_low) { return _mm_cvtepi32_ps(WidenLo16(WidenLo8(four_bytes_low))); }

// A row of four-byte pixels as four floats each (the byte values, unscaled), four pixels a
// load; reads exactly the row's bytes.
inline void BytePixelsToFloats(const uint8_t* row, float* out, int32_t pixels) {
    int32_t x = 0;
    for (; x + 4 <= pixels; x += 4) {
        const __m128i px = LoadI(row + 4 * x), lo = WidenLo8(px), hi = WidenHi8(px);
        Store(out + 4 * x, _mm_cvtepi32_ps(WidenLo16(lo)));
        Store(out + 4 * x + 4, _mm_cvtepi32_ps(WidenHi16(lo)));
        Store(out + 4 * x + 8, _mm_cvtepi32_ps(WidenLo16(hi)));
        Store(out + 4 * x + 12, _mm_cvtepi32_ps(WidenHi16(hi)));
    }
    for (; x < pixels; ++x) Store(out + 4 * x, BytesToFloat(Load32(row + 4 * x)));
}

// Packs 16 int32 lanes (values already in 0..255 or saturating) to 16 bytes: signed
// saturation to 16 bits, then unsigned saturation to 8 bits.
inline __m128i PackToBytes(__m128i a, __m128i b, __m128i c, __m128i d) {
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

// Eight int32 lanes known to lie in 0..65535 to eight uint16: biased into the signed range so
// the signed pack cannot saturate, then the bias is flipped back in the top bit.
inline __m128i PackToWords(__m128i a, __m128i b) {
    const __m128i bias = _mm_set1_epi32(32768);
    return _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(a, bias), _mm_sub_epi32(b, bias)), _mm_set1_epi16(-32768));
}

// Clamped, scaled and rounded: float lanes in nominal [0, 1] to integer codes.
inline __m128i ToCode(__m128 v, __m128 scale) { return RoundToInt(_mm_mul_ps(Clamp01(v), scale)); }

inline void Transpose4(__m128& a, __m128& b, __m128& c, __m128& d) { _MM_TRANSPOSE4_PS(a, b, c, d); }

}  // namespace velmora::v4
