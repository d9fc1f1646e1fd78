#include "image_io.h"

#include <jpeglib.h>
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

namespace velmora::tool {

namespace {

struct FileCloser {
    void operator()(FILE* f) const {
        if (f) std::fclose(f);
    }
};
using File = std::unique_ptr<FILE, FileCloser>;

File Open(const std::string& path, const char* mode) {
    File f(std::fopen(path.c_str(), mode));
    if (!f) throw IoError("cannot open '" + path + "': " + std::strerror(errno));
    return f;
}

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// ---- PNG ----

[[noreturn]] void PngError(png_structp png, png_const_charp message) {
    *static_cast<std::string*>(png_get_error_ptr(png)) = message;
    png_longjmp(png, 1);
}
void PngWarning(png_structp, png_const_charp) {}

Image ReadPng(FILE* f, const std::string& path) {
    std::string error;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, PngError, PngWarning);
    png_infop info = png_create_info_struct(png);
    Image image;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw IoError("'" + path + "' is not a readable PNG: " + error);
    }
    png_init_io(png, f);
    png_read_info(png, info);
    const int bit_depth = png_get_bit_depth(png, info);
    const int colour = png_get_color_type(png, info);
    // Everything becomes four channels: palettes and low-depth gray expand, gray becomes RGB,
    // a missing alpha becomes opaque. 8-bit rows arrive as B, G, R, A; 16-bit ones as
    // little-endian R, G, B, A words.
    if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (colour == PNG_COLOR_TYPE_GRAY && bit_depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    if (colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
    const int bits = bit_depth == 16 ? 16 : 8;
    png_set_add_alpha(png, bits == 16 ? 0xFFFF : 0xFF, PNG_FILLER_AFTER);
    if (bits == 8) png_set_bgr(png);
    else png_set_swap(png);
    png_read_update_info(png, info);
    image = MakeImage(static_cast<int>(png_get_image_width(png, info)), static_cast<int>(png_get_image_height(png, info)), bits);
    rows.resize(image.height);
    for (int y = 0; y < image.height; ++y) rows[y] = image.Row(y);
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return image;
}

void WritePng(FILE* f, const std::string& path, const Image& image) {
    std::string error;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, PngError, PngWarning);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows(image.height);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw IoError("cannot write PNG '" + path + "': " + error);
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, image.width, image.height, image.bits, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 3);  // the demo writes large images; speed over size
    png_write_info(png, info);
    if (image.bits == 8) png_set_bgr(png);
    else png_set_swap(png);
    for (int y = 0; y < image.height; ++y) rows[y] = const_cast<png_bytep>(image.Row(y));
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
}

// ---- JPEG ----

struct JpegErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void JpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JpegErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

Image ReadJpeg(FILE* f, const std::string& path) {
    jpeg_decompress_struct cinfo{};
    JpegErrorManager err{};
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JpegErrorExit;
    Image image;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        throw IoError("'" + path + "' is not a readable JPEG: " + err.message);
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, f);
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_EXT_BGRA;  // libjpeg-turbo writes the editor's Bgra32 directly
    jpeg_start_decompress(&cinfo);
    image = MakeImage(static_cast<int>(cinfo.output_width), static_cast<int>(cinfo.output_height), 8);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = image.Row(static_cast<int>(cinfo.output_scanline));
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return image;
}

void WriteJpeg(FILE* f, const std::string& path, const Image& image, int quality) {
    if (image.bits != 8) throw IoError("JPEG output needs an 8-bit image");
    jpeg_compress_struct cinfo{};
    JpegErrorManager err{};
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JpegErrorExit;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        throw IoError("cannot write JPEG '" + path + "': " + err.message);
    }
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = static_cast<JDIMENSION>(image.width);
    cinfo.image_height = static_cast<JDIMENSION>(image.height);
    cinfo.input_components = 4;
    cinfo.in_color_space = JCS_EXT_BGRA;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(image.Row(static_cast<int>(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
}

}  // namespace

Image MakeImage(int width, int height, int bits) {
    if (width <= 0 || height <= 0 || width > (1 << 16) || height > (1 << 16))
        throw IoError("unsupported image size " + std::to_string(width) + "x" + std::to_string(height));
    Image image;
    image.width = width;
    image.height = height;
    image.bits = bits;
    image.step = ((width + 4) * image.PixelBytes() + 15) / 16 * 16;
    image.pixels.assign(static_cast<size_t>(image.step) * height, 0);
    return image;
}

bool IsJpegPath(const std::string& path) {
    const std::string p = Lower(path);
    auto ends = [&](const char* e) { return p.size() >= std::strlen(e) && p.compare(p.size() - std::strlen(e), std::string::npos, e) == 0; };
    return ends(".jpg") || ends(".jpeg");
}

Image ReadImage(const std::string& path) {
    File f = Open(path, "rb");
    unsigned char sig[8] = {};
    const size_t got = std::fread(sig, 1, sizeof sig, f.get());
    std::rewind(f.get());
    if (got == 8 && png_sig_cmp(sig, 0, 8) == 0) return ReadPng(f.get(), path);
    if (got >= 3 && sig[0] == 0xFF && sig[1] == 0xD8 && sig[2] == 0xFF) return ReadJpeg(f.get(), path);
    throw IoError("'" + path + "' is neither a PNG nor a JPEG file");
}

void WriteImage(const std::string& path, const Image& image, int jpeg_quality) {
    const bool jpeg = IsJpegPath(path);
    const std::string p = Lower(path);
    if (!jpeg && (p.size() < 4 || p.compare(p.size() - 4, 4, ".png") != 0))
        throw IoError("unsupported output type for '" + path + "': use .png, .jpg or .jpeg");
    File f = Open(path, "wb");
    if (jpeg) WriteJpeg(f.get(), path, image, jpeg_quality);
    else WritePng(f.get(), path, image);
    if (std::fflush(f.get()) != 0) throw IoError("cannot write '" + path + "': " + std::strerror(errno));
}

}  // namespace velmora::tool
