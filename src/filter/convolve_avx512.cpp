// The clipping convolutions' inner loops sixteen floats a step (AVX-512F, no FMA: fused rounding would
// change the bits). Same operations in the same order as the four-float body.
#include <immintrin.h>

#include "filter/convolve_body.h"

namespace velmora::filter {
namespace {

struct Avx512 {
    using T = __m512;
    static constexpr int kLanes = 16;
    static T Load(const float* p) { return _mm512_loadu_ps(p); }
    static void Store(float* p, T v) { _mm512_storeu_ps(p, v); }
    static T Set1(float f) { return _mm512_set1_ps(f); }
    static T Mul(T a, T b) { return _mm512_mul_ps(a, b); }
    static T Add(T a, T b) { return _mm512_add_ps(a, b); }
    static T Div(T a, T b) { return _mm512_div_ps(a, b); }
};

}  // namespace

VELMORA_CONVOLVE_BODIES(Avx512)

}  // namespace velmora::filter
