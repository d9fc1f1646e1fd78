// Colour spaces, matrices and colourise on 4000x3000, one thread, beside OpenCV doing the same
// work: cvtColor for Lab (float, sRGB-encoded and linear), YCrCb and YUV, cv::transform for the
// twists, the working-space transform and one-colour toning (a linear map). The in-place kernels
// start each run from the same pristine input, copied outside the timed region; everything else
// is timed whole.
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <functional>
#include <string>
#include <vector>
#include <algorithm>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;

constexpr int64_t kPixels = int64_t{kWidth} * kHeight;

struct Images {
    vb::Plane rgb = vb::MakeFloatPlane(4), work = vb::MakeFloatPlane(4), lab = vb::MakeFloatPlane(4);
    ImageSize roi{kWidth, kHeight};
    Images() {
        std::memcpy(lab.data(), rgb.data(), bytes());
        XMImageSRGBToLab_Rgb128F_SSE2(lab.As<float>(), lab.step, &roi);
    }
    cv::Mat Mat(const vb::Plane& p) const { return cv::Mat(kHeight, kWidth, CV_32FC4, p.data(), p.step); }
    size_t bytes() const { return static_cast<size_t>(rgb.step) * kHeight; }
};

Images& Shared() {
    static Images im;
    return im;
}

const float kTwist[16] = {0.9f, 0.2f, -0.1f, 0.05f, -0.3f, 1.1f, 0.25f, -0.02f, 0.1f, -0.4f, 1.3f, 0.1f, 0, 0, 0, 1};
const float kProPhotoToSrgb[12] = {2.0343f, -0.7276f, -0.3067f, 0, -0.2289f, 1.2320f, -0.0031f, 0, -0.0085f, -0.1533f, 1.1618f, 0};

// An in-place kernel on a fresh copy of `input` each run (the Lab input for the Lab-to-RGB ones).
void InPlace(benchmark::State& state, const std::function<void(float*, int32_t, const ImageSize*)>& f, bool from_lab) {
    Images& im = Shared();
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(im.work.data(), (from_lab ? im.lab : im.rgb).data(), im.bytes());
        state.ResumeTiming();
        f(im.work.As<float>(), im.work.step, &im.roi);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * 32);
}

// Source to destination, timed whole.
void Call(benchmark::State& state, const std::function<void(Images&)>& fn, int64_t bytes_per_pixel) {
    Images& im = Shared();
    cv::setNumThreads(1);
    for (auto _ : state) {
        fn(im);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * bytes_per_pixel);
}

