// sRGB transfer on a 4000x3000 float RGBA plane, in place, one thread: every export beside a
// plain scalar powf loop and OpenCV (cv::pow plus the linear segment through a mask), and a
// memcpy of the same bytes. Each value is transformed, alpha included, so all rows compare
// per converted float.
//
// OpenCV picks its code path when it loads, from the OPENCV_CPU_DISABLE environment variable;
// the label of every opencv row names the widest path in use. The like-for-like SSE2 peer is a
// second run of this binary with
//   OPENCV_CPU_DISABLE=SSE3,SSSE3,SSE4.1,SSE4.2,POPCNT,FP16,FMA3,AVX,AVX2,AVX512F,AVX512-SKX,AVX512-COMMON
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include <cmath>
#include <cstring>
#include <string>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using RoiKernel = void(VELMORA_CALL*)(float*, int32_t, const ImageSize*);
using RectKernel = void(VELMORA_CALL*)(float*, int32_t, int32_t, int32_t, int32_t, int32_t);

constexpr int64_t kPixels = int64_t{vb::kWidth} * vb::kHeight;
constexpr int64_t kBytesMoved = kPixels * 16 * 2;  // each pixel read and written once

// The plane is converted in place again and again; both directions map [0, 1] into itself, so
// every iteration sees nominal data.
vb::Plane& Image() {
    static vb::Plane plane = vb::MakeFloatPlane(4);
    return plane;
}

void Finish(benchmark::State& state) {
    benchmark::ClobberMemory();
    vb::SetCounters(state, kPixels, kBytesMoved);
}

template <RoiKernel K>
void Velmora(benchmark::State& state) {
    vb::Plane& p = Image();
    const ImageSize roi{vb::kWidth, vb::kHeight};
    for (auto _ : state) K(p.As<float>(), p.step, &roi);
    Finish(state);
}

template <RectKernel K>
void VelmoraRect(benchmark::State& state) {
    vb::Plane& p = Image();
    for (auto _ : state) K(p.As<float>(), p.step, 0, 0, vb::kWidth, vb::kHeight);
    Finish(state);
}

// The plain loop a developer would write first: one powf per value of the power branch.
template <bool Encode>
void ScalarPowf(benchmark::State& state) {
    vb::Plane& p = Image();
    for (auto _ : state) {
        for (int y = 0; y < vb::kHeight; ++y) {
            float* row = reinterpret_cast<float*>(p.data() + int64_t{y} * p.step);
            for (int i = 0; i < vb::kWidth * 4; ++i) {
                const float v = row[i];
                if constexpr (Encode) row[i] = v < 0.0031308f ? v * 12.92f : 1.055f * std::pow(v, 0.41666666f) - 0.055f;
                else row[i] = v <= 0.04045f ? v * 0.07739938f : std::pow((v + 0.055f) * 0.9478673f, 2.4f);
            }
        }
    }
    Finish(state);
}

std::string OpenCvPath() {
    if (cv::checkHardwareSupport(CV_CPU_AVX512_SKX)) return "opencv AVX512-SKX";
    if (cv::checkHardwareSupport(CV_CPU_AVX2)) return "opencv AVX2";
    if (cv::checkHardwareSupport(CV_CPU_SSE4_1)) return "opencv SSE4.1";
    return "opencv SSE2";
}

// cv::pow on the whole plane seen as one float per element, the linear segment computed apart
// and merged under a mask. Scratch planes are allocated once, outside the timed loop.
template <bool Encode>
void OpenCv(benchmark::State& state) {
    cv::setNumThreads(1);
    vb::Plane& p = Image();
    cv::Mat m(vb::kHeight, vb::kWidth * 4, CV_32F, p.data(), static_cast<size_t>(p.step));
    cv::Mat power(m.size(), CV_32F), mask(m.size(), CV_8U);
    for (auto _ : state) {
        if constexpr (Encode) {
            cv::pow(m, 0.41666666, power);
            power.convertTo(power, CV_32F, 1.055, -0.055);
            cv::compare(m, 0.0031308, mask, cv::CMP_GE);
            m.convertTo(m, CV_32F, 12.92);
        } else {
            m.convertTo(power, CV_32F, 0.9478673, 0.052132703);
            cv::pow(power, 2.4, power);
            cv::compare(m, 0.04045, mask, cv::CMP_GT);
            m.convertTo(m, CV_32F, 0.07739938);
        }
        power.copyTo(m, mask);
    }
    state.SetLabel(OpenCvPath());
    Finish(state);
}

void Memcpy(benchmark::State& state) {
    vb::Plane& p = Image();
    static vb::Plane dst = vb::MakePlane(int64_t{vb::kWidth} * 16);
    for (auto _ : state) std::memcpy(dst.data(), p.data(), static_cast<size_t>(p.step) * vb::kHeight);
    Finish(state);
}

}  // namespace

BENCHMARK(Velmora<XMImageRGBToSRGB_Rgb128F_SSE2>)->Name("srgb/encode_formula/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora<XMImageRGBToSRGB_Rgb128F_SSE2_2>)->Name("srgb/encode_powf/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora<XMImageRGBToSRGB_Rgb128F_SSE2_Curve>)->Name("srgb/encode_curve/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora<XMImageRGBToSRGB_Rgb128F_SSE2_Curve_2>)->Name("srgb/encode_curve_2/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(VelmoraRect<RGBToSRGB_Rgb128F_Lut>)->Name("srgb/encode_lut/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ScalarPowf<true>)->Name("srgb/encode/scalar_powf")->Unit(benchmark::kMillisecond);
BENCHMARK(OpenCv<true>)->Name("srgb/encode/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora<XMImageSRGBToRGB_Rgb128F_SSE2>)->Name("srgb/decode_formula/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora<XMImageSRGBToRGB_Rgb128F_SSE2_Curve>)->Name("srgb/decode_curve/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(VelmoraRect<SRGBToRGB_Rgb128F_Lut>)->Name("srgb/decode_lut/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ScalarPowf<false>)->Name("srgb/decode/scalar_powf")->Unit(benchmark::kMillisecond);
BENCHMARK(OpenCv<false>)->Name("srgb/decode/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(Memcpy)->Name("srgb/memcpy")->Unit(benchmark::kMillisecond);
