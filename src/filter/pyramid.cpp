// Pyramid steps: the 2:1 decimators (every second pixel of every second row, no filtering), the
// float Gauss5x5 steps, and the 8-bit steps that blur with 1 4 6 4 1 around the resize.
//
// The two float Gauss5x5 exports build their kernel and scratch plane and release them unused:
// their result is the plain decimation of the source (the "up" step decimates too), which hosts
// have always received. The gray "down" step decimates with the four-float decimator, so it
// reads 16-byte groups every 32 bytes: each source row is read up to byte 32 ((w+1)/2 - 1) + 16
// and each destination row written for 16 ((w+1)/2) bytes, well past a gray row of w floats.
#include <vector>

#include "core/frame.h"
#include "core/image.h"
#include "core/vec4.h"
#include "filter/blur.h"

namespace frame = velmora::frame;
namespace v4 = velmora::v4;
using velmora::XMBYTE4;
using velmora::XMFLOAT4A;
using velmora::XMImage;

extern "C" VELMORA_API void VELMORA_CALL XMImageDown_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                   int32_t dstStep, const ImageSize* roi) {
    const int32_t ow = (roi->width + 1) / 2, oh = (roi->height + 1) / 2;
    for (int32_t y = 0; y < oh; ++y) {
        const float* s = frame::Row(src, srcStep, 2 * y);
        float* d = frame::Row(dst, dstStep, y);
        for (int32_t x = 0; x < ow; ++x) v4::Store(d + 4 * x, v4::Load(s + 8 * x));
    }
}

extern "C" VELMORA_API void VELMORA_CALL XMImageDown_Gray32F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, const ImageSize* roi) {
    const int32_t ow = (roi->width + 1) / 2, oh = (roi->height + 1) / 2;
    for (int32_t y = 0; y < oh; ++y) {
        const float* s = frame::Row(src, srcStep, 2 * y);
        float* d = frame::Row(dst, dstStep, y);
        int32_t x = 0;
        for (; x + 4 <= ow && 2 * x + 8 <= roi->width; x += 4) {  // two source vectors, even lanes
            const __m128 a = v4::Load(s + 2 * x), b = v4::Load(s + 2 * x + 4);
            v4::Store(d + x, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
        }
        for (; x < ow; ++x) d[x] = s[2 * x];
    }
}

namespace {
// The kernel and scratch the Gauss5x5 steps build and release unused.
struct UnusedGauss5x5 {
    std::vector<float> kernel{1 * 0.0625f, 4 * 0.0625f, 6 * 0.0625f, 4 * 0.0625f, 1 * 0.0625f};
};
}  // namespace

extern "C" VELMORA_API void VELMORA_CALL XMImagePyramidDown_Gauss5x5_Gray32F_SSE2(const float* src, int32_t srcStep,
                                                                                  float* dst, int32_t dstStep,
                                                                                  const ImageSize* roi, uint32_t) {
    const UnusedGauss5x5 unused;
    { auto scratch = XMImage<float>::Create(roi->width, roi->height); }
    XMImageDown_Rgba128F_SSE2(src, srcStep, dst, dstStep, roi);
}

extern "C" VELMORA_API void VELMORA_CALL ImagePyramidDown_Gauss5x5_Gray32F_SSE2(const float* src, int32_t srcStep,
                                                                                float* dst, int32_t dstStep,
                                                                                const ImageSize* roi,
                                                                                uint32_t margins) {
    XMImagePyramidDown_Gauss5x5_Gray32F_SSE2(src, srcStep, dst, dstStep, roi, margins);
}

extern "C" VELMORA_API void VELMORA_CALL XMImagePyramidUp_Gauss5x5_Rgba128F_SSE2(const float* src, int32_t srcStep,
                                                                                 float* dst, int32_t dstStep,
                                                                                 const ImageSize* roi,
                                                                                 uint32_t margins) {
    const UnusedGauss5x5 unused;
    if (roi->width > 0 && roi->height > 0) {
        // The blurred plane is made and dropped; the decimation below reads the source.
        auto scratch = XMImage<XMFLOAT4A>::Create(roi->width, roi->height);
        XMImageConvolve_Rgba128F_SSE2(roi->width, roi->height, src, srcStep, reinterpret_cast<float*>(scratch->Origin()),
                                      scratch->Pitch(), unused.kernel.data(), 5, margins);
    }
    XMImageDown_Rgba128F_SSE2(src, srcStep, dst, dstStep, roi);
}

extern "C" VELMORA_API void VELMORA_CALL ImagePyramidUp_Gauss5x5_Rgba128F_SSE2(const float* src, int32_t srcStep,
                                                                               float* dst, int32_t dstStep,
                                                                               const ImageSize* roi, uint32_t margins) {
    XMImagePyramidUp_Gauss5x5_Rgba128F_SSE2(src, srcStep, dst, dstStep, roi, margins);
}

namespace {
const int32_t kBinomial5[5] = {1, 4, 6, 4, 1};
}  // namespace

extern "C" VELMORA_API void VELMORA_CALL ImagePyrDown_Bgra32(const uint8_t* src, int32_t srcStep,
                                                             const ImageSize* srcSize, uint8_t* dst, int32_t dstStep,
                                                             const ImageSize* dstSize) {
    const int32_t w = srcSize->width, h = srcSize->height;
    if (w <= 0 || h <= 0) return;
    // Blur into a plane of our own (the source stays untouched), then resample it.
    auto copy = XMImage<XMBYTE4>::Create(w, h);
    auto* c = reinterpret_cast<uint8_t*>(copy->Origin());
    velmora::filter::ConvolveRowsBgra(src, srcStep, c, copy->Pitch(), w, h, kBinomial5, 5, true);
    ImageResize_Bgra32(c, copy->Pitch(), srcSize, dst, dstStep, dstSize);
}

extern "C" VELMORA_API void VELMORA_CALL ImagePyrUp_Bgra32(const uint8_t* src, int32_t srcStep,
                                                           const ImageSize* srcSize, uint8_t* dst, int32_t dstStep,
                                                           const ImageSize* dstSize) {
    ImageResize_Bgra32(src, srcStep, srcSize, dst, dstStep, dstSize);
    ImageConvolve_Bgra32(dst, dstStep, dstSize, kBinomial5, 5, 1);
}
