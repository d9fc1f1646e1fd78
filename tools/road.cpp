#include "road.h"

#include "velmora/imaging.h"

namespace velmora::tool {

FloatImage ToWorking(const Image& image) {
    FloatImage work(image.width, image.height);
    const ImageSize roi{image.width, image.height};
    if (image.bits == 8)
        ImageConvert_Bgra32_Rgba128F(image.pixels.data(), image.step, work.data.get(), work.step, &roi);
    else
        ImageConvert_Rgba64_Rgba128F(reinterpret_cast<const uint16_t*>(image.pixels.data()), image.step, work.data.get(),
                                     work.step, &roi);
    return work;
}

Image FromWorking(const FloatImage& work, int bits) {
    Image image = MakeImage(work.width, work.height, bits);
    const ImageSize roi{work.width, work.height};
    if (bits == 8)
        ImageConvert_Rgba128F_Bgra32(work.data.get(), work.step, image.pixels.data(), image.step, &roi);
    else
        ImageConvert_Rgba128F_Rgba64(work.data.get(), work.step, reinterpret_cast<uint16_t*>(image.pixels.data()),
                                     image.step, &roi);
    return image;
}

}  // namespace velmora::tool
