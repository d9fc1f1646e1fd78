// The call frame every export shares: the argument checks of the validating kernels and the
// row walk. Steps are in bytes and may be negative or exceed width x pixel size; never derive
// one from the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "velmora/imaging.h"

namespace velmora::frame {

// The validating kernels' rule, in its fixed order: zero steps, null pointers, pointer
// alignment, step alignment. The first failure decides; the region is never looked at.
inline bool PlanesValid(const void* src, int32_t src_step, const void* dst, int32_t dst_step) {
    if (src_step == 0 || dst_step == 0) return false;
    if (src == nullptr || dst == nullptr) return false;
    if (((reinterpret_cast<uintptr_t>(src) | reinterpret_cast<uintptr_t>(dst)) & 15u) != 0) return false;
    if (((static_cast<uint32_t>(src_step) | static_cast<uint32_t>(dst_step)) & 15u) != 0) return false;
    return true;
}

// Row y of a plane. The product is formed in pointer width so tall planes with large steps
// do not wrap in 32 bits.
template <class T>
inline T* Row(T* base, int32_t step, int32_t y) {
    using Byte = std::conditional_t<std::is_const_v<T>, const std::byte, std::byte>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + static_cast<std::ptrdiff_t>(step) * y);
}

// Walks the region's rows top to bottom, handing each row kernel the source and destination
// row. The width is re-read from the region for every row, as the callers' contract says.
template <class S, class D, class RowFn>
inline void ForEachRow(S* src, int32_t src_step, D* dst, int32_t dst_step, const ImageSize* roi, RowFn&& fn) {
    for (int32_t y = 0; y < roi->height; ++y) fn(Row(src, src_step, y), Row(dst, dst_step, y), roi->width);
}

}  // namespace velmora::frame
