// Channel swizzles on 4000x3000 beside OpenCV doing the same reorder (cvtColor for the standard
// conversions, mixChannels for an order cvtColor has no code for), one thread each.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <limits>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

template <class T>
constexpr int kDepth = std::is_same_v<T, uint8_t> ? CV_8U : std::is_same_v<T, uint16_t> ? CV_16U : CV_32F;

template <class T>
vb::Plane MakeFor(int channels) {
    return std::is_same_v<T, float> ? vb::MakeFloatPlane(channels) : vb::MakePlane(int64_t{vb::kWidth} * channels * sizeof(T));
}

template <class T>
cv::Mat Wrap(const vb::Plane& p, int channels) {
    return cv::Mat(vb::kHeight, vb::kWidth, CV_MAKETYPE(kDepth<T>, channels), p.data(), size_t(p.step));
}

void Count(benchmark::State& state, int64_t pixel_bytes_in, int64_t pixel_bytes_out) {
    const int64_t pixels = int64_t{vb::kWidth} * vb::kHeight;
    vb::SetCounters(state, pixels, pixels * (pixel_bytes_in + pixel_bytes_out));
}

// The reorder each pair benchmarks: R/B exchange (with an opaque alpha added, or alpha dropped).
constexpr int32_t kSwap3[3] = {2, 1, 0};
constexpr int32_t kSwap4[4] = {2, 1, 0, 3};
constexpr int32_t kAddAlpha[4] = {0, 1, 2, 3};
constexpr int32_t kDropAlpha[3] = {0, 1, 2};

template <class T>
auto Opaque() {
    if constexpr (std::is_same_v<T, float>) return 1.f;
    else return uint32_t{std::numeric_limits<T>::max()};
}

template <class T, int SrcCh, int DstCh, class Fn>
void Velmora(benchmark::State& state, Fn fn, const int32_t* order) {
    const vb::Plane src = MakeFor<T>(SrcCh), dst = MakeFor<T>(DstCh);
    for (auto _ : state) {
        if constexpr (SrcCh == 3 && DstCh == 4)
            fn(src.As<T>(), src.step, dst.As<T>(), dst.step, 0, 0, vb::kWidth, vb::kHeight, order, Opaque<T>());
        else fn(src.As<T>(), src.step, dst.As<T>(), dst.step, 0, 0, vb::kWidth, vb::kHeight, order);
        benchmark::ClobberMemory();
    }
    Count(state, SrcCh * sizeof(T), DstCh * sizeof(T));
}

template <class T, int Ch, class Fn>
void VelmoraInPlace(benchmark::State& state, Fn fn, const int32_t* order) {
    const vb::Plane data = MakeFor<T>(Ch);
    for (auto _ : state) {
        fn(data.As<T>(), data.step, 0, 0, vb::kWidth, vb::kHeight, order);
        benchmark::ClobberMemory();
    }
    Count(state, Ch * sizeof(T), Ch * sizeof(T));
}

template <class T, int SrcCh, int DstCh>
void OpenCv(benchmark::State& state, int code, bool in_place) {
    cv::setNumThreads(1);
    const vb::Plane src = MakeFor<T>(SrcCh), dst = MakeFor<T>(DstCh);
    cv::Mat in = Wrap<T>(src, SrcCh), out = in_place ? in : Wrap<T>(dst, DstCh);
    for (auto _ : state) {
        cv::cvtColor(in, out, code);
        benchmark::ClobberMemory();
    }
    Count(state, SrcCh * sizeof(T), DstCh * sizeof(T));
}

#define SWIZZLE_PAIR(Depth, T, Kind, SrcCh, DstCh, Order, Code)                                                \
    void Swizzle_##Depth##_##Kind##_velmora(benchmark::State& s) {                                           \
        Velmora<T, SrcCh, DstCh>(s, Swizzle_##Depth##_##Kind, Order);                                         \
    }                                                                                                         \
    void Swizzle_##Depth##_##Kind##_opencv(benchmark::State& s) { OpenCv<T, SrcCh, DstCh>(s, Code, false); } \
    BENCHMARK(Swizzle_##Depth##_##Kind##_velmora)->Name("swizzle/" #Depth "_" #Kind "/velmora")->Unit(benchmark::kMillisecond); \
    BENCHMARK(Swizzle_##Depth##_##Kind##_opencv)->Name("swizzle/" #Depth "_" #Kind "/opencv")->Unit(benchmark::kMillisecond);
#define SWIZZLE_INPLACE_PAIR(Depth, T, Kind, Ch, Order, Code)                                                  \
    void Swizzle_##Depth##_##Kind##_velmora(benchmark::State& s) {                                           \
        VelmoraInPlace<T, Ch>(s, Swizzle_##Depth##_##Kind, Order);                                            \
    }                                                                                                         \
    void Swizzle_##Depth##_##Kind##_opencv(benchmark::State& s) { OpenCv<T, Ch, Ch>(s, Code, true); }         \
    BENCHMARK(Swizzle_##Depth##_##Kind##_velmora)->Name("swizzle/" #Depth "_" #Kind "/velmora")->Unit(benchmark::kMillisecond); \
    BENCHMARK(Swizzle_##Depth##_##Kind##_opencv)->Name("swizzle/" #Depth "_" #Kind "/opencv")->Unit(benchmark::kMillisecond);
#define SWIZZLE_DEPTH(Depth, T)                                                      \
    SWIZZLE_PAIR(Depth, T, C3R, 3, 3, kSwap3, cv::COLOR_BGR2RGB)                     \
    SWIZZLE_PAIR(Depth, T, C4R, 4, 4, kSwap4, cv::COLOR_BGRA2RGBA)                   \
    SWIZZLE_PAIR(Depth, T, C3C4R, 3, 4, kAddAlpha, cv::COLOR_BGR2BGRA)               \
    SWIZZLE_PAIR(Depth, T, C4C3R, 4, 3, kDropAlpha, cv::COLOR_BGRA2BGR)              \
    SWIZZLE_INPLACE_PAIR(Depth, T, C3IR, 3, kSwap3, cv::COLOR_BGR2RGB)               \
    SWIZZLE_INPLACE_PAIR(Depth, T, C4IR, 4, kSwap4, cv::COLOR_BGRA2RGBA)

SWIZZLE_DEPTH(8u, uint8_t)
SWIZZLE_DEPTH(16u, uint16_t)
SWIZZLE_DEPTH(32f, float)

// An order no cvtColor code covers (A, B, G, R from B, G, R, A), against mixChannels.
constexpr int32_t kRotate[4] = {3, 0, 1, 2};
void Rotate_velmora(benchmark::State& s) { Velmora<uint8_t, 4, 4>(s, Swizzle_8u_C4R, kRotate); }
void Rotate_opencv(benchmark::State& state) {
    cv::setNumThreads(1);
    const vb::Plane src = MakeFor<uint8_t>(4), dst = MakeFor<uint8_t>(4);
    cv::Mat in = Wrap<uint8_t>(src, 4), out = Wrap<uint8_t>(dst, 4);
    const int pairs[8] = {3, 0, 0, 1, 1, 2, 2, 3};
    for (auto _ : state) {
        cv::mixChannels(&in, 1, &out, 1, pairs, 4);
        benchmark::ClobberMemory();
    }
    Count(state, 4, 4);
}
BENCHMARK(Rotate_velmora)->Name("swizzle/8u_C4R_rotate/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Rotate_opencv)->Name("swizzle/8u_C4R_rotate/opencv")->Unit(benchmark::kMillisecond);

}  // namespace
