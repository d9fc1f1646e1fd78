// The interleaved Lab kernels sixteen pixels a vector (AVX-512), through the same per-lane
// arithmetic as the SSE2 body.
//
// GCC 12's AVX-512 intrinsics pass an intentionally undefined vector as the masked-off source and
// then warn that it may be (or is) uninitialised; every lane is computed here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "adjust/color_lanes.h"
#include "adjust/lab_rows.h"

namespace velmora::adjust::lab {

void InterleavedRowsAvx512(Interleaved kind, float* image, int32_t step, int32_t width, int32_t height,
                           const InterleavedArgs& a) {
    InterleavedRows<xsimd::batch<float, xsimd::avx512f>>(kind, image, step, width, height, a);
}

}  // namespace velmora::adjust::lab
