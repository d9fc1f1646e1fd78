// Fixed colour spaces beside the working RGB: full-range YCbCr (BT.601 as JPEG uses it),
// analogue YUV, CMY and CMYK. Each formula runs as written, left to right, on four pixels at a
// time, with no clamp unless it says so; the fourth channel is copied, or left alone where the
// name says AC4. Every kernel reads and writes exactly the region; none demands alignment.
#include <cstdint>

#include "adjust/color_rows.h"

namespace velmora::adjust {
namespace {

using color::Planes;

Batch4 Luma601(const Planes& v) { return (v[0] * Batch4(0.299f) + v[1] * Batch4(0.587f)) + v[2] * Batch4(0.114f); }

void RgbToYCbCr(Planes& v) {
    const Batch4 r = v[0], g = v[1], b = v[2], half(0.5f);
    v[0] = Luma601(v);
    v[1] = ((r * Batch4(-0.168736f) - g * Batch4(0.331264f)) + b * Batch4(0.5f)) + half;
    v[2] = ((r * Batch4(0.5f) - g * Batch4(0.418688f)) - b * Batch4(0.081312f)) + half;
}

void YCbCrToRgb(Planes& v) {
    const Batch4 y = v[0], cb = v[1] - Batch4(0.5f), cr = v[2] - Batch4(0.5f);
    v[0] = y + cr * Batch4(1.402f);
    v[1] = (y - cb * Batch4(0.344136f)) - cr * Batch4(0.714136f);
    v[2] = y + cb * Batch4(1.772f);
}

void RgbToYuv(Planes& v) {
    const Batch4 y = Luma601(v);
    v[1] = (v[2] - y) * Batch4(0.492111f);
    v[2] = (v[0] - y) * Batch4(0.877283f);
    v[0] = y;
}

void YuvToRgb(Planes& v) {
    const Batch4 y = v[0], u = v[1], w = v[2];
    v[0] = y + w * Batch4(1.139883f);
    v[1] = (y - u * Batch4(0.394642f)) - w * Batch4(0.580622f);
    v[2] = y + u * Batch4(2.032062f);
}

void RgbToCmy(Planes& v) {
    for (int i = 0; i < 3; ++i) v[i] = Batch4(1.0f) - v[i];
}

// Black generation g in [0, 1]: K = clamp(g (1 - max(R, G, B)), 0, 1), and each of C, M, Y is
// (1 - channel - K) / (1 - K), or 0 where K reaches 1 (a black pixel has no colour left).
void RgbToCmyk(Planes& v, Batch4 black_generation) {
    const Batch4 one(1.0f), zero(0.0f);
    const Batch4 k = xsimd::min(xsimd::max(black_generation * (one - xsimd::max(xsimd::max(v[0], v[1]), v[2])), zero), one);
    const auto black = k >= one;
    const Batch4 rest = one - k;
    for (int i = 0; i < 3; ++i) v[i] = xsimd::select(black, zero, ((one - v[i]) - k) / rest);
    v[3] = k;
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;
using color::Planes;
using color::Rgba128;

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToYCbCr_32f_C4R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height) {
    return color::QuadRegion<Rgba128, Rgba128>(src, srcStep, dst, dstStep, x, y, width, height, adjust::RgbToYCbCr);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height) {
    return color::QuadRegion<Rgba128, Rgba128>(src, srcStep, dst, dstStep, x, y, width, height, adjust::YCbCrToRgb);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                   int32_t width, int32_t height) {
    return YCbCrToRGB_32f_C4R(image, step, image, step, x, y, width, height);
}

extern "C" VELMORA_API void VELMORA_CALL RGBToYUV_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                          const ImageSize* roi) {
    color::QuadRows<Rgba128, Rgba128>(src, srcStep, dst, dstStep, roi->width, roi->height, adjust::RgbToYuv);
}

extern "C" VELMORA_API void VELMORA_CALL YUVToRGB_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                          const ImageSize* roi) {
    color::QuadRows<Rgba128, Rgba128>(src, srcStep, dst, dstStep, roi->width, roi->height, adjust::YuvToRgb);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                                 int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                 int32_t height) {
    return color::QuadRegion<Rgba128, color::Rgba128KeepAlpha>(src, srcStep, dst, dstStep, x, y, width, height,
                                                               adjust::RgbToCmy);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                  int32_t width, int32_t height) {
    return RGBToCMY_32f_AC4R(image, step, image, step, x, y, width, height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMYK_32f_AC4C4R(const float* src, int32_t srcStep, float* dst,
                                                                    int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                    int32_t height, float blackGeneration) {
    const Batch4 g(blackGeneration);
    return color::QuadRegion<Rgba128, Rgba128>(src, srcStep, dst, dstStep, x, y, width, height,
                                               [&](Planes& v) { adjust::RgbToCmyk(v, g); });
}
