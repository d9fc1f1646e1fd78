#include "image_io.h"

#include <jpeglib.h>
#include <libexif/exif-data.h>
#include <png.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
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

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string ExtensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return Lower(path.substr(dot + 1));
}

std::optional<FileFormat> FormatNamed(const std::string& name) {
    const std::string n = Lower(name);
    if (n == "png") return FileFormat::Png;
    if (n == "jpg" || n == "jpeg") return FileFormat::Jpeg;
    if (n == "tif" || n == "tiff") return FileFormat::Tiff;
    return std::nullopt;
}

std::string Describe(const std::string& path) { return path == "-" ? "standard input" : "'" + path + "'"; }

// The header's size, refused before the pixels are allocated.
void CheckSize(const std::string& path, int64_t width, int64_t height, const ReadOptions& options) {
    if (width <= 0 || height <= 0 || width > (1 << 20) || height > (1 << 20) || width * height > options.max_pixels)
        throw IoError(Describe(path) + " claims " + std::to_string(width) + "x" + std::to_string(height) +
                      " pixels, more than the limit of " + std::to_string(options.max_pixels / 1000000) +
                      " megapixels (raise it with --max-megapixels)");
}

// ---- orientation ----

// Turns the stored pixels upright for an EXIF/TIFF orientation value (1 = already upright; 2-4
// mirror or turn by 180 degrees; 5-8 swap the axes).
Image Orient(const Image& in, int orientation) {
    if (orientation < 2 || orientation > 8) return in;
    const bool swap = orientation >= 5;
    Image out = MakeImage(swap ? in.height : in.width, swap ? in.width : in.height, in.bits);
    out.channels = in.channels;
    const int w = in.width, h = in.height, bytes = in.PixelBytes();
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            int sx = x, sy = y;
            switch (orientation) {
                case 2: sx = w - 1 - x; break;
                case 3: sx = w - 1 - x, sy = h - 1 - y; break;
                case 4: sy = h - 1 - y; break;
                case 5: sx = y, sy = x; break;
                case 6: sx = y, sy = h - 1 - x; break;
                case 7: sx = w - 1 - y, sy = h - 1 - x; break;
                case 8: sx = w - 1 - y, sy = x; break;
            }
            std::memcpy(out.Row(y) + x * bytes, in.Row(sy) + sx * bytes, bytes);
        }
    return out;
}

int ExifOrientation(const uint8_t* data, size_t size) {
    ExifData* exif = exif_data_new_from_data(data, static_cast<unsigned int>(size));
    if (!exif) return 1;
    int orientation = 1;
    if (ExifEntry* e = exif_data_get_entry(exif, EXIF_TAG_ORIENTATION))
        orientation = exif_get_short(e->data, exif_data_get_byte_order(exif));
    exif_data_unref(exif);
    return orientation;
}

// ---- PNG ----

struct PngState {
    std::string error;
};

[[noreturn]] void PngError(png_structp png, png_const_charp message) {
    static_cast<PngState*>(png_get_error_ptr(png))->error = message;
    png_longjmp(png, 1);
}
// Warnings about colour metadata the tool does not use are harmless; every other warning means
// damaged data, which must not pass for a good picture.
void PngWarning(png_structp png, png_const_charp message) {
    for (const char* benign : {"iCCP", "sRGB", "cHRM", "gAMA", "iTXt", "tEXt", "zTXt", "eXIf"})
        if (std::strncmp(message, benign, std::strlen(benign)) == 0) return;
    PngError(png, message);
}

