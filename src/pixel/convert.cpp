// Conversions between packed 8/16-bit pixels and the four-float working formats. Integer codes
// map linearly onto [0, 1] and back; no transfer function and no colour management happen here.
//
// What each kernel touches outside the region (callers allocate rows with that room):
//  - the two-pixel kernels (8-bit to float, float to 16-bit) round odd widths up by one pixel;
//  - the four-pixel float-to-8-bit kernels round widths up to a multiple of four;
//  - the gray, Bgr24 and 16-bit-to-float kernels touch exactly the region (partial blocks run the
//    block's own arithmetic on a copy held on the stack).
#include <emmintrin.h>

#include <bit>
#include <cstring>
#include <type_traits>

#include "core/frame.h"
#include "core/stream.h"
#include "core/vec4.h"

namespace velmora::pixel {
namespace {

using namespace velmora::v4;

static_assert(std::bit_cast<uint32_t>(kInv255) == 0x3B808081u);
static_assert(std::bit_cast<uint32_t>(kInv65535) == 0x37800080u);

// How a row kernel stores: unaligned, aligned, or aligned with streaming stores for large
// destinations (the policy in core/stream.h). The arithmetic is the same for all three.
enum class Access { Unaligned, Aligned, Stream };

template <Access kAccess>
inline void Put(float* p, __m128 v) {
    if constexpr (kAccess == Access::Stream) _mm_stream_ps(p, v);
    else if constexpr (kAccess == Access::Aligned) StoreAligned(p, v);
    else Store(p, v);
}
template <Access kAccess>
inline void PutI(void* p, __m128i v) {
    if constexpr (kAccess == Access::Stream) _mm_stream_si128(static_cast<__m128i*>(p), v);
    else if constexpr (kAccess == Access::Aligned) StoreIAligned(p, v);
    else StoreI(p, v);
}

// Aligned destination rows (pointer and step) take aligned stores, and stream when the
// destination is large and not the source.
inline Access DestinationAccess(const void* src, const void* dst, int32_t dst_step, const ImageSize* roi,
                                int dst_pixel_bytes) {
    if (((reinterpret_cast<uintptr_t>(dst) | static_cast<uint32_t>(dst_step)) & 15u) != 0) return Access::Unaligned;
    const int64_t bytes = roi->width > 0 && roi->height > 0 ? int64_t{roi->width} * roi->height * dst_pixel_bytes : 0;
    return stream::Worthwhile(src, dst, bytes) ? Access::Stream : Access::Aligned;
}

// Calls fn with the access as a compile-time constant, and orders streamed stores before the
// kernel returns.
template <class Fn>
inline void WithAccess(Access access, Fn&& fn) {
    switch (access) {
        case Access::Unaligned: fn(std::integral_constant<Access, Access::Unaligned>{}); break;
        case Access::Aligned: fn(std::integral_constant<Access, Access::Aligned>{}); break;
        case Access::Stream:
            fn(std::integral_constant<Access, Access::Stream>{});
            _mm_sfence();
            break;
    }
}

// ---- 8-bit to float, two pixels a step ------------------------------------------------------

enum class Order { Keep, SwapRB };

// One 8-bit pixel (four bytes in the low lane) to four scaled floats, R and B exchanged when the
// source is B, G, R, A; premultiplied output scales the colour lanes by the scaled alpha and
// keeps the alpha itself.
template <Order kOrder, bool kPremultiply>
inline __m128 BytePixelToFloat(__m128i pixel_words) {
    __m128 v = _mm_mul_ps(_mm_cvtepi32_ps(WidenLo16(pixel_words)), Set1(kInv255));
    if constexpr (kOrder == Order::SwapRB) v = SwapRB(v);
    if constexpr (kPremultiply) {
        const __m128 alpha = Broadcast<3>(v);
        const __m128 alpha_lane = _mm_castsi128_ps(_mm_set_epi32(-1, 0, 0, 0));
        v = Select(_mm_mul_ps(v, alpha), alpha, alpha_lane);
    }
    return v;
}

template <Order kOrder, bool kPremultiply, Access kDst>
void BytesToFloatRow(const uint8_t* src, float* dst, int32_t width) {
    const int32_t pixels = (width + 1) & ~1;  // odd widths convert one pixel past the region
    int32_t i = 0;
    // Four pixels at a time while they stay inside the rounded width, pairs after: the result
    // and the bytes touched are those of the plain two-pixel walk.
    for (; i + 4 <= pixels; i += 4) {
        const __m128i words_lo = WidenLo8(LoadI(src + 4 * i));
        const __m128i words_hi = WidenHi8(LoadI(src + 4 * i));
        Put<kDst>(dst + 4 * i, BytePixelToFloat<kOrder, kPremultiply>(words_lo));
        Put<kDst>(dst + 4 * i + 4, BytePixelToFloat<kOrder, kPremultiply>(_mm_srli_si128(words_lo, 8)));
        Put<kDst>(dst + 4 * i + 8, BytePixelToFloat<kOrder, kPremultiply>(words_hi));
        Put<kDst>(dst + 4 * i + 12, BytePixelToFloat<kOrder, kPremultiply>(_mm_srli_si128(words_hi, 8)));
    }
    for (; i < pixels; i += 2) {
        const __m128i words = WidenLo8(Load64(src + 4 * i));
        Put<kDst>(dst + 4 * i, BytePixelToFloat<kOrder, kPremultiply>(words));
        Put<kDst>(dst + 4 * i + 4, BytePixelToFloat<kOrder, kPremultiply>(_mm_srli_si128(words, 8)));
    }
}

// ---- 16-bit to float ------------------------------------------------------------------------

template <Access kAccess>
inline __m128i LoadBlock(const void* p) {
    return kAccess == Access::Unaligned ? LoadI(p) : LoadIAligned(p);
}

template <Access kSrc, Access kDst>
void WordsToFloatRow(const uint16_t* src, float* dst, int32_t width) {
    const __m128 scale = Set1(kInv65535);
    const int32_t pairs = width >> 1;
    for (int32_t p = 0; p < pairs; ++p) {
        const __m128i words = LoadBlock<kSrc>(src + 8 * p);
        Put<kDst>(dst + 8 * p, _mm_mul_ps(_mm_cvtepi32_ps(WidenLo16(words)), scale));
        Put<kDst>(dst + 8 * p + 4, _mm_mul_ps(_mm_cvtepi32_ps(WidenHi16(words)), scale));
    }
    // The last pixel of an odd row, alone, so nothing past it is touched. Negative widths (whose
    // arithmetic shift leaves pairs * 2 below the width) process nothing.
    if (width > 0 && pairs * 2 < width) {
        const __m128i words = Load64(src + 8 * pairs);
        Put<kDst>(dst + 8 * pairs, _mm_mul_ps(_mm_cvtepi32_ps(WidenLo16(words)), scale));
    }
}

// ---- float to 8 and 16 bits -----------------------------------------------------------------

// Four float pixels to 16 bytes: clamped (NaN to 0), scaled by 255, rounded half to even,
// packed with saturation.
template <Order kOrder>
inline __m128i FourPixelsToBytes(const float* src) {
    const __m128 scale = Set1(255.0f);
    __m128 p[4] = {Load(src), Load(src + 4), Load(src + 8), Load(src + 12)};
    if constexpr (kOrder == Order::SwapRB)
        for (__m128& v : p) v = SwapRB(v);
    return PackToBytes(ToCode(p[0], scale), ToCode(p[1], scale), ToCode(p[2], scale), ToCode(p[3], scale));
}

template <Order kOrder, Access kDst>
void FloatToBytesRow(const float* src, uint8_t* dst, int32_t width) {
    for (int32_t i = 0; i < width; i += 4) {  // widths round up to four pixels
        PutI<kDst>(dst + 4 * i, FourPixelsToBytes<kOrder>(src + 4 * i));
    }
}

template <Access kDst>
inline void TwoPixelsToWords(const float* src, uint16_t* dst) {
    const __m128 scale = Set1(65535.0f);
    PutI<kDst>(dst, PackToWords(ToCode(Load(src), scale), ToCode(Load(src + 4), scale)));
}

template <Access kDst>
void FloatToWordsRow(const float* src, uint16_t* dst, int32_t width) {
    const int32_t pixels = (width + 1) & ~1;  // odd widths write one pixel past the region
    int32_t i = 0;
    for (; i + 4 <= pixels; i += 4) {  // two pairs a step for more work in flight
        TwoPixelsToWords<kDst>(src + 4 * i, dst + 4 * i);
        TwoPixelsToWords<kDst>(src + 4 * i + 8, dst + 4 * i + 8);
    }
    if (i < pixels) TwoPixelsToWords<kDst>(src + 4 * i, dst + 4 * i);
}

// ---- Rgb128F to Bgr24, sixteen pixels (48 bytes) a step -----------------------------------

// Four dwords each holding a pixel's three bytes (B, G, R, x) to the 12 bytes B, G, R, B, G, R...
// at the bottom of the vector: the pixels are joined pairwise inside 64-bit lanes, then the
// upper lane's six bytes are moved down next to the lower lane's.
inline __m128i CompactBgrx(__m128i v) {
    const __m128i bgr = _mm_and_si128(v, _mm_set1_epi32(0x00FFFFFF));
    const __m128i even = _mm_and_si128(bgr, _mm_set_epi32(0, -1, 0, -1));
    const __m128i joined = _mm_or_si128(even, _mm_slli_epi64(_mm_srli_epi64(bgr, 32), 24));
    return _mm_or_si128(_mm_move_epi64(joined), _mm_slli_si128(_mm_srli_si128(joined, 8), 6));
}

// Sixteen float pixels to 48 Bgr24 bytes in three vectors; the fourth float of each pixel is
// dropped after the swap, its byte shifted out by the compaction.
inline void SixteenPixelsToBgr(const float* src, __m128i out[3]) {
    __m128i g[4];
    for (int k = 0; k < 4; ++k) g[k] = CompactBgrx(FourPixelsToBytes<Order::SwapRB>(src + 16 * k));
    out[0] = _mm_or_si128(g[0], _mm_slli_si128(g[1], 12));
    out[1] = _mm_or_si128(_mm_srli_si128(g[1], 4), _mm_slli_si128(g[2], 8));
    out[2] = _mm_or_si128(_mm_srli_si128(g[2], 8), _mm_slli_si128(g[3], 4));
}

// Whole blocks with aligned stores (the checks guarantee aligned rows and 48 is a multiple of 16);
// with kTail the last partial block runs the same arithmetic on a stack copy.
template <bool kTail>
void FloatToBgr24Row(const float* src, uint8_t* dst, int32_t width) {
    const int32_t blocks = width / 16;
    __m128i out[3];
    for (int32_t b = 0; b < blocks; ++b) {
        SixteenPixelsToBgr(src + 64 * b, out);
        for (int k = 0; k < 3; ++k) StoreIAligned(dst + 48 * b + 16 * k, out[k]);
    }
    if constexpr (kTail) {
        const int32_t rest = width - blocks * 16;
        if (rest <= 0) return;
        alignas(16) float in[64] = {};
        alignas(16) uint8_t bytes[48];
        std::memcpy(in, src + 64 * blocks, static_cast<size_t>(rest) * 16);
        SixteenPixelsToBgr(in, out);
        for (int k = 0; k < 3; ++k) StoreIAligned(bytes + 16 * k, out[k]);
        std::memcpy(dst + 48 * blocks, bytes, static_cast<size_t>(rest) * 3);
    }
}

// ---- gray, sixteen pixels a step --------------------------------------------------------------

// Runs block(src16, dst_block) over whole blocks of 16 gray bytes with aligned access, and the
// row's last partial block through a stack copy, so nothing past the region is read or written.
template <int kDstBytesPerPixel, Access kDst, class Block>
void GrayRow(const uint8_t* src, uint8_t* dst, int32_t width, Block&& block) {
    const int32_t blocks = width / 16;
    for (int32_t b = 0; b < blocks; ++b)
        block(LoadIAligned(src + 16 * b), dst + 16 * kDstBytesPerPixel * b, std::integral_constant<Access, kDst>{});
    const int32_t rest = width - blocks * 16;
    if (rest <= 0) return;
    alignas(16) uint8_t in[16] = {};
    alignas(16) uint8_t out[16 * kDstBytesPerPixel];
    std::memcpy(in, src + 16 * blocks, static_cast<size_t>(rest));
    block(LoadIAligned(in), out, std::integral_constant<Access, Access::Aligned>{});
    std::memcpy(dst + 16 * kDstBytesPerPixel * blocks, out, static_cast<size_t>(rest) * kDstBytesPerPixel);
}

// Gray bytes replicated into 4-byte pixels. Gray codes survive the float round trip unchanged,
// so byte unpacking gives the same bytes directly; the alpha byte, when asked for, is the
// constant 1 (not 255), which is what hosts of this kernel have always received.
template <bool kAlphaOne, Access kDst>
void GrayToBgr32Row(const uint8_t* src, uint8_t* dst, int32_t width) {
    GrayRow<4, kDst>(src, dst, width, [](__m128i gray, uint8_t* out, auto access) {
        const __m128i pairs_lo = _mm_unpacklo_epi8(gray, gray), pairs_hi = _mm_unpackhi_epi8(gray, gray);
        __m128i q[4] = {_mm_unpacklo_epi16(pairs_lo, pairs_lo), _mm_unpackhi_epi16(pairs_lo, pairs_lo),
                        _mm_unpacklo_epi16(pairs_hi, pairs_hi), _mm_unpackhi_epi16(pairs_hi, pairs_hi)};
        for (int k = 0; k < 4; ++k) {
            if constexpr (kAlphaOne)
                q[k] = _mm_or_si128(_mm_and_si128(q[k], _mm_set1_epi32(0x00FFFFFF)), _mm_set1_epi32(0x01000000));
            PutI<access.value>(out + 16 * k, q[k]);
        }
    });
}

// Gray bytes to four-float pixels of gray/255, the fourth lane replaced by 1.0 when asked for.
template <bool kAlphaOne, Access kDst>
void GrayToFloatRow(const uint8_t* src, float* dst, int32_t width) {
    GrayRow<16, kDst>(src, reinterpret_cast<uint8_t*>(dst), width, [](__m128i gray, uint8_t* out_bytes, auto access) {
        float* out = reinterpret_cast<float*>(out_bytes);
        const __m128 alpha_lane = _mm_castsi128_ps(_mm_set_epi32(-1, 0, 0, 0));
        const __m128i words[2] = {WidenLo8(gray), WidenHi8(gray)};
        for (int h = 0; h < 2; ++h) {
            const __m128 values[2] = {_mm_mul_ps(_mm_cvtepi32_ps(WidenLo16(words[h])), Set1(kInv255)),
                                      _mm_mul_ps(_mm_cvtepi32_ps(WidenHi16(words[h])), Set1(kInv255))};
            for (int q = 0; q < 2; ++q) {
                __m128 px[4] = {Broadcast<0>(values[q]), Broadcast<1>(values[q]), Broadcast<2>(values[q]),
                                Broadcast<3>(values[q])};
                for (int k = 0; k < 4; ++k) {
                    if constexpr (kAlphaOne) px[k] = Select(px[k], Set1(1.0f), alpha_lane);
                    Put<access.value>(out + 4 * (8 * h + 4 * q + k), px[k]);
                }
            }
        }
    });
}

// ---- Bgr24 to Bgr32, sixteen pixels a step ----------------------------------------------------

// Four 3-byte pixels from the bottom 12 bytes of v to four 4-byte pixels with an opaque fourth
// byte. SSE2 has no byte shuffle, so each pixel is shifted down to lane 0 and the lanes are
// interleaved back together.
inline __m128i ExpandBgr(__m128i v) {
    const __m128i p01 = _mm_unpacklo_epi32(v, _mm_srli_si128(v, 3));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_srli_si128(v, 6), _mm_srli_si128(v, 9));
    return _mm_or_si128(_mm_unpacklo_epi64(p01, p23), _mm_set1_epi32(static_cast<int32_t>(0xFF000000u)));
}

// 48 source bytes to 64: the last group is loaded from byte 32 and shifted, so no load reads
// past the block's 48 bytes.
inline void SixteenBgrToBgr32(const uint8_t* src, uint8_t* dst) {
    StoreI(dst, ExpandBgr(LoadI(src)));
    StoreI(dst + 16, ExpandBgr(LoadI(src + 12)));
    StoreI(dst + 32, ExpandBgr(LoadI(src + 24)));
    StoreI(dst + 48, ExpandBgr(_mm_srli_si128(LoadI(src + 32), 4)));
}

void Bgr24ToBgr32Row(const uint8_t* src, uint8_t* dst, int32_t width) {
    const int32_t blocks = width / 16;
    for (int32_t b = 0; b < blocks; ++b) SixteenBgrToBgr32(src + 48 * b, dst + 64 * b);
    const int32_t rest = width - blocks * 16;
    if (rest <= 0) return;
    uint8_t in[48] = {}, out[64];
    std::memcpy(in, src + 48 * blocks, static_cast<size_t>(rest) * 3);
    SixteenBgrToBgr32(in, out);
    std::memcpy(dst + 64 * blocks, out, static_cast<size_t>(rest) * 4);
}

template <class S, class D, class RowFn>
inline void Rows(const S* src, int32_t src_step, D* dst, int32_t dst_step, const ImageSize* roi, RowFn row) {
    frame::ForEachRow(src, src_step, dst, dst_step, roi, row);
}

// Rows through the row kernel that row_for(access) names for the destination's access.
template <int kDstPixelBytes, class S, class D, class RowFor>
inline void AccessRows(const S* src, int32_t src_step, D* dst, int32_t dst_step, const ImageSize* roi,
                       RowFor row_for) {
    WithAccess(DestinationAccess(src, dst, dst_step, roi, kDstPixelBytes),
               [&](auto access) { Rows(src, src_step, dst, dst_step, roi, row_for(access)); });
}

// The validating kernels: refuse before touching anything, then run the rows.
template <int kDstPixelBytes, class S, class D, class RowFor>
inline StatusCode CheckedRows(const S* src, int32_t src_step, D* dst, int32_t dst_step, const ImageSize* roi,
                              RowFor row_for) {
    if (!frame::PlanesValid(src, src_step, dst, dst_step)) return StatusInvalidParameter;
    AccessRows<kDstPixelBytes>(src, src_step, dst, dst_step, roi, row_for);
    return StatusOk;
}

}  // namespace
}  // namespace velmora::pixel

