// Fixed colour spaces beside the working RGB: full-range YCbCr (BT.601 as JPEG uses it),
// analogue YUV, CMY and CMYK (the formulas are in color_passes.h). Each runs as written, left to
// right, with no clamp unless it says so; the fourth channel is copied, or left alone where the
// name says AC4. Every kernel reads and writes exactly the region; none demands alignment.
#include <cstdint>

#include "adjust/color_passes.h"

using namespace velmora;
using color::Pass;

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToYCbCr_32f_C4R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height) {
    return color::RunWidestAt(Pass::RgbToYCbCr, false, src, srcStep, dst, dstStep, x, y, width, height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height) {
    return color::RunWidestAt(Pass::YCbCrToRgb, false, src, srcStep, dst, dstStep, x, y, width, height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL YCbCrToRGB_32f_C4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                   int32_t width, int32_t height) {
    return YCbCrToRGB_32f_C4R(image, step, image, step, x, y, width, height);
}

extern "C" VELMORA_API void VELMORA_CALL RGBToYUV_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                          const ImageSize* roi) {
    color::RunWidest(Pass::RgbToYuv, false, src, srcStep, dst, dstStep, roi->width, roi->height);
}

extern "C" VELMORA_API void VELMORA_CALL YUVToRGB_Rgb128F(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                                          const ImageSize* roi) {
    color::RunWidest(Pass::YuvToRgb, false, src, srcStep, dst, dstStep, roi->width, roi->height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                                 int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                 int32_t height) {
    return color::RunWidestAt(Pass::RgbToCmy, true, src, srcStep, dst, dstStep, x, y, width, height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMY_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                  int32_t width, int32_t height) {
    return RGBToCMY_32f_AC4R(image, step, image, step, x, y, width, height);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RGBToCMYK_32f_AC4C4R(const float* src, int32_t srcStep, float* dst,
                                                                    int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                    int32_t height, float blackGeneration) {
    color::PassArgs a;
    a.black_generation = blackGeneration;
    return color::RunWidestAt(Pass::RgbToCmyk, false, src, srcStep, dst, dstStep, x, y, width, height, a);
}
