// Filling a one-float plane with a constant.
#include <emmintrin.h>

#include <cstdlib>
#include <cstring>

#include "core/frame.h"

extern "C" VELMORA_API int32_t VELMORA_CALL ImageClear_Gray32F_SSE2_V2(float* data, int32_t step,
                                                                       const ImageSize* roi, float value) {
    const int32_t width = roi->width, height = roi->height;
    if (width <= 0 || height <= 0) return 1;
    // Row 0 is written a vector at a time, so it is filled up to the next multiple of four floats.
    const __m128 v = _mm_set1_ps(value);
    for (int32_t x = 0; x < width; x += 4) _mm_storeu_ps(data + x, v);
    if (height < 2) return 1;
    // Every further row is a byte copy of row 0 over the whole step, padding included, which
    // is cheaper than re-running the store loop; callers size every row to the full step.
    const size_t row_bytes = static_cast<size_t>(std::abs(static_cast<long>(step)));
    for (int32_t y = 1; y < height; ++y) std::memcpy(velmora::frame::Row(data, step, y), data, row_bytes);
    return height;
}
