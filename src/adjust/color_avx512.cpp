// The colour matrices and fixed colour spaces sixteen pixels a vector, through the same per-lane
// arithmetic as the SSE2 body.
//
// GCC 12's AVX-512 intrinsics pass an intentionally undefined vector as the masked-off source and
// then warn that it may be (or is) uninitialised; every lane is computed here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "adjust/color_lanes.h"
#include "adjust/color_passes.h"

namespace velmora::color {

void RunPassAvx512(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
                   int32_t width, int32_t height, const PassArgs& a) {
    RunPass<xsimd::batch<float, xsimd::avx512f>>(pass, keep_alpha, src, src_step, dst, dst_step, width, height, a);
}

}  // namespace velmora::color
