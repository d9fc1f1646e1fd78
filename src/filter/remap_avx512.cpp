// The local Laplacian filter's remapping, two pixels a vector; an odd last pixel takes the
// eight-lane body's steps at four lanes, which give the same floats.
//
// GCC 12's AVX-512 intrinsics pass an intentionally undefined vector as the masked-off source and
// then warn that it may be uninitialised; every lane is computed here.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include "filter/remap.h"

namespace velmora::filter {
void RemapRowAvx512(const float* l, int32_t width, float alpha, float* r) {
    const int32_t x = RemapPixels<xsimd::batch<float, xsimd::avx512f>>(l, 0, width, alpha, r);
    RemapPixels<xsimd::batch<float, xsimd::sse2>>(l, x, width, alpha, r);
}
}  // namespace velmora::filter
