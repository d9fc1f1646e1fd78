// The local Laplacian filter's remapping, one pixel's eight samples a vector.
#include "filter/remap.h"

namespace velmora::filter {
void RemapRowAvx2(const float* l, int32_t width, float alpha, float* r) {
    RemapPixels<xsimd::batch<float, xsimd::avx2>>(l, 0, width, alpha, r);
}
}  // namespace velmora::filter
