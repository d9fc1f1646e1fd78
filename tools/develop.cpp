#include "develop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "cli.h"
#include "guided.h"
#include "road.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace velmora::tool {
namespace {

using Matrix = std::array<std::array<double, 3>, 3>;

Matrix Multiply(const Matrix& a, const Matrix& b) {
    Matrix m{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) m[i][j] += a[i][k] * b[k][j];
    return m;
}

Matrix Inverse(const Matrix& m) {
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    Matrix inv{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
            inv[i][j] = (m[r0][c0] * m[r1][c1] - m[r0][c1] * m[r1][c0]) / det;
        }
    return inv;
}

// Linear sRGB (D65) to linear ProPhoto (D50): sRGB to XYZ, Bradford adaptation D65 to D50, XYZ to
// ProPhoto. The middle row of ProPhoto-to-XYZ is the develop pass's luminance.
Matrix SrgbToProPhoto() {
    const Matrix srgb_to_xyz{{{0.4124564, 0.3575761, 0.1804375},
                              {0.2126729, 0.7151522, 0.0721750},
                              {0.0193339, 0.1191920, 0.9503041}}};
    const Matrix bradford_d65_d50{{{1.0478112, 0.0228866, -0.0501270},
                                   {0.0295424, 0.9904844, -0.0170491},
                                   {-0.0092345, 0.0150436, 0.7521316}}};
    const Matrix prophoto_to_xyz{{{0.7976749, 0.1351917, 0.0313534},
                                  {0.2880402, 0.7118741, 0.0000857},
                                  {0.0000000, 0.0000000, 0.8252100}}};
    return Multiply(Inverse(prophoto_to_xyz), Multiply(bradford_d65_d50, srgb_to_xyz));
}

constexpr float kLumR = 0.28804f, kLumG = 0.711874f, kLumB = 8.6e-05f;

// The sRGB decoding table the loaders interpolate: one entry per code, so every code lands (all
// but) on its own entry.
std::vector<float> SrgbDecodeTable(int levels) {
    std::vector<float> table(levels);
    for (int i = 0; i < levels; ++i) {
        const double v = double(i) / (levels - 1);
        table[i] = static_cast<float>(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
    }
    return table;
}

// The loaders' matrix layout: (r, g, b) times the matrix as a row vector, so entry 3 k + c weighs
// input k into output c.
std::array<float, 9> RowVectorForm(const Matrix& m) {
    std::array<float, 9> out;
    for (int k = 0; k < 3; ++k)
        for (int c = 0; c < 3; ++c) out[3 * k + c] = static_cast<float>(m[c][k]);
    return out;
}

// Codes to linear ProPhoto through the library's loader; the alpha it wrote into the fourth lane
// is kept aside for the way back.
void Linearize(const Image& in, FloatImage& work, std::vector<float>& alpha) {
    const std::vector<float> table = SrgbDecodeTable(in.bits == 8 ? 256 : 65536);
    const std::array<float, 9> matrix = RowVectorForm(SrgbToProPhoto());
    const ImageSize roi{in.width, in.height};
    const int32_t n = static_cast<int32_t>(table.size());
    if (in.bits == 8)
        ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4(in.pixels.data(), in.step, work.data.get(), work.step, &roi, table.data(),
                                                 n, matrix.data());
    else
        ImageToLinearRGB_Rgba64_Rgba128F_SSE2_X2(in.pixels.data(), in.step, work.data.get(), work.step, &roi, table.data(),
                                                 n, matrix.data());
    alpha.resize(size_t(in.width) * in.height);
    for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x) alpha[size_t(y) * in.width + x] = work.Row(y)[4 * x + 3];
}

// The base luminance: the pixels' ProPhoto luminance smoothed without crossing edges, so that
// clarity, shadows and highlights treat a large area as one tone and stop at its edge instead of
// spilling across it as a dark or bright halo. A guided filter with the luminance as its own
// guide: where a window's variance is well above eps (an edge or texture worth keeping) the
// base follows the pixels, where it is below the base is the local mean. It works on the square
// root of luminance so that one eps suits shadows and highlights alike; the radius is 2 % of the
// shorter side.
void BaseLuminance(FloatImage& work) {
    const int w = work.width, h = work.height;
    std::vector<float> root(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float* px = work.Row(y) + 4 * x;
            root[size_t(y) * w + x] = std::sqrt(std::max(kLumR * px[0] + kLumG * px[1] + kLumB * px[2], 0.0f));
        }
    constexpr float kEps = 0.0025f;  // variance on the square-root scale: steps of about 0.05
    const std::vector<float> base = GuidedFilter(root, root, w, h, std::max(1, std::min(w, h) / 50), kEps);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float q = base[size_t(y) * w + x];
            work.Row(y)[4 * x + 3] = q * q;
        }
}

