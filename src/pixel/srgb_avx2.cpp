// The sRGB formula kernels two pixels a vector (AVX2), through the same per-lane arithmetic as
// the SSE2 body. A row's odd last pixel runs alone in the low half (the high half computes on
// zeros and is never stored), so exactly the region is read and written.
#include <immintrin.h>

#include "core/frame.h"
#include "pixel/srgb_math.h"

namespace velmora::pixel::srgb {
namespace {

using Batch8 = xsimd::batch<float, xsimd::avx2>;

// Eight pixels a step, four independent log/exp chains for the processor to overlap as in the
// SSE2 body; then pairs; then the last pixel of an odd width in the low half.
template <Batch8 (*PixelFn)(Batch8)>
void TransformRows(float* data, int32_t step, int32_t width, int32_t height) {
    for (int32_t y = 0; y < height; ++y) {
        float* p = frame::Row(data, step, y);
        int32_t x = 0;
        for (; x + 8 <= width; x += 8, p += 32) {
            const Batch8 a = PixelFn(Batch8::load_unaligned(p)), b = PixelFn(Batch8::load_unaligned(p + 8));
            const Batch8 c = PixelFn(Batch8::load_unaligned(p + 16)), d = PixelFn(Batch8::load_unaligned(p + 24));
            a.store_unaligned(p);
            b.store_unaligned(p + 8);
            c.store_unaligned(p + 16);
            d.store_unaligned(p + 24);
        }
        for (; x + 2 <= width; x += 2, p += 8) PixelFn(Batch8::load_unaligned(p)).store_unaligned(p);
        if (x < width) {
            const Batch8 last = PixelFn(_mm256_insertf128_ps(_mm256_setzero_ps(), _mm_loadu_ps(p), 0));
            _mm_storeu_ps(p, _mm256_castps256_ps128(last));
        }
    }
}

}  // namespace

void EncodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height) {
    TransformRows<EncodeByFormula<Batch8>>(data, step, width, height);
}

void DecodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height) {
    TransformRows<DecodeByFormula<Batch8>>(data, step, width, height);
}

}  // namespace velmora::pixel::srgb
