// The clipped square minimum filter behind the dark channels, at a cost per pixel that does not
// depend on the radius. The minimum over a window clipped to the region equals the minimum over
// the same window in a region padded with the identity (255, or +infinity), and a square window's
// minimum is the minimum over its rows of each row's minimum; so two one-dimensional passes give
// exactly the direct scan's values. Each pass runs down the columns with the van Herk / Gil-Werman
// scheme (blocks of 2r+1 rows: every window is a suffix of one block joined to a prefix of the
// next, three minima per pixel whatever r is) and writes its result transposed, so the second pass
// filters the other direction and the image comes back the right way round.
#pragma once

#include <cstdint>

namespace velmora::retouch {

// Gives a pointer to the w elements of source row y (0 <= y < h); the pointer must stay valid
// until the next call. The returned rows may be read up to the next multiple of 16 bytes.
template <class T>
using RowSource = const T* (*)(void* context, int32_t y);

// Clipped minimum of radius r down the columns of a w x h plane, written transposed: dst row x,
// elements 0 .. h-1, nothing else.
void MinDownTransposed(int32_t w, int32_t h, int32_t r, RowSource<uint8_t> row, void* context, uint8_t* dst,
                       int32_t dst_step);
void MinDownTransposed(int32_t w, int32_t h, int32_t r, RowSource<float> row, void* context, float* dst,
                       int32_t dst_step);

}  // namespace velmora::retouch
