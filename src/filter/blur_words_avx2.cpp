// The 16-bit 8-bit BGRA convolution's loops 32 bytes (eight pixels) a vector (AVX2).
#include <immintrin.h>

#include "filter/blur_words_body.h"

namespace velmora::filter {
namespace {

struct Avx2Words {
    using T = __m256i;
    static constexpr int kBytes = 32;
    static T Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void Store(uint8_t* p, T v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static T Zero() { return _mm256_setzero_si256(); }
    static T Set16(int16_t v) { return _mm256_set1_epi16(v); }
    static T Set32(int32_t v) { return _mm256_set1_epi32(v); }
    static T WidenLo(T v) { return _mm256_unpacklo_epi8(v, _mm256_setzero_si256()); }
    static T WidenHi(T v) { return _mm256_unpackhi_epi8(v, _mm256_setzero_si256()); }
    static T Mul(T a, T b) { return _mm256_mullo_epi16(a, b); }
    static T Add(T a, T b) { return _mm256_add_epi16(a, b); }
    static T And(T a, T b) { return _mm256_and_si256(a, b); }
    static T Srl(T a, __m128i count) { return _mm256_srl_epi16(a, count); }
    static T PackUs(T a, T b) { return _mm256_packus_epi16(a, b); }
    static T Select(T a, T b, T mask) { return _mm256_or_si256(_mm256_andnot_si256(mask, a), _mm256_and_si256(mask, b)); }
};

}  // namespace

VELMORA_WORD_BODIES(Avx2Words, Avx2)

}  // namespace velmora::filter
