// Colour matrices: the twists (a caller's 4 x 4 or 3 x 4 matrix on every pixel, matrix style),
// the transforms from the working space to output primaries (own style, float or 8-bit on
// either side), and the small matrix product that composes such matrices.
//
// Matrices are row-major with one row per output channel, so a pixel is a column vector:
// d_i = sum over j of m_ij s_j. A 3 x 4 matrix's last column is an offset in float units. Sums run
// left to right, ((m_i0 s_0 + m_i1 s_1) + m_i2 s_2) + m_i3 (s_3), with no fused multiply-add, so
// a scalar loop in that order gives the same bits. Every kernel reads and writes exactly the
// region; none demands alignment.
#include <cstdint>

#include "adjust/color_passes.h"
#include "core/frame.h"

namespace velmora::adjust {
namespace {

// Half-open byte ranges [p, p + p_bytes) and [q, q + q_bytes) meet.
bool Overlap(const void* p, int64_t p_bytes, const void* q, int64_t q_bytes) {
    const auto a = reinterpret_cast<uintptr_t>(p), b = reinterpret_cast<uintptr_t>(q);
    return a < b + static_cast<uint64_t>(q_bytes) && b < a + static_cast<uint64_t>(p_bytes);
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;
using color::Pass;
using color::Planes;

namespace {

color::PassArgs WithMatrix(const float* m) {
    color::PassArgs a;
    a.matrix = m;
    return a;
}

// The 3 x 4 matrix on four pixels held as planes (the 8-bit transforms, four pixels a step).
const auto kAffine = [](const float* m) { return [m](Planes& v) { color::Apply(Pass::Affine3x4, v, WithMatrix(m)); }; };

}  // namespace

extern "C" VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C4R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height, const float* twist) {
    return color::RunWidestAt(Pass::Twist4x4, false, src, srcStep, dst, dstStep, x, y, width, height, WithMatrix(twist));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                   int32_t width, int32_t height, const float* twist) {
    return ColorTwist_32f_C4R(image, step, image, step, x, y, width, height, twist);
}

extern "C" VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_C3R(const float* src, int32_t srcStep, float* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height, const float* twist) {
    return color::QuadRegion<color::Rgb96, color::Rgb96>(src, srcStep, dst, dstStep, x, y, width, height, kAffine(twist));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_AC4R(const float* src, int32_t srcStep, float* dst,
                                                                   int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                   int32_t height, const float* twist) {
    return color::RunWidestAt(Pass::Affine3x4, true, src, srcStep, dst, dstStep, x, y, width, height, WithMatrix(twist));
}

extern "C" VELMORA_API StatusCode VELMORA_CALL ColorTwist_32f_AC4IR(float* image, int32_t step, int32_t x, int32_t y,
                                                                    int32_t width, int32_t height, const float* twist) {
    return ColorTwist_32f_AC4R(image, step, image, step, x, y, width, height, twist);
}

extern "C" VELMORA_API void VELMORA_CALL ColorTransform_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                      int32_t dstStep, const ImageSize* roi,
                                                                      const float* m) {
    color::RunWidest(Pass::Affine3x4, false, src, srcStep, dst, dstStep, roi->width, roi->height, WithMatrix(m));
}

extern "C" VELMORA_API void VELMORA_CALL ColorTransform_Bgra32_Rgba128F_SSE2(const uint8_t* src, int32_t srcStep,
                                                                             float* dst, int32_t dstStep,
                                                                             const ImageSize* roi, const float* m) {
    color::QuadRows<color::Bgra32, color::Rgba128>(src, srcStep, dst, dstStep, roi->width, roi->height, kAffine(m));
}

extern "C" VELMORA_API void VELMORA_CALL ColorTransform_Rgba128F_Bgra32_SSE2(const float* src, int32_t srcStep,
                                                                             uint8_t* dst, int32_t dstStep,
                                                                             const ImageSize* roi, const float* m) {
    color::QuadRows<color::Rgba128, color::Bgra32>(src, srcStep, dst, dstStep, roi->width, roi->height, kAffine(m));
}
extern "C" VELMORA_API StatusCode VELMORA_CALL MatrixMult(const float* a, const float* b, float* c, int32_t rows,
                                                          int32_t inner, int32_t cols) {
    if (a == nullptr || b == nullptr || c == nullptr) return StatusInvalidParameter;
    if (rows < 1 || inner < 1 || cols < 1) return StatusInvalidParameter;
    const int64_t c_bytes = int64_t{rows} * cols * 4;
    if (adjust::Overlap(c, c_bytes, a, int64_t{rows} * inner * 4) || adjust::Overlap(c, c_bytes, b, int64_t{inner} * cols * 4))
        return StatusInvalidParameter;
    // Each element summed in double, k ascending, and rounded to float once.
    for (int64_t i = 0; i < rows; ++i)
        for (int64_t j = 0; j < cols; ++j) {
            double sum = 0.0;
            for (int64_t k = 0; k < inner; ++k) sum += static_cast<double>(a[i * inner + k]) * b[k * cols + j];
            c[i * cols + j] = static_cast<float>(sum);
        }
    return StatusOk;
}
