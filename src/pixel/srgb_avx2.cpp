// The sRGB formula kernels two pixels a vector (AVX2), through the same per-lane arithmetic and
// row walk as the SSE2 body. A row's odd last pixel runs alone in the low half of a zeroed
// vector, so exactly the region is read and written.
#include "pixel/srgb_math.h"

namespace velmora::pixel::srgb {

using Batch8 = xsimd::batch<float, xsimd::avx2>;

void EncodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height) {
    TransformRows<Batch8>(data, step, width, height, EncodeByFormula<Batch8>);
}

void DecodeRowsAvx2(float* data, int32_t step, int32_t width, int32_t height) {
    TransformRows<Batch8>(data, step, width, height, DecodeByFormula<Batch8>);
}

}  // namespace velmora::pixel::srgb
