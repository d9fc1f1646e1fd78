// Channel swizzles with byte shuffles (SSSE3): one shuffle mask per pair of source and
// destination vectors, built once per call from the order, moves every byte of a block to its
// place in one instruction, whatever the order (repeats, the fill, a dropped channel). Chosen at
// run time for orders whose entries all pick a channel or the fill; identical to the baseline
// body byte for byte.
#include <tmmintrin.h>

#include <cstdint>
#include <array>
#include <utility>

#include "pixel/swizzle.h"

namespace velmora::swizzle {
namespace {

// Calls f(std::integral_constant<int, I>) for I = 0 .. N-1, so each index is a constant.
template <int N, class F>
inline void ForEach(F&& f) {
    [&]<int... I>(std::integer_sequence<int, I...>) { (f(std::integral_constant<int, I>{}), ...); }(
        std::make_integer_sequence<int, N>{});
}

// One block: 64 bytes of four-channel pixels, kIn source vectors to kOut destination vectors.
// Destination byte j belongs to pixel j / (DstCh x element) and channel (j / element) % DstCh;
// it takes the same byte of channel order[c] of that pixel in the source, or of the fill.
template <class T, int SrcCh, int DstCh>
struct ShuffleBlock : BlockShape<T, SrcCh, DstCh> {
    using Shape = BlockShape<T, SrcCh, DstCh>;
    using Shape::kElement, Shape::kSrcBytes, Shape::kDstBytes;
    static constexpr int kIn = kSrcBytes / 16, kOut = kDstBytes / 16;
    static constexpr bool kFill = DstCh > SrcCh;

    // Source byte of destination byte j for source channel `from` (no fill).
    static constexpr int SourceByte(int j, int from) {
        return (j / (DstCh * kElement)) * SrcCh * kElement + from * kElement + j % kElement;
    }
    // Which source vectors can feed destination vector k under some order: the pairs the block
    // shuffles, numbered; -1 for none. A pixel is at most 16 bytes, so a destination vector draws
    // on one to three.
    static constexpr auto kSlots = [] {
        std::array<std::array<int, kIn>, kOut> slots{};
        for (auto& row : slots) row.fill(-1);
        int next = 0;
        for (int k = 0; k < kOut; ++k)
            for (int j = 16 * k; j < 16 * k + 16; ++j)
                for (int from = 0; from < SrcCh; ++from)
                    if (int& slot = slots[k][SourceByte(j, from) / 16]; slot < 0) slot = next++;
        return std::pair{slots, next};
    }();
    static constexpr int kPairs = kSlots.second;

    // Only the pairs that can carry bytes get a mask, so all of them stay in registers. The fill
    // is the same in every destination vector: four-channel pixels divide 16 bytes.
    struct Masks {
        __m128i pick[kPairs];
        __m128i fill;
    };

    template <class Fill>
    static Masks Build(const int32_t* order, Fill fill_value) {
        alignas(16) uint8_t pick[kPairs][16];
        alignas(16) uint8_t fill[16] = {};
        uint8_t fill_bytes[sizeof(T)];
        __builtin_memcpy(fill_bytes, &fill_value, sizeof(T));
        __builtin_memset(pick, 0x80, sizeof(pick));  // a set top bit makes the shuffle write zero
        for (int j = 0; j < kDstBytes; ++j) {
            const int32_t from = order[(j / kElement) % DstCh];
            if (kFill && from >= 3) {
                fill[j % 16] = fill_bytes[j % kElement];
                continue;
            }
            const int s = SourceByte(j, from);
            pick[kSlots.first[j / 16][s / 16]][j % 16] = uint8_t(s % 16);
        }
        Masks m;
        m.fill = _mm_load_si128(reinterpret_cast<const __m128i*>(fill));
        for (int i = 0; i < kPairs; ++i) m.pick[i] = _mm_load_si128(reinterpret_cast<const __m128i*>(pick[i]));
        return m;
    }

    template <bool Stream>
    static void Run(const uint8_t* src, uint8_t* dst, const Masks& m) {
        __m128i in[kIn], out[kOut];
        ForEach<kIn>([&](auto v) { in[v] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 16 * v)); });
        ForEach<kOut>([&](auto k) {
            out[k] = kFill ? m.fill : _mm_setzero_si128();
            ForEach<kIn>([&](auto v) {
                constexpr int kSlot = kSlots.first[k][v];
                if constexpr (kSlot >= 0) out[k] = _mm_or_si128(out[k], _mm_shuffle_epi8(in[v], m.pick[kSlot]));
            });
        });
        ForEach<kOut>([&](auto k) { StoreVector<Stream>(dst + 16 * k, out[k]); });
    }
};

}  // namespace

template <class T, int SrcCh, int DstCh>
void ShuffleRowsSsse3(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                      int32_t height, const int32_t* order, T fill) {
    using B = ShuffleBlock<T, SrcCh, DstCh>;
    SwizzleRows<B>(src, src_step, dst, dst_step, width, height, B::Build(order, fill));
}

#define VELMORA_SWIZZLE_SSSE3(T)                                                                              \
    template void ShuffleRowsSsse3<T, 3, 3>(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t,     \
                                            const int32_t*, T);                                             \
    template void ShuffleRowsSsse3<T, 4, 4>(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t,     \
                                            const int32_t*, T);                                             \
    template void ShuffleRowsSsse3<T, 3, 4>(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t,     \
                                            const int32_t*, T);                                             \
    template void ShuffleRowsSsse3<T, 4, 3>(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t,     \
                                            const int32_t*, T);
VELMORA_SWIZZLE_SSSE3(uint8_t)
VELMORA_SWIZZLE_SSSE3(uint16_t)
VELMORA_SWIZZLE_SSSE3(float)

}  // namespace velmora::swizzle
