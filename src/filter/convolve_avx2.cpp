// The clipping convolutions' inner loops eight floats a step (AVX2, no FMA: fused rounding would
// change the bits). Same operations in the same order as the four-float body.
#include <immintrin.h>

#include "filter/convolve_body.h"

namespace velmora::filter {
namespace {

struct Avx2 {
    using T = __m256;
    static constexpr int kLanes = 8;
    static T Load(const float* p) { return _mm256_loadu_ps(p); }
    static void Store(float* p, T v) { _mm256_storeu_ps(p, v); }
    static T Set1(float f) { return _mm256_set1_ps(f); }
    static T Mul(T a, T b) { return _mm256_mul_ps(a, b); }
    static T Add(T a, T b) { return _mm256_add_ps(a, b); }
    static T Div(T a, T b) { return _mm256_div_ps(a, b); }
};

}  // namespace

VELMORA_CONVOLVE_BODIES(Avx2)

}  // namespace velmora::filter
