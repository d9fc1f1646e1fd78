// Blurs and convolutions on 4000x3000, one thread, beside OpenCV in the same run. Whole calls are
// timed, scratch allocation included. Margin-reading kernels get a source plane with the margin
// they read around the region; OpenCV builds its border itself. In-place kernels (and the fast
// Gaussian, which uses its source as scratch) start each run from a pristine copy made outside the
// timed region.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;

constexpr int64_t kPixels = int64_t{kWidth} * kHeight;
constexpr int kMargin = 96;  // covers the largest margin read below (3 x 30)

// A plane of `channels` floats a pixel with kMargin pixels around the region.
struct Framed {
    int channels;
    vb::Plane plane;
    explicit Framed(int c) : channels(c), plane(vb::MakePlane(int64_t{kWidth + 2 * kMargin} * c * 4, kHeight + 2 * kMargin)) {
        std::vector<float> noise(size_t(plane.step) / 4);
        for (size_t i = 0; i < noise.size(); ++i) noise[i] = float((i * 2654435761u) % 1000) / 1000.0f;
        for (int y = 0; y < kHeight + 2 * kMargin; ++y) std::memcpy(plane.data() + int64_t{y} * plane.step, noise.data(), size_t(plane.step));
    }
    float* Region() const { return reinterpret_cast<float*>(plane.data() + int64_t{kMargin} * plane.step) + kMargin * channels; }
    int32_t Step() const { return plane.step; }
    size_t Bytes() const { return size_t(plane.step) * (kHeight + 2 * kMargin); }
    cv::Mat Mat() const { return cv::Mat(kHeight, kWidth, channels == 4 ? CV_32FC4 : CV_32F, Region(), plane.step); }
};

const ImageSize kRoi{kWidth, kHeight};

// Runs fn per iteration; with `restore`, first copies the pristine source back (untimed).
template <class Fn>
void Run(benchmark::State& state, Fn&& fn, Framed* restore = nullptr, const Framed* pristine = nullptr) {
    cv::setNumThreads(1);
    for (auto _ : state) {
        if (restore) {
            state.PauseTiming();
            std::memcpy(restore->plane.data(), pristine->plane.data(), restore->Bytes());
            state.ResumeTiming();
        }
        fn();
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * 16 * 2);
}

void BoxVelmora(benchmark::State& state) {
    Framed src(4), dst(4);
    const int r = int(state.range(0));
    Run(state, [&] { BoxBlur_Rgba128F_SSE2(src.Region(), src.Step(), dst.Region(), dst.Step(), &kRoi, r); });
}
void BoxOpenCv(benchmark::State& state) {
    Framed src(4), dst(4);
    const int r = int(state.range(0));
    cv::Mat out = dst.Mat();
    Run(state, [&] { cv::boxFilter(src.Mat(), out, -1, cv::Size(2 * r + 1, 2 * r + 1)); });
}

void FastGaussianVelmora(benchmark::State& state) {
    Framed pristine(4), src(4), dst(4);
    Run(state, [&] { FastGaussianBlur_Rgba128F_SSE2(src.Region(), src.Step(), dst.Region(), dst.Step(), &kRoi, 5); },
        &src, &pristine);
}
void FastGaussianOpenCv(benchmark::State& state) {
    Framed src(4), dst(4);
    cv::Mat out = dst.Mat();
    const double sigma = std::sqrt(5.0 * 6.0);  // three boxes of radius 5: variance r(r+1)
    Run(state, [&] { cv::GaussianBlur(src.Mat(), out, cv::Size(0, 0), sigma); });
}

void Gaussian5Velmora(benchmark::State& state) {
    Framed pristine(4), img(4);
    const uint32_t margins = 0;  // clip at the region, as the peer's border does its own thing
    Run(state, [&] { XMImageGaussian5_Rgba128F_SSE2(kWidth, kHeight, img.Region(), img.Step(), margins); }, &img,
        &pristine);
}
void Gaussian5OpenCv(benchmark::State& state) {
    Framed pristine(4), img(4);
    const cv::Mat k = (cv::Mat_<float>(5, 1) << 1 / 16.f, 4 / 16.f, 6 / 16.f, 4 / 16.f, 1 / 16.f);
    cv::Mat m = img.Mat();
    Run(state, [&] { cv::sepFilter2D(m, m, -1, k, k); }, &img, &pristine);
}

