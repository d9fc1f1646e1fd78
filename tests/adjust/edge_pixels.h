// Edge-value pixels for the family's dispatch tests.
#pragma once

#include <cmath>
#include <random>
#include <vector>

#include "support/dispatch.h"

namespace vt {

// Four-float pixel lanes from the edge mix (by default around the sRGB knees, the lightness
// threshold, mid grey and white, on a unit scale), at most one of a pixel's four lanes not finite. Where two different NaNs meet
// in one operation, which payload survives follows the compiler's operand order (it treats + and
// x as commutative), not the instruction set, so the bodies are compared where a single NaN
// source runs through each pixel. Rows hold whole pixels, so the calls come in fours.
struct EdgePixels {
    float scale = 1.0f;
    std::vector<float> thresholds = {0.0031308f, 0.008856452f, 0.04045f, 0.5f, 1.0f};
    int lane = 0;
    bool spent = false;
    float operator()(std::mt19937& rng) {
        if (lane++ % 4 == 0) spent = false;
        float v = vt::EdgeFloat(rng, scale, thresholds);
        if (!std::isfinite(v)) {
            if (spent) v = std::uniform_real_distribution<float>(0.0f, 1.0f)(rng) * scale;
            spent = true;
        }
        return v;
    }
};

}  // namespace vt
