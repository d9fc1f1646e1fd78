// Channel swizzles: reorder, drop or add the channels of interleaved 8-bit, 16-bit and float
// pixels with three or four channels. Destination channel c takes source channel order[c];
// when a three-channel source grows to four channels, an entry of 3 or more writes the fill.
//
// Every kernel works on a block of four vectors and never reads or writes outside the region:
// the block widens three-channel pixels to four-channel "lanes" (the fourth element is junk the
// order never selects), permutes inside each pixel with masks and 64-bit shifts, and narrows
// again when the destination has three channels. The row tail copies its pixels into a small
// buffer and runs the same block there, so tails and bodies share one piece of arithmetic.
// Everything a block writes was read first, so the same row kernel serves the in-place exports.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/frame.h"
#include "core/vec4.h"

namespace velmora::swizzle {
namespace {

using v4::LoadI;
using v4::StoreI;

// Byte shifts of the whole vector by a compile-time count.
template <int Bytes>
inline __m128i ShiftDown(__m128i v) { return _mm_srli_si128(v, Bytes); }
template <int Bytes>
inline __m128i ShiftUp(__m128i v) { return _mm_slli_si128(v, Bytes); }

// A prepared order: the destination is the OR of a few shifted and masked copies of the
// source pixel vector, one term per distinct movement, plus the fill where the order asks for
// it. Pixels of 8-bit and 16-bit data sit inside 64-bit halves, so a 64-bit shift moves a
// channel within its pixel (a valid order never takes a byte from the neighbouring pixel: the
// mask keeps only channel c). A float pixel spans both halves, so a channel that crosses from
// one half to the other is taken from the half-swapped vector first.
struct Permutation {
    struct Term {
        __m128i mask;
        __m128i right;  // shift counts in bits, in the low quadword as _mm_srl_epi64 expects
        __m128i left;
        int32_t shift;  // the signed movement in bits the counts encode: right when positive
        bool swapped;
    };
    Term terms[4];
    int count = 0;
    __m128i fill = _mm_setzero_si128();

    // order[c] and the fill element; element_bytes is 1, 2 or 4, and pixels have four elements.
    Permutation(const int32_t* order, int dst_channels, bool fill_from_three, const void* fill_element,
                int element_bytes) {
        alignas(16) uint8_t fill_bytes[16] = {};
        for (int c = 0; c < dst_channels; ++c) {
            alignas(16) uint8_t mask_bytes[16] = {};
            for (int pixel = 0; pixel < 16; pixel += 4 * element_bytes)
                std::memset(mask_bytes + pixel + c * element_bytes, 0xFF, element_bytes);
            const int32_t from = order[c];
            if (fill_from_three && from >= 3) {
                for (int pixel = 0; pixel < 16; pixel += 4 * element_bytes)
                    std::memcpy(fill_bytes + pixel + c * element_bytes, fill_element, element_bytes);
                continue;
            }
            // Float channels in the other 64-bit half come from the half-swapped vector, where
            // source element e sits at e ^ 2.
            const bool swapped = element_bytes == 4 && (from >> 1) != (c >> 1);
            const int32_t at = swapped ? (from ^ 2) : from;
            // A count of 64 clears the lane, so an out-of-range entry yields zeros, never a read
            // outside the pixel.
            const int64_t bits = int64_t{at - c} * element_bytes * 8;
            Add(LoadI(mask_bytes), static_cast<int32_t>(bits < -64 ? -64 : bits > 64 ? 64 : bits), swapped);
        }
        fill = LoadI(fill_bytes);
    }

    // Channels that move the same way share one term: their masks merge.
    void Add(__m128i mask, int32_t shift, bool swapped) {
        for (int t = 0; t < count; ++t) {
            if (terms[t].swapped == swapped && terms[t].shift == shift) {
                terms[t].mask = _mm_or_si128(terms[t].mask, mask);
                return;
            }
        }
        terms[count++] = {mask, _mm_cvtsi32_si128(shift > 0 ? shift : 0), _mm_cvtsi32_si128(shift < 0 ? -shift : 0),
                          shift, swapped};
    }

    __m128i Apply(__m128i v) const {
        const __m128i halves_swapped = _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2));
        __m128i out = fill;
        for (int t = 0; t < count; ++t) {
            const Term& term = terms[t];
            const __m128i from = term.swapped ? halves_swapped : v;
            const __m128i moved = _mm_sll_epi64(_mm_srl_epi64(from, term.right), term.left);
            out = _mm_or_si128(out, _mm_and_si128(moved, term.mask));
        }
        return out;
    }
};

