// The neighbour-pair fetch both curve bodies share: compiled into each body's file with that
// file's instruction set, and kept internal to each file so the two copies never merge.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace velmora::curves {
namespace {

// The low two int32 lanes of k as pointer-width offsets.
struct TwoOffsets {
    ptrdiff_t first, second;
};

inline TwoOffsets LowLanes(__m128i k) {
#if defined(__x86_64__)
    // One move to a general register and a shift split both lanes: about half the cost of
    // moving each lane out on its own, and lane moves are most of what these kernels do.
    const long long both = _mm_cvtsi128_si64(k);
    return {static_cast<int32_t>(both), both >> 32};
#else
    return {_mm_cvtsi128_si32(k), _mm_cvtsi128_si32(_mm_srli_si128(k, 4))};
#endif
}

// The high two lanes. pshufd writes a whole register: a partial move (movhlps) here would
// chain every step to the one before.
inline TwoOffsets HighLanes(__m128i k) { return LowLanes(_mm_shuffle_epi32(k, _MM_SHUFFLE(3, 2, 3, 2))); }

// T[k0], T[k0 + 1], T[k1], T[k1 + 1] for the indices k0, k1 in the low two lanes of k.
inline __m128 TwoPairs(const float* table, TwoOffsets k) {
    using Pair = const __m64*;
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), Pair(table + k.first)), Pair(table + k.second));
}

// T[k0], T[k0 + 1] and zeros: the pairs of a four-channel pixel whose fourth lane (alpha) is
// never looked up.
inline __m128 OnePair(const float* table, TwoOffsets k) {
    return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(table + k.first));
}

// The pairs of lanes 2 and 3, or of lane 2 alone when lane 3 is a kept alpha.
template <bool KeepAlpha>
inline __m128 HighPairs(const float* table, __m128i k) {
    if constexpr (KeepAlpha) return OnePair(table, HighLanes(k));
    else return TwoPairs(table, HighLanes(k));
}

}  // namespace
}  // namespace velmora::curves