Image ReadPng(FILE* f, const std::string& path, const ReadOptions& options) {
    PngState state;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, PngError, PngWarning);
    png_infop info = png_create_info_struct(png);
    Image image;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw IoError(Describe(path) + " is not a readable PNG: " + state.error);
    }
    png_init_io(png, f);
    png_read_info(png, info);
    CheckSize(path, png_get_image_width(png, info), png_get_image_height(png, info), options);
    const int bit_depth = png_get_bit_depth(png, info);
    const int colour = png_get_color_type(png, info);
    const bool trns = png_get_valid(png, info, PNG_INFO_tRNS);
    const bool grey = colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA;
    const bool alpha = (colour & PNG_COLOR_MASK_ALPHA) || trns;
    // Everything becomes four channels: palettes and low-depth grey expand, grey becomes RGB, a
    // missing alpha becomes opaque. 8-bit rows arrive as B, G, R, A; 16-bit ones as native R, G, B, A.
    if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (colour == PNG_COLOR_TYPE_GRAY && bit_depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (trns) png_set_tRNS_to_alpha(png);
    if (grey) png_set_gray_to_rgb(png);
    const int bits = bit_depth == 16 ? 16 : 8;
    png_set_add_alpha(png, bits == 16 ? 0xFFFF : 0xFF, PNG_FILLER_AFTER);
    if (bits == 8) png_set_bgr(png);
    else png_set_swap(png);
    png_read_update_info(png, info);
    image = MakeImage(static_cast<int>(png_get_image_width(png, info)), static_cast<int>(png_get_image_height(png, info)), bits);
    image.channels = (grey ? 1 : 3) + (alpha ? 1 : 0);
    rows.resize(image.height);
    for (int y = 0; y < image.height; ++y) rows[y] = image.Row(y);
    png_read_image(png, rows.data());
    png_read_end(png, info);
    int orientation = 1;
#ifdef PNG_eXIf_SUPPORTED
    png_bytep exif = nullptr;
    png_uint_32 exif_size = 0;
    if (png_get_eXIf_1(png, info, &exif_size, &exif) && exif) orientation = ExifOrientation(exif, exif_size);
#endif
    png_destroy_read_struct(&png, &info, nullptr);
    return options.apply_orientation ? Orient(image, orientation) : image;
}

// One row in the file's own layout: grey (the mean of R, G and B, exact for grey pixels) or
// R, G, B, with alpha when the file has it; 16-bit words in the byte order `big_endian` says.
void PackRow(const Image& image, int y, bool big_endian, std::vector<uint8_t>& out) {
    const int n = image.channels, sample = image.bits / 8;
    out.resize(size_t(image.width) * n * sample);
    const uint8_t* row = image.Row(y);
    for (int x = 0; x < image.width; ++x) {
        unsigned rgba[4];
        if (image.bits == 8) {
            const uint8_t* p = row + 4 * x;
            rgba[0] = p[2], rgba[1] = p[1], rgba[2] = p[0], rgba[3] = p[3];
        } else {
            const uint16_t* p = reinterpret_cast<const uint16_t*>(row) + 4 * x;
            for (int c = 0; c < 4; ++c) rgba[c] = p[c];
        }
        unsigned values[4];
        int k = 0;
        if (n <= 2) values[k++] = (rgba[0] + rgba[1] + rgba[2] + 1) / 3;
        else values[k++] = rgba[0], values[k++] = rgba[1], values[k++] = rgba[2];
        if (n == 2 || n == 4) values[k++] = rgba[3];
        uint8_t* o = out.data() + size_t(x) * n * sample;
        for (int c = 0; c < n; ++c) {
            if (sample == 1) o[c] = static_cast<uint8_t>(values[c]);
            else if (big_endian) o[2 * c] = uint8_t(values[c] >> 8), o[2 * c + 1] = uint8_t(values[c]);
            else {
                const uint16_t word = static_cast<uint16_t>(values[c]);  // host order, as libtiff expects
                std::memcpy(o + 2 * c, &word, 2);
            }
        }
    }
}

void WritePng(FILE* f, const Image& image) {
    PngState state;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, PngError, PngWarning);
    png_infop info = png_create_info_struct(png);
    std::vector<uint8_t> row;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw IoError("cannot write PNG: " + state.error);
    }
    static const int kColourType[5] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                                       PNG_COLOR_TYPE_RGB_ALPHA};
    png_init_io(png, f);
    png_set_IHDR(png, info, image.width, image.height, image.bits, kColourType[image.channels], PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 3);  // large photos: speed over size
    png_write_info(png, info);
    for (int y = 0; y < image.height; ++y) {
        PackRow(image, y, true, row);
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
}

// ---- JPEG ----

struct JpegErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void JpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JpegErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

// libjpeg reports a truncated or corrupt stream as a warning and fills the rest with grey; here
// a warning (level -1) ends the decode like an error. Trace messages (level >= 0) stay silent.
void JpegMessage(j_common_ptr cinfo, int level) {
    if (level < 0) JpegErrorExit(cinfo);
}