void Register(const std::string& name, std::function<void(benchmark::State&)> fn) {
    benchmark::RegisterBenchmark(("color/" + name).c_str(), fn)->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    // Lab, both RGB spaces, beside cvtColor's float conversions (three-channel Lab).
    Register("srgb_to_lab/velmora", [](auto& s) { InPlace(s, XMImageSRGBToLab_Rgb128F_SSE2, false); });
    Register("srgb_to_lab/opencv", [](auto& s) {
        cv::Mat lab(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));
        Call(s, [&](Images& im) { cv::cvtColor(im.Mat(im.rgb), lab, cv::COLOR_RGB2Lab); }, 28);
    });
    Register("lab_to_srgb/velmora", [](auto& s) { InPlace(s, XMImageLabToSRGB_Rgb128F_SSE2, true); });
    Register("lab_to_srgb/opencv", [](auto& s) {
        cv::Mat lab;
        cv::cvtColor(Shared().Mat(Shared().rgb), lab, cv::COLOR_RGB2Lab);
        Call(s, [&](Images& im) { cv::Mat out = im.Mat(im.work); cv::cvtColor(lab, out, cv::COLOR_Lab2RGB, 4); }, 28);
    });
    Register("prophoto_to_lab/velmora", [](auto& s) { InPlace(s, XMImageRGBToLab_Rgb128F_SSE2, false); });
    Register("prophoto_to_lab/opencv", [](auto& s) {
        cv::Mat lab(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));
        Call(s, [&](Images& im) { cv::cvtColor(im.Mat(im.rgb), lab, cv::COLOR_LRGB2Lab); }, 28);
    });
    Register("lab_to_prophoto/velmora", [](auto& s) { InPlace(s, XMImageLabToRGB_Rgb128F_SSE2, true); });
    Register("lab_to_prophoto/opencv", [](auto& s) {
        cv::Mat lab;
        cv::cvtColor(Shared().Mat(Shared().rgb), lab, cv::COLOR_LRGB2Lab);
        Call(s, [&](Images& im) { cv::Mat out = im.Mat(im.work); cv::cvtColor(lab, out, cv::COLOR_Lab2LRGB, 4); }, 28);
    });
    // Matrices on four-float pixels beside cv::transform with the same matrix.
    Register("twist_c4/velmora", [](auto& s) {
        Call(s, [](Images& im) {
            ColorTwist_32f_C4R(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, 0, 0, kWidth, kHeight, kTwist);
        }, 32);
    });
    Register("twist_c4/opencv", [](auto& s) {
        const cv::Mat m(4, 4, CV_32F, const_cast<float*>(kTwist));
        Call(s, [&](Images& im) { cv::Mat out = im.Mat(im.work); cv::transform(im.Mat(im.rgb), out, m); }, 32);
    });
    Register("transform/velmora", [](auto& s) {
        Call(s, [](Images& im) {
            ColorTransform_Rgba128F_SSE2(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, &im.roi, kProPhotoToSrgb);
        }, 32);
    });
    Register("transform/opencv", [](auto& s) {
        float m4[16];
        for (int i = 0; i < 12; ++i) m4[i] = i % 4 == 3 ? 0.0f : kProPhotoToSrgb[i];
        m4[12] = m4[13] = m4[14] = 0, m4[15] = 1;
        const cv::Mat m(4, 4, CV_32F, m4);
        Call(s, [&](Images& im) { cv::Mat out = im.Mat(im.work); cv::transform(im.Mat(im.rgb), out, m); }, 32);
    });
    Register("transform_to_bgra32/velmora", [](auto& s) {
        static vb::Plane bytes = vb::MakePlane(int64_t{kWidth} * 4);
        Call(s, [](Images& im) {
            ColorTransform_Rgba128F_Bgra32_SSE2(im.rgb.As<float>(), im.rgb.step, bytes.data(), bytes.step, &im.roi, kProPhotoToSrgb);
        }, 20);
    });
    // YCbCr and YUV beside cvtColor (three-channel float).
    Register("ycbcr/velmora", [](auto& s) {
        Call(s, [](Images& im) {
            RGBToYCbCr_32f_C4R(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, 0, 0, kWidth, kHeight);
        }, 32);
    });
    Register("ycbcr/opencv", [](auto& s) {
        cv::Mat out(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));
        Call(s, [&](Images& im) { cv::cvtColor(im.Mat(im.rgb), out, cv::COLOR_RGB2YCrCb); }, 28);
    });
    Register("yuv/velmora", [](auto& s) {
        Call(s, [](Images& im) { RGBToYUV_Rgb128F(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, &im.roi); }, 32);
    });
    Register("yuv/opencv", [](auto& s) {
        cv::Mat out(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));
        Call(s, [&](Images& im) { cv::cvtColor(im.Mat(im.rgb), out, cv::COLOR_RGB2YUV); }, 28);
    });
    // Colourise beside the same linear map through cv::transform: one colour at amount a is
    // c (1 - a) + a K Y, a 4 x 4 matrix on four-float pixels.
    static const float kSepia[4] = {0.9f, 0.62f, 0.35f, 0.0f}, kSplit[8] = {0.1f, 0.25f, 0.6f, 0, 0.8f, 0.6f, 0.3f, 0};
    Register("colorize/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { SSE_Colorize_Rgba128F(p, step, roi, kSepia, 0.7f); }, false);
    });
    Register("colorize/opencv", [](auto& s) {
        const float y = (0.28804f * kSepia[0] + 0.711874f * kSepia[1]) + 0.000086f * kSepia[2], a = 0.7f;
        const float lum[3] = {0.28804f, 0.711874f, 0.000086f};
        float m4[16] = {};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) m4[4 * i + j] = (i == j ? 1 - a : 0.0f) + a * kSepia[i] / y * lum[j];
        m4[15] = 1;
        const cv::Mat m(4, 4, CV_32F, m4);
        Call(s, [&](Images& im) { cv::Mat out = im.Mat(im.work); cv::transform(im.Mat(im.rgb), out, m); }, 32);
    });
    Register("split_tone/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { SSE_DoubleColorize_Rgba128F(p, step, roi, kSplit, 0.2f, 0.7f); }, false);
    });
    // Hue and saturation beside cvtColor's HSV round trip alone (three-channel float), the 8-bit
    // curve beside cv::LUT, the float master curve and colour balance on their own.
    Register("hue_saturation/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { XMImageHueSaturation_Rgba128F_SSE2(p, step, roi, 30, 0.2f, 0.1f); }, false);
    });
    Register("hsv_round_trip/opencv", [](auto& s) {
        cv::Mat rgb, hsv;
        cv::cvtColor(Shared().Mat(Shared().rgb), rgb, cv::COLOR_RGBA2RGB);
        cv::Mat back(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));
        Call(s, [&](Images&) {
            cv::cvtColor(rgb, hsv, cv::COLOR_RGB2HSV_FULL);
            cv::cvtColor(hsv, back, cv::COLOR_HSV2RGB_FULL);
        }, 24);
    });
    static const float kBands[24] = {0.2f, -0.1f, 0.3f, 0, -0.2f, 0.1f, 0, 0.1f, 0.2f, 0, -0.2f, 0.3f,
                                     0, 0.1f, -0.1f, 0, -0.1f, 0.1f, 0.2f, 0, 0.1f, -0.2f, 0, 0};
    Register("hsl/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { Adjust_HSL_Rgba128F_SSE2(p, step, roi, kBands); }, false);
    });
    // The hue-keyed curves: three per-degree tables (a gentle wave each), looked up per lane.
    static float curves[3 * 361];
    for (int i = 0; i < 3 * 361; ++i) curves[i] = 0.2f * std::sin(float(i % 361) * 0.0349f + float(i / 361));
    Register("hsl_curves/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { Adjust_HSL_Rgba128F_SSE2_Lut(p, step, roi, curves); }, false);
    });
    static uint8_t lut[768];
    for (int i = 0; i < 768; ++i) lut[i] = uint8_t(255 - i % 256);
    Register("tone_curve_bgra32/velmora", [](auto& s) {
        static vb::Plane bytes = vb::MakePlane(int64_t{kWidth} * 4);
        Call(s, [](Images& im) { SSE2_ToneCurve_Bgra32(bytes.data(), bytes.step, &im.roi, lut); }, 8);
    });
    Register("lut_bgra32/opencv", [](auto& s) {
        static vb::Plane bytes = vb::MakePlane(int64_t{kWidth} * 4);
        cv::Mat table(1, 256, CV_8UC4);
        for (int i = 0; i < 256; ++i) table.at<cv::Vec4b>(0, i) = cv::Vec4b(lut[i], lut[256 + i], lut[512 + i], uint8_t(i));
        cv::Mat image(kHeight, kWidth, CV_8UC4, bytes.data(), bytes.step);
        Call(s, [&](Images&) { cv::LUT(image, table, image); }, 8);
    });
    static const float kCurve[10] = {0, 0.15f, 0.3f, 0.45f, 0.6f, 0.72f, 0.84f, 0.93f, 1, 1};
    Register("tone_curve/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { SSE2_ToneCurve_Rgba128F(p, step, roi, kCurve, 8); }, false);
    });
    static const float kBalance[9] = {0.2f, 0, -0.2f, 0, 0.1f, 0, -0.1f, 0, 0.2f};
    Register("colour_balance/velmora", [](auto& s) {
        InPlace(s, [](float* p, int32_t step, const ImageSize* roi) { Adjust_Rgba128F_SSE(p, step, roi, kBalance, 1); }, false);
    });
    // The 3D LUT (33-node cube) beside a plain scalar trilinear lookup, OpenCV having none; selective
    // colour on its own.
    static std::vector<float> cube(33 * 33 * 33 * 3);
    for (size_t i = 0; i < cube.size(); ++i) cube[i] = float(i / 3 / (i % 3 == 0 ? 1 : i % 3 == 1 ? 33 : 1089) % 33) / 32 * 0.9f + 0.05f;
    for (int interpolation : {0, 1})
        Register(interpolation ? "lut3d_tetrahedral/velmora" : "lut3d_trilinear/velmora", [interpolation](auto& s) {
            Call(s, [&](Images& im) {
                XMImage3DLut_Rgba128F_SSE2(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, &im.roi, cube.data(), 33,
                                           interpolation);
            }, 32);
        });
    Register("lut3d_trilinear/scalar", [](auto& s) {
        Call(s, [](Images& im) {
            for (int y = 0; y < kHeight; ++y) {
                const float* in = reinterpret_cast<const float*>(im.rgb.data() + int64_t{y} * im.rgb.step);
                float* out = reinterpret_cast<float*>(im.work.data() + int64_t{y} * im.work.step);
                for (int x = 0; x < kWidth; ++x, in += 4, out += 4) {
                    int i[3];
                    float f[3];
                    for (int c = 0; c < 3; ++c) {
                        const float p = std::min(std::max(in[c], 0.0f), 1.0f) * 32;
                        i[c] = std::min(int(p), 31), f[c] = p - float(i[c]);
                    }
                    for (int c = 0; c < 3; ++c) out[c] = 0;
                    for (int k = 0; k < 8; ++k) {
                        const int dr = k & 1, dg = (k >> 1) & 1, db = k >> 2;
                        const float w = ((dr ? f[0] : 1 - f[0]) * (dg ? f[1] : 1 - f[1])) * (db ? f[2] : 1 - f[2]);
                        const float* v = cube.data() + 3 * ((size_t(i[2] + db) * 33 + i[1] + dg) * 33 + i[0] + dr);
                        for (int c = 0; c < 3; ++c) out[c] += w * v[c];
                    }
                    out[3] = in[3];
                }
            }
        }, 32);
    });
    static const float kSelective[36] = {0.2f, -0.1f, 0, 0, 0, 0.1f, -0.2f, 0, -0.1f, 0, 0.2f, 0, 0.1f, 0.1f, 0, 0, 0, -0.2f,
                                         0.1f, 0, 0.2f, 0, -0.1f, 0, 0, 0, 0, -0.05f, 0.05f, 0, 0, 0, 0, 0, 0, 0.1f};
    Register("selective_colour/velmora", [](auto& s) {
        Call(s, [](Images& im) {
            XMImageSelectiveColor(im.rgb.As<float>(), im.rgb.step, im.work.As<float>(), im.work.step, &im.roi, kSelective, 1);
        }, 32);
    });
    return true;
}();

}  // namespace
