// Reading and writing PNG and JPEG files for the velmora tool. Pixels are always held as four
// interleaved channels: 8-bit B, G, R, A (the editor's Bgra32) or 16-bit R, G, B, A (Rgba64).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora::tool {

struct Image {
    int width = 0, height = 0;
    int bits = 8;                 // 8: Bgra32, 16: Rgba64 (native-endian words)
    int32_t step = 0;             // bytes from one row to the next: a multiple of 16
    std::vector<uint8_t> pixels;  // height x step bytes

    int PixelBytes() const { return bits == 8 ? 4 : 8; }
    uint8_t* Row(int y) { return pixels.data() + static_cast<size_t>(y) * step; }
    const uint8_t* Row(int y) const { return pixels.data() + static_cast<size_t>(y) * step; }
};

// Allocates rows padded to a multiple of 16 bytes with room for four extra pixels, which covers
// every overrun the library's kernels document.
Image MakeImage(int width, int height, int bits);

struct IoError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// PNG (8 or 16 bits, any colour type) or JPEG (8 bits), chosen by the file's signature.
Image ReadImage(const std::string& path);
// PNG keeps the image's depth; JPEG (by extension .jpg/.jpeg) needs an 8-bit image.
void WriteImage(const std::string& path, const Image& image, int jpeg_quality = 92);
bool IsJpegPath(const std::string& path);

}  // namespace velmora::tool
