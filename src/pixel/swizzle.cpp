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

#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "pixel/swizzle.h"

namespace velmora::swizzle {
namespace {

using v4::LoadI;

// Byte shifts of the whole vector by a compile-time count.
template <int Bytes>
inline __m128i ShiftDown(__m128i v) { return _mm_srli_si128(v, Bytes); }
template <int Bytes>
inline __m128i ShiftUp(__m128i v) { return _mm_slli_si128(v, Bytes); }

// How an order moves data: the destination is the OR of a few shifted and masked copies of the
// source pixel vector, one term per distinct movement, plus the fill where the order asks for
// it. Pixels of 8-bit and 16-bit data sit inside 64-bit halves, so a 64-bit shift moves a
// channel within its pixel (a valid order never takes a byte from the neighbouring pixel: the
// mask keeps only channel c). A float pixel spans both halves, so a channel that crosses from
// one half to the other is taken from the half-swapped vector first. Built at compile time for
// the common orders, at run time for the rest.
struct Plan {
    struct Term {
        uint32_t mask[4] = {};
        int shift = 0;  // bits within each 64-bit half: right when positive, left when negative
        bool swapped = false;
    };
    Term terms[4];
    int count = 0;
    uint32_t fill_mask[4] = {};

    // order[c] for each destination channel; pixels have four elements of element_bytes.
    constexpr Plan(const int32_t* order, int dst_channels, bool fill_from_three, int element_bytes) {
        for (int c = 0; c < dst_channels; ++c) {
            uint32_t mask[4] = {};
            for (int byte = 0; byte < 16; ++byte)
                if ((byte % (4 * element_bytes)) / element_bytes == c) mask[byte / 4] |= 0xFFu << (8 * (byte % 4));
            const int32_t from = order[c];
            if (fill_from_three && from >= 3) {
                for (int i = 0; i < 4; ++i) fill_mask[i] |= mask[i];
                continue;
            }
            // Float channels in the other 64-bit half come from the half-swapped vector, where
            // source element e sits at e ^ 2.
            const bool swapped = element_bytes == 4 && (from >> 1) != (c >> 1);
            const int64_t bits = int64_t{(swapped ? (from ^ 2) : from) - c} * element_bytes * 8;
            // A shift of 64 clears the lane: an entry far out of range yields zeros, one just past
            // the pixel a neighbour's channel from the same block; nothing outside it is read.
            Add(mask, static_cast<int>(bits < -64 ? -64 : bits > 64 ? 64 : bits), swapped);
        }
    }

    // Channels that move the same way share one term: their masks merge.
    constexpr void Add(const uint32_t (&mask)[4], int shift, bool swapped) {
        int t = 0;
        while (t < count && !(terms[t].shift == shift && terms[t].swapped == swapped)) ++t;
        if (t == count) terms[count++] = Term{{}, shift, swapped};
        for (int i = 0; i < 4; ++i) terms[t].mask[i] |= mask[i];
    }
};

inline __m128i Words(const uint32_t (&w)[4]) {
    return _mm_setr_epi32(int32_t(w[0]), int32_t(w[1]), int32_t(w[2]), int32_t(w[3]));
}

// The fill element repeated in every slot its mask selects.
template <class T>
__m128i FillVector(const uint32_t (&fill_mask)[4], T fill) {
    uint32_t bits = 0;
    __builtin_memcpy(&bits, &fill, sizeof(T));
    const __m128i repeated = sizeof(T) == 1   ? _mm_set1_epi8(char(bits))
                             : sizeof(T) == 2 ? _mm_set1_epi16(short(bits))
                                              : _mm_set1_epi32(int32_t(bits));
    return _mm_and_si128(repeated, Words(fill_mask));
}

inline __m128i HalvesSwapped(__m128i v) { return _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)); }

// An order known only at run time: the plan's terms as vectors, walked per pixel vector.
template <class T>
struct RuntimeOrder {
    struct Term {
        __m128i mask, right, left;
        bool swapped;
    };
    Term terms[4];
    int count;
    __m128i fill;

    RuntimeOrder(const Plan& plan, T fill_value) : count(plan.count), fill(FillVector(plan.fill_mask, fill_value)) {
        for (int t = 0; t < count; ++t) {
            const int shift = plan.terms[t].shift;
            terms[t] = {Words(plan.terms[t].mask), _mm_cvtsi32_si128(shift > 0 ? shift : 0),
                        _mm_cvtsi32_si128(shift < 0 ? -shift : 0), plan.terms[t].swapped};
        }
    }

