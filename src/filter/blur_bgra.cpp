// Integer-kernel convolution of 8-bit four-channel pixels: one pass written transposed, and the
// two-pass blur, which runs row by row instead.
//
// Clipping, like the float convolutions: each output is the weighted sum of the taps inside the
// row divided by the sum of the weights used, rounded half to even and clamped to 0..255. The
// integer weights and 8-bit values are summed as floats, which is exact while the sum of |weight|
// times 255 stays below 2^24. `last` says whether the last channel (alpha) is filtered too; when
// it is 0 the destination's alpha bytes are left as they are, so the in-place blur can keep the
// image's own alpha. Reads and writes exactly the region (and scratch of its own).
#include <algorithm>
#include <vector>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/blur.h"
#include "filter/convolve.h"

namespace velmora::filter {
namespace {

// Pixels px(0) .. px(n - 1), rounded and saturated to bytes, stored to d, d + 4, ...: four a
// store, the destination read back only when its alpha is kept (keep_alpha's lanes).
template <class Pixel>
void PackPixels(uint8_t* d, int32_t n, bool last, __m128i keep_alpha, Pixel&& px) {
    const auto at = [&](int32_t i) { return v4::RoundToInt(px(i)); };
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i bytes = v4::PackToBytes(at(i), at(i + 1), at(i + 2), at(i + 3));
        v4::StoreI(d + 4 * i, last ? bytes : v4::Select(bytes, v4::LoadI(d + 4 * i), keep_alpha));
    }
    for (; i < n; ++i) {
        const __m128i p = at(i), bytes = v4::PackToBytes(p, p, p, p);
        v4::Store32(d + 4 * i, last ? bytes : v4::Select(bytes, v4::Load32(d + 4 * i), keep_alpha));
    }
}

__m128i KeepAlpha(bool last) { return _mm_set1_epi32(last ? 0 : static_cast<int32_t>(0xFF000000u)); }

void ConvolveTransposeBgra(const uint8_t* src, int32_t src_step, int32_t width, int32_t height, uint8_t* dst,
                           int32_t dst_step, const int32_t* kernel, int32_t size, bool last) {
    if (width <= 0 || height <= 0) return;
    const std::vector<float> weights(kernel, kernel + size);
    const Taps taps{weights.data(), size, size / 2};
    // Four filtered rows, then one row of the source widened to floats.
    const size_t bytes = sizeof(float) * 20 * static_cast<size_t>(width);
    auto* buffers = static_cast<float*>(scratch::Allocate(bytes));
    float* wide = buffers + 16 * static_cast<size_t>(width);
    const __m128i keep_alpha = KeepAlpha(last);
    WriteTransposed(
        height, width, buffers, dst, dst_step, 4,
        [&](int32_t y, float* out) {
            v4::BytePixelsToFloats(frame::Row(src, src_step, y), wide, width);
            ClippedRow<4>(wide, out, width, 0, 0, taps);
        },
        [&](uint8_t* d, const float* b, int64_t stride, int32_t n) {
            PackPixels(d, n, last, keep_alpha, [&](int32_t i) { return v4::Load(b + i * stride); });
        });
    scratch::Free(buffers, bytes);
}

}  // namespace

// The two passes row by row, as the transposed pair computes them: each source row is filtered
// across and rounded to byte values (what the first pass stores) into a ring of `size` rows kept as
// floats; each output row then combines the ring's rows down the column, clipped at the top and
// bottom, which is the second pass's row taken along the column: the same products summed in the
// same order, the same bytes. A destination row is written only after every row reading the
// source row it replaces has been filtered, so dst may be src.
void ConvolveRowsBgra(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                      int32_t height, const int32_t* kernel, int32_t size, bool last) {
    if (ConvolveRowsBgraWords(src, src_step, dst, dst_step, width, height, kernel, size, last)) return;
    if (width <= 0 || height <= 0) return;
    const std::vector<float> weights(kernel, kernel + size);
    const Taps taps{weights.data(), size, size / 2};
    const int32_t first_tap = -taps.centre, last_tap = size - taps.centre - 1;
    const size_t row_floats = 4 * static_cast<size_t>(width);
    // The ring, then one widened source row and one combined row.
    const size_t bytes = sizeof(float) * row_floats * (size + 2);
    auto* ring = static_cast<float*>(scratch::Allocate(bytes));
    float* wide = ring + row_floats * size;
    float* out = wide + row_floats;
    const __m128i keep_alpha = KeepAlpha(last);
    const __m128 top = v4::Set1(255.0f);
    RingRows(
        ring, static_cast<int64_t>(row_floats), height, size, first_tap, last_tap,
        [&](int32_t r, float* slot) {
            v4::BytePixelsToFloats(frame::Row(src, src_step, r), wide, width);
            ClippedRow<4>(wide, slot, width, 0, 0, taps);
            // Rounded and saturated as the byte pack does it (a value beyond int32 converts to
            // the integer minimum, hence 0), but kept as floats.
            for (size_t i = 0; i < row_floats; i += 4) {
                const __m128 whole = _mm_cvtepi32_ps(v4::RoundToInt(v4::Load(slot + i)));
                v4::Store(slot + i, _mm_min_ps(_mm_max_ps(whole, v4::Zero()), top));
            }
        },
        [&](int32_t y, const float* const* rows, int32_t lo, int32_t hi) {
            ClippedColumn(rows, out, static_cast<int64_t>(row_floats), taps, lo, hi);
            PackPixels(frame::Row(dst, dst_step, y), width, last, keep_alpha, [&](int32_t i) { return v4::Load(out + 4 * i); });
        });
    scratch::Free(ring, bytes);
}

}  // namespace velmora::filter

extern "C" VELMORA_API void VELMORA_CALL ImageConvolveTranspose_Bgra32(const uint8_t* src, int32_t srcStep,
                                                                       int32_t width, int32_t height, uint8_t* dst,
                                                                       int32_t dstStep, const int32_t* kernel,
                                                                       int32_t size, int32_t last) {
    velmora::filter::ConvolveTransposeBgra(src, srcStep, width, height, dst, dstStep, kernel, size, last != 0);
}

extern "C" VELMORA_API void VELMORA_CALL ImageConvolve_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                              const int32_t* kernel, int32_t size, int32_t last) {
    velmora::filter::ConvolveRowsBgra(image, step, image, step, roi->width, roi->height, kernel, size, last != 0);
}

extern "C" VELMORA_API void VELMORA_CALL ImageGaussian5x5_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi) {
    static const int32_t kBinomial5[5] = {1, 4, 6, 4, 1};
    ImageConvolve_Bgra32(image, step, roi, kBinomial5, 5, 1);
}
