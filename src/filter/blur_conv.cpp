// Weighted separable convolutions of four-float and gray float planes.
//
// Two border rules, one per export, stated at each:
//  - margin-reading (DangerousBlurTranspose, GaussianBlur): the symmetric kernel is applied
//    without any test, reading r pixels beyond the region on the filtered sides; no division.
//  - clipping (BlurTranspose, the packed-margin convolutions, the binomial blurs, the gray
//    separable convolution): taps outside the readable area are dropped and each output is
//    divided by the weights it used. The readable area is the region widened by the packed
//    margins: byte 0 pixels left, byte 1 rows above, byte 2 pixels right, byte 3 rows below.
// Writes: exactly the destination region. The packed-margin convolutions buffer filtered rows
// before writing, so source and destination may be the same plane.
#include <algorithm>
#include <vector>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "filter/convolve.h"

namespace velmora::filter {
namespace {

// One margin-reading symmetric pass of a row of four-float pixels: the centre weight, then each
// pair of taps at distance k, left before right. Only the centre and right half are read.
void SymmetricRow(const float* in, float* out, int32_t count, const float* kernel, int32_t r) {
    for (int32_t x = 0; x < count; ++x) {
        const float* p = in + 4 * x;
        __m128 acc = _mm_mul_ps(v4::Load(p), v4::Set1(kernel[r]));
        for (int32_t k = 1; k <= r; ++k) {
            const __m128 w = v4::Set1(kernel[r + k]);
            acc = _mm_add_ps(acc, _mm_mul_ps(v4::Load(p - 4 * k), w));
            acc = _mm_add_ps(acc, _mm_mul_ps(v4::Load(p + 4 * k), w));
        }
        v4::Store(out + 4 * x, acc);
    }
}

// Runs row(y, buffer) for every source row and writes the results transposed.
template <class RowFn>
void Transposed(float* dst, int32_t dst_step, int32_t count, int32_t rows, RowFn&& row) {
    if (count <= 0 || rows <= 0) return;
    const size_t bytes = sizeof(float) * 16 * static_cast<size_t>(count);
    auto* buffers = static_cast<float*>(scratch::Allocate(bytes));
    WriteTransposed(rows, count, buffers, reinterpret_cast<uint8_t*>(dst), dst_step, 16, row,
                    [](uint8_t* d, const float* b, int64_t stride, int32_t n) {
                        for (int32_t i = 0; i < n; ++i) v4::Store(reinterpret_cast<float*>(d) + 4 * i, v4::Load(b + i * stride));
                    });
    scratch::Free(buffers, bytes);
}

struct Margins {
    int32_t left, top, right, bottom;
    explicit Margins(uint32_t packed)
        : left(packed & 255), top((packed >> 8) & 255), right((packed >> 16) & 255), bottom(packed >> 24) {}
};

// Clipping separable convolution of a region of C-channel float pixels. Rows are filtered
// horizontally into a ring of ky.size buffers as the output advances; an output row is written
// only after every source row it needs has been filtered, which is what makes in-place safe.
template <int C>
void Separable(int32_t w, int32_t h, const float* src, int32_t src_step, float* dst, int32_t dst_step,
               const Taps& kx, const Taps& ky, Margins m) {
    if (w <= 0 || h <= 0) return;
    const int64_t n = int64_t{w} * C;
    const size_t row_floats = static_cast<size_t>((n + 3) / 4 * 4);
    const size_t bytes = sizeof(float) * row_floats * ky.size;
    auto* ring = static_cast<float*>(scratch::Allocate(bytes));
    std::vector<const float*> taps(static_cast<size_t>(ky.size));
    const int32_t first = std::max(-ky.centre, -m.top);  // the first row any output needs
    auto slot = [&](int32_t row) { return ring + row_floats * static_cast<size_t>((row - first) % ky.size); };
    int32_t filtered = first - 1;  // rows first .. filtered are in the ring
    for (int32_t y = 0; y < h; ++y) {
        const int32_t lo = std::max(-ky.centre, -m.top - y);
        const int32_t hi = std::min(ky.size - ky.centre - 1, h - 1 + m.bottom - y);
        while (filtered < y + hi) {
            ++filtered;
            ClippedRow<C>(frame::Row(src, src_step, filtered), slot(filtered), w, m.left, m.right, kx);
        }
        for (int32_t t = lo; t <= hi; ++t) taps[t + ky.centre] = slot(y + t);
        ClippedColumn(taps.data() + ky.centre, frame::Row(dst, dst_step, y), n, ky, lo, hi);
    }
    scratch::Free(ring, bytes);
}

Taps Centred(const float* kernel, int32_t size) { return {kernel, size, size / 2}; }

void Binomial(int32_t w, int32_t h, float* image, int32_t step, uint32_t margins, std::initializer_list<float> k) {
    const Taps taps = Centred(k.begin(), static_cast<int32_t>(k.size()));
    Separable<4>(w, h, image, step, image, step, taps, taps, Margins(margins));
}

}  // namespace
}  // namespace velmora::filter

