// The transposing one-dimensional passes the blur family is built from, shared with the filters
// that stack on them (pyramids, local contrast, guided filters). Each pass reads source rows and
// writes row y of its input as column y of its output, so running a pass twice filters both
// directions and leaves the image the right way round, with every read walking memory row-wise.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace velmora::filter {

// Running box mean of radius r over `rows` rows of four-float pixels, `count` outputs a row.
// Margin-reading: each row is read from pixel -r to count-1+r, nothing is clipped. The running
// sum subtracts the leaving pixel before adding the entering one and is never recomputed, so
// rounding drifts slowly along a row (accepted for constant cost at any radius).
void BoxPassTranspose(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t count, int32_t rows,
                      int32_t radius);

// Clipping box means of gray floats, written transposed: output x of a row is the mean of the
// window's pixels that lie inside the row; `squares` averages v*v instead of v. Each row's
// prefix sum P[x] = P[x-1] + v[x] gives window sums as differences, so the cost does not grow
// with the radius; interior windows multiply by 1/(2r+1), windows cut by an end divide by their
// pixel count.
void GrayBoxPassTranspose(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t width,
                          int32_t height, int32_t radius, bool squares);

// The two-pass clipping convolution of 8-bit BGRA pixels with integer weights (the transposed
// pass across, then back), computed row by row with no transposed plane: src to dst, which may
// be src. `last`: alpha is filtered by the second pass too, else dst's alpha is kept.
void ConvolveRowsBgra(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                      int32_t height, const int32_t* kernel, int32_t size, bool last);

// The row walk of a two-pass blur done row by row: source row r is filtered across once, by
// filter(r, slot), into slot r % size of a ring of `size` rows of row_elems elements; output row y
// is then combined by combine(y, rows, lo, hi) from rows[t], the filtered row y + t, for taps t
// from lo to hi (first .. last, clipped to the image). Every source row an output's window reads is
// filtered before that output is written, and never read again after, so dst may be src.
template <class T, class Filter, class Combine>
void RingRows(T* ring, int64_t row_elems, int32_t height, int32_t size, int32_t first, int32_t last, Filter&& filter,
              Combine&& combine) {
    std::vector<const T*> window(static_cast<size_t>(size));
    const T* const* rows = window.data() - first;
    int32_t filtered = 0;
    for (int32_t y = 0; y < height; ++y) {
        const int32_t lo = std::max(first, -y), hi = std::min(last, height - 1 - y);
        for (; filtered <= y + hi; ++filtered) filter(filtered, ring + row_elems * (filtered % size));
        for (int32_t t = lo; t <= hi; ++t) window[static_cast<size_t>(t - first)] = ring + row_elems * ((y + t) % size);
        combine(y, rows, lo, hi);
    }
}

// The same in 16-bit integers, with the same bytes, where the weights are whole, non-negative and
// sum to a power of two from 2 to 256; false, having done nothing, for any other kernel.
bool ConvolveRowsBgraWords(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                           int32_t height, const int32_t* kernel, int32_t size, bool last);

}  // namespace velmora::filter
