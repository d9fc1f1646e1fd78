// velmora blur: the library's box and three-box Gaussian blurs on a picture, in linear light.
#pragma once

#include "image_io.h"

namespace velmora::tool {

enum class BlurKind { Box, Gaussian };

Image BlurImage(const Image& in, int radius, BlurKind kind);

}  // namespace velmora::tool
