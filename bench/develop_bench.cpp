// The develop pass on 4000x3000 RgbL128F, one thread: all seven adjustments, exposure alone, and
// the masked pass with three local maps. No imaging library has this recipe, so the peer is the
// plain scalar implementation of it (the tests' reference, C library exp/log per pixel).
// Rates are per CPU second: the figure of one core, whatever else the machine runs meanwhile.
#include <cstring>
#include <random>
#include <vector>

#include "../tests/reference/develop.h"
#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

enum { kExp, kBri, kSha, kHig, kCon, kCla, kSat };

struct Setup {
    DevelopParameter p[7] = {};
    const DevelopParameter* ptr[7] = {&p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6]};
    float black = 0.0f;
};

// A tasteful edit with every adjustment on.
void AllSeven(Setup& s) {
    const float amounts[7] = {0.4f, 0.2f, 0.35f, -0.4f, 0.25f, 0.3f, 0.15f};
    for (int k = 0; k < 7; ++k) s.p[k].amount = amounts[k];
}

// Local maps: a smooth ramp, as painted or gradient masks look.
std::vector<float> Ramp(float from, float to) {
    std::vector<float> m(size_t(vb::kWidth) * vb::kHeight);
    for (int y = 0; y < vb::kHeight; ++y)
        for (int x = 0; x < vb::kWidth; ++x) m[size_t(y) * vb::kWidth + x] = from + (to - from) * float(x + y) / (vb::kWidth + vb::kHeight);
    return m;
}

// An RgbL128F image whose fourth lane is near the pixel's luminance, restored before every
// iteration because the pass works in place.
struct Scene {
    vb::Plane image = vb::MakeFloatPlane(4);
    std::vector<uint8_t> original;
    Scene() {
        for (int y = 0; y < vb::kHeight; ++y) {
            float* row = reinterpret_cast<float*>(image.data() + int64_t{y} * image.step);
            for (int x = 0; x < vb::kWidth; ++x) {
                float* px = row + 4 * x;
                px[3] = 0.9f * (0.28804f * px[0] + 0.711874f * px[1] + 8.6e-05f * px[2]);
            }
        }
        original.assign(image.data(), image.data() + size_t(image.step) * vb::kHeight);
    }
    void Restore(benchmark::State& state) {
        state.PauseTiming();
        std::memcpy(image.data(), original.data(), original.size());
        state.ResumeTiming();
    }
};

Scene& TheScene() {
    static Scene scene;
    return scene;
}

template <class Configure>
void RunVelmora(benchmark::State& state, Configure configure) {
    Scene& scene = TheScene();
    Setup s;
    configure(s);
    const ImageSize roi{vb::kWidth, vb::kHeight};
    for (auto _ : state) {
        scene.Restore(state);
        ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(scene.image.As<float>(), scene.image.step, &roi, s.ptr[0], s.ptr[1], s.ptr[2],
                                              s.ptr[3], s.ptr[4], s.ptr[5], s.ptr[6], 0, 0, 0, s.black, 0, 0, 0);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * 32);
}

template <class Configure>
void RunScalar(benchmark::State& state, Configure configure) {
    Scene& scene = TheScene();
    Setup s;
    configure(s);
    // Amounts without local maps are the same for every pixel: worked out once, as a scalar
    // implementation would; with maps, per pixel.
    const auto global = ref::DevelopAmounts(s.ptr, 0);
    for (auto _ : state) {
        scene.Restore(state);
        for (int y = 0; y < vb::kHeight; ++y) {
            float* row = reinterpret_cast<float*>(scene.image.data() + int64_t{y} * scene.image.step);
            for (int x = 0; x < vb::kWidth; ++x) {
                const int64_t i = int64_t{y} * vb::kWidth + x;
                ref::Develop(row + 4 * x, global.masked ? ref::DevelopAmounts(s.ptr, i) : global, s.black);
            }
        }
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * 32);
}

void ExposureAlone(Setup& s) { s.p[kExp].amount = 0.7f; }

// All seven on, with maps on exposure (a dodge), brightness and saturation (brushes).
void MaskedThree(Setup& s) {
    static const std::vector<float> dodge = Ramp(-0.5f, 0.8f), bright = Ramp(0.2f, -0.2f), colour = Ramp(-0.3f, 0.3f);
    AllSeven(s);
    s.p[kExp].localMap = dodge.data();
    s.p[kBri].localMap = bright.data();
    s.p[kSat].localMap = colour.data();
    s.black = 0.002f;
}

void BM_AllSevenVelmora(benchmark::State& state) { RunVelmora(state, AllSeven); }
void BM_AllSevenScalar(benchmark::State& state) { RunScalar(state, AllSeven); }
void BM_ExposureVelmora(benchmark::State& state) { RunVelmora(state, ExposureAlone); }
void BM_ExposureScalar(benchmark::State& state) { RunScalar(state, ExposureAlone); }
void BM_MaskedVelmora(benchmark::State& state) { RunVelmora(state, MaskedThree); }
void BM_MaskedScalar(benchmark::State& state) { RunScalar(state, MaskedThree); }

// The bytes the pass moves (read and rewrite the image), for scale.
void BM_Memcpy(benchmark::State& state) {
    Scene& scene = TheScene();
    std::vector<uint8_t> copy(scene.original.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), scene.image.data(), copy.size());
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * 32);
}

}  // namespace

BENCHMARK(BM_AllSevenVelmora)->Name("develop/all_seven/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AllSevenScalar)->Name("develop/all_seven/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExposureVelmora)->Name("develop/exposure/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExposureScalar)->Name("develop/exposure/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MaskedVelmora)->Name("develop/masked_three_maps/velmora")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MaskedScalar)->Name("develop/masked_three_maps/scalar")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Name("develop/memcpy")->Unit(benchmark::kMillisecond);
