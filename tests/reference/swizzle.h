// Plain channel reordering, pixel by pixel, for the swizzle tests.
#pragma once

#include <cstdint>
#include <vector>

namespace ref {

// Packed rows of width x src_channels elements to packed rows of width x dst_channels: channel c
// takes source channel order[c], or `fill` when a three-channel source grows to four and the
// entry is 3 or more.
template <class T>
std::vector<T> Swizzle(const std::vector<T>& src, int width, int height, int src_channels, int dst_channels,
                       const int32_t* order, T fill) {
    std::vector<T> out;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const T* pixel = &src[(size_t(y) * width + x) * src_channels];
            for (int c = 0; c < dst_channels; ++c)
                out.push_back(dst_channels > src_channels && order[c] >= 3 ? fill : pixel[order[c]]);
        }
    return out;
}

}  // namespace ref
