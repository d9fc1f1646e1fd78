// Box means of gray planes: the clipping prefix-sum pass that the guided filters use (plain and
// on squared values), the two-pass box filter and mean of squares on it, and the 8-bit
// three-box blur.
//
// Reads and writes exactly the region (the box filters also the caller's tmp plane, sized as the
// transposed region). Windows are clipped to the region; each output divides by the number of
// pixels its window really covers.
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/stream.h"
#include "core/vec4.h"
#include "filter/blur.h"

namespace velmora::filter {
namespace {

// Four source rows side by side: lane i of every vector belongs to row i. Loads four columns of
// each row and transposes them, so the prefix sums of the four rows advance in one vector.
struct FourRows {
    const float* row[4];

    __m128 Column(int32_t x) const { return _mm_setr_ps(row[0][x], row[1][x], row[2][x], row[3][x]); }
    void Columns(int32_t x, __m128 out[4]) const {
        out[0] = v4::Load(row[0] + x), out[1] = v4::Load(row[1] + x);
        out[2] = v4::Load(row[2] + x), out[3] = v4::Load(row[3] + x);
        v4::Transpose4(out[0], out[1], out[2], out[3]);
    }
};

// Prefix sums P[x] = P[x-1] + v[x] of `groups` sets of four rows, P[-1] = 0 stored first; set g
// goes to prefix + g * stride. The sets advance together so their addition chains overlap.
template <int kMaxGroups>
void PrefixSums(const FourRows* rows, int groups, int32_t width, bool squares, __m128* prefix, size_t stride) {
    __m128 p[kMaxGroups];
    for (int g = 0; g < groups; ++g) prefix[stride * g] = p[g] = v4::Zero();
    auto add = [&](int g, __m128 v) { return p[g] = _mm_add_ps(p[g], squares ? _mm_mul_ps(v, v) : v); };
    int32_t x = 0;
    for (; x + 4 <= width; x += 4)
        for (int g = 0; g < groups; ++g) {
            __m128 c[4];
            rows[g].Columns(x, c);
            __m128* out = prefix + stride * g + x + 1;
            for (int k = 0; k < 4; ++k) out[k] = add(g, c[k]);
        }
    for (; x < width; ++x)
        for (int g = 0; g < groups; ++g) prefix[stride * g + x + 1] = add(g, rows[g].Column(x));
}

}  // namespace

void GrayBoxPassTranspose(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t width,
                          int32_t height, int32_t radius, bool squares) {
    if (width <= 0 || height <= 0) return;
    // Sixteen rows per round, as four vectors of four, so that each output column step stores 64
    // neighbouring bytes of one destination row.
    constexpr int kGroups = 4;
    const size_t per_group = static_cast<size_t>(width) + 1;
    const size_t bytes = sizeof(__m128) * per_group * kGroups;
    auto* prefix = static_cast<__m128*>(scratch::Allocate(bytes));
    const int32_t r = radius;
    const __m128 inv = v4::Set1(1.0f / static_cast<float>(2 * r + 1));
    // Each round writes 64 bytes into every destination row, a whole line apart from the next
    // row's: on a large destination, streaming them saves reading every line in first.
    const bool streamed = stream::WorthwhileRows(src, dst, dst_step, int64_t{width} * height * 4);
    for (int32_t y = 0; y < height; y += 4 * kGroups) {
        const int32_t n = std::min(4 * kGroups, height - y);
        const int groups = (n + 3) / 4;
        FourRows rows[kGroups];
        for (int g = 0; g < groups; ++g)
            for (int i = 0; i < 4; ++i) rows[g].row[i] = frame::Row(src, src_step, y + std::min(4 * g + i, n - 1));
        PrefixSums<kGroups>(rows, groups, width, squares, prefix, per_group);
        for (int32_t x = 0; x < width; ++x) {
            const int32_t hi = std::min(x + r, width - 1), lo = std::max(x - r, 0);
            // Interior windows multiply by the one reciprocal; windows cut by an end divide by
            // the count of pixels they cover.
            const bool interior = x - r >= 0 && x + r <= width - 1;
            const __m128 count = v4::Set1(static_cast<float>(hi - lo + 1));
            float* d = frame::Row(dst, dst_step, x) + y;
            for (int g = 0; g < groups; ++g) {
                const __m128* p = prefix + per_group * g;
                const __m128 sum = _mm_sub_ps(p[hi + 1], p[lo]);
                const __m128 mean = interior ? _mm_mul_ps(sum, inv) : _mm_div_ps(sum, count);
                const int32_t lanes = std::min(4, n - 4 * g);
                if (lanes == 4) {
                    if (streamed)
                        _mm_stream_ps(d + 4 * g, mean);
                    else
                        v4::Store(d + 4 * g, mean);
                } else {
                    alignas(16) float part[4];
                    v4::StoreAligned(part, mean);
                    std::memcpy(d + 4 * g, part, sizeof(float) * lanes);
                }
            }
        }
    }
    if (streamed) _mm_sfence();
    scratch::Free(prefix, bytes);
}

}  // namespace velmora::filter

namespace frame = velmora::frame;
namespace v4 = velmora::v4;
using velmora::filter::GrayBoxPassTranspose;

// The plain and _SSE2 exports have always been specified to give the same values; they share the
// one vector body.
#define VELMORA_GRAY_PASS(name, squares)                                                                      \
    extern "C" VELMORA_API void VELMORA_CALL name(const float* src, int32_t srcStep, float* dst, int32_t dstStep, \
                                                  const ImageSize* roi, int32_t radius) {                     \
        GrayBoxPassTranspose(src, srcStep, dst, dstStep, roi->width, roi->height, radius, squares);           \
    }