// Three-channel pixels occupy 12 bytes of four-channel lanes. Within one 12-byte group the
// pixels are spread to (or gathered from) lanes of 4 elements; a 16-byte vector holds one group.
// Four groups make three vectors of packed three-channel data.
inline void SplitGroups(__m128i a, __m128i b, __m128i c, __m128i g[4]) {
    g[0] = a;
    g[1] = _mm_or_si128(ShiftDown<12>(a), ShiftUp<4>(b));
    g[2] = _mm_or_si128(ShiftDown<8>(b), ShiftUp<8>(c));
    g[3] = ShiftDown<4>(c);
}
// The inverse; each group must have its top four bytes clear.
inline void JoinGroups(const __m128i g[4], __m128i& a, __m128i& b, __m128i& c) {
    a = _mm_or_si128(g[0], ShiftUp<12>(g[1]));
    b = _mm_or_si128(ShiftDown<4>(g[1]), ShiftUp<8>(g[2]));
    c = _mm_or_si128(ShiftDown<8>(g[2]), ShiftUp<4>(g[3]));
}

// 12 packed bytes of three-element pixels to four-element lanes (junk in the fourth element).
template <int ElementBytes>
inline __m128i Widen(__m128i g) {
    if constexpr (ElementBytes == 1) {
        const __m128i lo = _mm_unpacklo_epi32(g, ShiftDown<3>(g));
        const __m128i hi = _mm_unpacklo_epi32(ShiftDown<6>(g), ShiftDown<9>(g));
        return _mm_unpacklo_epi64(lo, hi);
    } else if constexpr (ElementBytes == 2) {
        return _mm_unpacklo_epi64(g, ShiftDown<6>(g));
    } else {
        return g;
    }
}

// Four-element lanes whose fourth element is zero back to 12 packed bytes, top four clear.
template <int ElementBytes>
inline __m128i Narrow(__m128i v) {
    if constexpr (ElementBytes == 1) {
        // 3 + 3 bytes per 64-bit half first, then the two halves' 6 bytes side by side.
        const __m128i low_pixel = _mm_set_epi32(0, -1, 0, -1);
        v = _mm_or_si128(_mm_and_si128(v, low_pixel), _mm_srli_epi64(_mm_andnot_si128(low_pixel, v), 8));
    }
    if constexpr (ElementBytes <= 2) {
        const __m128i low_half = _mm_set_epi32(0, 0, -1, -1);
        return _mm_or_si128(_mm_and_si128(v, low_half), ShiftDown<2>(_mm_andnot_si128(low_half, v)));
    } else {
        return _mm_and_si128(v, _mm_set_epi32(0, -1, -1, -1));
    }
}

// One block: 64 bytes of four-channel pixels (16, 8 or 4 pixels), whatever the layout on either
// side. Loads everything before storing, so src may equal dst.
template <class T, int SrcCh, int DstCh>
struct Block {
    static constexpr int kElement = sizeof(T);
    static constexpr int kPixels = 64 / (4 * kElement);
    static constexpr int kSrcBytes = kPixels * SrcCh * kElement;
    static constexpr int kDstBytes = kPixels * DstCh * kElement;

    static void Run(const uint8_t* src, uint8_t* dst, const Permutation& perm) {
        __m128i lanes[4];
        if constexpr (SrcCh == 3) {
            __m128i groups[4];
            SplitGroups(LoadI(src), LoadI(src + 16), LoadI(src + 32), groups);
            for (int i = 0; i < 4; ++i) lanes[i] = Widen<kElement>(groups[i]);
        } else {
            for (int i = 0; i < 4; ++i) lanes[i] = LoadI(src + 16 * i);
        }
        for (int i = 0; i < 4; ++i) lanes[i] = perm.Apply(lanes[i]);
        if constexpr (DstCh == 3) {
            __m128i groups[4], a, b, c;
            for (int i = 0; i < 4; ++i) groups[i] = Narrow<kElement>(lanes[i]);
            JoinGroups(groups, a, b, c);
            StoreI(dst, a);
            StoreI(dst + 16, b);
            StoreI(dst + 32, c);
        } else {
            for (int i = 0; i < 4; ++i) StoreI(dst + 16 * i, lanes[i]);
        }
    }
};