Image ReadJpeg(FILE* f, const std::string& path, const ReadOptions& options) {
    jpeg_decompress_struct cinfo{};
    JpegErrorManager err{};
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JpegErrorExit;
    err.base.emit_message = JpegMessage;
    Image image;
    std::string refusal;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        throw IoError(Describe(path) + " is not a readable JPEG: " + err.message);
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, f);
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK)
        refusal = Describe(path) + " is a CMYK JPEG; velmora reads grey and RGB JPEGs only (convert it to RGB first)";
    else if (int64_t{cinfo.image_width} * cinfo.image_height > options.max_pixels)
        refusal = "too large";
    if (!refusal.empty()) {
        jpeg_destroy_decompress(&cinfo);
        if (refusal == "too large") CheckSize(path, cinfo.image_width, cinfo.image_height, options);
        throw IoError(refusal);
    }
    int orientation = 1;
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && std::memcmp(m->data, "Exif\0\0", 6) == 0)
            orientation = ExifOrientation(m->data, m->data_length);
    cinfo.out_color_space = JCS_EXT_BGRA;  // libjpeg-turbo writes the editor's Bgra32 directly
    jpeg_start_decompress(&cinfo);
    image = MakeImage(static_cast<int>(cinfo.output_width), static_cast<int>(cinfo.output_height), 8);
    image.channels = cinfo.jpeg_color_space == JCS_GRAYSCALE ? 1 : 3;
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = image.Row(static_cast<int>(cinfo.output_scanline));
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return options.apply_orientation ? Orient(image, orientation) : image;
}

void WriteJpeg(FILE* f, const Image& image, int quality) {
    if (image.bits != 8) throw IoError("JPEG output needs an 8-bit image; write a PNG or TIFF for 16 bits");
    jpeg_compress_struct cinfo{};
    JpegErrorManager err{};
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JpegErrorExit;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        throw IoError(std::string("cannot write JPEG: ") + err.message);
    }
    const bool grey = image.channels <= 2;
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = static_cast<JDIMENSION>(image.width);
    cinfo.image_height = static_cast<JDIMENSION>(image.height);
    cinfo.input_components = grey ? 1 : 4;
    cinfo.in_color_space = grey ? JCS_GRAYSCALE : JCS_EXT_BGRA;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    Image grey_view = image;
    grey_view.channels = 1;
    std::vector<uint8_t> packed;
    while (cinfo.next_scanline < cinfo.image_height) {
        const int y = static_cast<int>(cinfo.next_scanline);
        JSAMPROW row = const_cast<JSAMPROW>(image.Row(y));
        if (grey) {
            PackRow(grey_view, y, true, packed);
            row = packed.data();
        }
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
}

// ---- TIFF ----

// libtiff reports through process-wide handlers; the tool is single-threaded, so the last error
// is kept here. Its warnings (unknown private tags, mostly) are harmless and dropped.
std::string g_tiff_error;
void TiffError(const char*, const char* fmt, va_list ap) {
    char buffer[512];
    std::vsnprintf(buffer, sizeof buffer, fmt, ap);
    if (g_tiff_error.empty()) g_tiff_error = buffer;
}
void TiffWarning(const char*, const char*, va_list) {}

struct TiffCloser {
    void operator()(TIFF* t) const {
        if (t) TIFFClose(t);
    }
};
using Tiff = std::unique_ptr<TIFF, TiffCloser>;

Tiff OpenTiff(FILE* f, const char* mode) {
    TIFFSetErrorHandler(TiffError);
    TIFFSetWarningHandler(TiffWarning);
    g_tiff_error.clear();
    // libtiff closes the descriptor it is given, so it gets its own copy.
    std::fflush(f);
    const int fd = dup(fileno(f));
    if (*mode == 'r') lseek(fd, 0, SEEK_SET);
    return Tiff(TIFFFdOpen(fd, "velmora", mode));
}

