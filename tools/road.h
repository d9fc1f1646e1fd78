// The editor's road between files and the float working image, through the library's exports.
#pragma once

#include "image_io.h"
#include "working_image.h"

namespace velmora::tool {

// 8-bit Bgra32 or 16-bit Rgba64 into an Rgba128F working image (codes scaled onto [0, 1]).
FloatImage ToWorking(const Image& image);
// The working image back to integers (clamped, rounded half to even), 8 or 16 bits.
Image FromWorking(const FloatImage& work, int bits);

}  // namespace velmora::tool
