// Exposure, brightness, saturation and levels on 4000x3000 Rgba128F, one thread, each beside its
// peer: OpenCV where it has the operation (convertTo scales for exposure, scale/offset plus
// min/max for levels), otherwise a plain scalar loop computing the same formula per pixel.
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using vb::kHeight;
using vb::kWidth;

constexpr int64_t kPixels = int64_t{kWidth} * kHeight;
constexpr int64_t kBytesMoved = kPixels * 32;  // 16 bytes read and 16 written per pixel

struct Images {
    vb::Plane src = vb::MakeFloatPlane(4), dst = vb::MakeFloatPlane(4);
    ImageSize roi{kWidth, kHeight};
    float* row(const vb::Plane& p, int y) const { return reinterpret_cast<float*>(p.data() + int64_t{y} * p.step); }
    cv::Mat Mat(const vb::Plane& p) const { return cv::Mat(kHeight, kWidth, CV_32FC4, p.data(), p.step); }
};

// One float per pixel, packed, in [-0.5, 0.5]: stops for the exposure maps, a saturation offset.
std::vector<float> LocalMap() {
    vb::Plane noise = vb::MakeFloatPlane(1, 1);
    std::vector<float> map(static_cast<size_t>(kPixels));
    for (size_t i = 0; i < map.size(); ++i) map[i] = noise.As<float>()[i % kWidth] - 0.5f;
    return map;
}

template <class Fn>
void Run(benchmark::State& state, Fn&& fn) {
    cv::setNumThreads(1);
    Images im;
    for (auto _ : state) {
        fn(im);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kBytesMoved);
}

float Rec709Y(const float* p) { return 0.2125f * p[0] + 0.7152f * p[1] + 0.0721f * p[2]; }
float ProPhotoY(const float* p) { return 0.28804f * p[0] + 0.711874f * p[1] + 8.6e-05f * p[2]; }

// ---- Exposure ----

void ExposureScalarVelmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        ImageAdjustExposure_Rgba128F(im.src.As<float>(), im.src.step, im.dst.As<float>(), im.dst.step, &im.roi, 0.5f);
    });
}
void ExposureSse2Velmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        ImageAdjustExposure_Rgba128F_SSE2(im.src.As<float>(), im.src.step, im.dst.As<float>(), im.dst.step, &im.roi,
                                          0.5f);
    });
}
void ExposureOpenCv(benchmark::State& state) {
    Run(state, [](Images& im) {
        cv::Mat d = im.Mat(im.dst);
        im.Mat(im.src).convertTo(d, CV_32FC4, std::exp2(0.5));
    });
}

// In place, a quarter stop per run: the values stay far from overflow over a benchmark's runs.
void ExposureEtcVelmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        const ExposureParameter e{0.25f, nullptr, 0, {0, 0}};
        ImageAdjustExposureEtc_Rgba128F_SSE2(im.dst.As<float>(), im.dst.step, kWidth, kHeight, e, e, 0, 0);
    });
}
void ExposureEtcOpenCv(benchmark::State& state) {
    Run(state, [](Images& im) {
        cv::Mat d = im.Mat(im.dst);
        d.convertTo(d, CV_32FC4, std::exp2(0.25));
    });
}

void ExposureEtcLocalVelmora(benchmark::State& state) {
    const std::vector<float> map = LocalMap();
    Run(state, [&](Images& im) {
        const ExposureParameter e{0.0f, map.data(), kWidth * 4, {0, 0}};
        ImageAdjustExposureEtc_Rgba128F_SSE2(im.dst.As<float>(), im.dst.step, kWidth, kHeight, e, e, 0, 0);
    });
}
void ExposureEtcLocalScalar(benchmark::State& state) {
    const std::vector<float> map = LocalMap();
    Run(state, [&](Images& im) {
        for (int y = 0; y < kHeight; ++y) {
            float* p = im.row(im.dst, y);
            const float* local = map.data() + int64_t{y} * kWidth;
            for (int x = 0; x < kWidth; ++x) {
                const float f = std::pow(2.0f, std::clamp(local[x], -5.0f, 5.0f));
                for (int c = 0; c < 4; ++c) p[4 * x + c] *= f;
            }
        }
    });
}

// Blacks to whites: -0.3, 0.4, 0.2, -0.4, 0.1 stops.
void SelectiveVelmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        const ExposureParameter e{0.0f, nullptr, 0, {0, 0}};
        ImageAdjustExposureSelective_Rgba128F_SSE2(im.dst.As<float>(), im.dst.step, &im.roi, e, -0.3f, 0.4f, 0.2f,
                                                   -0.4f, 0.1f);
    });
}
// The same per-pixel formula in plain code: sRGB tone, band weights evaluated directly, 2^stops.
void SelectiveScalar(benchmark::State& state) {
    Run(state, [](Images& im) {
        const float a[5] = {-0.3f, 0.4f, 0.2f, -0.4f, 0.1f};
        for (int y = 0; y < kHeight; ++y) {
            float* p = im.row(im.dst, y);
            for (int x = 0; x < kWidth; ++x, p += 4) {
                const float v = std::clamp(ProPhotoY(p), 0.0f, 1.0f);
                const float t = v < 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1 / 2.4f) - 0.055f;
                const float dark = std::exp(-50 * t * t), light = std::exp(-50 * (1 - t) * (1 - t));
                const float stops = a[0] * dark + a[1] * (std::exp(-4.5f * t * t) - dark) +
                                    a[2] * std::exp(-28.125f * (t - 0.5f) * (t - 0.5f)) +
                                    a[3] * (std::exp(-4.5f * (1 - t) * (1 - t)) - light) + a[4] * light;
                const float g = std::exp2(std::clamp(stops, -5.0f, 5.0f));
                for (int c = 0; c < 4; ++c) p[c] *= g;
            }
        }
    });
}

