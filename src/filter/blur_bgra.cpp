// Integer-kernel convolution of 8-bit four-channel pixels, written transposed, and the in-place
// two-pass blur on it.
//
// Clipping, like the float convolutions: each output is the weighted sum of the taps inside the
// row divided by the sum of the weights used, rounded half to even and clamped to 0..255. The
// integer weights and 8-bit values are summed as floats, which is exact while the sum of |weight|
// times 255 stays below 2^24. `last` says whether the last channel (alpha) is filtered too; when
// it is 0 the destination's alpha bytes are left as they are, so the in-place blur can keep the
// image's own alpha. Reads and writes exactly the region (and the in-place blur's scratch).
#include <algorithm>
#include <vector>

#include "core/frame.h"
#include "core/image.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/convolve.h"

namespace velmora::filter {
namespace {

void ConvolveTransposeBgra(const uint8_t* src, int32_t src_step, int32_t width, int32_t height, uint8_t* dst,
                           int32_t dst_step, const int32_t* kernel, int32_t size, bool last) {
    if (width <= 0 || height <= 0) return;
    const std::vector<float> weights(kernel, kernel + size);
    const Taps taps{weights.data(), size, size / 2};
    // Four filtered rows, then one row of the source widened to floats.
    const size_t bytes = sizeof(float) * 20 * static_cast<size_t>(width);
    auto* buffers = static_cast<float*>(scratch::Allocate(bytes));
    float* wide = buffers + 16 * static_cast<size_t>(width);
    // Without `last` the destination's alpha bytes are merged back in; with it the destination
    // is only written, four pixels (16 bytes) at a time where four source rows are at hand.
    const __m128i keep_alpha = _mm_set1_epi32(last ? 0 : static_cast<int32_t>(0xFF000000u));
    WriteTransposed(
        height, width, buffers, dst, dst_step, 4,
        [&](int32_t y, float* out) {
            const uint8_t* row = frame::Row(src, src_step, y);
            int32_t x = 0;
            for (; x + 4 <= width; x += 4) {  // four pixels a load
                const __m128i px = v4::LoadI(row + 4 * x), lo = v4::WidenLo8(px), hi = v4::WidenHi8(px);
                v4::Store(wide + 4 * x, _mm_cvtepi32_ps(v4::WidenLo16(lo)));
                v4::Store(wide + 4 * x + 4, _mm_cvtepi32_ps(v4::WidenHi16(lo)));
                v4::Store(wide + 4 * x + 8, _mm_cvtepi32_ps(v4::WidenLo16(hi)));
                v4::Store(wide + 4 * x + 12, _mm_cvtepi32_ps(v4::WidenHi16(hi)));
            }
            for (; x < width; ++x) v4::Store(wide + 4 * x, v4::BytesToFloat(v4::Load32(row + 4 * x)));
            ClippedRow<4>(wide, out, width, 0, 0, taps);
        },
        [&](uint8_t* d, const float* b, int64_t stride, int32_t n) {
            const auto pixel = [&](int32_t i) { return v4::RoundToInt(v4::Load(b + std::min(i, n - 1) * stride)); };
            const __m128i bytes = v4::PackToBytes(pixel(0), pixel(1), pixel(2), pixel(3));
            if (n == 4) {
                v4::StoreI(d, last ? bytes : _mm_or_si128(_mm_andnot_si128(keep_alpha, bytes), _mm_and_si128(keep_alpha, v4::LoadI(d))));
                return;
            }
            alignas(16) uint8_t four[16];
            v4::StoreIAligned(four, bytes);
            for (int32_t i = 0; i < n; ++i) {
                const __m128i p = v4::Load32(four + 4 * i);
                v4::Store32(d + 4 * i, _mm_or_si128(_mm_andnot_si128(keep_alpha, p), _mm_and_si128(keep_alpha, v4::Load32(d + 4 * i))));
            }
        });
    scratch::Free(buffers, bytes);
}

}  // namespace
}  // namespace velmora::filter

using velmora::XMBYTE4;
using velmora::XMImage;

extern "C" VELMORA_API void VELMORA_CALL ImageConvolveTranspose_Bgra32(const uint8_t* src, int32_t srcStep,
                                                                       int32_t width, int32_t height, uint8_t* dst,
                                                                       int32_t dstStep, const int32_t* kernel,
                                                                       int32_t size, int32_t last) {
    velmora::filter::ConvolveTransposeBgra(src, srcStep, width, height, dst, dstStep, kernel, size, last != 0);
}

extern "C" VELMORA_API void VELMORA_CALL ImageConvolve_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi,
                                                              const int32_t* kernel, int32_t size, int32_t last) {
    const int32_t w = roi->width, h = roi->height;
    if (w <= 0 || h <= 0) return;
    auto tmp = XMImage<XMBYTE4>::Create(h, w);
    auto* t = reinterpret_cast<uint8_t*>(tmp->Origin());
    ImageConvolveTranspose_Bgra32(image, step, w, h, t, tmp->Pitch(), kernel, size, 1);
    ImageConvolveTranspose_Bgra32(t, tmp->Pitch(), h, w, image, step, kernel, size, last);
}

extern "C" VELMORA_API void VELMORA_CALL ImageGaussian5x5_Bgra32(uint8_t* image, int32_t step, const ImageSize* roi) {
    static const int32_t kBinomial5[5] = {1, 4, 6, 4, 1};
    ImageConvolve_Bgra32(image, step, roi, kBinomial5, 5, 1);
}
