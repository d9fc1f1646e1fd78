// Colour matrices, colour spaces, looks and the Lab kernels (interleaved and blocked) against the
// per-pixel references of reference/color.h, at every instruction-set level, on guarded planes of
// random shapes: sub-rectangles for the matrix-style kernels, in-place and separate planes,
// exactly the region written, every level giving the SSE2 body's bits. Exact where the formula
// runs in float as written, within a stated bound where the reference is double precision. Then
// what the table cannot show: Little CMS, the blocked and interleaved Lab agreeing bit for bit,
// the Lab edit and loop, zero amounts, the parametric curve, and the validating kernels' checks.
#if defined(VELMORA_TEST_LCMS2)
#include <lcms2.h>
#endif

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "reference/color.h"
#include "reference/convert.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

namespace rc = ref::color;
using vt::Matrix;
using vt::MatrixInPlace;
using vt::Own;
using vt::OwnInPlace;
using Kernel = vt::PixelKernel;

// The 3D LUT in place: source and destination the same plane.
vt::Region OwnInPlace3d(const float* cube, int32_t n, int32_t interpolation) {
    return [=](const void*, int32_t, void* d, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
        const ImageSize roi{w, h};
        EXPECT_EQ(XMImage3DLut_Rgba128F_SSE2(static_cast<float*>(d), ds, static_cast<float*>(d), ds, &roi, cube, n, interpolation), StatusOk);
    };
}

// Toning colours (linear RGB): matrix style three floats each, own style four. The split tone's
// highlight colour is too dark to have a hue and tones as grey.
const float sepia[3] = {0.9f, 0.62f, 0.35f}, sepia4[4] = {0.9f, 0.62f, 0.35f, 7.0f};
const float split[6] = {0.1f, 0.25f, 0.6f, 1e-9f, 0.0f, 0.0f}, split4[8] = {0.1f, 0.25f, 0.6f, 0, 0.8f, 0.6f, 0.3f, 0};
const float triple[9] = {0.1f, 0.2f, 0.5f, 0.5f, 0.5f, 0.45f, 0.9f, 0.7f, 0.4f};
const float triple4[12] = {0.1f, 0.2f, 0.5f, 0, 0.5f, 0.5f, 0.45f, 0, 0.9f, 0.7f, 0.4f, 0};
const float stops[20] = {0.0f, 0.05f, 0.0f, 0.2f, 0.3f, 0.6f, 0.1f, 0.1f, 0.3f, 0.2f, 0.9f, 0.2f, 0.7f, 0.9f, 0.8f, 0.5f, 0.95f, 1, 1, 0.9f};

// Tone tables: four curves of 7 intervals (9 floats, the last repeating the end) leaving [0, 1];
// an 8-bit curve per channel; colour balance amounts (shadows, midtones, highlights x R, G, B).
const float curves[36] = {0, 0.2f, 0.35f, 0.5f, 0.62f, 0.8f, 1.1f, 1.05f, 1.05f, 0.1f, 0.1f, 0.2f, 0.4f, 0.5f, 0.6f,
                          0.7f, 0.9f, 0.9f, -0.1f, 0.3f, 0.4f, 0.45f, 0.5f, 0.7f, 0.9f, 1, 1, 0, 0.05f, 0.2f, 0.45f,
                          0.6f, 0.75f, 0.9f, 0.97f, 0.97f};
const uint8_t* const lut8 = [] {
    static uint8_t lut[768];
    for (int i = 0; i < 768; ++i) lut[i] = uint8_t((i % 256) * (i / 256 + 1) % 256 ^ 0x5A);
    return lut;
}();
const float balance[9] = {0.3f, -0.2f, 0.1f, -0.4f, 0.25f, 0.0f, 0.6f, -0.1f, -0.7f};

// Selective colour amounts (cyan, magenta, yellow, black for each of the nine ranges), and a 5-node
// cube: a curved, channel-mixing look.
const float selective[36] = {0.3f, -0.2f, 0.1f, 0.05f, -0.4f, 0.2f, 0.6f, -0.1f, 0.1f, 0.5f, -0.3f, 0.2f,
                             -0.6f, 0.1f, 0.3f, 0, 0.2f, 0.4f, -0.5f, 0.1f, 0.1f, 0.7f, -0.2f, -0.3f,
                             0.1f, 0.1f, -0.2f, 0.2f, -0.3f, 0.2f, 0.1f, 0.15f, 0.2f, -0.1f, 0.3f, -0.4f};
const float* const cube = [] {
    static float nodes[5 * 5 * 5 * 3];
    for (int i = 0; i < 125; ++i) {
        const float r = float(i % 5) / 4, g = float(i / 5 % 5) / 4, b = float(i / 25) / 4;
        nodes[3 * i] = r * r * 0.9f + 0.1f * b, nodes[3 * i + 1] = std::sqrt(g) * 0.8f + 0.2f * r, nodes[3 * i + 2] = b * (1.2f - g * 0.4f);
    }
    return nodes;
}();

// HSL bands (hue, saturation, luminance for the eight bands) and per-degree curves, the curves
// against a guard page: reading past the last curve's 361st entry crashes.
const float hsl_bands[24] = {0.3f, -0.2f, 0.5f, 0.1f, -0.6f, 0.4f, 0.0f, -0.3f, 0.5f, -0.4f, 0.2f, 0.6f,
                             -0.2f, 0.3f, -0.5f, 0.1f, -0.3f, 0.2f, 0.4f, -0.1f, 0.6f, -0.5f, 0.3f, 0.1f};
const float* const hsl_curves = [] {
    std::vector<float> c(3 * 361);
    for (int j = 0; j < 3; ++j)
        for (int k = 0; k <= 360; ++k) c[361 * j + k] = 0.5f * std::sin((k % 360) * 0.0349066f * float(j + 1)) - 0.1f * float(j);
    static const vt::GuardedArray<float> guarded(c);
    return guarded.data();
}();

