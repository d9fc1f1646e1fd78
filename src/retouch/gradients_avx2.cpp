// The gradient masks eight floats a step (AVX2 flags; the arithmetic is AVX's float lanes).
#include "retouch/gradients_body.h"

namespace velmora::retouch::gradients {
void RunAvx2(const Request& q) { Run<xsimd::batch<float, xsimd::avx2>>(q); }
}  // namespace velmora::retouch::gradients