using namespace velmora::pixel;

extern "C" {

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgr24_Bgr32_SSE2(const uint8_t* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    Rows(src, src_step, dst, dst_step, roi, Bgr24ToBgr32Row);
    return StatusOk;
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Bgra32_Prgba128F(const uint8_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    AccessRows<16>(src, src_step, dst, dst_step, roi,
                   [](auto a) { return BytesToFloatRow<Order::SwapRB, true, a.value>; });
    return StatusOk;
}

VELMORA_API void VELMORA_CALL ImageConvert_Bgra32_Rgba128F(const uint8_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    AccessRows<16>(src, src_step, dst, dst_step, roi,
                   [](auto a) { return BytesToFloatRow<Order::SwapRB, false, a.value>; });
}

VELMORA_API void VELMORA_CALL ImageConvert_Rgba32_Rgba128F(const uint8_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    AccessRows<16>(src, src_step, dst, dst_step, roi, [](auto a) { return BytesToFloatRow<Order::Keep, false, a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Bgr32_SSE2(const uint8_t* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    return CheckedRows<4>(src, src_step, dst, dst_step, roi, [](auto a) { return GrayToBgr32Row<false, a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Bgra32_SSE2(const uint8_t* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    return CheckedRows<4>(src, src_step, dst, dst_step, roi, [](auto a) { return GrayToBgr32Row<true, a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Rgb128F_SSE2(const uint8_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    return CheckedRows<16>(src, src_step, dst, dst_step, roi, [](auto a) { return GrayToFloatRow<false, a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Gray8_Rgba128F_SSE2(const uint8_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    return CheckedRows<16>(src, src_step, dst, dst_step, roi, [](auto a) { return GrayToFloatRow<true, a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgb128F_Bgr24_SSE2(const float* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    // Widths that are whole blocks skip the tail handling; a negative width with a non-zero
    // remainder goes to the general body, which then processes nothing.
    if (!velmora::frame::PlanesValid(src, src_step, dst, dst_step)) return StatusInvalidParameter;
    if (roi->width % 16 == 0) Rows(src, src_step, dst, dst_step, roi, FloatToBgr24Row<false>);
    else Rows(src, src_step, dst, dst_step, roi, FloatToBgr24Row<true>);
    return StatusOk;
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Bgra32(const float* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    // Alignment only picks the store instruction; nothing is refused.
    AccessRows<4>(src, src_step, dst, dst_step, roi, [](auto a) { return FloatToBytesRow<Order::SwapRB, a.value>; });
    return StatusOk;
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba128F_Rgba32(const float* src, int32_t src_step, uint8_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    AccessRows<4>(src, src_step, dst, dst_step, roi, [](auto a) { return FloatToBytesRow<Order::Keep, a.value>; });
    return StatusOk;
}

VELMORA_API void VELMORA_CALL ImageConvert_Rgba128F_Rgba64(const float* src, int32_t src_step, uint16_t* dst,
    int32_t dst_step, const ImageSize* roi) {
    AccessRows<8>(src, src_step, dst, dst_step, roi, [](auto a) { return FloatToWordsRow<a.value>; });
}

VELMORA_API StatusCode VELMORA_CALL ImageConvert_Rgba64_Rgba128F(const uint16_t* src, int32_t src_step, float* dst,
    int32_t dst_step, const ImageSize* roi) {
    // Alignment picks the loop and refuses nothing. The steps join the pointers in the test so
    // that an aligned first row followed by an unaligned step never reaches an aligned load.
    if (((reinterpret_cast<uintptr_t>(src) | static_cast<uint32_t>(src_step)) & 15u) != 0)
        Rows(src, src_step, dst, dst_step, roi, WordsToFloatRow<Access::Unaligned, Access::Unaligned>);
    else
        AccessRows<16>(src, src_step, dst, dst_step, roi,
                       [](auto a) { return WordsToFloatRow<Access::Aligned, a.value>; });
    return StatusOk;
}

}  // extern "C"
