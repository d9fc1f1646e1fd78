// The tool's float working image: four floats a pixel, rows 16-byte aligned with room for the
// library's documented overruns.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace velmora::tool {

struct FloatImage {
    int width = 0, height = 0;
    int32_t step = 0;
    std::unique_ptr<float, decltype(&std::free)> data{nullptr, &std::free};

    FloatImage(int w, int h) : width(w), height(h) {
        step = ((w + 16) * 16 + 63) / 64 * 64;
        data.reset(static_cast<float*>(std::aligned_alloc(64, static_cast<size_t>(step) * h)));
        if (!data) throw std::bad_alloc();
    }
    float* Row(int y) const { return reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(data.get()) + int64_t{y} * step); }
};

// Where progress reports go: standard output, standard error when the picture itself goes to
// standard output, nowhere with --quiet.
inline FILE*& Report() {
    static FILE* stream = stdout;
    return stream;
}

// Times one stage and reports its time and throughput.
template <class Fn>
void Stage(const char* name, int64_t pixels, Fn&& fn) {
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (Report()) std::fprintf(Report(), "  %-34s %9.2f ms %10.1f Mpixel/s\n", name, s * 1e3, s > 0 ? pixels / s / 1e6 : 0.0);
}

}  // namespace velmora::tool