// An RGB-to-XYZ matrix and a white that are not the defaults.
const float kLabMatrix[9] = {0.42f, 0.39f, 0.15f, 0.21f, 0.73f, 0.06f, 0.02f, 0.1f, 0.69f}, kLabWhite[3] = {0.95f, 1.0f, 0.8f};

// Test matrices: a general twist with negative terms and offsets, the ProPhoto to sRGB step.
const float kTwist[16] = {0.9f, 0.2f, -0.1f, 0.05f, -0.3f, 1.1f, 0.25f, -0.02f, 0.1f, -0.4f, 1.3f, 0.1f, 0.2f, 0.1f, 0.05f, 0.7f};
const float kAffine[12] = {2.0343f, -0.7276f, -0.3067f, 0.01f, -0.2289f, 1.2320f, -0.0031f, 0.0f, -0.0085f, -0.1533f, 1.1618f, -0.02f};

// Double-precision Lab kernels as float references. Lab has large components (a* up to about
// 130), so their bound is absolute in Lab units; RGB results are compared in [0, 1] units.
std::function<void(const float*, float*)> Lab(std::function<void(const double*, double*)> f) {
    return [f](const float* s, float* d) {
        const double in[3] = {s[0], s[1], s[2]};
        double out[3];
        f(in, out);
        for (int i = 0; i < 3; ++i) d[i] = static_cast<float>(out[i]);
        d[3] = s[3];
    };
}
void ProPhotoToLab(const double* s, double* d) {
    const ref::Lab v = ref::ProPhotoToLab(s[0], s[1], s[2], 0);
    d[0] = v.l, d[1] = v.a, d[2] = v.b;
}
void LabToProPhoto(const double* s, double* d, bool textbook) {
    const ref::Rgb v = ref::ProPhotoFromXyz(ref::XyzFromLab(s[0], s[1], s[2], textbook));
    d[0] = v.r, d[1] = v.g, d[2] = v.b;
}
void Denormalise(const double* s, double* d) { d[0] = s[0] * 100, d[1] = s[1] * 255 - 128, d[2] = s[2] * 255 - 128; }

// The Lab edit on one pixel (L*, a*, b*, fourth lane): lightness, the contrast S-curve, clamps,
// then a*, b* turned by the hue and scaled by 1 + chroma.
std::function<void(const float*, float*)> LabEdit(float lightness, float contrast, float chroma, float hue) {
    return [=](const float* s, float* d) {
        const double radians = hue * 3.14159265358979323846 / 180, c = std::cos(radians), sn = std::sin(radians);
        const double l = std::clamp(s[0] + 100.0 * lightness, 0.0, 100.0), t = l / 100;
        const double curve = (t - 0.5) / (std::max(t - 0.5, 0.5 - t) + 0.5) + 0.5;
        d[0] = float(std::clamp(l + (100 * curve - l) * contrast, 0.0, 100.0));
        d[1] = float((s[1] * c - s[2] * sn) * (1.0 + chroma));
        d[2] = float((s[1] * sn + s[2] * c) * (1.0 + chroma));
        d[3] = s[3];
    };
}

