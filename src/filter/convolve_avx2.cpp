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

int64_t RowInteriorAvx2(const float* first, int64_t tap_stride, float* out, int64_t f0, int64_t f1, const float* w,
                        int32_t taps, body::Normalise norm) {
    return body::Row<Avx2>(first, tap_stride, out, f0, f1, w, taps, norm);
}

int64_t ColumnInteriorAvx2(const float* const* rows, float* out, int64_t n_floats, const float* w, int32_t taps,
                           body::Normalise norm) {
    return body::Column<Avx2>(rows, out, 0, n_floats, w, taps, norm);
}

}  // namespace velmora::filter
