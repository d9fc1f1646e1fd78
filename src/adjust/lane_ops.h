// Minimum, maximum and clamps over the xsimd batch type for the family's shared arithmetic at
// every width, bound to the instructions themselves: where either lane is NaN the second operand
// comes out, a rule the clamps rely on (lower bound first, so NaN becomes the lower bound) and
// xsimd's own min and max do not promise.
#pragma once

#include <immintrin.h>

namespace velmora::adjust {

template <class B>
inline B Min(B a, B b) {
    if constexpr (B::size == 4) return _mm_min_ps(a, b);
    else if constexpr (B::size == 8) return _mm256_min_ps(a, b);
    else return _mm512_min_ps(a, b);
}

template <class B>
inline B Max(B a, B b) {
    if constexpr (B::size == 4) return _mm_max_ps(a, b);
    else if constexpr (B::size == 8) return _mm256_max_ps(a, b);
    else return _mm512_max_ps(a, b);
}

template <class B>
inline B Clamp(B v, float lo, float hi) {
    return Min(Max(v, B(lo)), B(hi));
}

template <class B>
inline B Clamp01(B v) {
    return Clamp(v, 0.0f, 1.0f);
}

}  // namespace velmora::adjust
