// Linear ProPhoto <-> Lab on 4000x3000, one thread, beside Little CMS (a linear ProPhoto profile to
// Lab D50, float pipeline) and OpenCV's float cvtColor (linear RGB <-> Lab). Each run starts from
// the same pristine input, copied outside the timed region, since the library converts in place.
#include <lcms2.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;

constexpr int64_t kPixels = int64_t{kWidth} * kHeight;
constexpr int64_t kBytesMoved = kPixels * 32;

struct Images {
    vb::Plane rgb = vb::MakeFloatPlane(4), work = vb::MakeFloatPlane(4);
    ImageSize roi{kWidth, kHeight};
    cv::Mat Mat(const vb::Plane& p) const { return cv::Mat(kHeight, kWidth, CV_32FC4, p.data(), p.step); }
    size_t bytes() const { return static_cast<size_t>(rgb.step) * kHeight; }
};

// The library's own Lab blocks of the test image, the input of the conversions back.
const vb::Plane& LabBlocks(const Images& im) {
    static const vb::Plane lab = [&] {
        vb::Plane p = vb::MakeFloatPlane(4);
        std::memcpy(p.data(), im.rgb.data(), im.bytes());
        XMImageConvertToLab_ProPhotoRgb128F_SSE2(p.As<float>(), p.step, &im.roi);
        return p;
    }();
    return lab;
}

// Times fn on a fresh copy of `input` each run.
template <class Fn>
void RunInPlace(benchmark::State& state, const Images& im, const vb::Plane& input, Fn&& fn) {
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(im.work.data(), input.data(), im.bytes());
        state.ResumeTiming();
        fn();
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kBytesMoved);
}

void ToLabVelmora(benchmark::State& state) {
    Images im;
    RunInPlace(state, im, im.rgb, [&] { XMImageConvertToLab_ProPhotoRgb128F_SSE2(im.work.As<float>(), im.work.step, &im.roi); });
}
void FromLabVelmora(benchmark::State& state) {
    Images im;
    RunInPlace(state, im, LabBlocks(im),
               [&] { XMImageConvertToProPhotoRGB_Lab128F_SSE2(im.work.As<float>(), im.work.step, &im.roi); });
}

// OpenCV: four-channel float linear RGB to three-channel Lab, and Lab back to four channels.
void ToLabOpenCv(benchmark::State& state) {
    cv::setNumThreads(1);
    Images im;
    cv::Mat lab(kHeight, kWidth, CV_32FC3, cv::Scalar::all(0));  // touched: no page faults in the timing
    for (auto _ : state) {
        cv::cvtColor(im.Mat(im.rgb), lab, cv::COLOR_LRGB2Lab);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * (16 + 12));
}
void FromLabOpenCv(benchmark::State& state) {
    cv::setNumThreads(1);
    Images im;
    cv::Mat lab;
    cv::cvtColor(im.Mat(im.rgb), lab, cv::COLOR_LRGB2Lab);
    cv::Mat rgb = im.Mat(im.work);
    for (auto _ : state) {
        cv::cvtColor(lab, rgb, cv::COLOR_Lab2LRGB, 4);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * (12 + 16));
}

// Little CMS: linear ProPhoto (ROMM primaries, D50, gamma 1) and Lab D50, four floats a pixel
// both ways (the fourth carried as an extra channel).
struct Cms {
    cmsHPROFILE rgb, lab;
    cmsHTRANSFORM to_lab, from_lab;
    Cms() {
        const cmsCIExyYTRIPLE romm = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
        cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
        cmsToneCurve* curves[3] = {linear, linear, linear};
        rgb = cmsCreateRGBProfile(cmsD50_xyY(), &romm, curves);
        lab = cmsCreateLab4Profile(cmsD50_xyY());
        to_lab = cmsCreateTransform(rgb, TYPE_RGBA_FLT, lab, TYPE_LabA_FLT, INTENT_RELATIVE_COLORIMETRIC, 0);
        from_lab = cmsCreateTransform(lab, TYPE_LabA_FLT, rgb, TYPE_RGBA_FLT, INTENT_RELATIVE_COLORIMETRIC, 0);
        cmsFreeToneCurve(linear);
    }
    ~Cms() {
        cmsDeleteTransform(to_lab);
        cmsDeleteTransform(from_lab);
        cmsCloseProfile(rgb);
        cmsCloseProfile(lab);
    }
    void Run(cmsHTRANSFORM t, const vb::Plane& in, vb::Plane& out) const {
        cmsDoTransformLineStride(t, in.data(), out.data(), kWidth, kHeight, in.step, out.step, 0, 0);
    }
};

void ToLabLittleCms(benchmark::State& state) {
    Images im;
    Cms cms;
    for (auto _ : state) {
        cms.Run(cms.to_lab, im.rgb, im.work);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kBytesMoved);
}
void FromLabLittleCms(benchmark::State& state) {
    Images im;
    Cms cms;
    vb::Plane lab = vb::MakeFloatPlane(4);
    cms.Run(cms.to_lab, im.rgb, lab);
    for (auto _ : state) {
        cms.Run(cms.from_lab, lab, im.work);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kBytesMoved);
}

}  // namespace

BENCHMARK(ToLabVelmora)->Name("lab/to_lab/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ToLabOpenCv)->Name("lab/to_lab/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(ToLabLittleCms)->Name("lab/to_lab/lcms")->Unit(benchmark::kMillisecond);
BENCHMARK(FromLabVelmora)->Name("lab/from_lab/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(FromLabOpenCv)->Name("lab/from_lab/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(FromLabLittleCms)->Name("lab/from_lab/lcms")->Unit(benchmark::kMillisecond);
