// Resampling of four-byte pixels (all four bytes alike, alpha resampled like the colours).
//
// ImageResize_Bgra32 works axis by axis with per-output weight lists: area averaging when an axis
// shrinks (each output is the mean of the source area it covers, partial pixels weighted by their
// overlap), Keys' cubic (a = -0.5, the Catmull-Rom spline) when it grows, the identity when it
// keeps its size. Centres line up: output pixel o samples source position (o + 0.5) in/out - 0.5,
// so the image does not shift. Edges repeat the border pixels. Sums run in float, rounded half
// up (floor(v + 0.5)) and clamped; so an exact 2:1 shrink gives the integer block mean
// (sum + 2) / 4 that ImageDownScale_Bgr32 computes, and takes its faster body.
// Reads and writes exactly the two regions.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"

namespace velmora::resample {
namespace {

// For each output index, its taps: source indices (clamped into range) and weights summing to 1.
struct AxisWeights {
    std::vector<int32_t> first;  // offset of the output's taps in index/weight
    std::vector<int32_t> count;
    std::vector<int32_t> index;
    std::vector<float> weight;
    int32_t max_taps = 0;
};

double Cubic(double x) {  // Keys, a = -0.5
    x = std::fabs(x);
    if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
    if (x < 2) return ((-0.5 * x + 2.5) * x - 4) * x + 2;
    return 0;
}

AxisWeights Weights(int32_t in, int32_t out) {
    AxisWeights a;
    const double scale = static_cast<double>(in) / out;
    for (int32_t o = 0; o < out; ++o) {
        std::vector<std::pair<int32_t, double>> taps;
        if (in == out) {
            taps.push_back({o, 1.0});
        } else if (out < in) {
            const double lo = o * scale, hi = (o + 1) * scale;
            for (int32_t i = static_cast<int32_t>(std::floor(lo)); i < hi && i < in; ++i)
                taps.push_back({i, std::min(hi, i + 1.0) - std::max(lo, static_cast<double>(i))});
        } else {
            const double s = (o + 0.5) * scale - 0.5;
            const int32_t base = static_cast<int32_t>(std::floor(s));
            for (int32_t i = base - 1; i <= base + 2; ++i) taps.push_back({std::clamp(i, 0, in - 1), Cubic(s - i)});
        }
        double sum = 0;
        for (const auto& t : taps) sum += t.second;
        a.first.push_back(static_cast<int32_t>(a.index.size()));
        a.count.push_back(static_cast<int32_t>(taps.size()));
        for (const auto& t : taps) a.index.push_back(t.first), a.weight.push_back(static_cast<float>(t.second / sum));
        a.max_taps = std::max(a.max_taps, static_cast<int32_t>(taps.size()));
    }
    return a;
}

// 2 x 2 block means, (sum + 2) / 4, of a w x h image into (w+1)/2 x (h+1)/2. Blocks cut by an
// odd edge repeat their edge pixels, which gives exactly (sum + n/2) / n over the n pixels inside.
void HalveBlocks(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t w, int32_t h) {
    const int32_t ow = (w + 1) / 2, oh = (h + 1) / 2;
    const __m128i two = _mm_set1_epi16(2);
    for (int32_t y = 0; y < oh; ++y) {
        const uint8_t* r0 = frame::Row(src, src_step, 2 * y);
        const uint8_t* r1 = frame::Row(src, src_step, std::min(2 * y + 1, h - 1));
        uint8_t* out = frame::Row(dst, dst_step, y);
        int32_t x = 0;
        for (; 2 * x + 8 <= w; x += 4) {  // four outputs from eight whole pixel pairs of each row
            __m128i sum[4];
            for (int k = 0; k < 2; ++k) {
                const __m128i a = v4::LoadI(r0 + 8 * x + 16 * k), b = v4::LoadI(r1 + 8 * x + 16 * k);
                sum[2 * k] = _mm_add_epi16(v4::WidenLo8(a), v4::WidenLo8(b));
                sum[2 * k + 1] = _mm_add_epi16(v4::WidenHi8(a), v4::WidenHi8(b));
            }
            // Each vector holds two pixels' column sums; add its halves into the low half.
            for (__m128i& s : sum) s = _mm_add_epi16(s, _mm_srli_si128(s, 8));
            const __m128i lo = _mm_unpacklo_epi64(sum[0], sum[1]), hi = _mm_unpacklo_epi64(sum[2], sum[3]);
            const __m128i mean_lo = _mm_srli_epi16(_mm_add_epi16(lo, two), 2), mean_hi = _mm_srli_epi16(_mm_add_epi16(hi, two), 2);
            v4::StoreI(out + 4 * x, _mm_packus_epi16(mean_lo, mean_hi));
        }
        for (; x < ow; ++x) {
            const int32_t x0 = 2 * x, x1 = std::min(2 * x + 1, w - 1);
            for (int c = 0; c < 4; ++c)
                out[4 * x + c] = static_cast<uint8_t>(
                    (r0[4 * x0 + c] + r0[4 * x1 + c] + r1[4 * x0 + c] + r1[4 * x1 + c] + 2) >> 2);
        }
    }
}

// One source row widened to floats and resampled across.
void Across(const uint8_t* row, int32_t in_w, const AxisWeights& ax, float* wide, float* out) {
    v4::BytePixelsToFloats(row, wide, in_w);
    const int32_t out_w = static_cast<int32_t>(ax.count.size());
    for (int32_t o = 0; o < out_w; ++o) {
        const int32_t f = ax.first[o];
        __m128 acc = _mm_mul_ps(v4::Load(wide + 4 * ax.index[f]), v4::Set1(ax.weight[f]));
        for (int32_t t = 1; t < ax.count[o]; ++t)
            acc = _mm_add_ps(acc, _mm_mul_ps(v4::Load(wide + 4 * ax.index[f + t]), v4::Set1(ax.weight[f + t])));
        v4::Store(out + 4 * o, acc);
    }
}

void Resize(const uint8_t* src, int32_t src_step, int32_t in_w, int32_t in_h, uint8_t* dst, int32_t dst_step,
            int32_t out_w, int32_t out_h) {
    if (in_w == 2 * out_w && in_h == 2 * out_h) return HalveBlocks(src, src_step, dst, dst_step, in_w, in_h);
    const AxisWeights ax = Weights(in_w, out_w), ay = Weights(in_h, out_h);
    // A ring of rows resampled across, keyed by source row; one output row needs ay.max_taps
    // consecutive source rows.
    const int32_t slots = ay.max_taps + 1;
    const size_t row_floats = 4 * static_cast<size_t>(out_w);
    const size_t bytes = sizeof(float) * (row_floats * slots + 4 * static_cast<size_t>(in_w));
    auto* buffers = static_cast<float*>(scratch::Allocate(bytes));
    float* wide = buffers + row_floats * slots;
    std::vector<int32_t> held(static_cast<size_t>(slots), -1);
    auto across = [&](int32_t y) {
        float* slot = buffers + row_floats * static_cast<size_t>(y % slots);
        if (held[y % slots] != y) Across(frame::Row(src, src_step, y), in_w, ax, wide, slot), held[y % slots] = y;
        return static_cast<const float*>(slot);
    };
    std::vector<const float*> rows(static_cast<size_t>(ay.max_taps));
    // Each output row in one sweep: the taps' rows weighted and summed in tap order, then
    // rounded half up and clamped, four pixels a store.
    const __m128 half = v4::Set1(0.5f);
    const auto finish = [&](__m128 acc) { return _mm_cvttps_epi32(_mm_max_ps(_mm_add_ps(acc, half), v4::Zero())); };
    for (int32_t o = 0; o < out_h; ++o) {
        const int32_t f = ay.first[o], n = ay.count[o];
        const float* w = ay.weight.data() + f;
        // The rows of one output are at most max_taps consecutive source rows: all in the ring at once.
        for (int32_t t = 0; t < n; ++t) rows[size_t(t)] = across(ay.index[size_t(f + t)]);
        const auto sum = [&](size_t i) {
            __m128 acc = _mm_mul_ps(v4::Load(rows[0] + i), v4::Set1(w[0]));
            for (int32_t t = 1; t < n; ++t) acc = _mm_add_ps(acc, _mm_mul_ps(v4::Load(rows[size_t(t)] + i), v4::Set1(w[t])));
            return acc;
        };
        uint8_t* out = frame::Row(dst, dst_step, o);
        int32_t x = 0;
        for (; x + 4 <= out_w; x += 4) {
            const size_t i = 4 * static_cast<size_t>(x);
            v4::StoreI(out + 4 * x, v4::PackToBytes(finish(sum(i)), finish(sum(i + 4)), finish(sum(i + 8)), finish(sum(i + 12))));
        }
        for (; x < out_w; ++x) {
            const __m128i v = finish(sum(4 * static_cast<size_t>(x)));
            v4::Store32(out + 4 * x, v4::PackToBytes(v, v, v, v));
        }
    }
    scratch::Free(buffers, bytes);
}

}  // namespace
}  // namespace velmora::resample

namespace resample = velmora::resample;

extern "C" VELMORA_API StatusCode VELMORA_CALL ImageResize_Bgra32(const uint8_t* src, int32_t srcStep,
                                                                  const ImageSize* srcSize, uint8_t* dst,
                                                                  int32_t dstStep, const ImageSize* dstSize) {
    if (!velmora::frame::PlanesValid(src, srcStep, dst, dstStep)) return StatusInvalidParameter;
    if (srcSize->width <= 0 || srcSize->height <= 0 || dstSize->width <= 0 || dstSize->height <= 0) return StatusOk;
    resample::Resize(src, srcStep, srcSize->width, srcSize->height, dst, dstStep, dstSize->width, dstSize->height);
    return StatusOk;
}

extern "C" VELMORA_API void VELMORA_CALL ImageDownScale_Bgr32(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                              int32_t dstStep, const ImageSize* srcSize) {
    if (srcSize->width <= 0 || srcSize->height <= 0) return;
    resample::HalveBlocks(src, srcStep, dst, dstStep, srcSize->width, srcSize->height);
}
