// The clipped square minimum filter behind the dark channels, at a cost per pixel that hardly
// depends on the radius. The minimum over a window clipped to the region equals the minimum
// over the same window in a region padded with the identity (255, or +infinity), and a square
// window's minimum is the minimum across of the minima down; so the result is exactly the direct
// scan's. Down the columns runs the van Herk / Gil-Werman scheme (blocks of 2r+1 rows: every
// window is a suffix of one block joined to a prefix of the next, three minima per pixel whatever
// r is), whole rows a vector at a time; across each resulting row, minima of doubling spans
// (1, 2, 4, ... up to the window) and one last minimum of two overlapping spans.
#pragma once

#include <cstdint>

namespace velmora::retouch {

// Gives a pointer to the w elements of source row y (0 <= y < h), valid until the next call;
// exactly those w elements are read.
template <class T>
using RowSource = const T* (*)(void* context, int32_t y);

// dst row y, elements 0 .. w-1 (nothing else) = the minimum of the (2r+1)-square window around
// each pixel, clipped to the w x h region.
void ClippedMinimum(int32_t w, int32_t h, int32_t r, RowSource<uint8_t> row, void* context, uint8_t* dst,
                    int32_t dst_step);
void ClippedMinimum(int32_t w, int32_t h, int32_t r, RowSource<float> row, void* context, float* dst,
                    int32_t dst_step);

}  // namespace velmora::retouch
