// Linear ProPhoto RGB (D50) to and from CIE L*a*b* (D50) in the blocked Lab128F layout, in place.
// A block is four consecutive pixels of a row, 64 bytes: L* of the four, then a*, then b*, then
// the lightness of their fourth lanes, so later Lab kernels see one component per vector.
//
// Pixels read and written: each row in whole blocks, so a width that is not a multiple of four
// reads and rewrites up to three pixels past the region (the caller's pitch must hold them).
// Processors with AVX2 take two blocks a vector through the same arithmetic (lab_avx2.cpp),
// touching the same blocks and giving the same bits.
#include "adjust/lab_math.h"
#include "core/cpu.h"
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"

namespace velmora::adjust {
namespace {

void ToLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        __m128 r = v4::Load(block), g = v4::Load(block + 4), b = v4::Load(block + 8), w = v4::Load(block + 12);
        v4::Transpose4(r, g, b, w);
        Batch4 v[4] = {r, g, b, w};
        lab::ToLab(v);
        for (int i = 0; i < 4; ++i) v4::Store(block + 4 * i, v[i]);
    }
}

void FromLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        Batch4 v[4] = {v4::Load(block), v4::Load(block + 4), v4::Load(block + 8), v4::Load(block + 12)};
        lab::FromLab(v);
        __m128 r = v[0], g = v[1], b = v[2], w = v[3];
        v4::Transpose4(r, g, b, w);
        v4::Store(block, r);
        v4::Store(block + 4, g);
        v4::Store(block + 8, b);
        v4::Store(block + 12, w);
    }
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToLab_ProPhotoRgb128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    const auto row_fn = cpu::Has(cpu::Level::Avx2) ? adjust::lab::ToLabRowAvx2 : adjust::ToLabRow;
    frame::ForEachRow(image, step, image, step, roi,
                      [&](const float*, float* row, int32_t width) { row_fn(row, width); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToProPhotoRGB_Lab128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    const auto row_fn = cpu::Has(cpu::Level::Avx2) ? adjust::lab::FromLabRowAvx2 : adjust::FromLabRow;
    frame::ForEachRow(image, step, image, step, roi,
                      [&](const float*, float* row, int32_t width) { row_fn(row, width); });
}
