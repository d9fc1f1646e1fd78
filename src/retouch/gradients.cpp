// Geometric gradient masks: single-channel float rows of values in 0..1 that select where a local
// adjustment applies. Linear (A to B), reflected (peak at a pivot between A and B), dual (a flat
// top around the middle of A and B) and radial (an ellipse or rounded rectangle, with linear,
// smoothstep or Gaussian falloff, inside or outside). The bodies are in gradients_body.h; the
// exports pick the widest level the processor has.
#include "core/cpu.h"
#include "retouch/gradients_body.h"

namespace velmora::retouch::gradients {

void RunSse2(const Request& q) { Run<xsimd::batch<float, xsimd::sse2>>(q); }

namespace {

// The mask is arithmetic on running coordinates and nothing else, so wider vectors pay until
// the stores reach memory speed; AVX without AVX2 has the same float lanes and gains as much.
void Dispatch(const Request& q) {
    if (cpu::Has(cpu::Level::Avx512)) return RunAvx512(q);
    if (cpu::Has(cpu::Level::Avx2)) return RunAvx2(q);
    RunSse2(q);
}

}  // namespace
}  // namespace velmora::retouch::gradients

namespace gradients = velmora::retouch::gradients;
using gradients::Kind;

extern "C" VELMORA_API void VELMORA_CALL ImageLinearGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                               const int32_t* region,
                                                                               const float* pointA, const float* pointB,
                                                                               float midpoint, bool invert) {
    gradients::Dispatch({Kind::Linear, dst, dstStep, region, pointA, pointB, midpoint, 0, 0, 0, invert, 0});
}

extern "C" VELMORA_API void VELMORA_CALL ImageReflectedGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                                  const int32_t* region,
                                                                                  const float* pointA,
                                                                                  const float* pointB, float midpoint,
                                                                                  bool invert) {
    gradients::Dispatch({Kind::Reflected, dst, dstStep, region, pointA, pointB, midpoint, 0, 0, 0, invert, 0});
}

extern "C" VELMORA_API void VELMORA_CALL ImageDualGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                             const int32_t* region, const float* pointA,
                                                                             const float* pointB, float width,
                                                                             bool invert) {
    gradients::Dispatch({Kind::Dual, dst, dstStep, region, pointA, pointB, width, 0, 0, 0, invert, 0});
}

extern "C" VELMORA_API void VELMORA_CALL ImageRadialGradient_Gray32F_SSE2_X4Y1(float* dst, int32_t dstStep,
                                                                               const int32_t* region,
                                                                               const float* centre, const float* radii,
                                                                               float angle, float feather, float shape,
                                                                               bool invert, int32_t selector) {
    if (selector < 0 || selector > 5) return;  // an unknown shape writes nothing
    gradients::Dispatch({Kind::Radial, dst, dstStep, region, centre, radii, 0, angle, feather, shape, invert, selector});
}