std::vector<Kernel> AllKernels() {
    const auto cmyk = [](const float* s, float* d) { rc::RgbToCmyk(0.8f, s, d); };
    const float* twist = kTwist;
    const float* affine = kAffine;
    const auto twist4 = [](const float* s, float* d) { rc::Twist4x4(kTwist, s, d); };
    const auto affine3 = [](const float* s, float* d) { rc::Affine3x4(kAffine, s, d); };
    std::vector<Kernel> k = {
        {"Twist_C4R", 4, 4, 4, 4, false, true, Matrix(ColorTwist_32f_C4R, twist), twist4, 0, -0.5f, 1.5f},
        {"Twist_C4IR", 4, 4, 4, 4, true, true, MatrixInPlace(ColorTwist_32f_C4IR, twist), twist4, 0, -0.5f, 1.5f},
        {"Twist_C3R", 3, 3, 4, 4, false, true, Matrix(ColorTwist_32f_C3R, affine), affine3, 0, -0.5f, 1.5f},
        {"Twist_AC4R", 4, 4, 4, 4, false, true, Matrix(ColorTwist_32f_AC4R, affine), affine3, 0, -0.5f, 1.5f},
        {"Twist_AC4IR", 4, 4, 4, 4, true, true, MatrixInPlace(ColorTwist_32f_AC4IR, affine), affine3, 0, -0.5f, 1.5f},
        {"Transform", 4, 4, 4, 4, false, false, Own(ColorTransform_Rgba128F_SSE2, affine),
         [](const float* s, float* d) { rc::Affine3x4(kAffine, s, d), d[3] = s[3]; }, 0, -0.5f, 1.5f},
        {"Transform_Bgra32_Rgba128F", 4, 4, 1, 4, false, false, Own(ColorTransform_Bgra32_Rgba128F_SSE2, affine),
         [](const float* s, float* d) {
             float rgba[4];
             ref::Bgra32ToRgba128F(s, rgba);
             rc::Affine3x4(kAffine, rgba, d);
             d[3] = rgba[3];
         },
         0, 0, 256},
        {"Transform_Rgba128F_Bgra32", 4, 4, 4, 1, false, false, Own(ColorTransform_Rgba128F_Bgra32_SSE2, affine),
         [](const float* s, float* d) {
             float rgba[4] = {0, 0, 0, s[3]};
             rc::Affine3x4(kAffine, s, rgba);
             ref::Rgba128FToBgra32(rgba, d);
         },
         0, -0.2f, 1.2f},
        {"RGBToYCbCr", 4, 4, 4, 4, false, true, Matrix(RGBToYCbCr_32f_C4R), rc::RgbToYCbCr, 0, -0.2f, 1.2f},
        {"YCbCrToRGB", 4, 4, 4, 4, false, true, Matrix(YCbCrToRGB_32f_C4R), rc::YCbCrToRgb, 0, -0.2f, 1.2f},
        {"YCbCrToRGB_IR", 4, 4, 4, 4, true, true, MatrixInPlace(YCbCrToRGB_32f_C4IR), rc::YCbCrToRgb, 0, -0.2f, 1.2f},
        {"RGBToYUV", 4, 4, 4, 4, false, false, Own(RGBToYUV_Rgb128F), rc::RgbToYuv, 0, -0.2f, 1.2f},
        {"YUVToRGB", 4, 4, 4, 4, false, false, Own(YUVToRGB_Rgb128F), rc::YuvToRgb, 0, -0.6f, 1.2f},
        {"RGBToCMY", 4, 4, 4, 4, false, true, Matrix(RGBToCMY_32f_AC4R), rc::RgbToCmy, 0, -0.2f, 1.2f},
        {"RGBToCMY_IR", 4, 4, 4, 4, true, true, MatrixInPlace(RGBToCMY_32f_AC4IR), rc::RgbToCmy, 0, -0.2f, 1.2f},
        {"RGBToCMYK", 4, 4, 4, 4, false, true, Matrix(RGBToCMYK_32f_AC4C4R, 0.8f), cmyk, 0, -0.2f, 1.2f},
        // Colourise: a sepia, a split tone with a colour too dark to have a hue, three-way, a gradient map.
        {"Colorize", 4, 4, 4, 4, true, true, MatrixInPlace(Colorize_32f_AC4IR, sepia, 0.8f), rc::Colourise{0, 3, 0, sepia, 0, 0.8f}, 0, -0.1f, 1.2f},
        {"DoubleColorize", 4, 4, 4, 4, false, true, Matrix(DoubleColorize_32f_AC4R, split, 0.3f, 0.9f),
         rc::Colourise{1, 3, 0, split, 0.3f, 0.9f}, 0, -0.1f, 1.2f},
        {"DoubleColorize_IR", 4, 4, 4, 4, true, true, MatrixInPlace(DoubleColorize_32f_AC4IR, split, -0.6f, 1.0f),
         rc::Colourise{1, 3, 0, split, -0.6f, 1.0f}, 0, -0.1f, 1.2f},
        {"TripleColorize", 4, 4, 4, 4, false, true, Matrix(TripleColorize_32f_AC4R, triple, 0.7f),
         rc::Colourise{2, 3, 0, triple, 0, 0.7f}, 0, -0.1f, 1.2f},
        {"TripleColorize_IR", 4, 4, 4, 4, true, true, MatrixInPlace(TripleColorize_32f_AC4IR, triple, 0.7f),
         rc::Colourise{2, 3, 0, triple, 0, 0.7f}, 0, -0.1f, 1.2f},
        {"SSE_Colorize", 4, 4, 4, 4, true, false, OwnInPlace(SSE_Colorize_Rgba128F, sepia4, 0.6f), rc::Colourise{0, 4, 0, sepia4, 0, 0.6f}, 0, -0.1f, 1.2f},
        {"SSE_DoubleColorize", 4, 4, 4, 4, true, false, OwnInPlace(SSE_DoubleColorize_Rgba128F, split4, 0.2f, 0.8f),
         rc::Colourise{1, 4, 0, split4, 0.2f, 0.8f}, 0, -0.1f, 1.2f},
        {"SSE_TripleColorize", 4, 4, 4, 4, true, false, OwnInPlace(SSE_TripleColorize_Rgba128F, triple4, 0.9f),
         rc::Colourise{2, 4, 0, triple4, 0, 0.9f}, 0, -0.1f, 1.2f},
        {"SSE_GradientColorize", 4, 4, 4, 4, true, false, OwnInPlace(SSE_GradientColorize_Rgba128F, stops, 5, 0.75f),
         rc::Colourise{3, 4, 5, stops, 0, 0.75f}, 0, -0.1f, 1.2f},
        {"SSE_Colorize_Bgra32", 4, 4, 1, 1, true, false, OwnInPlace(SSE_Colorize_Bgra32, sepia4, 0.6f),
         [](const float* s, float* d) {
             float rgba[4], out[4];
             ref::Bgra32ToRgba128F(s, rgba);
             rc::Colourise{0, 4, 0, sepia4, 0, 0.6f}(rgba, out);
             out[3] = rgba[3];
             ref::Rgba128FToBgra32(out, d);
         },
         0, 0, 256},
        // Tone curves (n = 7, values outside [0, 1]), the 8-bit preview, mid-tones, balance, hue/saturation.
        {"ToneCurve", 4, 4, 4, 4, true, false, OwnInPlace(SSE2_ToneCurve_Rgba128F, curves, 7), rc::ToneCurve{0, curves, 7}, 0, -0.2f, 1.2f},
        {"ToneCurveRGB", 4, 4, 4, 4, true, false, OwnInPlace(SSE2_ToneCurveRGB_Rgba128F, curves, 7), rc::ToneCurve{1, curves, 7}, 0, -0.2f, 1.2f},
        {"ToneCurveLuminance", 4, 4, 4, 4, true, false, OwnInPlace(SSE2_ToneCurveLuminance_Rgba128F, curves, 7),
         rc::ToneCurve{2, curves, 7}, 0, -0.2f, 1.2f},
        {"ToneCurve_Bgra32", 4, 4, 1, 1, true, false, OwnInPlace(SSE2_ToneCurve_Bgra32, lut8),
         [](const float* s, float* d) {
             for (int i = 0; i < 3; ++i) d[i] = lut8[256 * i + int(s[i])];
         },
         0, 0, 256},
        // e^(g ln v) in float against powf in double: a few ulps of v^g, amplified by g ln v.
        {"MidTones", 1, 1, 4, 4, false, true, Matrix(MidTones_32f_C1R, 0.7f),
         [](const float* s, float* d) { d[0] = float(std::pow(double(std::clamp(s[0], 0.0f, 1.0f)), std::exp2(-0.7))); }, 3e-6, -0.2f, 1.2f},
        {"Balance", 4, 4, 4, 4, true, false, OwnInPlace(Adjust_Rgba128F_SSE, balance, 0), rc::Balance{balance, false}, 2e-6, -0.1f, 1.2f, true},
        {"BalanceKeepingY", 4, 4, 4, 4, true, false, OwnInPlace(Adjust_Rgba128F_SSE, balance, 1), rc::Balance{balance, true}, 2e-6, 0.0f, 1.2f, true},
        {"HueSaturation", 4, 4, 4, 4, true, false, OwnInPlace(XMImageHueSaturation_Rgba128F_SSE2, 37.0f, 0.4f, -0.3f),
         rc::HueSaturation(37.0f, 0.4f, -0.3f), 0, -0.2f, 1.2f},
        {"HueSaturationLighter", 4, 4, 4, 4, true, false, OwnInPlace(XMImageHueSaturation_Rgba128F_SSE2, -150.0f, -0.5f, 0.25f),
         rc::HueSaturation(-150.0f, -0.5f, 0.25f), 0, -0.2f, 1.2f},
        // Selective colour both ways, the 3D LUT both ways on a 5-node cube that is not affine, and
        // the smallest cube (its first 2 x 2 x 2 nodes).
        {"SelectiveRelative", 4, 4, 4, 4, false, false, Own(XMImageSelectiveColor, selective, 1), rc::SelectiveColour{selective, true}, 0, -0.1f, 1.1f},
        {"SelectiveAbsolute", 4, 4, 4, 4, false, false, Own(XMImageSelectiveColor, selective, 0), rc::SelectiveColour{selective, false}, 0, -0.1f, 1.1f},
        {"Lut3dTrilinear", 4, 4, 4, 4, false, false, Own(XMImage3DLut_Rgba128F_SSE2, cube, 5, 0), rc::Lut3d{cube, 5, false}, 0, -0.1f, 1.1f},
        {"Lut3dTetrahedral", 4, 4, 4, 4, true, false, OwnInPlace3d(cube, 5, 1), rc::Lut3d{cube, 5, true}, 0, -0.1f, 1.1f},
        {"Lut3dTwoNodes", 4, 4, 4, 4, true, false, OwnInPlace3d(cube, 2, 1), rc::Lut3d{cube, 2, true}, 0, -0.1f, 1.1f},
        // HSL: the luminance step's 2^x is the vector one, compared relatively; the preview within a code.
        {"HSL", 4, 4, 4, 4, true, false, OwnInPlace(Adjust_HSL_Rgba128F, hsl_bands), rc::Hsl{hsl_bands, nullptr}, 2e-6, -0.1f, 1.1f, true},
        {"HSL_SSE2", 4, 4, 4, 4, true, false, OwnInPlace(Adjust_HSL_Rgba128F_SSE2, hsl_bands), rc::Hsl{hsl_bands, nullptr}, 2e-6, -0.1f, 1.1f, true},
        {"HSL_Lut", 4, 4, 4, 4, true, false, OwnInPlace(Adjust_HSL_Rgba128F_SSE2_Lut, hsl_curves), rc::Hsl{nullptr, hsl_curves}, 2e-6, -0.1f, 1.1f, true},
        {"HSL_Bgra32", 4, 4, 1, 1, true, false, OwnInPlace(Adjust_HSL_Bgra32_SSE2, hsl_bands),
         [](const float* s, float* d) {
             float rgba[4], out[4];
             ref::Bgra32ToRgba128F(s, rgba);
             rc::Hsl{hsl_bands, nullptr}(rgba, out);
             out[3] = s[3] * ref::kInv255;  // alpha is kept: the same code back
             ref::Rgba128FToBgra32(out, d);
         },
         1, 0, 256},
        // The cube roots are e^(ln t / 3) in float: a* and b* magnify f's error by 500 and 200.
        {"RGBToLab", 4, 4, 4, 4, true, false, OwnInPlace(XMImageRGBToLab_Rgb128F_SSE2), Lab(ProPhotoToLab), 1e-4, -0.02f, 1.1f},
        {"LabToRGB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageLabToRGB_Rgb128F_SSE2),
         Lab([](const double* s, double* d) { LabToProPhoto(s, d, false); }), 2e-6, -60, 100},
        {"LABToRGB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageLABToRGB_Rgb128F_SSE2),
         Lab([](const double* s, double* d) {
             double lab[3];
             Denormalise(s, lab);
             LabToProPhoto(lab, d, true);
         }),
         3e-6, 0, 1},
        // The vector sRGB curves add their own few ulps (17 for decoding) before and after.
        {"SRGBToLab", 4, 4, 4, 4, true, false, OwnInPlace(XMImageSRGBToLab_Rgb128F_SSE2),
         Lab([](const double* s, double* d) {
             const float f[3] = {float(s[0]), float(s[1]), float(s[2])};
             rc::SrgbToLab(rc::kSrgbToXyz, rc::kD50, f, d);
         }),
         2e-4, -0.02f, 1.1f},
        {"LabToSRGB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageLabToSRGB_Rgb128F_SSE2),
         Lab([](const double* s, double* d) { rc::LabToSrgb(s[0], s[1], s[2], false, d); }), 1e-5, -60, 100, true},
        {"LABToSRGB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageLABToSRGB_Rgb128F_SSE2),
         Lab([](const double* s, double* d) {
             double lab[3];
             Denormalise(s, lab);
             rc::LabToSrgb(lab[0], lab[1], lab[2], true, d);
             for (int i = 0; i < 3; ++i) d[i] = std::clamp(d[i], 0.0, 1.0);
         }),
         1e-5, 0, 1},
        // The blocked Lab edit, whole blocks, against its formula in double.
        {"LabEdit", 4, 4, 4, 4, true, false, OwnInPlace(XMImageAdjust_Lab128F_SSE2, 0.2f, 0.6f, -0.4f, 75.0f),
         LabEdit(0.2f, 0.6f, -0.4f, 75.0f), 2e-4, -90, 105, true, true, true, 4},
        {"LabEditDarker", 4, 4, 4, 4, true, false, OwnInPlace(XMImageAdjust_Lab128F_SSE2, -0.3f, -0.8f, 0.5f, -160.0f),
         LabEdit(-0.3f, -0.8f, 0.5f, -160.0f), 2e-4, -90, 105, true, true, true, 4},
        // Normalised LAB through the caller's matrix and white.
        {"SRGBToLAB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageSRGBToLAB_Rgb128F_SSE2, kLabMatrix, kLabWhite),
         Lab([](const double* s, double* d) {
             const float f[3] = {float(s[0]), float(s[1]), float(s[2])};
             const double m[9] = {kLabMatrix[0], kLabMatrix[1], kLabMatrix[2], kLabMatrix[3], kLabMatrix[4],
                                  kLabMatrix[5], kLabMatrix[6], kLabMatrix[7], kLabMatrix[8]};
             const double white[3] = {kLabWhite[0], kLabWhite[1], kLabWhite[2]};
             rc::SrgbToLab(m, white, f, d);
             d[0] /= 100, d[1] = (d[1] + 128) / 255, d[2] = (d[2] + 128) / 255;
         }),
         2e-6, -0.02f, 1.1f},
        // The blocked pair: the fourth lane's lightness on the way in, 0 on the way out.
        {"ConvertToLab", 4, 4, 4, 4, true, false, OwnInPlace(XMImageConvertToLab_ProPhotoRgb128F_SSE2),
         [](const float* s, float* d) {
             const ref::Lab v = ref::ProPhotoToLab(s[0], s[1], s[2], s[3]);
             d[0] = float(v.l), d[1] = float(v.a), d[2] = float(v.b), d[3] = float(v.w);
         },
         1e-4, -0.02f, 1.1f, false, false, true, 4},
        {"ConvertToProPhotoRGB", 4, 4, 4, 4, true, false, OwnInPlace(XMImageConvertToProPhotoRGB_Lab128F_SSE2),
         [](const float* s, float* d) {
             const ref::Rgb v = ref::LabToProPhoto(s[0], s[1], s[2]);
             d[0] = float(v.r), d[1] = float(v.g), d[2] = float(v.b), d[3] = 0;
         },
         2e-6, -60, 100, false, true, false, 4},
    };
    return k;
}

