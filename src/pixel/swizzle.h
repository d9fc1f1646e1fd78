// Shared between the channel-swizzle bodies of each instruction-set level: the row walk that
// runs a block kernel over the region, tails included, the choice of streaming stores for large
// destinations, and the faster bodies' entry points.
// Header-only so every level compiles the walk with its own flags; the walk is a template on the
// block type, which each file keeps in its own anonymous namespace, so no two levels ever share
// an instantiation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <emmintrin.h>

#include "core/frame.h"
#include "core/stream.h"

namespace velmora::swizzle {

// The block every body works on: 64 bytes of four-channel pixels (16, 8 or 4 pixels), whatever
// the layout on either side; three-channel sides are 48 bytes, still whole vectors.
template <class T, int SrcCh, int DstCh>
struct BlockShape {
    static constexpr int kElement = sizeof(T);
    static constexpr int kPixels = 64 / (4 * kElement);
    static constexpr int kSrcBytes = kPixels * SrcCh * kElement;
    static constexpr int kDstBytes = kPixels * DstCh * kElement;
};


namespace {
// Stores one vector of a block; streaming stores need a 16-byte aligned address. Kept out of
// other files' reach so each level compiles its own copy.
template <bool Stream>
inline void StoreVector(uint8_t* p, __m128i v) {
    if constexpr (Stream) _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
    else _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
}  // namespace

// One row through a block kernel: B::Run<Stream>(src, dst, perm) reorders one block of
// B::kPixels pixels (B::kSrcBytes in, B::kDstBytes out) and loads everything before it stores,
// so src may equal dst. The last few pixels go through the same block in a scratch copy, never
// past the region.
template <class B, bool Stream, class Perm>
void SwizzleRow(const uint8_t* src, uint8_t* dst, int32_t width, const Perm& perm) {
    int32_t x = 0;
    for (; x + B::kPixels <= width; x += B::kPixels, src += B::kSrcBytes, dst += B::kDstBytes)
        B::template Run<Stream>(src, dst, perm);
    if (x == width) return;
    const size_t left = static_cast<size_t>(width - x);
    alignas(16) uint8_t in[B::kSrcBytes] = {};
    alignas(16) uint8_t out[B::kDstBytes];
    std::memcpy(in, src, left * (B::kSrcBytes / B::kPixels));
    B::template Run<false>(in, out, perm);
    std::memcpy(dst, out, left * (B::kDstBytes / B::kPixels));
}

// Pixels before the first 16-byte aligned destination pixel, when every row shares that
// alignment and a block's worth of pixels reaches it; -1 otherwise. Blocks are whole vectors of
// destination bytes, so once the first block is aligned every later one is.
template <class B>
int32_t AlignedHead(const uint8_t* dst, int32_t dst_step) {
    if ((dst_step & 15) != 0) return -1;
    constexpr int kPixelBytes = B::kDstBytes / B::kPixels;
    const auto address = reinterpret_cast<uintptr_t>(dst);
    for (int32_t n = 0; n < B::kPixels; ++n)
        if (((address + uintptr_t(n) * kPixelBytes) & 15) == 0) return n;
    return -1;
}

// The region's rows; src and dst already point at the sub-rectangle's first pixel. The
// permutation is copied once so its vectors stay in registers across the stores. A large
// destination that is not also the source streams from its first aligned pixel on.
template <class B, class Perm>
void SwizzleRows(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width, int32_t height,
                 const Perm& perm) {
    const Perm local = perm;
    const int64_t dst_bytes = int64_t{width} * height * (B::kDstBytes / B::kPixels);
    const int32_t head = stream::Worthwhile(src, dst, dst_bytes) ? AlignedHead<B>(dst, dst_step) : -1;
    if (head < 0) {
        for (int32_t row = 0; row < height; ++row)
            SwizzleRow<B, false>(frame::Row(src, src_step, row), frame::Row(dst, dst_step, row), width, local);
        return;
    }
    const int32_t first = head < width ? head : width;
    for (int32_t row = 0; row < height; ++row) {
        const uint8_t* s = frame::Row(src, src_step, row);
        uint8_t* d = frame::Row(dst, dst_step, row);
        SwizzleRow<B, false>(s, d, first, local);
        SwizzleRow<B, true>(s + ptrdiff_t{first} * (B::kSrcBytes / B::kPixels),
                            d + ptrdiff_t{first} * (B::kDstBytes / B::kPixels), width - first, local);
    }
    _mm_sfence();  // streaming stores are weakly ordered: make them visible before returning
}

// True when every entry picks a source channel (or, growing to four channels, the fill), the
// only orders the shuffle bodies take; the baseline body handles the rest as it always has.
template <int SrcCh, int DstCh>
bool OrderInRange(const int32_t* order) {
    for (int c = 0; c < DstCh; ++c)
        if (order[c] < 0 || (DstCh <= SrcCh && order[c] >= SrcCh)) return false;
    return true;
}

// The byte-shuffle bodies (SSSE3, AVX2): the same result as the baseline body for any order
// OrderInRange accepts. src and dst point at the region's first pixel; width, height > 0.
template <class T, int SrcCh, int DstCh>
void ShuffleRowsSsse3(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                      int32_t height, const int32_t* order, T fill);

}  // namespace velmora::swizzle
