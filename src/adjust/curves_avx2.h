// AVX2 row bodies of the tone curves (curves_avx2.cpp), eight table positions a step. Each does
// whole steps only and returns how many samples (pixels for the four-curve rows) it mapped; the
// caller's SSE2 row maps the rest. Every lane goes through the SSE2 body's operations in the same
// order, so results are identical, and the table is read at exactly the entries the SSE2 body
// reads. The float rows take `stream`: write past the cache with non-temporal stores where the
// row is 32-byte aligned.
#pragma once

#include <cstdint>

namespace velmora::curves {

int32_t Curve16RowAvx2(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, float scale);
int32_t Curve16AlphaRowAvx2(const uint16_t* src, uint16_t* dst, int32_t count, const float* table, float scale);
int32_t Curve32RowAvx2(const float* src, float* dst, int32_t count, const float* table, float scale, bool stream);
int32_t Curve4RowAvx2(const float* src, float* dst, int32_t pixels, const float* table, float scale, bool stream);

}  // namespace velmora::curves
