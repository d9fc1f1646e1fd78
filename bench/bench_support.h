// Shared benchmark plumbing: 4000x3000 planes with 16-byte aligned, padded rows, and counters
// that report Mpixel/s and GB/s of bytes moved (read plus written) so kernels compare with memcpy.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

namespace vb {

inline constexpr int kWidth = 4000;
inline constexpr int kHeight = 3000;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

// A plane of kHeight rows of `row_bytes`, padded to a 64-byte multiple plus one block of room
// for the kernels that run a block past the width; filled with deterministic noise.
struct Plane {
    int32_t step = 0;
    std::unique_ptr<uint8_t, FreeDeleter> mem;
    uint8_t* data() const { return mem.get(); }
    template <class T>
    T* As() const { return reinterpret_cast<T*>(mem.get()); }
};

inline Plane MakePlane(int64_t row_bytes, int height = kHeight) {
    Plane p;
    p.step = static_cast<int32_t>((row_bytes + 64 + 63) / 64 * 64);
    const size_t bytes = static_cast<size_t>(p.step) * height;
    p.mem.reset(static_cast<uint8_t*>(std::aligned_alloc(64, bytes)));
    std::mt19937 rng(7);
    for (size_t i = 0; i < bytes; i += 4) {
        const uint32_t r = rng();
        std::memcpy(p.mem.get() + i, &r, 4);
    }
    return p;
}

// Float plane with values in [0, 1] (random bytes would be NaNs and denormals).
inline Plane MakeFloatPlane(int channels, int height = kHeight) {
    Plane p = MakePlane(int64_t{kWidth} * channels * 4, height);
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> d(0.f, 1.f);
    for (int y = 0; y < height; ++y) {
        float* row = reinterpret_cast<float*>(p.data() + int64_t{y} * p.step);
        for (int64_t i = 0; i < p.step / 4; ++i) row[i] = d(rng);
    }
    return p;
}

// Counters: pixels per second (shown as Mpixel/s by dividing) and bytes per second.
inline void SetCounters(benchmark::State& state, int64_t pixels, int64_t bytes_moved) {
    state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(pixels) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.SetBytesProcessed(state.iterations() * bytes_moved);
}

}  // namespace vb