// Linear ProPhoto to linear sRGB primaries, in place, by the library's colour transform (its
// 3 x 4 matrix: one row per output channel, no offsets).
void ToSrgbPrimaries(FloatImage& work) {
    const Matrix m = Inverse(SrgbToProPhoto());
    float rows[12] = {};
    for (int c = 0; c < 3; ++c)
        for (int k = 0; k < 3; ++k) rows[4 * c + k] = static_cast<float>(m[c][k]);
    const ImageSize roi{work.width, work.height};
    ColorTransform_Rgba128F_SSE2(work.data.get(), work.step, work.data.get(), work.step, &roi, rows);
}

// Brings linear sRGB colours outside [0, 1] back into the gamut without turning their hue, where
// clamping channel by channel would turn a saturated blue toward violet or an orange toward
// yellow. A channel below 0 is lifted by moving the pixel straight toward the grey of its own
// luminance, just far enough (a straight line to grey keeps the dominant wavelength); a channel
// still above 1 is then brought down by scaling the pixel as a whole, which keeps hue and
// saturation and gives up only brightness. Pixels already inside are untouched.
void ClipToSrgbGamut(FloatImage& work) {
    for (int y = 0; y < work.height; ++y) {
        float* px = work.Row(y);
        for (int x = 0; x < work.width; ++x, px += 4) {
            const float lo = std::min({px[0], px[1], px[2]});
            if (lo < 0.f) {
                const float luma = std::max(0.2126f * px[0] + 0.7152f * px[1] + 0.0722f * px[2], 0.f);
                const float t = luma / (luma - lo);
                for (int c = 0; c < 3; ++c) px[c] = std::max(luma + t * (px[c] - luma), 0.f);
            }
            const float hi = std::max({px[0], px[1], px[2]});
            if (hi > 1.f)
                for (int c = 0; c < 3; ++c) px[c] = std::min(px[c] / hi, 1.f);
        }
    }
}

void RestoreAlpha(FloatImage& work, const std::vector<float>& alpha) {
    for (int y = 0; y < work.height; ++y)
        for (int x = 0; x < work.width; ++x) work.Row(y)[4 * x + 3] = alpha[size_t(y) * work.width + x];
}

// The mask of a gradient, packed width x height, from the library's gradient kernels (which
// write whole groups of four, hence the padded rows first).
std::vector<float> GradientMask(const GradientSpec& g, int w, int h) {
    const int32_t padded = (w + 3) / 4 * 4;
    std::vector<float> rows(size_t(padded) * h), mask(size_t(w) * h);
    const int32_t region[4] = {0, 0, w, h};
    if (g.kind == GradientSpec::Linear) {
        const float a[2] = {g.v[0] * w, g.v[1] * h}, b[2] = {g.v[2] * w, g.v[3] * h};
        ImageLinearGradient_Gray32F_SSE2_X4Y1(rows.data(), padded * 4, region, a, b, 0.5f, false);
    } else {
        const float centre[2] = {g.v[0] * w, g.v[1] * h}, radii[2] = {g.v[2] * w, g.v[3] * h};
        const int32_t selector = g.kind == GradientSpec::Vignette ? 5 : 1;  // smoothstep, outside or inside
        ImageRadialGradient_Gray32F_SSE2_X4Y1(rows.data(), padded * 4, region, centre, radii, 0.0f, g.v[4], 0.0f, false,
                                              selector);
    }
    for (int y = 0; y < h; ++y) std::copy_n(rows.data() + size_t(y) * padded, w, mask.data() + size_t(y) * w);
    return mask;
}

}  // namespace

GradientSpec ParseGradient(const std::string& text) {
    GradientSpec g;
    const std::string kind = text.substr(0, text.find(':'));
    const std::string params = text.find(':') == std::string::npos ? "" : text.substr(text.find(':') + 1);
    size_t count = 0;
    if (kind == "linear") g.kind = GradientSpec::Linear, count = 4, g.v[0] = 0.5f, g.v[1] = 0.65f, g.v[2] = 0.5f, g.v[3] = 0.15f;
    else if (kind == "radial" || kind == "vignette")
        g.kind = kind == "radial" ? GradientSpec::Radial : GradientSpec::Vignette, count = 5, g.v[0] = 0.5f, g.v[1] = 0.5f,
        g.v[2] = 0.4f, g.v[3] = 0.4f, g.v[4] = 0.6f;
    else throw UsageError("--gradient takes linear, radial or vignette, not '" + kind + "'");
    const std::vector<float> numbers = ParseNumbers(params, ',', "--gradient");
    const size_t given = numbers.size();
    if (given > count) throw UsageError("--gradient " + kind + " takes at most " + std::to_string(count) + " numbers");
    std::copy(numbers.begin(), numbers.end(), g.v);
    if (kind == "linear" && given != 0 && given != 4) throw UsageError("--gradient linear takes x0,y0,x1,y1");
    if (kind != "linear" && given != 0 && given < 4) throw UsageError("--gradient " + kind + " takes cx,cy,rx,ry[,feather]");
    if (kind != "linear" && (g.v[2] <= 0 || g.v[3] <= 0)) throw UsageError("--gradient radii must be positive");
    return g;
}