template <class T, int SrcCh, int DstCh>
void SwizzleRow(const uint8_t* src, uint8_t* dst, int32_t width, const Permutation& perm) {
    using B = Block<T, SrcCh, DstCh>;
    int32_t x = 0;
    for (; x + B::kPixels <= width; x += B::kPixels, src += B::kSrcBytes, dst += B::kDstBytes) B::Run(src, dst, perm);
    if (x == width) return;
    // The last few pixels go through the same block in a scratch copy, never past the region.
    const size_t left = static_cast<size_t>(width - x);
    alignas(16) uint8_t in[64] = {};
    alignas(16) uint8_t out[64];
    std::memcpy(in, src, left * SrcCh * sizeof(T));
    B::Run(in, out, perm);
    std::memcpy(dst, out, left * DstCh * sizeof(T));
}

// The common body of every export: offsets to the sub-rectangle, then the rows. The order is
// only read when there is something to do.
template <class T, int SrcCh, int DstCh>
StatusCode Swizzle(const void* src, int32_t src_step, void* dst, int32_t dst_step, int32_t x, int32_t y,
                   int32_t width, int32_t height, const int32_t* order, T fill) {
    if (width <= 0 || height <= 0) return StatusOk;
    const Permutation perm(order, DstCh, DstCh > SrcCh, &fill, sizeof(T));
    const auto* s = static_cast<const uint8_t*>(src) + ptrdiff_t{y} * src_step + ptrdiff_t{x} * SrcCh * ptrdiff_t{sizeof(T)};
    auto* d = static_cast<uint8_t*>(dst) + ptrdiff_t{y} * dst_step + ptrdiff_t{x} * DstCh * ptrdiff_t{sizeof(T)};
    for (int32_t row = 0; row < height; ++row)
        SwizzleRow<T, SrcCh, DstCh>(frame::Row(s, src_step, row), frame::Row(d, dst_step, row), width, perm);
    return StatusOk;
}

}  // namespace
}  // namespace velmora::swizzle

using velmora::swizzle::Swizzle;

#define VELMORA_SWIZZLE(Name, T, SrcCh, DstCh)                                                              \
    extern "C" VELMORA_API StatusCode VELMORA_CALL Name(const T* src, int32_t src_step, T* dst,            \
                                                        int32_t dst_step, int32_t x, int32_t y, int32_t width, \
                                                        int32_t height, const int32_t* order) {            \
        return Swizzle<T, SrcCh, DstCh>(src, src_step, dst, dst_step, x, y, width, height, order, T{});    \
    }
#define VELMORA_SWIZZLE_FILL(Name, T, FillArg)                                                              \
    extern "C" VELMORA_API StatusCode VELMORA_CALL Name(const T* src, int32_t src_step, T* dst,            \
                                                        int32_t dst_step, int32_t x, int32_t y, int32_t width, \
                                                        int32_t height, const int32_t* order, FillArg fill) { \
        return Swizzle<T, 3, 4>(src, src_step, dst, dst_step, x, y, width, height, order, static_cast<T>(fill)); \
    }
#define VELMORA_SWIZZLE_INPLACE(Name, T, Ch)                                                                 \
    extern "C" VELMORA_API StatusCode VELMORA_CALL Name(T* data, int32_t step, int32_t x, int32_t y,         \
                                                        int32_t width, int32_t height, const int32_t* order) { \
        return Swizzle<T, Ch, Ch>(data, step, data, step, x, y, width, height, order, T{});                  \
    }

VELMORA_SWIZZLE(Swizzle_8u_C3R, uint8_t, 3, 3)
VELMORA_SWIZZLE(Swizzle_8u_C4R, uint8_t, 4, 4)
VELMORA_SWIZZLE_FILL(Swizzle_8u_C3C4R, uint8_t, uint32_t)
VELMORA_SWIZZLE(Swizzle_8u_C4C3R, uint8_t, 4, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_8u_C3IR, uint8_t, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_8u_C4IR, uint8_t, 4)
VELMORA_SWIZZLE(Swizzle_16u_C3R, uint16_t, 3, 3)
VELMORA_SWIZZLE(Swizzle_16u_C4R, uint16_t, 4, 4)
VELMORA_SWIZZLE_FILL(Swizzle_16u_C3C4R, uint16_t, uint32_t)
VELMORA_SWIZZLE(Swizzle_16u_C4C3R, uint16_t, 4, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_16u_C3IR, uint16_t, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_16u_C4IR, uint16_t, 4)
VELMORA_SWIZZLE(Swizzle_32f_C3R, float, 3, 3)
VELMORA_SWIZZLE(Swizzle_32f_C4R, float, 4, 4)
VELMORA_SWIZZLE_FILL(Swizzle_32f_C3C4R, float, float)
VELMORA_SWIZZLE(Swizzle_32f_C4C3R, float, 4, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_32f_C3IR, float, 3)
VELMORA_SWIZZLE_INPLACE(Swizzle_32f_C4IR, float, 4)
