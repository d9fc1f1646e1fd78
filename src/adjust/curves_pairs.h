// The neighbour-pair fetch both curve bodies share: compiled into each body's file with that
// file's instruction set, and kept internal to each file so the two copies never merge.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace velmora::curves {
namespace {

// T[k0], T[k0 + 1], T[k1], T[k1 + 1] for the indices k0, k1 in the low two lanes of k.
inline __m128 TwoPairs(const float* table, __m128i k) {
#if defined(__x86_64__)
    // One move to a general register and a shift split both indices: about half the cost of
    // moving each lane out on its own, and the indexing that dominates these kernels.
    const long long both = _mm_cvtsi128_si64(k);
    const int32_t k0 = static_cast<int32_t>(both), k1 = static_cast<int32_t>(both >> 32);
#else
    const int32_t k0 = _mm_cvtsi128_si32(k), k1 = _mm_cvtsi128_si32(_mm_srli_si128(k, 4));
#endif
    using Pair = const __m64*;
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), Pair(table + k0)), Pair(table + k1));
}

}  // namespace
}  // namespace velmora::curves