namespace frame = velmora::frame;
namespace filter = velmora::filter;

extern "C" VELMORA_API void VELMORA_CALL BlurTranspose_Rgba128F_SSE(const float* src, int32_t srcStep, float* dst,
                                                                    int32_t dstStep, int32_t count, int32_t rows,
                                                                    const float* kernel, int32_t radius,
                                                                    const ImageRect*) {
    const filter::Taps taps{kernel, 2 * radius + 1, radius};
    filter::Transposed(dst, dstStep, count, rows, [&](int32_t y, float* out) {
        filter::ClippedRow<4>(frame::Row(src, srcStep, y), out, count, 0, 0, taps);
    });
}

extern "C" VELMORA_API void VELMORA_CALL DangerousBlurTranspose_Rgba128F_SSE(const float* src, int32_t srcStep,
                                                                             float* dst, int32_t dstStep,
                                                                             int32_t count, int32_t rows,
                                                                             const float* kernel, int32_t radius,
                                                                             const ImageRect*) {
    filter::Transposed(dst, dstStep, count, rows, [&](int32_t y, float* out) {
        filter::SymmetricRow(frame::Row(src, srcStep, y), out, count, kernel, radius);
    });
}

extern "C" VELMORA_API void VELMORA_CALL GaussianBlur_Rgba128F_SSE(const float* src, int32_t srcStep, float* dst,
                                                                   int32_t dstStep, int32_t width, int32_t height,
                                                                   const float* kernel, int32_t kernelSize,
                                                                   const ImageRect* rect) {
    if (width <= 0 || height <= 0) return;
    const int32_t r = kernelSize / 2;
    // The first pass's output, transposed: one row per column of the region, one pixel per
    // source row including the r rows of margin above and below.
    const int32_t step = (height + 2 * r) * 16;
    const size_t bytes = static_cast<size_t>(step) * width;
    auto* tmp = static_cast<float*>(velmora::scratch::Allocate(bytes));
    // The rectangle is passed on with its axes exchanged, as the second pass sees the image.
    const ImageRect swapped = rect ? ImageRect{rect->top, rect->left, rect->bottom, rect->right} : ImageRect{};
    DangerousBlurTranspose_Rgba128F_SSE(frame::Row(src, srcStep, -r), srcStep, tmp, step, width, height + 2 * r,
                                        kernel, r, rect);
    DangerousBlurTranspose_Rgba128F_SSE(tmp + 4 * r, step, dst, dstStep, height, width, kernel, r, &swapped);
    velmora::scratch::Free(tmp, bytes);
}

extern "C" VELMORA_API void VELMORA_CALL XMImageConvolution_Rgba128F_SSE2(int32_t width, int32_t height,
                                                                          const float* src, int32_t srcStep,
                                                                          float* dst, int32_t dstStep,
                                                                          const float* kernelX, int32_t sizeX,
                                                                          const float* kernelY, int32_t sizeY,
                                                                          uint32_t margins) {
    filter::Separable<4>(width, height, src, srcStep, dst, dstStep, filter::Centred(kernelX, sizeX),
                         filter::Centred(kernelY, sizeY), filter::Margins(margins));
}

extern "C" VELMORA_API void VELMORA_CALL XMImageConvolve_Rgba128F_SSE2(int32_t width, int32_t height,
                                                                       const float* src, int32_t srcStep, float* dst,
                                                                       int32_t dstStep, const float* kernel,
                                                                       int32_t size, uint32_t margins) {
    const filter::Taps taps = filter::Centred(kernel, size);
    filter::Separable<4>(width, height, src, srcStep, dst, dstStep, taps, taps, filter::Margins(margins));
}

extern "C" VELMORA_API void VELMORA_CALL XMImageGaussian3_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                                        int32_t step, uint32_t margins) {
    filter::Binomial(width, height, image, step, margins, {1, 2, 1});
}

extern "C" VELMORA_API void VELMORA_CALL XMImageGaussian5_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                                        int32_t step, uint32_t margins) {
    filter::Binomial(width, height, image, step, margins, {1, 4, 6, 4, 1});
}

extern "C" VELMORA_API void VELMORA_CALL XMImageGaussian7_Rgba128F_SSE2(int32_t width, int32_t height, float* image,
                                                                        int32_t step, uint32_t margins) {
    filter::Binomial(width, height, image, step, margins, {1, 6, 15, 20, 15, 6, 1});
}

// The gray twin of the packed-margin convolution: flags carries the readable margins in the same
// packing (0: clip at the region).
extern "C" VELMORA_API void VELMORA_CALL XMImageSepConv_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                     int32_t dstStep, int32_t width, int32_t height,
                                                                     const float* kernelX, int32_t sizeX,
                                                                     const float* kernelY, int32_t sizeY,
                                                                     uint32_t flags) {
    filter::Separable<1>(width, height, src, srcStep, dst, dstStep, filter::Centred(kernelX, sizeX),
                         filter::Centred(kernelY, sizeY), filter::Margins(flags));
}
