// Dehaze kernels and gradient masks on 4000x3000, one thread. The dark channels sit beside
// OpenCV's erosion with a square (border replicate: the same clipped window for a minimum), the
// float one after OpenCV's own per-pixel minimum of the channels; the whole chain as a host runs
// it; the gradients beside a memset of the same bytes.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <functional>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;
constexpr int64_t kPixels = int64_t{kWidth} * kHeight;

void Loop(benchmark::State& state, int64_t bytes, const std::function<void()>& fn) {
    cv::setNumThreads(1);
    for (auto _ : state) {
        fn();
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, bytes);
}

void Dark8Velmora(benchmark::State& state) {
    vb::Plane src = vb::MakePlane(kWidth), dst = vb::MakePlane(kWidth);
    const int r = int(state.range(0));
    Loop(state, kPixels * 2, [&] { DarkChannel_8u_C1R(src.data(), src.step, dst.data(), dst.step, 0, 0, kWidth, kHeight, r); });
}
void Dark8OpenCv(benchmark::State& state) {
    vb::Plane src = vb::MakePlane(kWidth), dst = vb::MakePlane(kWidth);
    const int r = int(state.range(0));
    cv::Mat in(kHeight, kWidth, CV_8U, src.data(), src.step), out(kHeight, kWidth, CV_8U, dst.data(), dst.step);
    const cv::Mat k = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * r + 1));
    Loop(state, kPixels * 2, [&] { cv::erode(in, out, k, cv::Point(-1, -1), 1, cv::BORDER_REPLICATE); });
}

void Dark32Velmora(benchmark::State& state) {
    vb::Plane src = vb::MakeFloatPlane(4), dst = vb::MakeFloatPlane(1);
    const int r = int(state.range(0));
    Loop(state, kPixels * 20, [&] {
        DarkChannel_32f_AC4C1R(src.As<float>(), src.step, dst.As<float>(), dst.step, 0, 0, kWidth, kHeight, r);
    });
}
void Dark32OpenCv(benchmark::State& state) {
    vb::Plane src = vb::MakeFloatPlane(4), dst = vb::MakeFloatPlane(1);
    const int r = int(state.range(0));
    cv::Mat in(kHeight, kWidth, CV_32FC4, src.data(), src.step), out(kHeight, kWidth, CV_32F, dst.data(), dst.step);
    const cv::Mat k = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * r + 1));
    cv::Mat channels[4], m(kHeight, kWidth, CV_32F);
    Loop(state, kPixels * 20, [&] {
        cv::split(in, channels);
        cv::min(channels[0], channels[1], m);
        cv::min(m, channels[2], m);
        cv::erode(m, out, k, cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    });
}

// The chain: dark channel, airlight from 8-bit copies, rough transmission, recovery.
void ChainVelmora(benchmark::State& state) {
    vb::Plane img = vb::MakeFloatPlane(4), out = vb::MakeFloatPlane(4), dark = vb::MakeFloatPlane(1);
    vb::Plane rgb = vb::MakePlane(int64_t{kWidth} * 3), dark8 = vb::MakePlane(kWidth), t8 = vb::MakePlane(kWidth);
    Loop(state, kPixels * 40, [&] {
        DarkChannel_32f_AC4C1R(img.As<float>(), img.step, dark.As<float>(), dark.step, 0, 0, kWidth, kHeight, 7);
        for (int y = 0; y < kHeight; ++y) {
            const float* d = reinterpret_cast<const float*>(dark.data() + int64_t{y} * dark.step);
            const float* p = reinterpret_cast<const float*>(img.data() + int64_t{y} * img.step);
            uint8_t* d8 = dark8.data() + int64_t{y} * dark8.step;
            uint8_t* c8 = rgb.data() + int64_t{y} * rgb.step;
            for (int x = 0; x < kWidth; ++x) {
                d8[x] = uint8_t(d[x] * 255.0f + 0.5f);
                for (int c = 0; c < 3; ++c) c8[3 * x + c] = uint8_t(p[4 * x + c] * 255.0f + 0.5f);
            }
        }
        uint8_t light8[3] = {255, 255, 255};
        EstimateAtmosphericLight_8u_C3C1R(rgb.data(), rgb.step, dark8.data(), dark8.step, 0, 0, kWidth, kHeight, light8);
        const float a = (light8[0] + light8[1] + light8[2]) / (3 * 255.0f);
        RoughtTransmissionMap_8u_C1R(dark8.data(), dark8.step, t8.data(), t8.step, 0, 0, kWidth, kHeight, a, 0.95f);
        const float light[3] = {light8[0] / 255.0f, light8[1] / 255.0f, light8[2] / 255.0f};
        Dehaze_32f_AC4R(img.As<float>(), img.step, t8.data(), t8.step, out.As<float>(), out.step, 0, 0, kWidth, kHeight, light, 0.1f);
    });
}

void GradientVelmora(benchmark::State& state) {
    vb::Plane dst = vb::MakeFloatPlane(1);
    const int32_t region[4] = {0, 0, kWidth, kHeight};
    const float a[2] = {100, 200}, b[2] = {3500, 2600}, radii[2] = {1500, 1000};
    const int kind = int(state.range(0));
    Loop(state, kPixels * 4, [&] {
        if (kind == 0) ImageLinearGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), dst.step, region, a, b, 0.3f, false);
        if (kind == 1) ImageDualGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), dst.step, region, a, b, 0.3f, false);
        if (kind == 2) ImageRadialGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), dst.step, region, a, radii, 0.4f, 0.5f, 0, false, 1);
        if (kind == 3) ImageRadialGradient_Gray32F_SSE2_X4Y1(dst.As<float>(), dst.step, region, a, radii, 0.4f, 0.5f, 0, false, 2);
    });
}
// Non-zero bytes, as a mask has: on some processors a fill with zeros takes a faster path (here
// 0.7 ms against 1.8 ms for any other byte), which no mask writer can use.
void Memset(benchmark::State& state) {
    vb::Plane dst = vb::MakeFloatPlane(1);
    Loop(state, kPixels * 4, [&] { std::memset(dst.data(), 0x3F, size_t(dst.step) * kHeight); });
}

}  // namespace

BENCHMARK(Dark8Velmora)->Name("dehaze/dark_8u/velmora")->Arg(7)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Dark8OpenCv)->Name("dehaze/dark_8u/opencv")->Arg(7)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Dark32Velmora)->Name("dehaze/dark_32f/velmora")->Arg(7)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Dark32OpenCv)->Name("dehaze/dark_32f/opencv")->Arg(7)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ChainVelmora)->Name("dehaze/chain_r7/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(GradientVelmora)->Name("dehaze/gradient_linear_dual_radial_gauss/velmora")->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Memset)->Name("dehaze/gradient/memset")->Unit(benchmark::kMillisecond)->UseRealTime();
