// The HSL edit sixteen pixels a vector, through the same per-lane arithmetic as the SSE2 body.
//
// GCC 12's AVX-512 intrinsics pass an intentionally undefined vector as the masked-off source and
// then warn that it may be (or is) uninitialised; every lane is computed here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "adjust/color_lanes.h"
#include "adjust/hsl_body.h"

namespace velmora::adjust::hsl {

using B = xsimd::batch<float, xsimd::avx512f>;

void BandRowsAvx512(float* image, int32_t step, int32_t width, int32_t height, const Bands& bands) {
    Rows<B>(image, step, width, height, bands);
}
void CurveRowsAvx512(float* image, int32_t step, int32_t width, int32_t height, const Curves& curves) {
    Rows<B>(image, step, width, height, curves);
}

}  // namespace velmora::adjust::hsl
