// Box blurs of four-float pixels built on the running-mean pass, and the three-box Gaussian.
//
// Reads: margin-reading. BoxBlur reads r pixels beyond the region on every side, the fast
// Gaussian 3r; neither tests a border, the caller guarantees those pixels exist in the same
// buffer. Writes: exactly the destination region; the fast Gaussian also overwrites its source
// region and margin, which it uses as its second scratch plane.
#include <algorithm>

#include "core/frame.h"
#include "core/image.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/blur.h"

namespace velmora::filter {

// N rows advance together, so the running sums' add-after-subtract chains overlap. Output x of
// row i goes to out[i] + x * out_step bytes: a column of a transposed plane, or a plain row.
template <int N>
void BoxRows(const float* src, int32_t src_step, float* const* out, int32_t out_step, int32_t count, int32_t radius,
             __m128 scale) {
    const float* row[N];
    __m128 sum[N];
    for (int i = 0; i < N; ++i) {
        row[i] = frame::Row(src, src_step, i);
        sum[i] = v4::Load(row[i] - 4 * radius);
        for (int32_t k = 1 - radius; k <= radius; ++k) sum[i] = _mm_add_ps(sum[i], v4::Load(row[i] + 4 * k));
        v4::Store(out[i], _mm_mul_ps(sum[i], scale));
    }
    for (int32_t x = 1; x < count; ++x) {
        for (int i = 0; i < N; ++i) {
            sum[i] = _mm_sub_ps(sum[i], v4::Load(row[i] + 4 * (x - 1 - radius)));
            sum[i] = _mm_add_ps(sum[i], v4::Load(row[i] + 4 * (x + radius)));
            v4::Store(frame::Row(out[i], out_step, x), _mm_mul_ps(sum[i], scale));
        }
    }
}

// Box means of `rows` source rows from src, row y's output going to out(y) with out_step
// bytes between outputs; four rows at a time, then one.
template <class Out>
void BoxRowsAll(const float* src, int32_t src_step, int32_t rows, int32_t count, int32_t radius, int32_t out_step,
                Out&& out) {
    const __m128 scale = v4::Set1(1.0f / static_cast<float>(2 * radius + 1));
    int32_t y = 0;
    for (; y + 4 <= rows; y += 4) {
        float* const outs[4] = {out(y), out(y + 1), out(y + 2), out(y + 3)};
        BoxRows<4>(frame::Row(src, src_step, y), src_step, outs, out_step, count, radius, scale);
    }
    for (; y < rows; ++y) {
        float* const outs[1] = {out(y)};
        BoxRows<1>(frame::Row(src, src_step, y), src_step, outs, out_step, count, radius, scale);
    }
}

void BoxPassTranspose(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t count, int32_t rows,
                      int32_t radius) {
    if (count <= 0) return;
    BoxRowsAll(src, src_step, rows, count, radius, dst_step, [&](int32_t y) { return dst + 4 * y; });
}

}  // namespace velmora::filter

using velmora::XMFLOAT4A;
using velmora::XMImage;
using velmora::filter::BoxPassTranspose;
namespace frame = velmora::frame;
namespace v4 = velmora::v4;

namespace {
// The pixel at (row y, column x) of a four-float plane, either coordinate negative in a margin.
float* At(float* p, int32_t step, int32_t y, int32_t x) { return frame::Row(p, step, y) + 4 * x; }
}  // namespace

extern "C" VELMORA_API void VELMORA_CALL BoxBlur_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                               int32_t dstStep, const ImageSize* roi,
                                                               int32_t radius) {
    const int32_t w = roi->width, h = roi->height, r = radius;
    if (w <= 0 || h <= 0) return;
    // The across pass runs four rows at a time into a ring holding the 2r+2 rows the down pass
    // needs at once plus the three computed ahead; the down pass keeps one running sum per
    // column, started at the region's top row and updated subtract-then-add exactly as a
    // transposed second pass would, so the bits are those of two transposing passes while the
    // image is read once and written once.
    const int32_t slots = 2 * r + 5;
    const size_t row_floats = 4 * static_cast<size_t>(w);
    const size_t bytes = sizeof(float) * row_floats * (static_cast<size_t>(slots) + 1);
    auto* ring = static_cast<float*>(velmora::scratch::Allocate(bytes));
    float* sums = ring + row_floats * slots;
    auto slot = [&](int32_t y) { return ring + row_floats * static_cast<size_t>((y + r) % slots); };  // y >= -r
    int32_t ready = -r;  // rows -r .. ready-1 have their horizontal means in the ring
    auto across_until = [&](int32_t y) {
        if (y < ready) return;
        const int32_t n = std::min(4, h + r - ready);
        velmora::filter::BoxRowsAll(frame::Row(src, srcStep, ready), srcStep, n, w, r, 16,
                                    [&](int32_t i) { return slot(ready + i); });
        ready += n;
    };
    const __m128 scale = v4::Set1(1.0f / static_cast<float>(2 * r + 1));
    for (int32_t y = -r; y <= r; ++y) {
        across_until(y);
        const float* row = slot(y);
        for (size_t i = 0; i < row_floats; i += 4)
            v4::Store(sums + i, y == -r ? v4::Load(row + i) : _mm_add_ps(v4::Load(sums + i), v4::Load(row + i)));
    }
    for (int32_t y = 0; y < h; ++y) {
        float* out = frame::Row(dst, dstStep, y);
        if (y == 0) {
            for (size_t i = 0; i < row_floats; i += 4) v4::Store(out + i, _mm_mul_ps(v4::Load(sums + i), scale));
            continue;
        }
        across_until(y + r);
        const float* entering = slot(y + r);
        const float* leaving = slot(y - 1 - r);
        for (size_t i = 0; i < row_floats; i += 4) {
            __m128 s = _mm_sub_ps(v4::Load(sums + i), v4::Load(leaving + i));
            s = _mm_add_ps(s, v4::Load(entering + i));
            v4::Store(sums + i, s);
            v4::Store(out + i, _mm_mul_ps(s, scale));
        }
    }
    velmora::scratch::Free(ring, bytes);
}

extern "C" VELMORA_API void VELMORA_CALL FastGaussianBlur_Rgba128F_SSE2(float* src, int32_t srcStep, float* dst,
                                                                        int32_t dstStep, const ImageSize* roi,
                                                                        int32_t radius) {
    const int32_t w = roi->width, h = roi->height, r = radius;
    if (w <= 0 || h <= 0) return;
    // Three box passes each way. Each round shrinks the valid margin by r in both directions, and
    // the horizontal means go back into the caller's source (now scratch) so that one transposed
    // plane suffices: after each round the source holds, over the region plus the margin m, the
    // exact result of one more box pass each way; the last round writes the destination.
    auto tmp = XMImage<XMFLOAT4A>::Create(h + 6 * r, w + 4 * r);
    float* t = reinterpret_cast<float*>(tmp->Origin());
    const int32_t p = tmp->Pitch();
    for (int32_t round = 2; round >= 0; --round) {
        const int32_t m = round * r;  // the margin still valid after this round
        BoxPassTranspose(At(src, srcStep, -m - r, -m), srcStep, t, p, w + 2 * m, h + 2 * m + 2 * r, r);
        float* out = round > 0 ? At(src, srcStep, -m, -m) : dst;
        BoxPassTranspose(t + 4 * r, p, out, round > 0 ? srcStep : dstStep, h + 2 * m, w + 2 * m, r);
    }
}
