// Tone curves on 4000x3000 beside a plain scalar loop of the same interpolation, and cv::LUT on
// 8-bit data for scale (a table lookup without interpolation), one thread each.
#include <opencv2/core.hpp>

#include <algorithm>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

constexpr int kIntervals = 4096;

// A gamma-like curve with the extra entry the kernels read at the top.
std::vector<float> Table(int intervals) {
    std::vector<float> t(intervals + 2);
    for (int i = 0; i <= intervals; ++i) t[i] = float(i) / intervals * (2.f - float(i) / intervals);
    t[intervals + 1] = t[intervals];
    return t;
}

void Count(benchmark::State& state, int64_t samples_per_pixel, int64_t sample_bytes) {
    const int64_t pixels = int64_t{vb::kWidth} * vb::kHeight;
    vb::SetCounters(state, pixels, 2 * pixels * samples_per_pixel * sample_bytes);
}

float Interpolate(const float* t, float p) {
    const int k = int(p);
    return t[k] + (t[k + 1] - t[k]) * (p - float(k));
}

template <int Channels, bool KeepAlpha, class Fn>
void Velmora16(benchmark::State& state, Fn fn) {
    const vb::Plane src = vb::MakePlane(int64_t{vb::kWidth} * Channels * 2), dst = vb::MakePlane(int64_t{vb::kWidth} * Channels * 2);
    const auto table = Table(kIntervals);
    for (auto _ : state) {
        fn(src.As<uint16_t>(), src.step, dst.As<uint16_t>(), dst.step, 0, 0, vb::kWidth, vb::kHeight, table.data(), kIntervals);
        benchmark::ClobberMemory();
    }
    Count(state, Channels, 2);
}

template <int Channels, bool KeepAlpha>
void Scalar16(benchmark::State& state) {
    const vb::Plane src = vb::MakePlane(int64_t{vb::kWidth} * Channels * 2), dst = vb::MakePlane(int64_t{vb::kWidth} * Channels * 2);
    const auto table = Table(kIntervals);
    const float scale = float(kIntervals) / 65535.f;
    for (auto _ : state) {
        for (int y = 0; y < vb::kHeight; ++y) {
            const auto* s = reinterpret_cast<const uint16_t*>(src.data() + int64_t{y} * src.step);
            auto* d = reinterpret_cast<uint16_t*>(dst.data() + int64_t{y} * dst.step);
            for (int i = 0; i < vb::kWidth * Channels; ++i) {
                if (KeepAlpha && i % 4 == 3) continue;
                const float v = std::clamp(Interpolate(table.data(), float(s[i]) * scale), 0.f, 1.f);
                d[i] = uint16_t(int(v * 65535.f + 0.5f));
            }
        }
        benchmark::ClobberMemory();
    }
    Count(state, Channels, 2);
}

// One curve per channel, as records of four: the four-curve kernels' layout.
std::vector<float> Records(int intervals) {
    std::vector<float> records;
    for (float t : Table(intervals)) records.insert(records.end(), {t, t * t, t, 1.f - t});
    return records;
}

template <int Channels, class Fn>
void Velmora32(benchmark::State& state, Fn fn, bool per_channel) {
    const vb::Plane src = vb::MakeFloatPlane(Channels), dst = vb::MakeFloatPlane(Channels);
    const std::vector<float> table = per_channel ? Records(kIntervals) : Table(kIntervals);
    for (auto _ : state) {
        fn(src.As<float>(), src.step, dst.As<float>(), dst.step, 0, 0, vb::kWidth, vb::kHeight, table.data(), float(kIntervals));
        benchmark::ClobberMemory();
    }
    Count(state, Channels, 4);
}

template <int Channels>
void Scalar32(benchmark::State& state) {
    const vb::Plane src = vb::MakeFloatPlane(Channels), dst = vb::MakeFloatPlane(Channels);
    const auto table = Table(kIntervals);
    for (auto _ : state) {
        for (int y = 0; y < vb::kHeight; ++y) {
            const auto* s = reinterpret_cast<const float*>(src.data() + int64_t{y} * src.step);
            auto* d = reinterpret_cast<float*>(dst.data() + int64_t{y} * dst.step);
            for (int i = 0; i < vb::kWidth * Channels; ++i)
                d[i] = Interpolate(table.data(), std::clamp(s[i], 0.f, 1.f) * float(kIntervals));
        }
        benchmark::ClobberMemory();
    }
    Count(state, Channels, 4);
}

