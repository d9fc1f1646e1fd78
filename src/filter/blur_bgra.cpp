// Integer-kernel convolution of 8-bit four-channel pixels, written transposed, and the in-place
// two-pass blur on it.
//
// Clipping, like the float convolutions: each output is the weighted sum of the taps inside the
// row divided by the sum of the weights used, rounded half to even and clamped to 0..255. The
// integer weights and 8-bit values are summed as floats, which is exact while the sum of |weight|
// times 255 stays below 2^24. `last` says whether the last channel (alpha) is filtered too; when
// it is 0 the destination's alpha bytes are left as they are, so the in-place blur can keep the
// image's own alpha. Reads and writes exactly the region (and the in-place blur's scratch).
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
    const __m128i keep_alpha = _mm_setr_epi32(last ? 0 : static_cast<int32_t>(0xFF000000u), 0, 0, 0);
    WriteTransposed(
        height, width, buffers, dst, dst_step, 4,
        [&](int32_t y, float* out) {
            const uint8_t* row = frame::Row(src, src_step, y);
            for (int32_t x = 0; x < width; ++x) v4::Store(wide + 4 * x, v4::BytesToFloat(v4::Load32(row + 4 * x)));
            ClippedRow<4>(wide, out, width, 0, 0, taps);
        },
        [&](uint8_t* d, const float* b) {
            const __m128i v = v4::RoundToInt(v4::Load(b));
            const __m128i bytes4 = v4::PackToBytes(v, v, v, v);
            v4::Store32(d, _mm_or_si128(_mm_andnot_si128(keep_alpha, bytes4), _mm_and_si128(keep_alpha, v4::Load32(d))));
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