class ColorKernels : public ::testing::TestWithParam<Kernel> {};

TEST_P(ColorKernels, MatchReferenceOnRandomShapes) { vt::CheckOnRandomShapes(GetParam()); }

INSTANTIATE_TEST_SUITE_P(All, ColorKernels, ::testing::ValuesIn(AllKernels()), vt::kKernelName);

// A destination past the streaming threshold with 16-byte aligned rows is written with streaming
// stores, rows of whole vectors and rows ending in a partial one; the values are those of any
// other destination, and nothing lands in the gaps between rows.
TEST(ColorLevels, LargeAlignedDestinationStreamsTheSameValues) {
    for (Kernel k : AllKernels()) {
        if (k.name != "Transform") continue;
        k.align = 16;
        for (const auto& [w, h] : {std::pair{1040, 1010}, std::pair{1031, 1030}}) {  // 16.8 and 17 MB
            const vt::Shape s{w, h, 16, 16, false, vt::Placement::End, 13};
            vt::CheckAtEveryLevel(k, s);
        }
    }
}

// Pixels (four floats each) through an in-place or source-to-destination call.
std::vector<float> Apply(void(VELMORA_CALL* f)(float*, int32_t, const ImageSize*), std::vector<float> px) {
    const ImageSize roi{int32_t(px.size() / 4), 1};
    f(px.data(), int32_t(px.size() * 4), &roi);
    return px;
}

