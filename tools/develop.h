// The editor's develop road on an 8/16-bit sRGB image: into linear ProPhoto with a base luminance
// lane, the library's develop pass, and back to sRGB codes of the same depth. Each stage is timed.
// The base luminance blur and the ProPhoto-to-sRGB matrix are the tool's own code until the
// library exports them.
#pragma once

#include "image_io.h"

namespace velmora::tool {

// The seven amounts of the develop pass: exposure in stops, the others nominally in [-1, 1].
struct DevelopAmounts {
    float exposure = 0, brightness = 0, shadows = 0, highlights = 0, contrast = 0, clarity = 0, saturation = 0;
};

Image DevelopImage(const Image& in, const DevelopAmounts& amounts);

}  // namespace velmora::tool
