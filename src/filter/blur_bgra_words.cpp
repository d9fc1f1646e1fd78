// The two-pass 8-bit BGRA convolution in 16-bit integers, for the kernels callers use most: whole,
// non-negative weights summing to a power of two from 2 to 256 (the binomials among them). A
// full window's sum S of weights times bytes is then at most 256 x 255, an unsigned 16-bit integer,
// and the float path's S / 2^s is exact as well, so rounding S / 2^s half to even in integers gives
// the float path's bytes, eight channels a vector instead of four floats. Outputs whose window an
// edge clips divide by a partial weight sum, which only the float division rounds the float
// path's way, so those few take that division.
#include <algorithm>
#include <vector>

#include "core/cpu.h"
#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/blur.h"
#include "filter/blur_words_body.h"

namespace velmora::filter {
namespace {

struct Sse2Words {
    using T = __m128i;
    static constexpr int kBytes = 16;
    static T Load(const uint8_t* p) { return v4::LoadI(p); }
    static void Store(uint8_t* p, T v) { v4::StoreI(p, v); }
    static T Zero() { return _mm_setzero_si128(); }
    static T Set16(int16_t v) { return _mm_set1_epi16(v); }
    static T Set32(int32_t v) { return _mm_set1_epi32(v); }
    static T WidenLo(T v) { return v4::WidenLo8(v); }
    static T WidenHi(T v) { return v4::WidenHi8(v); }
    static T Mul(T a, T b) { return _mm_mullo_epi16(a, b); }
    static T Add(T a, T b) { return _mm_add_epi16(a, b); }
    static T And(T a, T b) { return _mm_and_si128(a, b); }
    static T Srl(T a, __m128i count) { return _mm_srl_epi16(a, count); }
    static T PackUs(T a, T b) { return _mm_packus_epi16(a, b); }
    static T Select(T a, T b, T mask) { return v4::Select(a, b, mask); }
};

VELMORA_WORD_BODIES(Sse2Words, Sse2)

// One output byte from its window's sum and the weights the window used, rounded as the float
// path rounds the quotient (ties to even) and clamped; no weight at all gives 0, as there.
uint8_t WindowByte(int32_t sum, int32_t used) {
    if (used == 0) return 0;
    const int32_t v = _mm_cvtss_si32(_mm_set_ss(static_cast<float>(sum) / static_cast<float>(used)));
    return static_cast<uint8_t>(std::min(v, 255));
}

// A source row filtered across into out (4 x width bytes): vectors where the whole window lies in
// the row, each clipped or leftover pixel on its own.
void FilterRow(const uint8_t* in, uint8_t* out, int32_t width, const words::Kernel& k, bool avx2) {
    const int32_t x0 = std::min(-k.first, width), x1 = std::max(x0, width - k.last);
    const auto pixel = [&](int32_t x) {
        const int32_t lo = std::max(k.first, -x), hi = std::min(k.last, width - 1 - x);
        int32_t used = 0, sum[4] = {};
        for (int32_t t = lo; t <= hi; ++t) {
            used += k.W(t);
            for (int c = 0; c < 4; ++c) sum[c] += k.W(t) * in[4 * (x + t) + c];
        }
        for (int c = 0; c < 4; ++c) out[4 * x + c] = WindowByte(sum[c], used);
    };
    for (int32_t x = 0; x < x0; ++x) pixel(x);
    int32_t x = avx2 ? RowWordsAvx2(in, out, x0, x1, k) : x0;
    for (x = RowWordsSse2(in, out, x, x1, k); x < width; ++x) pixel(x);
}

// An output row from the filtered rows[lo .. hi] (taps, already clipped to the image), n bytes;
// with keep_alpha the destination's alpha bytes stay as they are.
void CombineColumn(const uint8_t* const* rows, uint8_t* d, int64_t n, int32_t lo, int32_t hi, const words::Kernel& k,
                   bool keep_alpha, bool avx2) {
    int64_t i = 0;
    if (lo == k.first && hi == k.last) {
        if (avx2) i = ColumnWordsAvx2(rows + k.first, d, i, n, k, keep_alpha);
        i = ColumnWordsSse2(rows + k.first, d, i, n, k, keep_alpha);
    }
    int32_t used = 0;
    for (int32_t t = lo; t <= hi; ++t) used += k.W(t);
    for (; i < n; ++i) {
        if (keep_alpha && i % 4 == 3) continue;
        int32_t sum = 0;
        for (int32_t t = lo; t <= hi; ++t) sum += k.W(t) * rows[t][i];
        d[i] = WindowByte(sum, used);
    }
}

}  // namespace

bool ConvolveRowsBgraWords(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width,
                           int32_t height, const int32_t* kernel, int32_t size, bool last) {
    int64_t total = 0;
    for (int32_t i = 0; i < size; ++i) {
        if (kernel[i] < 0) return false;
        total += kernel[i];
    }
    // Whole weights summing to at most 256 are at most 64 non-zero ones; zeros beyond that are
    // left to the float body rather than given room here.
    if (total < 2 || total > 256 || (total & (total - 1)) != 0 || size > 64) return false;
    if (width <= 0 || height <= 0) return true;
    words::Kernel k{kernel, size, -(size / 2), size - size / 2 - 1, 0};
    while ((int64_t{1} << k.shift) < total) ++k.shift;
    const bool avx2 = cpu::Has(cpu::Level::Avx2);

    // The float body's ring walk, over rows of bytes.
    const int64_t row_bytes = int64_t{4} * width;
    const size_t bytes = static_cast<size_t>(row_bytes) * static_cast<size_t>(size);
    auto* ring = static_cast<uint8_t*>(scratch::Allocate(bytes));
    RingRows(
        ring, row_bytes, height, size, k.first, k.last,
        [&](int32_t r, uint8_t* slot) { FilterRow(frame::Row(src, src_step, r), slot, width, k, avx2); },
        [&](int32_t y, const uint8_t* const* rows, int32_t lo, int32_t hi) {
            CombineColumn(rows, frame::Row(dst, dst_step, y), row_bytes, lo, hi, k, !last, avx2);
        });
    scratch::Free(ring, bytes);
    return true;
}

}  // namespace velmora::filter