Image ReadTiff(FILE* f, const std::string& path, const ReadOptions& options) {
    Tiff tif = OpenTiff(f, "r");
    auto fail = [&](const std::string& why) { return IoError(Describe(path) + " is not a readable TIFF: " + why); };
    if (!tif) throw fail(g_tiff_error);
    uint32_t width = 0, height = 0;
    uint16_t bits = 0, samples = 1, planar = PLANARCONFIG_CONTIG, photometric = 0, orientation = ORIENTATION_TOPLEFT;
    uint16_t extra_count = 0, *extra = nullptr;
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_ORIENTATION, &orientation);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
    TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    CheckSize(path, width, height, options);
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK;
    const int colours = grey ? 1 : 3;
    if ((bits != 8 && bits != 16) || planar != PLANARCONFIG_CONTIG || !(grey || photometric == PHOTOMETRIC_RGB) ||
        samples < colours || samples > colours + 1)
        throw IoError(Describe(path) + ": velmora reads 8/16-bit grey or RGB TIFFs (interleaved, with or without "
                      "alpha) only");
    Image image = MakeImage(static_cast<int>(width), static_cast<int>(height), bits);
    image.channels = samples;
    std::vector<uint8_t> line(TIFFScanlineSize(tif.get()));
    for (uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(tif.get(), line.data(), y) < 0) throw fail(g_tiff_error);
        uint8_t* row = image.Row(static_cast<int>(y));
        for (uint32_t x = 0; x < width; ++x) {
            unsigned v[4] = {0, 0, 0, bits == 8 ? 0xFFu : 0xFFFFu};
            for (int c = 0; c < samples; ++c) {
                const size_t i = size_t(x) * samples + c;
                const unsigned s = bits == 8 ? line[i] : reinterpret_cast<const uint16_t*>(line.data())[i];
                const int lane = c < colours ? c : 3;
                v[lane] = s;
            }
            if (grey) v[1] = v[2] = v[0];
            if (bits == 8) row[4 * x] = uint8_t(v[2]), row[4 * x + 1] = uint8_t(v[1]), row[4 * x + 2] = uint8_t(v[0]), row[4 * x + 3] = uint8_t(v[3]);
            else
                for (int c = 0; c < 4; ++c) reinterpret_cast<uint16_t*>(row)[4 * x + c] = static_cast<uint16_t>(v[c]);
        }
    }
    if (!g_tiff_error.empty()) throw fail(g_tiff_error);
    return options.apply_orientation ? Orient(image, orientation) : image;
}

void WriteTiff(FILE* f, const Image& image) {
    Tiff tif = OpenTiff(f, "w");
    if (!tif) throw IoError("cannot write TIFF: " + g_tiff_error);
    const int n = image.channels;
    TIFFSetField(tif.get(), TIFFTAG_IMAGEWIDTH, uint32_t(image.width));
    TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, uint32_t(image.height));
    TIFFSetField(tif.get(), TIFFTAG_BITSPERSAMPLE, uint16_t(image.bits));
    TIFFSetField(tif.get(), TIFFTAG_SAMPLESPERPIXEL, uint16_t(n));
    TIFFSetField(tif.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif.get(), TIFFTAG_PHOTOMETRIC, n <= 2 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tif.get(), TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif.get(), 0));
    if (image.HasAlpha()) {
        const uint16_t associated[1] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(tif.get(), TIFFTAG_EXTRASAMPLES, uint16_t(1), associated);
    }
    std::vector<uint8_t> row;
    for (int y = 0; y < image.height; ++y) {
        PackRow(image, y, false, row);
        if (TIFFWriteScanline(tif.get(), row.data(), uint32_t(y)) < 0) throw IoError("cannot write TIFF: " + g_tiff_error);
    }
    if (!TIFFFlush(tif.get())) throw IoError("cannot write TIFF: " + g_tiff_error);
}

// Standard input may be a pipe, and the decoders want a seekable file: it is copied first.
File OpenInput(const std::string& path) {
    if (path != "-") {
        File f(std::fopen(path.c_str(), "rb"));
        if (!f) throw IoError("cannot open '" + path + "': " + std::strerror(errno));
        return f;
    }
    File f(std::tmpfile());
    if (!f) throw IoError(std::string("cannot buffer standard input: ") + std::strerror(errno));
    char buffer[1 << 16];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, stdin)) > 0)
        if (std::fwrite(buffer, 1, got, f.get()) != got) throw IoError("cannot buffer standard input");
    std::rewind(f.get());
    return f;
}

}  // namespace

