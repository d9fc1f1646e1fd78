// The HSL edit eight pixels a vector, through the same per-lane arithmetic as the SSE2 body.
#include "adjust/color_lanes.h"
#include "adjust/hsl_body.h"

namespace velmora::adjust::hsl {

using B = xsimd::batch<float, xsimd::avx2>;

void BandRowsAvx2(float* image, int32_t step, int32_t width, int32_t height, const Bands& bands) {
    Rows<B>(image, step, width, height, bands);
}
void CurveRowsAvx2(float* image, int32_t step, int32_t width, int32_t height, const Curves& curves) {
    Rows<B>(image, step, width, height, curves);
}

}  // namespace velmora::adjust::hsl