SplitToneSpec ParseSplitTone(const std::string& text) {
    SplitToneSpec t;
    t.on = true;
    const std::vector<std::string> parts = Split(text, ':');
    if (parts.size() < 2 || parts.size() > 4) throw UsageError("--split-tone takes SHADOW:HIGHLIGHT[:BALANCE[:AMOUNT]]");
    for (int k = 0; k < 2; ++k) {
        const std::string& hex = parts[size_t(k)];
        if (hex.size() != 6 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw UsageError("--split-tone colours are RRGGBB in hex, not '" + hex + "'");
        for (int c = 0; c < 3; ++c) (k ? t.highlight : t.shadow)[c] = std::stoi(hex.substr(2 * size_t(c), 2), nullptr, 16) / 255.0f;
    }
    const float limits[2][2] = {{-1, 1}, {0, 1}};
    for (size_t i = 2; i < parts.size(); ++i) {
        const std::vector<float> number = ParseNumbers(parts[i], ',', "--split-tone");
        const float v = number.size() == 1 ? number[0] : NAN;
        if (!(v >= limits[i - 2][0] && v <= limits[i - 2][1]))
            throw UsageError(i == 2 ? "--split-tone balance runs from -1 to 1" : "--split-tone amount runs from 0 to 1");
        (i == 2 ? t.balance : t.amount) = v;
    }
    return t;
}

namespace {

// Amount times mask, or nothing without a mask.
std::vector<float> Scaled(const std::vector<float>& mask, float amount) {
    std::vector<float> map;
    if (!mask.empty() && amount != 0.0f)
        for (float m : mask) map.push_back(amount * m);
    return map;
}

}  // namespace

Image DevelopImage(const Image& in, const DevelopAmounts& amounts) {
    const int64_t pixels = int64_t{in.width} * in.height;
    FloatImage work(in.width, in.height);
    const ImageSize roi{in.width, in.height};
    std::vector<float> alpha;
    Stage(in.bits == 8 ? "Bgra32 -> linear ProPhoto" : "Rgba64 -> linear ProPhoto", pixels,
          [&] { Linearize(in, work, alpha); });
    Stage("base luminance: guided filter", pixels, [&] { BaseLuminance(work); });
    // Through a gradient, each adjustment's amount becomes a local map (amount x mask) over a
    // global amount of 0. Shadows and highlights have no per-pixel form in the pass: they stay
    // global.
    std::vector<float> mask;
    if (amounts.gradient.kind != GradientSpec::None)
        Stage("gradient mask", pixels, [&] { mask = GradientMask(amounts.gradient, in.width, in.height); });
    const std::vector<float> maps[5] = {Scaled(mask, amounts.exposure), Scaled(mask, amounts.brightness),
                                        Scaled(mask, amounts.contrast), Scaled(mask, amounts.clarity),
                                        Scaled(mask, amounts.saturation)};
    auto param = [&](float amount, int map) {
        return mask.empty() ? DevelopParameter{amount, nullptr}
                            : DevelopParameter{0.0f, maps[map].empty() ? nullptr : maps[map].data()};
    };
    const DevelopParameter p[7] = {param(amounts.exposure, 0), param(amounts.brightness, 1),
                                   {amounts.shadows, nullptr},  {amounts.highlights, nullptr},
                                   param(amounts.contrast, 2), param(amounts.clarity, 3),
                                   {0.0f, nullptr}};
    Stage("develop pass", pixels, [&] {
        ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(work.data.get(), work.step, &roi, &p[0], &p[1], &p[2], &p[3], &p[4], &p[5],
                                              &p[6], 0, 0, 0, 0.0f, 0, 0, 0);
    });
    // The local Laplacian filter works on the pass's linear ProPhoto result (it writes alpha as 1;
    // the picture's own goes back below). It scales each pixel by its new luminance over its old
    // one, which a pure black pixel does not have (the kernel then writes 1.0): black is lifted
    // to 1e-7 first, far below one code of any output.
    if (amounts.detail != 0.0f)
        Stage("local Laplacian detail", pixels, [&] {
            for (int y = 0; y < in.height; ++y)
                for (float* px = work.Row(y); px < work.Row(y) + 4 * in.width; ++px) *px = std::max(*px, 1e-7f);
            LocalLaplacian_Rgba128F(work.data.get(), work.step, &roi, amounts.detail, 0, 8);
        });
    // Saturation runs after the pass, through the unclamped saturation kernel: the pass clamps
    // each ProPhoto channel after saturating, which turns the hue of strong colours; unclamped,
    // they reach the gamut clip below intact.
    if (amounts.saturation != 0.0f)
        Stage("saturation", pixels, [&] {
            if (mask.empty())
                ImageAdjustSaturation_Rgba128F_SSE2(work.data.get(), work.step, in.width, in.height, amounts.saturation,
                                                    0.0f, nullptr, 0);
            else
                ImageAdjustSaturation_Rgba128F_SSE2(work.data.get(), work.step, in.width, in.height, 0.0f, 0.0f,
                                                    maps[4].data(), in.width * 4);
        });
    // Split toning on the linear ProPhoto result: the two colours, given as sRGB codes, decoded and
    // taken to ProPhoto, tint the shadows and the highlights at each pixel's own luminance.
    if (amounts.split.on)
        Stage("split toning", pixels, [&] {
            const Matrix m = SrgbToProPhoto();
            float colours[8] = {};
            for (int k = 0; k < 2; ++k) {
                const float* srgb = k ? amounts.split.highlight : amounts.split.shadow;
                double linear[3];
                for (int c = 0; c < 3; ++c)
                    linear[c] = srgb[c] <= 0.04045f ? srgb[c] / 12.92 : std::pow((srgb[c] + 0.055) / 1.055, 2.4);
                for (int c = 0; c < 3; ++c)
                    colours[4 * k + c] = static_cast<float>(m[c][0] * linear[0] + m[c][1] * linear[1] + m[c][2] * linear[2]);
            }
            SSE_DoubleColorize_Rgba128F(work.data.get(), work.step, &roi, colours, amounts.split.balance, amounts.split.amount);
        });
    Stage("ProPhoto -> sRGB primaries", pixels, [&] { ToSrgbPrimaries(work); });
    Stage("hue-preserving gamut clip (tool)", pixels, [&] { ClipToSrgbGamut(work); });
    // The encoding treats the fourth lane as a colour too, so alpha goes back in afterwards.
    Stage("sRGB encode", pixels, [&] { XMImageRGBToSRGB_Rgb128F_SSE2(work.data.get(), work.step, &roi); });
    // Tonal corrections, HSL bands and .cube looks work on the encoded values, the scale their
    // points, hues and files are made for. Levels' gamma runs over the alpha lane as well, which
    // goes back in afterwards.
    if (amounts.levels.on)
        Stage("levels", pixels, [&] {
            ImageLevels_Rgba128F_SSE2(work.data.get(), work.step, &roi, amounts.levels.black, amounts.levels.white);
            if (amounts.levels.gamma != 1.0f)
                MidTones_32f_C1R(work.data.get(), work.step, work.data.get(), work.step, 0, 0, 4 * in.width, in.height,
                                 std::log2(amounts.levels.gamma));
        });
    if (!amounts.curve.empty())
        Stage("curve", pixels, [&] {
            SSE2_ToneCurve_Rgba128F(work.data.get(), work.step, &roi, amounts.curve.data(), int32_t(amounts.curve.size()) - 2);
        });
    if (!amounts.tone.empty())
        Stage("parametric curve", pixels, [&] {
            if (SSE2_ToneCurveParametric_Rgba128F(work.data.get(), work.step, &roi, amounts.tone.data(), 0) != StatusOk)
                throw std::runtime_error("the parametric curve refused its parameters");
        });
    if (!amounts.hsl.empty())
        Stage("HSL bands", pixels, [&] { Adjust_HSL_Rgba128F_SSE2(work.data.get(), work.step, &roi, amounts.hsl.data()); });
    if (amounts.lut.size > 0)
        Stage("3D LUT (tetrahedral)", pixels, [&] {
            XMImage3DLut_Rgba128F_SSE2(work.data.get(), work.step, work.data.get(), work.step, &roi, amounts.lut.nodes.data(),
                                       amounts.lut.size, 1);
        });
    Stage("alpha back", pixels, [&] { RestoreAlpha(work, alpha); });
    Image out;
    Stage(in.bits == 8 ? "Rgba128F -> Bgra32" : "Rgba128F -> Rgba64", pixels, [&] { out = FromWorking(work, in.bits); });
    out.tinted = amounts.split.on || !amounts.hsl.empty() || amounts.lut.size > 0;
    return out;
}

}  // namespace velmora::tool