Image MakeImage(int width, int height, int bits) {
    if (width <= 0 || height <= 0 || width > (1 << 20) || height > (1 << 20))
        throw IoError("unsupported image size " + std::to_string(width) + "x" + std::to_string(height));
    Image image;
    image.width = width;
    image.height = height;
    image.bits = bits;
    image.step = ((width + 4) * image.PixelBytes() + 15) / 16 * 16;
    image.pixels.assign(static_cast<size_t>(image.step) * height, 0);
    return image;
}

Image ReadImage(const std::string& path, const ReadOptions& options) {
    File f = OpenInput(path);
    unsigned char sig[8] = {};
    const size_t got = std::fread(sig, 1, sizeof sig, f.get());
    std::rewind(f.get());
    if (got == 8 && png_sig_cmp(sig, 0, 8) == 0) return ReadPng(f.get(), path, options);
    if (got >= 3 && sig[0] == 0xFF && sig[1] == 0xD8 && sig[2] == 0xFF) return ReadJpeg(f.get(), path, options);
    if (got >= 4 && (std::memcmp(sig, "II*\0", 4) == 0 || std::memcmp(sig, "MM\0*", 4) == 0))
        return ReadTiff(f.get(), path, options);
    throw IoError(Describe(path) + " is not a PNG, JPEG or TIFF file");
}

const char* Extension(FileFormat format) {
    return format == FileFormat::Png ? "png" : format == FileFormat::Jpeg ? "jpg" : "tif";
}

OutputSpec CheckOutput(const std::string& path, const std::optional<std::string>& format, int jpeg_quality) {
    OutputSpec out{path, FileFormat::Png, jpeg_quality};
    if (format) {
        const std::optional<FileFormat> f = FormatNamed(*format);
        if (!f) throw IoError("unknown format '" + *format + "': use png, jpg or tiff");
        out.format = *f;
    } else if (path != "-") {
        const std::optional<FileFormat> f = FormatNamed(ExtensionOf(path));
        if (!f) throw IoError("cannot tell the format of '" + path + "': name it .png, .jpg, .jpeg, .tif or .tiff");
        out.format = *f;
    }
    if (path == "-") return out;
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (access(folder.c_str(), W_OK) != 0)
        throw IoError("cannot write '" + path + "': folder '" + folder + "': " + std::strerror(errno));
    struct stat st;
    if (slash + 1 == path.size() || (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)))
        throw IoError("cannot write '" + path + "': it is a folder");
    return out;
}

void WriteImage(const OutputSpec& out, const Image& image) {
    auto encode = [&](FILE* f) {
        switch (out.format) {
            case FileFormat::Png: WritePng(f, image); break;
            case FileFormat::Jpeg: WriteJpeg(f, image, out.jpeg_quality); break;
            case FileFormat::Tiff: WriteTiff(f, image); break;
        }
        if (std::fflush(f) != 0) throw IoError(std::string("cannot write: ") + std::strerror(errno));
    };
    if (out.path == "-") {
        File tmp(std::tmpfile());
        if (!tmp) throw IoError(std::string("cannot buffer the output: ") + std::strerror(errno));
        encode(tmp.get());
        std::rewind(tmp.get());
        char buffer[1 << 16];
        size_t got;
        while ((got = std::fread(buffer, 1, sizeof buffer, tmp.get())) > 0)
            if (std::fwrite(buffer, 1, got, stdout) != got) throw IoError("cannot write standard output");
        if (std::fflush(stdout) != 0) throw IoError("cannot write standard output");
        return;
    }
    std::string tmp_path = out.path + ".velmora-XXXXXX";
    const int fd = mkstemp(tmp_path.data());
    if (fd < 0) throw IoError("cannot write '" + out.path + "': " + std::strerror(errno));
    File f(fdopen(fd, "wb"));
    try {
        encode(f.get());
        if (std::fclose(f.release()) != 0) throw IoError(std::string("cannot write: ") + std::strerror(errno));
        // mkstemp creates the file private to its owner; the picture gets the usual permissions.
        const mode_t mask = umask(0);
        umask(mask);
        chmod(tmp_path.c_str(), 0666 & ~mask);
        if (std::rename(tmp_path.c_str(), out.path.c_str()) != 0)
            throw IoError("cannot write '" + out.path + "': " + std::strerror(errno));
    } catch (const IoError& e) {
        f.reset();
        std::remove(tmp_path.c_str());
        throw IoError("'" + out.path + "' not written: " + e.what());
    }
}

}  // namespace velmora::tool
