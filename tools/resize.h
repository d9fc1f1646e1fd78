// velmora resize: the library's resize on 8-bit pictures.
#pragma once

#include "image_io.h"

namespace velmora::tool {

// width or height 0 keeps the aspect ratio from the other.
Image ResizeImage(const Image& in, int width, int height);

}  // namespace velmora::tool
