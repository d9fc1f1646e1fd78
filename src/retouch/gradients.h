// The gradient masks' arguments as the exports receive them, handed to the body of the active
// instruction-set level (gradients_body.h, one instantiation per level).
#pragma once

#include <cstdint>

namespace velmora::retouch::gradients {

enum class Kind { Linear, Reflected, Dual, Radial };

struct Request {
    Kind kind;
    float* dst;
    int32_t step;
    const int32_t* region;  // x, y, width, height
    const float* a;         // point A, or the radial centre
    const float* b;         // point B, or the radial radii
    float amount;           // midpoint (linear, reflected) or plateau width (dual)
    float angle, feather, shape;
    bool invert;
    int32_t selector;  // radial shape, already known to be valid
};

void RunSse2(const Request& r);
void RunAvx2(const Request& r);    // gradients_avx2.cpp
void RunAvx512(const Request& r);  // gradients_avx512.cpp

}  // namespace velmora::retouch::gradients
