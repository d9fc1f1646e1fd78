// Shared between the channel-swizzle bodies of each instruction-set level: the row walk that
// runs a block kernel over the region, tails included, and the faster bodies' entry points.
// Header-only so every level compiles the walk with its own flags; the walk is a template on the
// block type, which each file keeps in its own anonymous namespace, so no two levels ever share
// an instantiation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/frame.h"

namespace velmora::swizzle {

// One row through a block kernel: B::Run(src, dst, perm) reorders one block of B::kPixels
// pixels (B::kSrcBytes in, B::kDstBytes out) and loads everything before it stores, so src may
// equal dst. The last few pixels go through the same block in a scratch copy, never past the
// region.
template <class B, class Perm>
void SwizzleRow(const uint8_t* src, uint8_t* dst, int32_t width, const Perm& perm) {
    int32_t x = 0;
    for (; x + B::kPixels <= width; x += B::kPixels, src += B::kSrcBytes, dst += B::kDstBytes) B::Run(src, dst, perm);
    if (x == width) return;
    const size_t left = static_cast<size_t>(width - x);
    alignas(16) uint8_t in[B::kSrcBytes] = {};
    alignas(16) uint8_t out[B::kDstBytes];
    std::memcpy(in, src, left * (B::kSrcBytes / B::kPixels));
    B::Run(in, out, perm);
    std::memcpy(dst, out, left * (B::kDstBytes / B::kPixels));
}

// The region's rows; src and dst already point at the sub-rectangle's first pixel. The
// permutation is copied once so its vectors stay in registers across the stores.
template <class B, class Perm>
void SwizzleRows(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width, int32_t height,
                 const Perm& perm) {
    const Perm local = perm;
    for (int32_t row = 0; row < height; ++row)
        SwizzleRow<B>(frame::Row(src, src_step, row), frame::Row(dst, dst_step, row), width, local);
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
