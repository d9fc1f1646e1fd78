// The vector loops of the 16-bit 8-bit BGRA convolution (blur_bgra_words.cpp), written once over a
// vector policy V: 16 bytes a vector (SSE2) or 32 (AVX2, blur_words_avx2.cpp). Every lane holds a
// whole-number sum computed exactly, so each body gives the same bytes as any other.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace velmora::filter::words {

struct Kernel {
    const int32_t* weights;
    int32_t size, first, last;  // taps first .. last around each output (first = -centre)
    int32_t shift;              // the weights sum to 1 << shift

    int32_t W(int32_t t) const { return weights[t - first]; }
};

// The weights and rounding constants as vectors, held in locals where the loops run: byte stores
// may alias any memory, so the compiler would reload them from the kernel for every vector. With N
// taps known when compiling (the common 3, 5 and 7) the tap loop unrolls and they stay in
// registers; N = 0 takes the size at run time (at most 64 taps).
template <class V, int N>
struct Lanes {
    using T = typename V::T;
    T w[N ? N : 64], half_less_one, one;
    __m128i count;
    int32_t n;
    explicit Lanes(const Kernel& k)
        : half_less_one(V::Set16(static_cast<int16_t>((1 << (k.shift - 1)) - 1))), one(V::Set16(1)),
          count(_mm_cvtsi32_si128(k.shift)), n(N ? N : k.size) {
        for (int32_t j = 0; j < n; ++j) w[j] = V::Set16(static_cast<int16_t>(k.weights[j]));
    }

    // S / 2^shift rounded half to even, for 0 <= S <= 256 x 255 (unsigned lanes): adding half - 1
    // and the quotient's low bit carries exactly the remainders that round up (above half, or
    // half with an odd quotient).
    T RoundShift(T s) const {
        const T odd = V::And(V::Srl(s, count), one);
        return V::Srl(V::Add(V::Add(s, half_less_one), odd), count);
    }

    // V::kBytes bytes of full windows: the sum over taps j of w[j] x at(j), rounded. Widening and
    // packing both work within 16-byte halves, so the bytes come back in their places.
    template <class At>
    T FullWindows(At&& at) const {
        T lo = V::Zero(), hi = V::Zero();
        for (int32_t j = 0; j < (N ? N : n); ++j) {
            const T p = at(j);
            lo = V::Add(lo, V::Mul(V::WidenLo(p), w[j]));
            hi = V::Add(hi, V::Mul(V::WidenHi(p), w[j]));
        }
        return V::PackUs(RoundShift(lo), RoundShift(hi));
    }
};

// Full windows of a row from pixel x while x + V::kBytes / 4 <= x1 (window taps k.first .. k.last
// around each); returns the first pixel not done.
template <class V, int N>
int32_t RowVectors(const uint8_t* in, uint8_t* out, int32_t x, int32_t x1, const Kernel& k) {
    const Lanes<V, N> v(k);
    for (; x + V::kBytes / 4 <= x1; x += V::kBytes / 4) {
        const uint8_t* first = in + 4 * (x + k.first);
        V::Store(out + 4 * x, v.FullWindows([&](int32_t j) { return V::Load(first + 4 * j); }));
    }
    return x;
}

// Full column windows of rows window[0 .. size) from byte i while i + V::kBytes <= n; with
// keep_alpha every fourth byte of d stays as it is. Returns the first byte not done.
template <class V, int N>
int64_t ColumnVectors(const uint8_t* const* window, uint8_t* d, int64_t i, int64_t n, const Kernel& k, bool keep_alpha) {
    const Lanes<V, N> v(k);
    const typename V::T keep = V::Set32(keep_alpha ? static_cast<int32_t>(0xFF000000u) : 0);
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T bytes = v.FullWindows([&](int32_t j) { return V::Load(window[j] + i); });
        V::Store(d + i, keep_alpha ? V::Select(bytes, V::Load(d + i), keep) : bytes);
    }
    return i;
}

// The two loops for kernels of any size, the common sizes unrolled.
#define VELMORA_WORD_BODIES(V, Suffix)                                                                                \
    int32_t RowWords##Suffix(const uint8_t* in, uint8_t* out, int32_t x, int32_t x1, const words::Kernel& k) {        \
        switch (k.size) {                                                                                              \
            case 3: return words::RowVectors<V, 3>(in, out, x, x1, k);                                                \
            case 5: return words::RowVectors<V, 5>(in, out, x, x1, k);                                                \
            case 7: return words::RowVectors<V, 7>(in, out, x, x1, k);                                                \
            default: return words::RowVectors<V, 0>(in, out, x, x1, k);                                               \
        }                                                                                                              \
    }                                                                                                                  \
    int64_t ColumnWords##Suffix(const uint8_t* const* window, uint8_t* d, int64_t i, int64_t n,                        \
                                const words::Kernel& k, bool keep_alpha) {                                             \
        switch (k.size) {                                                                                              \
            case 3: return words::ColumnVectors<V, 3>(window, d, i, n, k, keep_alpha);                                \
            case 5: return words::ColumnVectors<V, 5>(window, d, i, n, k, keep_alpha);                                \
            case 7: return words::ColumnVectors<V, 7>(window, d, i, n, k, keep_alpha);                                \
            default: return words::ColumnVectors<V, 0>(window, d, i, n, k, keep_alpha);                               \
        }                                                                                                              \
    }

}  // namespace velmora::filter::words

namespace velmora::filter {

// The AVX2 loops (blur_words_avx2.cpp), run only where the processor has that level.
int32_t RowWordsAvx2(const uint8_t* in, uint8_t* out, int32_t x, int32_t x1, const words::Kernel& k);
int64_t ColumnWordsAvx2(const uint8_t* const* window, uint8_t* d, int64_t i, int64_t n, const words::Kernel& k,
                        bool keep_alpha);

}  // namespace velmora::filter
