#pragma once

#include "image_io.h"

namespace velmora::tool {

// A colourful 8-bit test scene: a hue and lightness sweep, saturated patches over a gray ramp,
// and fine detail (a zone plate and line gratings) that shows any resampling or rounding fault.
Image RenderDemoScene(int width, int height);

}  // namespace velmora::tool