VELMORA_GRAY_PASS(XMImageBoxBlurAndTranspose_Gray32Float, false)
VELMORA_GRAY_PASS(XMImageBoxBlurAndTransposeII_Gray32Float, true)
VELMORA_GRAY_PASS(XMImageBoxFilterTranspose_Gray32F_SSE2, false)

// Two transposing passes: src to tmp (one row per column of the region), then tmp back to dst.
#define VELMORA_GRAY_BOX(name, first_squares)                                                                  \
    extern "C" VELMORA_API void VELMORA_CALL name(const float* src, int32_t srcStep, float* dst, int32_t dstStep, \
                                                  float* tmp, int32_t tmpStep, const ImageSize* roi,           \
                                                  int32_t radius) {                                            \
        GrayBoxPassTranspose(src, srcStep, tmp, tmpStep, roi->width, roi->height, radius, first_squares);     \
        GrayBoxPassTranspose(tmp, tmpStep, dst, dstStep, roi->height, roi->width, radius, false);             \
    }
VELMORA_GRAY_BOX(XMImageBoxFilter_Gray32Float, false)
VELMORA_GRAY_BOX(XMImageBoxFilter_Gray32F_SSE2, false)
VELMORA_GRAY_BOX(XMImageComputeMeanII_Gray32Float, true)

namespace {

// out[x] for x0 <= x < x1, windows lying whole in the row (x - r >= 0, x + r < width): the
// window sum from the 64-bit prefix sums (each below 2^31), divided by the one count, plus 0.5,
// truncated: the scalar formula, four pixels a vector. Returns where it stopped.
int32_t WholeWindowMeans(const uint64_t* prefix, uint8_t* out, int32_t x0, int32_t x1, int32_t r, float count) {
    const __m128 n = v4::Set1(count), half = v4::Set1(0.5f);
    auto sums = [&](int32_t x) {  // the four window sums of x .. x + 3 as int32
        const auto at = [&](int64_t i) { return v4::LoadI(prefix + i); };
        const __m128i a = _mm_sub_epi64(at(x + r + 1), at(x - r)), b = _mm_sub_epi64(at(x + r + 3), at(x - r + 2));
        return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
    };
    int32_t x = x0;
    for (; x + 4 <= x1; x += 4) {
        const __m128i q = _mm_cvttps_epi32(_mm_add_ps(_mm_div_ps(_mm_cvtepi32_ps(sums(x)), n), half));
        v4::Store32(out + x, v4::PackToBytes(q, q, q, q));
    }
    return x;
}

// Sums of the clipped (2r+1)-square windows of an 8-bit plane, exact in integers: each window's
// sum is the sum of its clipped column sums, so computing it in two one-dimensional steps gives
// the same integers as adding the window's bytes one by one.
void ThreeBoxGray8(uint8_t* image, int32_t step, int32_t w, int32_t h, int32_t r) {
    const int32_t row_len = (w + 15) / 16 * 16;
    const size_t bytes = static_cast<size_t>(row_len) * h;
    auto* copy = static_cast<uint8_t*>(velmora::scratch::Allocate(bytes));
    std::vector<uint32_t> columns(static_cast<size_t>(w));
    std::vector<uint64_t> prefix(static_cast<size_t>(w) + 1);
    // Window sums below 2^31 convert to float exactly as the scalar conversion does, four at a time.
    const bool vector_sums = 255.0 * std::min(2.0 * r + 1, double(w)) * std::min(2.0 * r + 1, double(h)) < 2147483648.0;
    for (int pass = 0; pass < 3; ++pass) {
        for (int32_t y = 0; y < h; ++y) std::memcpy(copy + int64_t{y} * row_len, frame::Row(image, step, y), w);
        std::fill(columns.begin(), columns.end(), 0u);
        for (int32_t y = 0; y <= std::min(r, h - 1); ++y)
            for (int32_t x = 0; x < w; ++x) columns[x] += copy[int64_t{y} * row_len + x];
        for (int32_t y = 0; y < h; ++y) {
            // columns[] covers rows y-r .. y+r clipped; move it down a row after use.
            const int32_t rows = std::min(y + r, h - 1) - std::max(y - r, 0) + 1;
            for (int32_t x = 0; x < w; ++x) prefix[x + 1] = prefix[x] + columns[x];
            uint8_t* out = frame::Row(image, step, y);
            auto mean = [&](int32_t x) {
                const int32_t hi = std::min(x + r, w - 1), lo = std::max(x - r, 0);
                const float sum = static_cast<float>(prefix[hi + 1] - prefix[lo]);
                const float count = static_cast<float>((hi - lo + 1) * rows);
                out[x] = static_cast<uint8_t>(static_cast<int32_t>(sum / count + 0.5f));
            };
            int32_t x = 0;
            for (; x < std::min(r, w); ++x) mean(x);
            if (vector_sums) x = WholeWindowMeans(prefix.data(), out, x, w - r, r, static_cast<float>((2 * r + 1) * rows));
            for (; x < w; ++x) mean(x);
            if (y + r + 1 < h)
                for (int32_t x = 0; x < w; ++x) columns[x] += copy[int64_t{y + r + 1} * row_len + x];
            if (y - r >= 0)
                for (int32_t x = 0; x < w; ++x) columns[x] -= copy[int64_t{y - r} * row_len + x];
        }
    }
    velmora::scratch::Free(copy, bytes);
}

}  // namespace

extern "C" VELMORA_API void VELMORA_CALL ImageFastGaussianBlur_Gray8(uint8_t* image, int32_t step,
                                                                     const ImageSize* roi, int32_t radius) {
    if (roi->width <= 0 || roi->height <= 0) return;
    ThreeBoxGray8(image, step, roi->width, roi->height, radius);
}
