#include "blur.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "road.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace velmora::tool {
namespace {

// The working image inside a frame of `margin` pixels on every side, filled by repeating the
// edge pixels: the blurs read their margin without testing borders, and a repeated edge keeps
// the picture's border from darkening.
struct Framed {
    FloatImage plane;
    int margin;
    Framed(const FloatImage& work, int m) : plane(work.width + 2 * m, work.height + 2 * m), margin(m) {
        const int w = work.width, h = work.height;
        for (int y = 0; y < h + 2 * m; ++y) {
            const float* src = work.Row(std::clamp(y - m, 0, h - 1));
            float* row = plane.Row(y);
            for (int x = 0; x < w + 2 * m; ++x) std::memcpy(row + 4 * x, src + 4 * std::clamp(x - m, 0, w - 1), 16);
        }
    }
    float* Region() const { return plane.Row(margin) + 4 * margin; }
};

}  // namespace

Image BlurImage(const Image& in, int radius, BlurKind kind) {
    const int64_t pixels = int64_t{in.width} * in.height;
    const ImageSize roi{in.width, in.height};
    std::optional<FloatImage> work;
    Stage(in.bits == 8 ? "Bgra32 -> Rgba128F" : "Rgba64 -> Rgba128F", pixels, [&] { work.emplace(ToWorking(in)); });
    // Blurring averages light, so the codes are decoded to linear values first and encoded after.
    Stage("sRGB decode", pixels, [&] { XMImageSRGBToRGB_Rgb128F_SSE2(work->data.get(), work->step, &roi); });
    const int margin = kind == BlurKind::Box ? radius : 3 * radius;
    std::optional<Framed> framed;
    Stage("edge-repeating frame (tool)", pixels, [&] { framed.emplace(*work, margin); });
    if (kind == BlurKind::Box)
        Stage("box blur", pixels, [&] {
            BoxBlur_Rgba128F_SSE2(framed->Region(), framed->plane.step, work->data.get(), work->step, &roi, radius);
        });
    else
        Stage("three-box Gaussian blur", pixels, [&] {
            FastGaussianBlur_Rgba128F_SSE2(framed->Region(), framed->plane.step, work->data.get(), work->step, &roi,
                                           radius);
        });
    Stage("sRGB encode", pixels, [&] { XMImageRGBToSRGB_Rgb128F_SSE2(work->data.get(), work->step, &roi); });
    Image out;
    Stage(in.bits == 8 ? "Rgba128F -> Bgra32" : "Rgba128F -> Rgba64", pixels, [&] { out = FromWorking(*work, in.bits); });
    out.channels = in.channels;
    return out;
}

}  // namespace velmora::tool
