// Box blurs of four-float pixels built on the running-mean pass, and the three-box Gaussian.
//
// Reads: margin-reading. BoxBlur reads r pixels beyond the region on every side, the fast
// Gaussian 3r; neither tests a border, the caller guarantees those pixels exist in the same
// buffer. Writes: exactly the destination region; the fast Gaussian also overwrites its source
// region and margin, which it uses as its second scratch plane.
#include "core/frame.h"
#include "core/image.h"
#include "core/vec4.h"
#include "filter/blur.h"

namespace velmora::filter {
namespace {

// N rows advance together so that each output step stores N neighbouring pixels of one
// destination row instead of N scattered columns.
template <int N>
void BoxRows(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t count, int32_t radius,
             __m128 scale) {
    const float* row[N];
    __m128 sum[N];
    for (int i = 0; i < N; ++i) {
        row[i] = frame::Row(src, src_step, i);
        sum[i] = v4::Load(row[i] - 4 * radius);
        for (int32_t k = 1 - radius; k <= radius; ++k) sum[i] = _mm_add_ps(sum[i], v4::Load(row[i] + 4 * k));
        v4::Store(dst + 4 * i, _mm_mul_ps(sum[i], scale));
    }
    for (int32_t x = 1; x < count; ++x) {
        float* d = frame::Row(dst, dst_step, x);
        for (int i = 0; i < N; ++i) {
            sum[i] = _mm_sub_ps(sum[i], v4::Load(row[i] + 4 * (x - 1 - radius)));
            sum[i] = _mm_add_ps(sum[i], v4::Load(row[i] + 4 * (x + radius)));
            v4::Store(d + 4 * i, _mm_mul_ps(sum[i], scale));
        }
    }
}

}  // namespace

void BoxPassTranspose(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t count, int32_t rows,
                      int32_t radius) {
    if (count <= 0) return;
    const __m128 scale = v4::Set1(1.0f / static_cast<float>(2 * radius + 1));
    int32_t y = 0;
    for (; y + 4 <= rows; y += 4)
        BoxRows<4>(frame::Row(src, src_step, y), src_step, dst + 4 * y, dst_step, count, radius, scale);
    for (; y < rows; ++y) BoxRows<1>(frame::Row(src, src_step, y), src_step, dst + 4 * y, dst_step, count, radius, scale);
}

}  // namespace velmora::filter

using velmora::XMFLOAT4A;
using velmora::XMImage;
using velmora::filter::BoxPassTranspose;
namespace frame = velmora::frame;

namespace {
// The pixel at (row y, column x) of a four-float plane, either coordinate negative in a margin.
float* At(float* p, int32_t step, int32_t y, int32_t x) { return frame::Row(p, step, y) + 4 * x; }
}  // namespace

extern "C" VELMORA_API void VELMORA_CALL BoxBlur_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                               int32_t dstStep, const ImageSize* roi,
                                                               int32_t radius) {
    const int32_t w = roi->width, h = roi->height, r = radius;
    if (w <= 0 || h <= 0) return;
    // The scratch holds the horizontal means transposed: one row per column of the region, one
    // pixel per source row including the r rows of margin above and below.
    auto tmp = XMImage<XMFLOAT4A>::Create(h + 2 * r, w);
    float* t = reinterpret_cast<float*>(tmp->Origin());
    BoxPassTranspose(frame::Row(src, srcStep, -r), srcStep, t, tmp->Pitch(), w, h + 2 * r, r);
    BoxPassTranspose(t + 4 * r, tmp->Pitch(), dst, dstStep, h, w, r);
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
