// Reading and writing PNG, JPEG and TIFF files for the velmora tool. Pixels are always held as four
// interleaved channels: 8-bit B, G, R, A (the editor's Bgra32) or 16-bit R, G, B, A (Rgba64); the
// file's own channel count travels beside them so an RGB or grey file is written back as one.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora::tool {

struct Image {
    int width = 0, height = 0;
    int bits = 8;                 // 8: Bgra32, 16: Rgba64 (native-endian words)
    int channels = 4;             // the file's: 1 grey, 2 grey + alpha, 3 RGB, 4 RGB + alpha
    int32_t step = 0;             // bytes from one row to the next: a multiple of 16
    std::vector<uint8_t> pixels;  // height x step bytes
    bool tinted = false;          // a road gave the picture colour: a grey file is written as RGB

    int PixelBytes() const { return bits == 8 ? 4 : 8; }
    bool HasAlpha() const { return channels == 2 || channels == 4; }
    uint8_t* Row(int y) { return pixels.data() + static_cast<size_t>(y) * step; }
    const uint8_t* Row(int y) const { return pixels.data() + static_cast<size_t>(y) * step; }
};

struct IoError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Allocates rows padded to a multiple of 16 bytes with room for four extra pixels, which covers
// every overrun the library's kernels document.
Image MakeImage(int width, int height, int bits);

enum class FileFormat { Png, Jpeg, Tiff };

struct ReadOptions {
    // Images whose header claims more pixels are refused before anything is allocated.
    int64_t max_pixels = int64_t{200} * 1000 * 1000;
    // Turn the pixels upright as the file's orientation tag (EXIF or TIFF) says.
    bool apply_orientation = true;
};

// PNG (1 to 16 bits, any colour type), JPEG (8-bit grey, RGB or YCbCr; CMYK is refused) or TIFF
// (8/16-bit grey or RGB, with or without alpha), chosen by the file's signature. "-" reads
// standard input. Any decoder warning (a truncated or corrupt file) is an error.
Image ReadImage(const std::string& path, const ReadOptions& options = {});

// Where and how an image is written, checked before any input is read: the format comes from
// `format` ("png", "jpg"/"jpeg", "tif"/"tiff") or else from the path's extension; "-" writes
// standard output (PNG unless a format is given). The folder must exist and be writable.
struct OutputSpec {
    std::string path;
    FileFormat format = FileFormat::Png;
    int jpeg_quality = 92;
};
OutputSpec CheckOutput(const std::string& path, const std::optional<std::string>& format, int jpeg_quality);
// The extension a format's files get ("png", "jpg", "tif").
const char* Extension(FileFormat format);

// Writes through a temporary file in the destination's folder renamed into place at the end, so
// a failure never leaves a half-written file behind. JPEG needs an 8-bit image.
void WriteImage(const OutputSpec& out, const Image& image);

}  // namespace velmora::tool
