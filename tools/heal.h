// velmora heal: fills a hole in a picture from the rest of it by multi-scale PatchMatch, acting
// as the editor's host does around the library's inpainting kernels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image_io.h"

namespace velmora::tool {

// The hole: one byte per pixel, non-zero where the picture is to be filled.
struct HoleMask {
    int width = 0, height = 0;
    std::vector<uint8_t> inside;
};

// A PNG (or any picture the tool reads) whose non-zero pixels mark the hole; where it has alpha,
// transparent pixels are never part of it.
HoleMask ReadHoleMask(const std::string& path);
// "x,y,w,h" in pixels, clipped to the picture when it is applied.
HoleMask RectangleHole(const std::string& rect, int width, int height);

Image HealImage(const Image& in, const HoleMask& hole);

}  // namespace velmora::tool