const std::vector<float> kNine = {1, 8, 28, 56, 70, 56, 28, 8, 1};
void Conv9Velmora(benchmark::State& state) {
    Framed src(4), dst(4);
    const uint32_t margins = 4u | 4u << 8 | 4u << 16 | 4u << 24;
    Run(state, [&] {
        XMImageConvolve_Rgba128F_SSE2(kWidth, kHeight, src.Region(), src.Step(), dst.Region(), dst.Step(), kNine.data(), 9,
                                      margins);
    });
}
void Conv9OpenCv(benchmark::State& state) {
    Framed src(4), dst(4);
    cv::Mat k(9, 1, CV_32F);
    for (int i = 0; i < 9; ++i) k.at<float>(i) = kNine[size_t(i)] / 256.0f;
    cv::Mat out = dst.Mat();
    Run(state, [&] { cv::sepFilter2D(src.Mat(), out, -1, k, k); });
}

void GrayBoxVelmora(benchmark::State& state) {
    Framed src(1), dst(1);
    vb::Plane tmp = vb::MakePlane(int64_t{kHeight} * 4, kWidth);
    Run(state, [&] {
        XMImageBoxFilter_Gray32F_SSE2(src.Region(), src.Step(), dst.Region(), dst.Step(), tmp.As<float>(), tmp.step, &kRoi, 8);
    });
    vb::SetCounters(state, kPixels, kPixels * 4 * 2);
}
void GrayBoxOpenCv(benchmark::State& state) {
    Framed src(1), dst(1);
    cv::Mat out = dst.Mat();
    Run(state, [&] { cv::boxFilter(src.Mat(), out, -1, cv::Size(17, 17)); });
    vb::SetCounters(state, kPixels, kPixels * 4 * 2);
}

// The 8-bit blurs in place on their own plane: blurring a blurred picture again costs the same,
// so no restore is needed. Kind 0: the 5x5 binomial on BGRA (OpenCV: its 5x5 Gaussian, the same
// 1 4 6 4 1 taps); kind 1: three box means of radius 5 on gray (OpenCV: three box filters).
void EightBitVelmora(benchmark::State& state) {
    const bool gray = state.range(0) == 1;
    vb::Plane p = vb::MakePlane(int64_t{kWidth} * (gray ? 1 : 4));
    Run(state, [&] {
        if (gray) ImageFastGaussianBlur_Gray8(p.data(), p.step, &kRoi, 5);
        else ImageGaussian5x5_Bgra32(p.data(), p.step, &kRoi);
    });
    vb::SetCounters(state, kPixels, kPixels * (gray ? 1 : 4) * 2);
}
void EightBitOpenCv(benchmark::State& state) {
    const bool gray = state.range(0) == 1;
    vb::Plane p = vb::MakePlane(int64_t{kWidth} * (gray ? 1 : 4)), q = vb::MakePlane(int64_t{kWidth} * 4);
    cv::Mat m(kHeight, kWidth, gray ? CV_8U : CV_8UC4, p.data(), p.step), out(kHeight, kWidth, CV_8UC4, q.data(), q.step);
    Run(state, [&] {
        if (!gray) return cv::GaussianBlur(m, out, cv::Size(5, 5), 0);  // in place, OpenCV would copy first
        for (int pass = 0; pass < 3; ++pass) cv::blur(m, m, cv::Size(11, 11));
    });
    vb::SetCounters(state, kPixels, kPixels * (gray ? 1 : 4) * 2);
}

void Memcpy(benchmark::State& state) {
    Framed src(4), dst(4);
    Run(state, [&] { std::memcpy(dst.plane.data(), src.plane.data(), src.Bytes()); });
}

}  // namespace

BENCHMARK(BoxVelmora)->Name("blur/box/velmora")->Arg(5)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BoxOpenCv)->Name("blur/box/opencv")->Arg(5)->Arg(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FastGaussianVelmora)->Name("blur/fast_gaussian_r5/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FastGaussianOpenCv)->Name("blur/fast_gaussian_r5/opencv")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Gaussian5Velmora)->Name("blur/gaussian5/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Gaussian5OpenCv)->Name("blur/gaussian5/opencv")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Conv9Velmora)->Name("blur/convolve9/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Conv9OpenCv)->Name("blur/convolve9/opencv")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(GrayBoxVelmora)->Name("blur/gray_box_r8/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(GrayBoxOpenCv)->Name("blur/gray_box_r8/opencv")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(EightBitVelmora)->Name("blur/8u_gaussian5_bgra_fast_gaussian_gray_r5/velmora")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(EightBitOpenCv)->Name("blur/8u_gaussian5_bgra_fast_gaussian_gray_r5/opencv")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Memcpy)->Name("blur/memcpy/reference")->Unit(benchmark::kMillisecond)->UseRealTime();
