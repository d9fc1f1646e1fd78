#include "resize.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "road.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace velmora::tool {

Image ResizeImage(const Image& in, int width, int height) {
    if (width == 0) width = std::max(1, static_cast<int>(std::lround(double(in.width) * height / in.height)));
    if (height == 0) height = std::max(1, static_cast<int>(std::lround(double(in.height) * width / in.width)));
    // The resize works on 8-bit pixels; a 16-bit picture goes through the float road to 8 bits.
    Image eight = in;
    if (in.bits == 16) {
        if (Report()) std::fprintf(Report(), "  16-bit picture: resized as 8-bit\n");
        eight = FromWorking(ToWorking(in), 8);
        eight.channels = in.channels;
    }
    Image out = MakeImage(width, height, 8);
    out.channels = in.channels;
    const ImageSize from{in.width, in.height}, to{width, height};
    StatusCode status = StatusOk;
    Stage(width < in.width ? "resize (area)" : "resize (cubic)", int64_t{width} * height, [&] {
        status = ImageResize_Bgra32(eight.pixels.data(), eight.step, &from, out.pixels.data(), out.step, &to);
    });
    if (status != StatusOk) throw std::runtime_error("the resize refused its planes (status " + std::to_string(status) + ")");
    return out;
}

}  // namespace velmora::tool
