// The local Laplacian filter (eight samples, every level) on 4000x3000 float RGBA, whole calls,
// one thread, from a pristine copy each run (it works in place); the resize to half and to 1.37x
// beside OpenCV's INTER_AREA and INTER_CUBIC, the 2:1 block mean beside INTER_AREA, and the 8-bit
// pyramid steps (4000x3000 down to half, and half up to 4000x3000) beside cv::pyrDown and cv::pyrUp.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;
constexpr int64_t kPixels = int64_t{kWidth} * kHeight;

template <class Fn>
void Loop(benchmark::State& state, int64_t pixels, int64_t bytes, Fn&& fn) {
    cv::setNumThreads(1);
    for (auto _ : state) {
        fn(state);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, pixels, bytes);
}

void LocalLaplacianVelmora(benchmark::State& state) {
    vb::Plane pristine = vb::MakeFloatPlane(4), work = vb::MakeFloatPlane(4);
    const ImageSize roi{kWidth, kHeight};
    Loop(state, kPixels, kPixels * 32, [&](benchmark::State& s) {
        s.PauseTiming();
        std::memcpy(work.data(), pristine.data(), size_t(work.step) * kHeight);
        s.ResumeTiming();
        LocalLaplacian_Rgba128F(work.As<float>(), work.step, &roi, 0.5f, 0, 8);
    });
}

// Destination size for a scale given as a per-mille range argument.
ImageSize Scaled(int per_mille) { return {kWidth * per_mille / 1000, kHeight * per_mille / 1000}; }

void ResizeVelmora(benchmark::State& state) {
    vb::Plane src = vb::MakePlane(int64_t{kWidth} * 4);
    const ImageSize from{kWidth, kHeight}, to = Scaled(int(state.range(0)));
    vb::Plane dst = vb::MakePlane(int64_t{to.width} * 4, to.height);
    Loop(state, int64_t{to.width} * to.height, 0, [&](benchmark::State&) {
        ImageResize_Bgra32(src.data(), src.step, &from, dst.data(), dst.step, &to);
    });
}
void ResizeOpenCv(benchmark::State& state) {
    vb::Plane src = vb::MakePlane(int64_t{kWidth} * 4);
    const ImageSize to = Scaled(int(state.range(0)));
    vb::Plane dst = vb::MakePlane(int64_t{to.width} * 4, to.height);
    cv::Mat in(kHeight, kWidth, CV_8UC4, src.data(), src.step), out(to.height, to.width, CV_8UC4, dst.data(), dst.step);
    const int interpolation = to.width < kWidth ? cv::INTER_AREA : cv::INTER_CUBIC;
    Loop(state, int64_t{to.width} * to.height, 0, [&](benchmark::State&) {
        cv::resize(in, out, out.size(), 0, 0, interpolation);
    });
}

void DownScaleVelmora(benchmark::State& state) {
    vb::Plane src = vb::MakePlane(int64_t{kWidth} * 4), dst = vb::MakePlane(int64_t{kWidth / 2} * 4, kHeight / 2);
    const ImageSize from{kWidth, kHeight};
    Loop(state, kPixels / 4, 0, [&](benchmark::State&) { ImageDownScale_Bgr32(src.data(), src.step, dst.data(), dst.step, &from); });
}

// The 8-bit pyramid steps: state.range(0) 0 goes down from the full size, 1 up to it.
void PyrVelmora(benchmark::State& state) {
    const bool up = state.range(0) == 1;
    const ImageSize full{kWidth, kHeight}, half{kWidth / 2, kHeight / 2}, from = up ? half : full, to = up ? full : half;
    vb::Plane src = vb::MakePlane(int64_t{from.width} * 4, from.height), dst = vb::MakePlane(int64_t{to.width} * 4, to.height);
    Loop(state, int64_t{to.width} * to.height, 0, [&](benchmark::State&) {
        (up ? ImagePyrUp_Bgra32 : ImagePyrDown_Bgra32)(src.data(), src.step, &from, dst.data(), dst.step, &to);
    });
}
void PyrOpenCv(benchmark::State& state) {
    const bool up = state.range(0) == 1;
    const cv::Size full(kWidth, kHeight), half(kWidth / 2, kHeight / 2), from = up ? half : full, to = up ? full : half;
    vb::Plane src = vb::MakePlane(int64_t{from.width} * 4, from.height), dst = vb::MakePlane(int64_t{to.width} * 4, to.height);
    cv::Mat in(from, CV_8UC4, src.data(), src.step), out(to, CV_8UC4, dst.data(), dst.step);
    Loop(state, int64_t{to.width} * to.height, 0, [&](benchmark::State&) {
        if (up) cv::pyrUp(in, out, to);
        else cv::pyrDown(in, out, to);
    });
}

}  // namespace

BENCHMARK(LocalLaplacianVelmora)->Name("pyramid/local_laplacian_8x_all_levels/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResizeVelmora)->Name("pyramid/resize/velmora")->Arg(500)->Arg(1370)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ResizeOpenCv)->Name("pyramid/resize/opencv")->Arg(500)->Arg(1370)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DownScaleVelmora)->Name("pyramid/downscale_half/velmora")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PyrVelmora)->Name("pyramid/pyr_down_up_8u/velmora")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PyrOpenCv)->Name("pyramid/pyr_down_up_8u/opencv")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