std::vector<float> RandomPixels(int n, uint32_t seed, float lo = 0.0f, float hi = 1.0f) {
    std::mt19937 rng(seed);
    std::vector<float> px(size_t(n) * 4);
    for (float& v : px) v = std::uniform_real_distribution<float>(lo, hi)(rng);
    return px;
}

// The interleaved ProPhoto pair gives the blocked conversions' bits, pixel for pixel.
TEST(ColorProperties, InterleavedLabAgreesWithTheBlockedConversions) {
    std::vector<float> px = RandomPixels(64, 11, -0.02f, 1.1f);
    for (size_t i = 0; i < px.size(); i += 16) px[i] = float(i % 7) * 0.001f;  // dark pixels, near the segment
    std::vector<float> blocked = px;  // converted in place from pixels to blocks and back
    auto to_blocks = [](const std::vector<float>& in, std::vector<float>& out) {  // pixel p, channel c -> block
        for (size_t p = 0; p < in.size() / 4; ++p)
            for (size_t c = 0; c < 4; ++c) out[p / 4 * 16 + c * 4 + p % 4] = in[4 * p + c];
    };
    const ImageSize roi{64, 1};
    XMImageConvertToLab_ProPhotoRgb128F_SSE2(blocked.data(), 64 * 16, &roi);
    const std::vector<float> lab = Apply(XMImageRGBToLab_Rgb128F_SSE2, px);
    std::vector<float> lab_blocks(lab.size());
    to_blocks(lab, lab_blocks);
    for (size_t i = 0; i < lab.size(); ++i)
        if (i % 16 < 12) ASSERT_EQ(lab_blocks[i], blocked[i]) << "to Lab, float " << i;
    XMImageConvertToProPhotoRGB_Lab128F_SSE2(blocked.data(), 64 * 16, &roi);  // back to pixels, fourth lane 0
    const std::vector<float> back = Apply(XMImageLabToRGB_Rgb128F_SSE2, lab);
    for (size_t i = 0; i < back.size(); ++i)
        ASSERT_EQ(back[i], i % 4 == 3 ? lab[i] : blocked[i]) << "from Lab, float " << i;
    // At exactly epsilon f takes the straight segment, which needs no root: the first pixel's
    // fourth channel comes out (as blocked float 12) that segment's bits.
    const float epsilon = float(ref::kLabEpsilon), kappa = float(ref::kLabKappa);
    std::vector<float> edge(16, 0.5f);
    edge[3] = epsilon;
    const ImageSize one{1, 1};
    XMImageConvertToLab_ProPhotoRgb128F_SSE2(edge.data(), 64, &one);
    EXPECT_EQ(edge[12], (epsilon * kappa + 16.0f) * 0.00862069f * 116.0f - 16.0f);
}

