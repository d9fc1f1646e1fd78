// Region shapes for the random-shape tests: the edge sizes first (0, 1, odd, around the vector
// blocks and around 4096), then random ones. Every shape carries its own seed so a failure
// message reproduces it alone. VELMORA_TEST_SCALE (default 1) multiplies the random count.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/guarded_plane.h"

namespace vt {

// A generator with the two draws the tests make most.
struct Rng {
    std::mt19937 g;
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
    float Float(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(g); }
};

struct Shape {
    int width = 0, height = 0;
    int pad_src = 0, pad_dst = 0;  // extra bytes at the end of each row, before alignment
    bool negative_step = false;    // rows bottom-up in memory
    Placement placement = Placement::End;
    uint32_t seed = 0;
};

inline int Scaled(int count) {
    const char* s = std::getenv("VELMORA_TEST_SCALE");
    const double f = s ? std::atof(s) : 1.0;
    return f > 0 ? static_cast<int>(count * f + 0.5) : count;
}

// Step for a row of row_bytes: padded, rounded up to a multiple of align, signed as the shape says.
inline int32_t StepFor(const Shape& s, int64_t row_bytes, int pad, int align = 16) {
    int64_t step = (row_bytes + pad + align - 1) / align * align;
    if (step == 0) step = align;
    return static_cast<int32_t>(s.negative_step ? -step : step);
}

inline std::vector<Shape> RandomShapes(uint32_t seed, int count, int max_width = 300, int max_height = 9) {
    std::vector<Shape> shapes;
    std::mt19937 rng(seed);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto finish = [&](Shape s) {
        s.pad_src = pick(0, 3) * 16 + (pick(0, 3) == 0 ? pick(1, 15) : 0);
        s.pad_dst = pick(0, 3) * 16 + (pick(0, 3) == 0 ? pick(1, 15) : 0);
        s.negative_step = pick(0, 5) == 0;
        s.placement = pick(0, 1) ? Placement::End : Placement::Start;
        s.seed = static_cast<uint32_t>(rng());
        shapes.push_back(s);
    };
    for (int w : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 32, 33, 47, 48, 63, 64, 65})
        for (int h : {1, 2, 3}) finish({w, h});
    for (int w : {4095, 4096, 4097}) finish({w, 2});
    for (int h : {0, -1}) finish({5, h});
    finish({-3, 2});
    for (int i = 0; i < Scaled(count); ++i) finish({pick(0, max_width), pick(1, max_height)});
    return shapes;
}

// Region sizes for the neighbourhood kernels: the degenerate ones first (0 and 1 each way), then
// `count` random ones up to max_w x max_h. fn(rng, w, h) draws the rest of its case from rng.
template <class Fn>
void ForSizes(uint32_t seed, int count, int max_w, int max_h, Fn&& fn) {
    Rng rng{std::mt19937(seed)};
    const int fixed[][2] = {{0, 3}, {3, 0}, {1, 1}, {1, 7}, {7, 1}, {2, 2}};
    for (int i = 0; i < Scaled(count) + 6; ++i) {
        const int w = i < 6 ? fixed[i][0] : rng.Int(1, max_w), h = i < 6 ? fixed[i][1] : rng.Int(1, max_h);
        SCOPED_TRACE(::testing::Message() << "case " << i << ": " << w << "x" << h);
        fn(rng, w, h);
    }
}

inline std::string Describe(const Shape& s) {
    std::ostringstream o;
    o << "shape " << s.width << "x" << s.height << " pad " << s.pad_src << "/" << s.pad_dst
      << (s.negative_step ? " bottom-up" : "") << (s.placement == Placement::End ? " guard-after" : " guard-before")
      << " seed " << s.seed;
    return o.str();
}

// Bytes of a row a kernel may touch: the width rounded up to the kernel's block, in pixels of
// `pixel_bytes`. Negative widths touch nothing.
inline int64_t RowBytes(int width, int block, int pixel_bytes) {
    if (width <= 0) return 0;
    return int64_t{(width + block - 1) / block * block} * pixel_bytes;
}

}  // namespace vt
