// Integer/float converters on 4000x3000 beside OpenCV doing the same work (cvtColor for the
// channel order, convertTo for the scale) and beside a memcpy that moves as many bytes.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <functional>
#include <string>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;

struct Case {
    const char* name;
    int src_bytes, dst_bytes, src_cv, dst_cv;  // bytes per pixel and OpenCV types
    bool float_source;
    std::function<void(const vb::Plane&, vb::Plane&, const ImageSize*)> velmora;
    std::function<void(const cv::Mat&, cv::Mat&)> opencv;
};

template <class S, class D, class R>
auto Call(R (*fn)(const S*, int32_t, D*, int32_t, const ImageSize*)) {
    return [fn](const vb::Plane& s, vb::Plane& d, const ImageSize* roi) {
        fn(s.As<S>(), s.step, d.As<D>(), d.step, roi);
    };
}

// OpenCV's road: reorder channels (if needed) in the source depth, then scale into the
// destination depth; two passes where the library makes one.
auto Cv(int code, double scale) {
    return [code, scale](const cv::Mat& s, cv::Mat& d) {
        if (code < 0) {
            s.convertTo(d, d.type(), scale);
            return;
        }
        thread_local cv::Mat tmp;
        cv::cvtColor(s, tmp, code);
        tmp.convertTo(d, d.type(), scale);
    };
}

const std::vector<Case>& Cases() {
    static const std::vector<Case> all = {
        {"Bgr24_Bgr32", 3, 4, CV_8UC3, CV_8UC4, false, Call(ImageConvert_Bgr24_Bgr32_SSE2), Cv(cv::COLOR_BGR2BGRA, 1.0)},
        {"Bgra32_Prgba128F", 4, 16, CV_8UC4, CV_32FC4, false, Call(ImageConvert_Bgra32_Prgba128F),
         Cv(cv::COLOR_RGBA2mRGBA, 1.0 / 255)},
        {"Bgra32_Rgba128F", 4, 16, CV_8UC4, CV_32FC4, false, Call(ImageConvert_Bgra32_Rgba128F),
         Cv(cv::COLOR_BGRA2RGBA, 1.0 / 255)},
        {"Rgba32_Rgba128F", 4, 16, CV_8UC4, CV_32FC4, false, Call(ImageConvert_Rgba32_Rgba128F), Cv(-1, 1.0 / 255)},
        {"Rgba64_Rgba128F", 8, 16, CV_16UC4, CV_32FC4, false, Call(ImageConvert_Rgba64_Rgba128F), Cv(-1, 1.0 / 65535)},
        {"Gray8_Bgr32", 1, 4, CV_8UC1, CV_8UC4, false, Call(ImageConvert_Gray8_Bgr32_SSE2), Cv(cv::COLOR_GRAY2BGRA, 1.0)},
        {"Gray8_Bgra32", 1, 4, CV_8UC1, CV_8UC4, false, Call(ImageConvert_Gray8_Bgra32_SSE2), Cv(cv::COLOR_GRAY2BGRA, 1.0)},
        {"Gray8_Rgb128F", 1, 16, CV_8UC1, CV_32FC4, false, Call(ImageConvert_Gray8_Rgb128F_SSE2),
         Cv(cv::COLOR_GRAY2RGBA, 1.0 / 255)},
        {"Gray8_Rgba128F", 1, 16, CV_8UC1, CV_32FC4, false, Call(ImageConvert_Gray8_Rgba128F_SSE2),
         Cv(cv::COLOR_GRAY2RGBA, 1.0 / 255)},
        {"Rgb128F_Bgr24", 16, 3, CV_32FC4, CV_8UC3, true, Call(ImageConvert_Rgb128F_Bgr24_SSE2), Cv(cv::COLOR_RGBA2BGR, 255)},
        {"Rgba128F_Bgra32", 16, 4, CV_32FC4, CV_8UC4, true, Call(ImageConvert_Rgba128F_Bgra32), Cv(cv::COLOR_RGBA2BGRA, 255)},
        {"Rgba128F_Rgba32", 16, 4, CV_32FC4, CV_8UC4, true, Call(ImageConvert_Rgba128F_Rgba32), Cv(-1, 255)},
        {"Rgba128F_Rgba64", 16, 8, CV_32FC4, CV_16UC4, true, Call(ImageConvert_Rgba128F_Rgba64), Cv(-1, 65535)},
    };
    return all;
}

struct Planes {
    vb::Plane src, dst;
    explicit Planes(const Case& c)
        : src(c.float_source ? vb::MakeFloatPlane(4) : vb::MakePlane(int64_t{kWidth} * c.src_bytes)),
          dst(vb::MakePlane(int64_t{kWidth} * c.dst_bytes)) {}
};

int64_t BytesMoved(const Case& c) { return int64_t{kWidth} * kHeight * (c.src_bytes + c.dst_bytes); }

void RunVelmora(benchmark::State& state, const Case& c) {
    Planes p(c);
    const ImageSize roi{kWidth, kHeight};
    for (auto _ : state) {
        c.velmora(p.src, p.dst, &roi);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{kWidth} * kHeight, BytesMoved(c));
}

void RunOpenCv(benchmark::State& state, const Case& c) {
    cv::setNumThreads(1);
    Planes p(c);
    const cv::Mat src(kHeight, kWidth, c.src_cv, p.src.data(), p.src.step);
    cv::Mat dst(kHeight, kWidth, c.dst_cv, p.dst.data(), p.dst.step);
    for (auto _ : state) {
        c.opencv(src, dst);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{kWidth} * kHeight, BytesMoved(c));
}

// memcpy of half the bytes the converter moves: it reads and writes them, so both move as many.
void RunMemcpy(benchmark::State& state, const Case& c) {
    const int64_t half = BytesMoved(c) / 2;
    vb::Plane a = vb::MakePlane(half, 1), b = vb::MakePlane(half, 1);
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), static_cast<size_t>(half));
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{kWidth} * kHeight, BytesMoved(c));
}

const bool kRegistered = [] {
    for (const Case& c : Cases()) {
        const std::string base = std::string("convert/") + c.name + "/";
        benchmark::RegisterBenchmark((base + "velmora").c_str(), RunVelmora, c)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((base + "opencv").c_str(), RunOpenCv, c)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((base + "memcpy").c_str(), RunMemcpy, c)->Unit(benchmark::kMillisecond)->UseRealTime();
    }
    return true;
}();

}  // namespace