// The four-curve peer: the same loop over records, channel c reading column c. Its table is four
// times the single curve's, which is what the four-curve kernel pays in cache misses too.
void Scalar4Curves(benchmark::State& state) {
    const vb::Plane src = vb::MakeFloatPlane(4), dst = vb::MakeFloatPlane(4);
    const auto records = Records(kIntervals);
    for (auto _ : state) {
        for (int y = 0; y < vb::kHeight; ++y) {
            const auto* s = reinterpret_cast<const float*>(src.data() + int64_t{y} * src.step);
            auto* d = reinterpret_cast<float*>(dst.data() + int64_t{y} * dst.step);
            for (int i = 0; i < vb::kWidth * 4; ++i) {
                const float p = std::clamp(s[i], 0.f, 1.f) * float(kIntervals);
                const int k = int(p);
                const float lower = records[4 * k + i % 4], upper = records[4 * k + 4 + i % 4];
                d[i] = lower + (upper - lower) * (p - float(k));
            }
        }
        benchmark::ClobberMemory();
    }
    Count(state, 4, 4);
}

void Lut8(benchmark::State& state) {
    cv::setNumThreads(1);
    const vb::Plane src = vb::MakePlane(vb::kWidth), dst = vb::MakePlane(vb::kWidth);
    cv::Mat in(vb::kHeight, vb::kWidth, CV_8UC1, src.data(), size_t(src.step));
    cv::Mat out(vb::kHeight, vb::kWidth, CV_8UC1, dst.data(), size_t(dst.step));
    cv::Mat lut(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) lut.at<uint8_t>(i) = uint8_t(255 - i);
    for (auto _ : state) {
        cv::LUT(in, lut, out);
        benchmark::ClobberMemory();
    }
    Count(state, 1, 1);
}

void C1_16u_velmora(benchmark::State& s) { Velmora16<1, false>(s, Curve_16u_C1R); }
void C3_16u_velmora(benchmark::State& s) { Velmora16<3, false>(s, Curve_16u_C3R); }
void C4_16u_velmora(benchmark::State& s) { Velmora16<4, false>(s, Curve_16u_C4R); }
void AC4_16u_velmora(benchmark::State& s) { Velmora16<4, true>(s, Curve_16u_AC4R); }
void C1_32f_velmora(benchmark::State& s) { Velmora32<1>(s, Curve_32f_C1R, false); }
void C3_32f_velmora(benchmark::State& s) { Velmora32<3>(s, Curve_32f_C3R, false); }
void C4_32f_velmora(benchmark::State& s) { Velmora32<4>(s, Curve_32f_C4R, false); }
void Curve4_velmora(benchmark::State& s) { Velmora32<4>(s, Curve4_32f_C4R, true); }

BENCHMARK(C1_16u_velmora)->Name("curves/16u_C1R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar16<1, false>)->Name("curves/16u_C1R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(Lut8)->Name("curves/16u_C1R/opencv_lut_8u")->Unit(benchmark::kMillisecond);
BENCHMARK(C3_16u_velmora)->Name("curves/16u_C3R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar16<3, false>)->Name("curves/16u_C3R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(C4_16u_velmora)->Name("curves/16u_C4R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar16<4, false>)->Name("curves/16u_C4R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(AC4_16u_velmora)->Name("curves/16u_AC4R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar16<4, true>)->Name("curves/16u_AC4R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(C1_32f_velmora)->Name("curves/32f_C1R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar32<1>)->Name("curves/32f_C1R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(C3_32f_velmora)->Name("curves/32f_C3R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar32<3>)->Name("curves/32f_C3R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(C4_32f_velmora)->Name("curves/32f_C4R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar32<4>)->Name("curves/32f_C4R/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(Curve4_velmora)->Name("curves/Curve4_32f_C4R/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(Scalar4Curves)->Name("curves/Curve4_32f_C4R/scalar")->Unit(benchmark::kMillisecond);

}  // namespace
