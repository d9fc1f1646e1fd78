// velmora dehaze: haze removal by the dark-channel prior, chained from the library's kernels.
#pragma once

#include "image_io.h"

namespace velmora::tool {

struct DehazeSettings {
    float strength = 0.95f;  // share of the haze removed (the transmission's omega)
    int radius = 0;          // dark-channel window radius; 0: about 1.2 % of the shorter side
    float t0 = 0.1f;         // lower bound of the transmission: keeps dense haze from blowing up noise
};

Image DehazeImage(const Image& in, const DehazeSettings& settings);

}  // namespace velmora::tool
