// Patch-match inpainting kernels. The minimiser (one forward and one backward sweep) on a 1 MP
// textured picture from a random field, on one and on two threads; the integer patch distance
// as the minimiser spends it (a one-pixel-wide field where every entry tries exactly one
// candidate); the masked shrink and the float distances. OpenCV has no PatchMatch; its own
// inpainting (Telea's fast marching, cv::inpaint) fills the same 5 % hole of the same picture
// as the peer for the whole job, a different and cheaper method.
#include <omp.h>

#include <opencv2/core.hpp>
#include <opencv2/photo.hpp>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

constexpr int kSide = 1024, kFrame = 2;
constexpr int64_t kPixels = int64_t{kSide} * kSide;

// A bordered Bgra32 picture: smooth structure plus grain, so matches are unique but findable.
struct Picture {
    int pitch = kSide + 2 * kFrame;
    std::vector<uint32_t> px = std::vector<uint32_t>(size_t(pitch) * (kSide + 2 * kFrame), 0xFFFFFFFFu);
    Picture() {
        std::mt19937 rng(3);
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                uint32_t v = 0;
                for (int c = 0; c < 3; ++c)
                    v |= uint32_t(std::lround(120 + 60 * std::sin(x * 0.05 + c) * std::cos(y * 0.03 - c) + int(rng() % 31) - 15))
                         << (8 * c);
                px[size_t(y + kFrame) * pitch + x + kFrame] = v;
            }
    }
    uint8_t* Origin() { return reinterpret_cast<uint8_t*>(&px[size_t(kFrame) * pitch + kFrame]); }
    int32_t Step() const { return pitch * 4; }
};

void Minimize(benchmark::State& state) {
    Picture target, source;
    std::mt19937 rng(5);
    std::vector<NNFEntry> start(static_cast<size_t>(kPixels));
    for (auto& e : start) e = {int(rng() % kSide), int(rng() % kSide), INT32_MAX};
    std::vector<NNFEntry> nnf;
    const ImageSize size{kSide, kSide};
    omp_set_num_threads(int(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        nnf = start;
        state.ResumeTiming();
        ImageMinimize_Bgra32(target.Origin(), target.Step(), source.Origin(), source.Step(), nnf.data(), kSide * 12,
                             &size, 4);
        benchmark::ClobberMemory();
    }
    omp_set_num_threads(omp_get_num_procs());
    vb::SetCounters(state, kPixels, 0);
}
BENCHMARK(Minimize)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void PatchDistanceNs(benchmark::State& state) {
    Picture target, source;
    constexpr int kRows = kSide;
    std::vector<NNFEntry> nnf(kRows, NNFEntry{0, 0, 0});  // nothing beats 0: every try is kept out
    const ImageSize size{1, kRows};
    omp_set_num_threads(1);
    for (auto _ : state) {
        ImageMinimize_Bgra32(target.Origin(), target.Step(), source.Origin(), source.Step(), nnf.data(), 12, &size, 4);
        benchmark::ClobberMemory();
    }
    omp_set_num_threads(omp_get_num_procs());
    state.counters["ns/distance"] =
        benchmark::Counter(double(kRows - 1), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(PatchDistanceNs);

void DownscaleMasked(benchmark::State& state) {
    Picture p;
    uint32_t* px = reinterpret_cast<uint32_t*>(p.Origin());
    for (int y = 400; y < 600; ++y)
        for (int x = 400; x < 650; ++x) px[size_t(y) * p.pitch + x] |= 0xFF000000u;
    std::vector<uint32_t> out(size_t(kSide / 2) * (kSide / 2));
    const ImageSize size{kSide, kSide};
    for (auto _ : state) {
        ImageDownscaleMasked4x4_Bgra32(p.Origin(), p.Step(), &size, reinterpret_cast<uint8_t*>(out.data()), kSide * 2, 0);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, kPixels * 5);
}
BENCHMARK(DownscaleMasked)->Unit(benchmark::kMillisecond);

void FloatDistance7x7(benchmark::State& state) {
    std::vector<float> a(64 * 64 * 4, 0.25f), b(64 * 64 * 4, 0.5f);
    float sum = 0;
    for (auto _ : state) {
        const __m128 d = DistancePatch2_Rgba128F_SSE2(&a[(32 * 64 + 32) * 4], &b[(32 * 64 + 32) * 4], 3, 64);
        sum += _mm_cvtss_f32(d);
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(FloatDistance7x7);

// The peer for the whole job: OpenCV's fast-marching inpainting of a 5 % hole (a 230 x 230
// square) in the same picture, radius 3.
void InpaintTeleaOpenCv(benchmark::State& state) {
    Picture p;
    cv::Mat bgra(kSide, kSide, CV_8UC4, p.Origin(), size_t(p.Step())), bgr, out;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    cv::Mat mask = cv::Mat::zeros(kSide, kSide, CV_8U);
    mask(cv::Rect(397, 397, 230, 230)).setTo(255);
    cv::setNumThreads(int(state.range(0)));
    for (auto _ : state) {
        cv::inpaint(bgr, mask, out, 3, cv::INPAINT_TELEA);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, kPixels, 0);
}
BENCHMARK(InpaintTeleaOpenCv)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
