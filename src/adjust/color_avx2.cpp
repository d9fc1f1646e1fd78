// The colour matrices and fixed colour spaces eight pixels a vector, through the same per-lane
// arithmetic as the SSE2 body.
#include "adjust/color_lanes.h"
#include "adjust/color_passes.h"

namespace velmora::color {

void RunPassAvx2(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
                 int32_t width, int32_t height, const PassArgs& a) {
    RunPass<xsimd::batch<float, xsimd::avx2>>(pass, keep_alpha, src, src_step, dst, dst_step, width, height, a);
}

}  // namespace velmora::color
