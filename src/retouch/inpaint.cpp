// The inpainting family's image plumbing: the hole-aware 2:1 shrink the host builds its pyramid
// with, the border fills that fence the minimiser's patch reads, the upscale entry, and the
// library's own driver, which builds the image and mask pyramids and lets them go again (the
// filling itself is the host's).
#include <cstdint>
#include <cstring>

#include "core/frame.h"
#include "core/image.h"
#include "core/pyramid.h"
#include "velmora/imaging.h"

namespace velmora::retouch {
namespace {

constexpr uint32_t kShrunkHole = 0xFF00FF00u;

// One output pixel of the masked shrink for the window whose taps are rows y-2..y+1 and columns
// x-2..x+1. Taps in the last row or column end the scan, so neither is ever read.
uint32_t MaskedTap4x4(const uint8_t* src, int32_t step, int32_t width, int32_t height, int32_t x, int32_t y) {
    static constexpr int32_t k[4] = {1, 3, 3, 1};
    int32_t taps = 0, holes = 0, sum_w = 0, sum[3] = {0, 0, 0};
    for (int32_t dy = 0; dy < 4; ++dy) {
        const int32_t yy = y - 2 + dy;
        if (yy < 0) continue;
        if (yy >= height - 1) break;
        const uint8_t* row = frame::Row(src, step, yy);
        for (int32_t dx = 0; dx < 4; ++dx) {
            const int32_t xx = x - 2 + dx;
            if (xx < 0) continue;
            if (xx >= width - 1) break;
            const uint8_t* p = row + ptrdiff_t{xx} * 4;
            ++taps;
            if (p[3] != 0) {
                ++holes;
                continue;
            }
            const int32_t w = k[dy] * k[dx];
            sum_w += w;
            for (int c = 0; c < 3; ++c) sum[c] += w * p[c];
        }
    }
    if (sum_w == 0 || static_cast<float>(holes) > 0.75f * static_cast<float>(taps)) return kShrunkHole;
    const float inv = 1.0f / static_cast<float>(sum_w);
    uint32_t out = 0;
    for (int c = 0; c < 3; ++c)
        out |= static_cast<uint32_t>(static_cast<int32_t>(static_cast<float>(sum[c]) * inv + 0.5f)) << (8 * c);
    return out;
}

void FillPixels(uint8_t* image, int32_t step, int32_t y, int32_t x0, int32_t count, uint32_t value) {
    uint8_t* p = frame::Row(image, step, y) + ptrdiff_t{x0} * 4;
    for (int32_t i = 0; i < count; ++i) std::memcpy(p + ptrdiff_t{i} * 4, &value, 4);
}

void SetBorder(uint8_t* image, int32_t step, const ImageSize* size, int32_t border, uint32_t value) {
    const int32_t w = size->width, h = size->height;
    for (int32_t b = 1; b <= border; ++b) {
        FillPixels(image, step, -b, -border, w + 2 * border, value);
        FillPixels(image, step, h - 1 + b, -border, w + 2 * border, value);
    }
    for (int32_t y = 0; y < h; ++y) {
        FillPixels(image, step, y, -border, border, value);
        FillPixels(image, step, y, w, border, value);
    }
}

}  // namespace
}  // namespace velmora::retouch

extern "C" {

VELMORA_API void VELMORA_CALL ImageDownscaleMasked4x4_Bgra32(const uint8_t* src, int32_t srcStep,
                                                             const ImageSize* srcSize, uint8_t* dst, int32_t dstStep,
                                                             int32_t) {
    const int32_t width = srcSize->width, height = srcSize->height;
    for (int32_t y = 0, i = 0; y < height - 1; y += 2, ++i) {
        uint8_t* out = velmora::frame::Row(dst, dstStep, i);
        for (int32_t x = 0; x < width - 1; x += 2, out += 4) {
            const uint32_t v = velmora::retouch::MaskedTap4x4(src, srcStep, width, height, x, y);
            std::memcpy(out, &v, 4);
        }
    }
}

VELMORA_API StatusCode VELMORA_CALL ImageUpscale_Bgra32(const uint8_t* src, int32_t srcStep, const ImageSize* srcSize,
                                                        uint8_t* dst, int32_t dstStep, const ImageSize* dstSize) {
    return ImageResize_Bgra32(src, srcStep, srcSize, dst, dstStep, dstSize);
}

VELMORA_API void VELMORA_CALL ImageSetBorder_Bgra32(uint8_t* image, int32_t step, const ImageSize* size,
                                                    int32_t border, uint32_t value) {
    velmora::retouch::SetBorder(image, step, size, border, value);
}

VELMORA_API void VELMORA_CALL ImageSetBorder_Gray8(uint8_t* image, int32_t step, const ImageSize* size,
                                                   int32_t border, uint8_t value) {
    velmora::retouch::SetBorder(image, step, size, border, value);
}

VELMORA_API void VELMORA_CALL ImageInpaint_Bgra32_SSE2(const uint8_t* src, int32_t srcStep, const void*,
                                                       int32_t maskStep, const uint8_t* mask, int32_t,
                                                       const ImageSize* size, int32_t) {
    using velmora::frame::Row;
    const int32_t width = size->width, height = size->height;
    if (width <= 0 || height <= 0) return;
    velmora::ImagePyramid<velmora::XMBYTE4> images(width, height, 0, 1, 1);
    velmora::ImagePyramid<float> masks(width, height, 0, 1, 1);
    const auto image0 = images.Level(0);
    const auto mask0 = masks.Level(0);
    for (int32_t y = 0; y < height; ++y) {
        // A null row clears its copy rather than faulting, as a checked copy does.
        const uint8_t* from = Row(src, srcStep, y);
        if (from == nullptr)
            std::memset(image0->Row(y), 0, size_t(width) * 4);
        else
            std::memcpy(image0->Row(y), from, size_t(width) * 4);
        const uint8_t* m = Row(mask, maskStep, y);
        float* to = mask0->Row(y);
        for (int32_t x = 0; x < width; ++x) to[x] = m[x] != 0 ? 1.0f : 0.0f;
    }
    for (int32_t k = 1; k < images.Count(); ++k) {
        const auto above = images.Level(k - 1), level = images.Level(k);
        const auto mask_above = masks.Level(k - 1), mask_level = masks.Level(k);
        const ImageSize above_size{above->Width(), above->Height()};
        ImageDownScale_Bgr32(reinterpret_cast<const uint8_t*>(above->Origin()), above->Pitch(),
                             reinterpret_cast<uint8_t*>(level->Origin()), level->Pitch(), &above_size);
        XMImageDown_Gray32F_SSE2(mask_above->Origin(), mask_above->Pitch(), mask_level->Origin(), mask_level->Pitch(),
                                 &above_size);
    }
}

}  // extern "C"
