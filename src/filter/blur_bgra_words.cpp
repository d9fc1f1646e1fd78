// The two-pass 8-bit BGRA convolution in 16-bit integers, for the kernels callers use most: whole,
// non-negative weights summing to a power of two from 2 to 256 (the binomials among them). A
// full window's sum S of weights times bytes is then at most 256 x 255, an unsigned 16-bit integer,
// and the float path's S / 2^s is exact as well, so rounding S / 2^s half to even in integers gives
// the float path's bytes, eight channels a vector instead of four floats. Outputs whose window an
// edge clips divide by a partial weight sum, which only the float division rounds the float
// path's way, so those few take that division.
#include <algorithm>
#include <vector>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/blur.h"

namespace velmora::filter {
namespace {

struct WordKernel {
    const int32_t* weights;
    int32_t size, first, last;  // taps first .. last around each output (first = -centre)
    int32_t shift;              // the weights sum to 1 << shift

    int32_t W(int32_t t) const { return weights[t - first]; }
};

// The weights and rounding constants as vectors, copied into locals where the loops run: byte
// stores may alias any memory, so the compiler would reload them from the kernel for every
// vector. With N taps known when compiling (the common 3, 5 and 7) the tap loop unrolls and
// they stay in registers; N = 0 takes the size at run time.
template <int N>
struct Lanes {
    __m128i w[N ? N : 64], count, half_less_one, one = _mm_set1_epi16(1);
    int32_t n;
    explicit Lanes(const WordKernel& k)
        : count(_mm_cvtsi32_si128(k.shift)), half_less_one(_mm_set1_epi16(static_cast<int16_t>((1 << (k.shift - 1)) - 1))),
          n(N ? N : k.size) {
        for (int32_t j = 0; j < n; ++j) w[j] = _mm_set1_epi16(static_cast<int16_t>(k.weights[j]));
    }

    // S / 2^shift rounded half to even, for 0 <= S <= 256 x 255 (unsigned lanes): adding half - 1
    // and the quotient's low bit carries exactly the remainders that round up (above half, or
    // half with an odd quotient).
    __m128i RoundShift(__m128i s) const {
        const __m128i odd = _mm_and_si128(_mm_srl_epi16(s, count), one);
        return _mm_srl_epi16(_mm_add_epi16(_mm_add_epi16(s, half_less_one), odd), count);
    }

    // Sixteen bytes (four pixels) of full windows: the sum over taps j of w[j] x at(j), rounded.
    template <class At>
    __m128i FullWindows(At&& at) const {
        __m128i lo = _mm_setzero_si128(), hi = _mm_setzero_si128();
        for (int32_t j = 0; j < (N ? N : n); ++j) {
            const __m128i p = at(j);
            lo = _mm_add_epi16(lo, _mm_mullo_epi16(v4::WidenLo8(p), w[j]));
            hi = _mm_add_epi16(hi, _mm_mullo_epi16(v4::WidenHi8(p), w[j]));
        }
        return _mm_packus_epi16(RoundShift(lo), RoundShift(hi));
    }
};

// One output byte from its window's sum and the weights the window used, rounded as the float
// path rounds the quotient (ties to even) and clamped; no weight at all gives 0, as there.
uint8_t WindowByte(int32_t sum, int32_t used) {
    if (used == 0) return 0;
    const int32_t v = _mm_cvtss_si32(_mm_set_ss(static_cast<float>(sum) / static_cast<float>(used)));
    return static_cast<uint8_t>(std::min(v, 255));
}

// A source row filtered across into out (4 x width bytes): vectors where the whole window lies in
// the row, each clipped or leftover pixel on its own.
template <int N>
void FilterRow(const uint8_t* in, uint8_t* out, int32_t width, const WordKernel& k, const Lanes<N>& v) {
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
    int32_t x = x0;
    for (; x + 4 <= x1; x += 4) {
        const uint8_t* first = in + 4 * (x + k.first);
        v4::StoreI(out + 4 * x, v.FullWindows([&](int32_t j) { return v4::LoadI(first + 4 * j); }));
    }
    for (; x < width; ++x) pixel(x);
}

// An output row from the filtered rows[lo .. hi] (taps, already clipped to the image), n bytes;
// with keep_alpha the destination's alpha bytes stay as they are.
template <int N>
void CombineColumn(const uint8_t* const* rows, uint8_t* d, int64_t n, int32_t lo, int32_t hi, const WordKernel& k,
                   const Lanes<N>& v, bool keep_alpha) {
    int64_t i = 0;
    if (lo == k.first && hi == k.last) {
        const __m128i keep = _mm_set1_epi32(keep_alpha ? static_cast<int32_t>(0xFF000000u) : 0);
        const uint8_t* const* window = rows + k.first;
        for (; i + 16 <= n; i += 16) {
            const __m128i bytes = v.FullWindows([&](int32_t j) { return v4::LoadI(window[j] + i); });
            v4::StoreI(d + i, keep_alpha ? v4::Select(bytes, v4::LoadI(d + i), keep) : bytes);
        }
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

// A ring of `size` filtered rows, each source row filtered once, as the float body does it; a
// destination row is written after every source row its window needs, so dst may be src.
template <int N>
void ConvolveRows(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t width, int32_t height,
                  const WordKernel& k, bool last) {
    const Lanes<N> v(k);
    const int64_t row_bytes = int64_t{4} * width;
    const size_t bytes = static_cast<size_t>(row_bytes) * static_cast<size_t>(k.size);
    auto* ring = static_cast<uint8_t*>(scratch::Allocate(bytes));
    std::vector<const uint8_t*> window(static_cast<size_t>(k.size));
    const uint8_t* const* rows = window.data() - k.first;  // rows[t]: the filtered row y + t
    int32_t filtered = 0;
    for (int32_t y = 0; y < height; ++y) {
        const int32_t lo = std::max(k.first, -y), hi = std::min(k.last, height - 1 - y);
        for (; filtered <= y + hi; ++filtered)
            FilterRow(frame::Row(src, src_step, filtered), ring + row_bytes * (filtered % k.size), width, k, v);
        for (int32_t t = lo; t <= hi; ++t) window[static_cast<size_t>(t - k.first)] = ring + row_bytes * ((y + t) % k.size);
        CombineColumn(rows, frame::Row(dst, dst_step, y), row_bytes, lo, hi, k, v, !last);
    }
    scratch::Free(ring, bytes);
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
    WordKernel k{kernel, size, -(size / 2), size - size / 2 - 1, 0};
    while ((int64_t{1} << k.shift) < total) ++k.shift;
    switch (size) {
        case 3: ConvolveRows<3>(src, src_step, dst, dst_step, width, height, k, last); break;
        case 5: ConvolveRows<5>(src, src_step, dst, dst_step, width, height, k, last); break;
        case 7: ConvolveRows<7>(src, src_step, dst, dst_step, width, height, k, last); break;
        default: ConvolveRows<0>(src, src_step, dst, dst_step, width, height, k, last);
    }
    return true;
}

}  // namespace velmora::filter