// ---- Brightness ----

void BrightnessScalarVelmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        ImageAdjustBrightness_Rgba128F(im.src.As<float>(), im.src.step, im.dst.As<float>(), im.dst.step, &im.roi, 0.3f);
    });
}
void BrightnessSse2Velmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        ImageAdjustBrightness_Rgba128F_SSE2(im.src.As<float>(), im.src.step, im.dst.As<float>(), im.dst.step, &im.roi,
                                            0.3f);
    });
}
// Lightness power curve in plain code with the C library's cube root and power.
void BrightnessScalarLoop(benchmark::State& state) {
    Run(state, [](Images& im) {
        const float k = std::exp2(0.3f);
        for (int y = 0; y < kHeight; ++y) {
            const float* s = im.row(im.src, y);
            float* d = im.row(im.dst, y);
            for (int x = 0; x < 4 * kWidth; x += 4) {
                const float yy = Rec709Y(s + x);
                const float l = yy > 0.008856452f ? 1.16f * std::cbrt(yy) - 0.16f : yy * 9.032963f;
                const float t = 100 * std::pow(l, k);
                const float u = (t + 16) / 116;
                const float g = ((t > 8 ? u * u * u : t / 903.3f) + 1.1920929e-07f) / (yy + 1.1920929e-07f);
                for (int c = 0; c < 4; ++c) d[x + c] = s[x + c] * g;
            }
        }
    });
}

// ---- Saturation ----

// Saturation 0.2 and vibrance -0.2 nearly cancel on average, keeping repeated runs in range.
void SaturationVelmora(benchmark::State& state) {
    Run(state, [](Images& im) {
        ImageAdjustSaturation_Rgba128F_SSE2(im.dst.As<float>(), im.dst.step, kWidth, kHeight, 0.2f, -0.2f, nullptr, 0);
    });
}
void SaturationScalar(benchmark::State& state) {
    Run(state, [](Images& im) {
        for (int y = 0; y < kHeight; ++y) {
            float* p = im.row(im.dst, y);
            for (int x = 0; x < kWidth; ++x, p += 4) {
                const float yy = ProPhotoY(p);
                const float hi = std::max({p[0], p[1], p[2]}), lo = std::min({p[0], p[1], p[2]});
                const float s = std::fabs(hi) <= 1.1920929e-07f ? 0.0f : (hi - lo) / hi;
                const float f = s * -0.2f + 1.2f;
                for (int c = 0; c < 4; ++c) p[c] = yy + (p[c] - yy) * f;
            }
        }
    });
}

// ---- Levels ----

void LevelsVelmora(benchmark::State& state) {
    Run(state, [](Images& im) { ImageLevels_Rgba128F_SSE2(im.dst.As<float>(), im.dst.step, &im.roi, 0.05f, 0.95f); });
}
// OpenCV has no clamped stretch in one call: scale and offset, then the two clamps.
void LevelsOpenCv(benchmark::State& state) {
    Run(state, [](Images& im) {
        cv::Mat d = im.Mat(im.dst);
        d.convertTo(d, CV_32FC4, 1.0 / 0.9, -0.05 / 0.9);
        cv::max(d, 0.0, d);
        cv::min(d, 1.0, d);
    });
}

}  // namespace

BENCHMARK(ExposureScalarVelmora)->Name("exposure/exposure_scalar/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureSse2Velmora)->Name("exposure/exposure/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureOpenCv)->Name("exposure/exposure/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureEtcVelmora)->Name("exposure/exposure_etc/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureEtcOpenCv)->Name("exposure/exposure_etc/opencv")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureEtcLocalVelmora)->Name("exposure/exposure_etc_local/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(ExposureEtcLocalScalar)->Name("exposure/exposure_etc_local/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(SelectiveVelmora)->Name("exposure/selective/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(SelectiveScalar)->Name("exposure/selective/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(BrightnessScalarVelmora)->Name("exposure/brightness_scalar/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(BrightnessSse2Velmora)->Name("exposure/brightness/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(BrightnessScalarLoop)->Name("exposure/brightness/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(SaturationVelmora)->Name("exposure/saturation/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(SaturationScalar)->Name("exposure/saturation/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(LevelsVelmora)->Name("exposure/levels/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(LevelsOpenCv)->Name("exposure/levels/opencv")->Unit(benchmark::kMillisecond);