// The Lab loop against the composition of its steps: an identity curve with chroma 0 is the
// round trip; a curve that halves L* and a chroma of -1 give the grey of half the lightness,
// alpha kept.
TEST(ColorProperties, LabLoop) {
    const std::vector<float> px = RandomPixels(64, 9, 0.05f, 1.0f);
    const float identity[4] = {0.0f, 0.5f, 1.0f, 1.0f}, halve[4] = {0.0f, 0.25f, 0.5f, 0.5f};
    const ImageSize roi{64, 1};
    const std::vector<float> lab = Apply(XMImageRGBToLab_Rgb128F_SSE2, px);
    vt::SameAsSse2 same_bits;
    vt::ForEachLevel([&] {  // the loop runs four, eight or sixteen pixels a vector by level
        std::vector<float> same = px, grey = px;
        XMImageLoopLab_Rgba128F_SSE2(same.data(), 64 * 16, &roi, identity, 2, 0.0f);
        XMImageLoopLab_Rgba128F_SSE2(grey.data(), 64 * 16, &roi, halve, 2, -1.0f);
        for (int p = 0; p < 64; ++p) {
            for (int c = 0; c < 4; ++c) ASSERT_NEAR(same[4 * p + c], px[4 * p + c], 4e-6) << p;
            EXPECT_NEAR(grey[4 * p], ref::LabToProPhoto(lab[4 * p] / 2, 0, 0).r, 2e-5) << p;
            EXPECT_EQ(grey[4 * p + 3], px[4 * p + 3]);
        }
        same.insert(same.end(), grey.begin(), grey.end());
        std::vector<uint8_t> bytes(same.size() * 4);
        std::memcpy(bytes.data(), same.data(), bytes.size());
        EXPECT_TRUE(same_bits(bytes));
    });
}

