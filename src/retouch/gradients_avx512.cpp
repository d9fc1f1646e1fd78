// The gradient masks sixteen floats a step.
//
// GCC 12's AVX-512 min, max and sqrt pass an intentionally undefined vector as the masked-off
// source and then warn that it may be uninitialised; every lane is computed here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include "retouch/gradients_body.h"

namespace velmora::retouch::gradients {
void RunAvx512(const Request& q) { Run<xsimd::batch<float, xsimd::avx512f>>(q); }
}  // namespace velmora::retouch::gradients