    __m128i operator()(__m128i v) const {
        // Only float pixels span both halves; the other element sizes never read the swap.
        const __m128i swapped = sizeof(T) == 4 ? HalvesSwapped(v) : v;
        __m128i out = fill;
        for (int t = 0; t < count; ++t) {
            const __m128i from = terms[t].swapped ? swapped : v;
            const __m128i moved = _mm_sll_epi64(_mm_srl_epi64(from, terms[t].right), terms[t].left);
            out = _mm_or_si128(out, _mm_and_si128(moved, terms[t].mask));
        }
        return out;
    }
};

// A common order fixed at compile time: the same plan, its shifts as immediates and its unused
// terms gone.
template <class T, int DstCh, bool FillFromThree, int32_t... Order>
struct FixedOrder {
    static constexpr int32_t kOrder[4] = {Order...};
    static constexpr Plan kPlan{kOrder, DstCh, FillFromThree, sizeof(T)};
    __m128i fill;

    explicit FixedOrder(T fill_value) : fill(FillVector(kPlan.fill_mask, fill_value)) {}

    template <int I = 0>
    __m128i Terms(__m128i v, __m128i out) const {
        if constexpr (I == kPlan.count) {
            return out;
        } else {
            constexpr Plan::Term kTerm = kPlan.terms[I];
            __m128i from = kTerm.swapped ? HalvesSwapped(v) : v;
            if constexpr (kTerm.shift >= 64 || kTerm.shift <= -64) from = _mm_setzero_si128();
            else if constexpr (kTerm.shift > 0) from = _mm_srli_epi64(from, kTerm.shift);
            else if constexpr (kTerm.shift < 0) from = _mm_slli_epi64(from, -kTerm.shift);
            return Terms<I + 1>(v, _mm_or_si128(out, _mm_and_si128(from, Words(kTerm.mask))));
        }
    }
    __m128i operator()(__m128i v) const {
        if constexpr (FillFromThree) return Terms(v, fill);
        else return Terms(v, _mm_setzero_si128());
    }

    // Three channels to three: a channel moves by a whole number of bytes inside the packed
    // 48-byte block, so the block is reordered where it lies, without widening to lanes. Each
    // distinct movement is the block shifted with the neighbouring vector's bytes carried in,
    // masked to the channels that move that way. A pixel never straddles the block's edges.
    struct PackedTerm {
        int delta = 0;  // bytes: destination byte i takes source byte i + delta
        uint32_t mask[12] = {};
    };
    struct PackedPlan {
        PackedTerm terms[3];
        int count = 0;
    };
    static constexpr PackedPlan kPacked = [] {
        PackedPlan plan;
        for (int c = 0; c < 3; ++c) {
            const int delta = (kOrder[c] - c) * int(sizeof(T));
            int t = 0;
            while (t < plan.count && plan.terms[t].delta != delta) ++t;
            if (t == plan.count) plan.terms[plan.count++].delta = delta;
            for (int byte = 0; byte < 48; ++byte)
                if ((byte % (3 * sizeof(T))) / sizeof(T) == size_t(c))
                    plan.terms[t].mask[byte / 4] |= 0xFFu << (8 * (byte % 4));
        }
        return plan;
    }();