TEST(ColorArguments, ValidatingKernelsRejectAndTouchNothing) {
    float image[8] = {0.5f, 0.5f, 0.5f, 1, 0.2f, 0.3f, 0.4f, 1};
    const float snapshot[8] = {0.5f, 0.5f, 0.5f, 1, 0.2f, 0.3f, 0.4f, 1};
    const ImageSize roi{2, 1};
    const float bad_whites[][3] = {{0.9f, 0, 0.8f}, {0.9f, 1, -1}, {NAN, 1, 1}, {1, INFINITY, 1}};
    EXPECT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(image, 0, &roi, nullptr, nullptr), StatusInvalidParameter);
    EXPECT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(nullptr, 32, &roi, nullptr, nullptr), StatusInvalidParameter);
    EXPECT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(image, 32, nullptr, nullptr, nullptr), StatusInvalidParameter);
    for (const auto& w : bad_whites) EXPECT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(image, 32, &roi, nullptr, w), StatusInvalidParameter);
    EXPECT_EQ(std::memcmp(image, snapshot, sizeof image), 0);
    // The caller's matrix and white: the default ones given explicitly change nothing.
    const float m[9] = {0.4360747f, 0.3850649f, 0.1430804f, 0.2225045f, 0.7168786f, 0.0606169f, 0.0139322f, 0.0971045f, 0.7141733f};
    const float d50[3] = {0.96422f, 1.0f, 0.82521f};
    float given[8], defaults[8];
    std::memcpy(given, snapshot, sizeof given);
    std::memcpy(defaults, snapshot, sizeof defaults);
    ASSERT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(given, 32, &roi, m, d50), StatusOk);
    ASSERT_EQ(XMImageSRGBToLAB_Rgb128F_SSE2(defaults, 32, &roi, nullptr, nullptr), StatusOk);
    EXPECT_EQ(std::memcmp(given, defaults, sizeof given), 0);

    // The gradient map: unsorted stops (the last above the first but below its predecessor),
    // stops outside [0, 1], NaN; the 3D LUT: sizes, modes, nulls.
    const float unsorted[12] = {0, 0, 0, 0, 0.6f, 1, 1, 1, 0.4f, 1, 1, 1}, outside[12] = {0, 0, 0, 0, 0.5f, 1, 1, 1, 1.5f, 1, 1, 1},
                nan[12] = {0, 0, 0, 0, 0.5f, 1, 1, 1, NAN, 1, 1, 1};
    EXPECT_EQ(SSE_GradientColorize_Rgba128F(image, 0, &roi, stops, 5, 1), StatusInvalidParameter);
    EXPECT_EQ(SSE_GradientColorize_Rgba128F(nullptr, 32, &roi, stops, 5, 1), StatusInvalidParameter);
    EXPECT_EQ(SSE_GradientColorize_Rgba128F(image, 32, nullptr, stops, 5, 1), StatusInvalidParameter);
    EXPECT_EQ(SSE_GradientColorize_Rgba128F(image, 32, &roi, nullptr, 5, 1), StatusInvalidParameter);
    EXPECT_EQ(SSE_GradientColorize_Rgba128F(image, 32, &roi, stops, 1, 1), StatusInvalidParameter);
    for (const float* bad : {unsorted, outside, nan}) {  // nothing before the first stop is read
        const vt::GuardedArray<float> guarded(std::vector<float>(bad, bad + 12), vt::Placement::Start);
        EXPECT_EQ(SSE_GradientColorize_Rgba128F(image, 32, &roi, guarded.data(), 3, 1), StatusInvalidParameter);
    }
    float lut_out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    for (const auto& [n, interpolation, nodes] : {std::tuple{1, 0, cube}, std::tuple{257, 0, cube}, std::tuple{5, 2, cube},
                                                   std::tuple{5, 0, static_cast<const float*>(nullptr)}})
        EXPECT_EQ(XMImage3DLut_Rgba128F_SSE2(image, 32, lut_out, 32, &roi, nodes, n, interpolation), StatusInvalidParameter);
    EXPECT_EQ(XMImage3DLut_Rgba128F_SSE2(image, 0, lut_out, 32, &roi, cube, 5, 0), StatusInvalidParameter);
    EXPECT_EQ(XMImage3DLut_Rgba128F_SSE2(nullptr, 32, lut_out, 32, &roi, cube, 5, 0), StatusInvalidParameter);
    EXPECT_EQ(std::memcmp(image, snapshot, sizeof image), 0);
    EXPECT_EQ(std::vector<float>(lut_out, lut_out + 8), std::vector<float>(8, 9.0f));

    // MatrixMult: nulls, sizes below 1 and a result overlapping either factor; a and b may alias.
    float buf[24];
    for (int i = 0; i < 24; ++i) buf[i] = float(i % 7) - 2.5f;
    const std::vector<float> unchanged(buf, buf + 24);
    float c[9] = {};
    EXPECT_EQ(MatrixMult(nullptr, buf, c, 3, 3, 3), StatusInvalidParameter);
    EXPECT_EQ(MatrixMult(buf, buf, c, 0, 3, 3), StatusInvalidParameter);
    EXPECT_EQ(MatrixMult(buf, buf, c, 3, 3, -1), StatusInvalidParameter);
    EXPECT_EQ(MatrixMult(buf, buf + 16, buf + 8, 3, 3, 1), StatusInvalidParameter);  // c starts on a's last float
    EXPECT_EQ(MatrixMult(buf + 3, buf + 12, buf, 2, 2, 2), StatusInvalidParameter);  // c ends on a's first float
    EXPECT_EQ(MatrixMult(buf, buf + 12, buf + 14, 3, 3, 1), StatusInvalidParameter); // c overlaps b
    EXPECT_EQ(std::vector<float>(buf, buf + 24), unchanged);
    EXPECT_EQ(MatrixMult(buf, buf + 12, buf + 9, 3, 3, 1), StatusOk);  // c sits between a and b
    EXPECT_EQ(MatrixMult(buf, buf, c, 3, 3, 3), StatusOk);             // a and b alias
    std::mt19937 rng(3);
    for (int round = 0; round < 30; ++round) {
        const int rows = 1 + int(rng() % 5), inner = 1 + int(rng() % 5), cols = 1 + int(rng() % 5);
        std::vector<float> a(size_t(rows * inner)), b(size_t(inner * cols)), out(size_t(rows * cols));
        for (float& v : a) v = std::uniform_real_distribution<float>(-3, 3)(rng);
        for (float& v : b) v = std::uniform_real_distribution<float>(-3, 3)(rng);
        ASSERT_EQ(MatrixMult(a.data(), b.data(), out.data(), rows, inner, cols), StatusOk);
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < cols; ++j) {
                double sum = 0;
                for (int k = 0; k < inner; ++k) sum += double(a[size_t(i * inner + k)]) * b[size_t(k * cols + j)];
                ASSERT_EQ(out[size_t(i * cols + j)], float(sum));
            }
    }
}

// Zero amounts change no bit (identity curves: within a rounding step); the parametric curve is
// its formula, and refuses what it documents.
TEST(ToneAndHue, ZeroAmountsAndTheParametricCurve) {
    const std::vector<float> px = RandomPixels(64, 19, -0.1f, 1.1f);
    const ImageSize roi{64, 1};
    const float zeros[9] = {};
    auto run = [&](auto call) {
        std::vector<float> out = px;
        call(out.data());
        return out;
    };
    EXPECT_EQ(run([&](float* p) { XMImageHueSaturation_Rgba128F_SSE2(p, 1024, &roi, 0, 0, 0); }), px);
    EXPECT_EQ(run([&](float* p) { Adjust_Rgba128F_SSE(p, 1024, &roi, zeros, 1); }), px);
    EXPECT_EQ(run([&](float* p) { SSE_Colorize_Rgba128F(p, 1024, &roi, sepia4, 0); }), px);
    float identity[6] = {0, 0.25f, 0.5f, 0.75f, 1, 1};
    const std::vector<float> same = run([&](float* p) { SSE2_ToneCurve_Rgba128F(p, 1024, &roi, identity, 4); });
    for (size_t i = 0; i < px.size(); ++i) EXPECT_NEAR(same[i], std::clamp(px[i], i % 4 == 3 ? px[i] : 0.0f, i % 4 == 3 ? px[i] : 1.0f), 1e-7);

    // The curve: x + a 0.25 sin^2 over each region, a running maximum, clamped; mode 0 is the master
    // curve through it, mode 1 the luminance curve.
    const float params[7] = {0.6f, -0.8f, 0.3f, -1.0f, 0.2f, 0.45f, 0.8f};
    std::vector<float> table(1026);
    double top = 0;
    for (int i = 0; i <= 1024; ++i) {
        const double x = i / 1024.0, edges[5] = {0, 0.2f, 0.45f, 0.8f, 1};
        double y = x;
        for (int k = 0; k < 4; ++k)
            if (x >= edges[k] && x <= edges[k + 1]) y += params[k] * 0.25 * std::pow(std::sin(3.14159265358979323846 * (x - edges[k]) / (edges[k + 1] - edges[k])), 2);
        top = i ? std::max(top, y) : y;
        table[size_t(i)] = float(std::clamp(top, 0.0, 1.0));
    }
    table[1025] = table[1024];
    for (int mode : {0, 1}) {
        std::vector<float> got = px, want = px;
        ASSERT_EQ(SSE2_ToneCurveParametric_Rgba128F(got.data(), 1024, &roi, params, mode), StatusOk);
        (mode ? SSE2_ToneCurveLuminance_Rgba128F : SSE2_ToneCurve_Rgba128F)(want.data(), 1024, &roi, table.data(), 1024);
        for (size_t i = 0; i < px.size(); ++i) ASSERT_NEAR(got[i], want[i], 2e-6) << "mode " << mode << " float " << i;
    }
    std::vector<float> image = px;
    const float bad_amount[7] = {1.5f, 0, 0, 0, 0.2f, 0.5f, 0.8f}, bad_splits[7] = {0, 0, 0, 0, 0.5f, 0.5f, 0.8f},
                nan_split[7] = {0, 0, 0, 0, NAN, 0.5f, 0.8f};
    EXPECT_EQ(SSE2_ToneCurveParametric_Rgba128F(image.data(), 0, &roi, params, 0), StatusInvalidParameter);
    EXPECT_EQ(SSE2_ToneCurveParametric_Rgba128F(image.data(), 1024, &roi, nullptr, 0), StatusInvalidParameter);
    EXPECT_EQ(SSE2_ToneCurveParametric_Rgba128F(image.data(), 1024, &roi, params, 2), StatusInvalidParameter);
    for (const float* bad : {bad_amount, bad_splits, nan_split})
        EXPECT_EQ(SSE2_ToneCurveParametric_Rgba128F(image.data(), 1024, &roi, bad, 0), StatusInvalidParameter);
    EXPECT_EQ(image, px);
}

// HSL: every level gives the one-pixel export's bits, zero bands change no bit, and greys never
// move whatever the bands say.
TEST(Hsl, TwinsAgreeZeroBandsAndGreys) {
    const std::vector<float> px = RandomPixels(101, 29, -0.1f, 1.1f);
    const ImageSize roi{101, 1};
    std::vector<float> one = px, zero = px, curved_sse2;
    Adjust_HSL_Rgba128F(one.data(), 101 * 16, &roi, hsl_bands);
    vt::ForEachLevel([&] {  // every level's body gives the one-pixel export's bits, curves included
        std::vector<float> four = px, curved = px;
        Adjust_HSL_Rgba128F_SSE2(four.data(), 101 * 16, &roi, hsl_bands);
        Adjust_HSL_Rgba128F_SSE2_Lut(curved.data(), 101 * 16, &roi, hsl_curves);
        EXPECT_EQ(std::memcmp(one.data(), four.data(), one.size() * 4), 0);
        if (curved_sse2.empty()) curved_sse2 = curved;
        EXPECT_EQ(std::memcmp(curved.data(), curved_sse2.data(), curved.size() * 4), 0);
    });
    const float none[24] = {};
    Adjust_HSL_Rgba128F_SSE2(zero.data(), 101 * 16, &roi, none);
    EXPECT_EQ(zero, px);
    std::vector<float> greys(256);
    for (size_t i = 0; i < greys.size(); ++i) greys[i] = i % 4 == 3 ? 0.5f : float(i / 4) / 63;
    greys[4] = 1.1920929e-07f, greys[5] = 0.0f, greys[6] = 0.6e-07f;  // a colour no brighter than eps counts as grey
    std::vector<float> moved = greys;
    const ImageSize g{64, 1};
    Adjust_HSL_Rgba128F_SSE2(moved.data(), 1024, &g, hsl_bands);
    Adjust_HSL_Rgba128F_SSE2_Lut(moved.data(), 1024, &g, hsl_curves);
    EXPECT_EQ(moved, greys);
}

#if defined(VELMORA_TEST_LCMS2)  // native builds; cross builds have no Little CMS for the target
// Little CMS to Lab D50 on a 17^3 colour grid, from its sRGB profile (D50-adapted colorants, the
// same curve) and from a linear ProPhoto one (ROMM primaries, gamma 1). Its D50 differs from ours
// in the fourth digit: within 0.1 in each of L*, a*, b*.
TEST(ColorProperties, LabAgreesWithLittleCms) {
    const cmsCIExyYTRIPLE romm = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    const std::pair<cmsHPROFILE, void(VELMORA_CALL*)(float*, int32_t, const ImageSize*)> cases[] = {
        {cmsCreate_sRGBProfile(), XMImageSRGBToLab_Rgb128F_SSE2}, {cmsCreateRGBProfile(cmsD50_xyY(), &romm, curves), XMImageRGBToLab_Rgb128F_SSE2}};
    cmsHPROFILE lab = cmsCreateLab4Profile(cmsD50_xyY());
    std::vector<float> rgb, px;
    for (int i = 0; i < 17 * 17 * 17; ++i) {
        const float v[3] = {float(i % 17) / 16, float(i / 17 % 17) / 16, float(i / 289) / 16};
        rgb.insert(rgb.end(), v, v + 3);
        px.insert(px.end(), {v[0], v[1], v[2], 1.0f});
    }
    for (const auto& [profile, kernel] : cases) {
        cmsHTRANSFORM to_lab = cmsCreateTransform(profile, TYPE_RGB_FLT, lab, TYPE_Lab_FLT, INTENT_RELATIVE_COLORIMETRIC,
                                                  cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE);
        ASSERT_NE(to_lab, nullptr);
        std::vector<float> want(rgb.size());
        cmsDoTransform(to_lab, rgb.data(), want.data(), 17 * 17 * 17);
        const std::vector<float> got = Apply(kernel, px);
        for (size_t i = 0; i < want.size(); ++i) ASSERT_NEAR(got[i / 3 * 4 + i % 3], want[i], 0.1) << "colour " << i / 3;
        cmsDeleteTransform(to_lab);
        cmsCloseProfile(profile);
    }
    cmsCloseProfile(lab);
    cmsFreeToneCurve(linear);
}
#endif

}  // namespace