    template <int Delta>
    static __m128i Shifted(const __m128i (&v)[3], int k) {
        const __m128i zero = _mm_setzero_si128();
        if constexpr (Delta > 0) return _mm_or_si128(ShiftDown<Delta>(v[k]), ShiftUp<16 - Delta>(k < 2 ? v[k + 1] : zero));
        else if constexpr (Delta < 0) return _mm_or_si128(ShiftUp<-Delta>(v[k]), ShiftDown<16 + Delta>(k > 0 ? v[k - 1] : zero));
        else return v[k];
    }
    template <int I = 0>
    static void PackedTerms(const __m128i (&v)[3], __m128i (&out)[3]) {
        if constexpr (I < kPacked.count) {
            constexpr PackedTerm kTerm = kPacked.terms[I];
            for (int k = 0; k < 3; ++k) {
                const __m128i mask = _mm_setr_epi32(int32_t(kTerm.mask[4 * k]), int32_t(kTerm.mask[4 * k + 1]),
                                                    int32_t(kTerm.mask[4 * k + 2]), int32_t(kTerm.mask[4 * k + 3]));
                out[k] = _mm_or_si128(out[k], _mm_and_si128(Shifted<kTerm.delta>(v, k), mask));
            }
            PackedTerms<I + 1>(v, out);
        }
    }
    template <bool Stream>
    static void Packed(const uint8_t* src, uint8_t* dst) {
        const __m128i v[3] = {LoadI(src), LoadI(src + 16), LoadI(src + 32)};
        __m128i out[3] = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
        PackedTerms(v, out);
        for (int k = 0; k < 3; ++k) StoreVector<Stream>(dst + 16 * k, out[k]);
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

// One block through lanes. Loads everything before storing, so src may equal dst.
template <class T, int SrcCh, int DstCh>
struct Block : BlockShape<T, SrcCh, DstCh> {
    using Shape = BlockShape<T, SrcCh, DstCh>;
    using Shape::kElement;

    template <bool Stream, class Perm>
    static void Run(const uint8_t* src, uint8_t* dst, const Perm& perm) {
        if constexpr (SrcCh == 3 && DstCh == 3 && requires { Perm::template Packed<Stream>(src, dst); }) {
            Perm::template Packed<Stream>(src, dst);
            return;
        }
        __m128i lanes[4];
        if constexpr (SrcCh == 3) {
            __m128i groups[4];
            SplitGroups(LoadI(src), LoadI(src + 16), LoadI(src + 32), groups);
            for (int i = 0; i < 4; ++i) lanes[i] = Widen<kElement>(groups[i]);
        } else {
            for (int i = 0; i < 4; ++i) lanes[i] = LoadI(src + 16 * i);
        }
        for (int i = 0; i < 4; ++i) lanes[i] = perm(lanes[i]);
        if constexpr (DstCh == 3) {
            __m128i groups[4], a, b, c;
            for (int i = 0; i < 4; ++i) groups[i] = Narrow<kElement>(lanes[i]);
            JoinGroups(groups, a, b, c);
            StoreVector<Stream>(dst, a);
            StoreVector<Stream>(dst + 16, b);
            StoreVector<Stream>(dst + 32, c);
        } else {
            for (int i = 0; i < 4; ++i) StoreVector<Stream>(dst + 16 * i, lanes[i]);
        }
    }
};

// The common body of every export: offsets to the sub-rectangle, then the rows, through a
// byte-shuffle body where the processor has one, else a compile-time plan for the orders editors
// use all the time (identity and the R/B exchange, with alpha kept, added or dropped) and a
// run-time plan otherwise. The order is only read when there is something to do.
template <class T, int SrcCh, int DstCh>
StatusCode Swizzle(const void* src, int32_t src_step, void* dst, int32_t dst_step, int32_t x, int32_t y,
                   int32_t width, int32_t height, const int32_t* order, T fill) {
    if (width <= 0 || height <= 0) return StatusOk;
    constexpr bool kFill = DstCh > SrcCh;
    const auto* s = static_cast<const uint8_t*>(src) + ptrdiff_t{y} * src_step + ptrdiff_t{x} * SrcCh * ptrdiff_t{sizeof(T)};
    auto* d = static_cast<uint8_t*>(dst) + ptrdiff_t{y} * dst_step + ptrdiff_t{x} * DstCh * ptrdiff_t{sizeof(T)};
    const auto is = [&](int32_t o0, int32_t o1, int32_t o2) {
        if (order[0] != o0 || order[1] != o1 || order[2] != o2) return false;
        if constexpr (DstCh == 4) return kFill ? order[3] >= 3 : order[3] == 3;
        return true;
    };
    // Float pixels that only gain or lose their fourth channel under a common order move whole
    // lanes, which the lane body does with fewer instructions than six byte shuffles a block.
    const bool whole_lanes = sizeof(T) == 4 && SrcCh != DstCh && (is(0, 1, 2) || is(2, 1, 0));
    if (cpu::Has(cpu::Level::Ssse3) && !whole_lanes && OrderInRange<SrcCh, DstCh>(order)) {
        ShuffleRowsSsse3<T, SrcCh, DstCh>(s, src_step, d, dst_step, width, height, order, fill);
        return StatusOk;
    }
    const auto run = [&](const auto& perm) {
        SwizzleRows<Block<T, SrcCh, DstCh>>(s, src_step, d, dst_step, width, height, perm);
    };
    if (is(0, 1, 2)) run(FixedOrder<T, DstCh, kFill, 0, 1, 2, 3>(fill));
    else if (is(2, 1, 0)) run(FixedOrder<T, DstCh, kFill, 2, 1, 0, 3>(fill));
    else run(RuntimeOrder<T>(Plan(order, DstCh, kFill, sizeof(T)), fill));
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
