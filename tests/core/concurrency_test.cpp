// Re-entrancy: a representative export of every family runs from several host threads at once,
// on disjoint buffers of different shapes, many rounds, and must give exactly what it gives when
// run alone. The OpenMP loader (which forks its own team) runs from two host threads at once.
// `make tsan` runs this test under ThreadSanitizer.
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velmora/imaging.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Deterministic inputs from a seed: a shape and plane contents.
struct Input {
    std::mt19937 rng;
    int w, h;
    explicit Input(uint32_t seed) : rng(seed), w(1 + int(rng() % 61)), h(1 + int(rng() % 23)) {}
    std::vector<float> Floats(size_t n, float lo = 0.0f, float hi = 1.0f) {
        std::vector<float> v(n);
        for (float& f : v) f = std::uniform_real_distribution<float>(lo, hi)(rng);
        return v;
    }
    Bytes Codes(size_t n) {
        Bytes v(n);
        for (uint8_t& b : v) b = uint8_t(rng());
        return v;
    }
};

// Everything a job wrote, its output planes' bytes back to back.
template <class... T>
Bytes AsBytes(const std::vector<T>&... v) {
    Bytes b(((v.size() * sizeof(T)) + ...));
    uint8_t* at = b.data();
    ((std::memcpy(at, v.data(), v.size() * sizeof(T)), at += v.size() * sizeof(T)), ...);
    return b;
}

// Each job builds its input from the seed, runs one export and returns everything it wrote.
const std::vector<std::pair<const char*, std::function<Bytes(uint32_t)>>> kJobs = {
    {"convert", [](uint32_t s) {
         Input in(s);
         Bytes src = in.Codes(size_t(in.w) * in.h * 4 + 16);
         std::vector<float> dst(size_t(in.w + 1) * in.h * 4);
         const ImageSize roi{in.w, in.h};
         ImageConvert_Bgra32_Rgba128F(src.data(), in.w * 4, dst.data(), (in.w + 1) * 16, &roi);
         return AsBytes(dst);
     }},
    {"linearize", [](uint32_t s) {
         Input in(s);
         Bytes src = in.Codes(size_t(in.w + 4) * in.h * 3);
         std::vector<float> dst(size_t(in.w + 4) * in.h * 4), table = in.Floats(1024);
         const float m[9] = {1, 0.1f, 0, 0, 1, 0.2f, 0.1f, 0, 1};
         const ImageSize roi{in.w, in.h};
         ImageToLinearRGB_Rgb24_Rgba128F_SSE2_X4(src.data(), (in.w + 4) * 3, dst.data(), (in.w + 4) * 16, &roi, table.data(),
                                                 1024, m);
         return AsBytes(dst);
     }},
    {"linearize-openmp", [](uint32_t s) {
         Input in(s);
         std::vector<uint16_t> img(size_t(in.w) * in.h * 4), table(65536);
         for (auto& v : img) v = uint16_t(in.rng());
         for (size_t i = 0; i < table.size(); ++i) table[i] = uint16_t(65535 - i);
         const float m[9] = {0.9f, 0.05f, 0, 0.1f, 0.9f, 0, 0, 0.05f, 1};
         SSE_Linearize_Rgba64_VecX2(img.data(), in.w * 8, in.w, in.h, table.data(), m);
         return AsBytes(img);
     }},
    {"srgb+exposure+lab", [](uint32_t s) {
         Input in(s);
         std::vector<float> img = in.Floats(size_t(in.w + 3) * in.h * 4), out(img.size());
         const ImageSize roi{in.w, in.h};
         XMImageRGBToSRGB_Rgb128F_SSE2(img.data(), (in.w + 3) * 16, &roi);
         ImageAdjustExposure_Rgba128F_SSE2(img.data(), (in.w + 3) * 16, out.data(), (in.w + 3) * 16, &roi, 0.7f);
         XMImageConvertToLab_ProPhotoRgb128F_SSE2(out.data(), (in.w + 3) * 16, &roi);
         return AsBytes(out);
     }},
    {"swizzle+curve", [](uint32_t s) {
         Input in(s);
         Bytes src = in.Codes(size_t(in.w) * in.h * 4), dst(src.size());
         const int32_t order[4] = {2, 1, 0, 3};
         Swizzle_8u_C4R(src.data(), in.w * 4, dst.data(), in.w * 4, 0, 0, in.w, in.h, order);
         std::vector<float> img = in.Floats(size_t(in.w) * in.h * 4), table = in.Floats(300);
         Curve_32f_C4IR(img.data(), in.w * 16, 0, 0, in.w, in.h, table.data(), 255.0f);
         return AsBytes(img, dst);
     }},
    {"colour", [](uint32_t s) {
         Input in(s);
         std::vector<float> img = in.Floats(size_t(in.w) * in.h * 4), out(img.size());
         const ImageSize roi{in.w, in.h};
         const float twist[16] = {0.9f, 0.1f, 0, 0, 0.1f, 0.8f, 0.1f, 0, 0, 0.2f, 0.8f, 0, 0, 0, 0, 1};
         ColorTwist_32f_C4R(img.data(), in.w * 16, out.data(), in.w * 16, 0, 0, in.w, in.h, twist);
         XMImageSRGBToLab_Rgb128F_SSE2(out.data(), in.w * 16, &roi);
         return AsBytes(out);
     }},
    {"develop", [](uint32_t s) {
         Input in(s);
         std::vector<float> img = in.Floats(size_t(in.w + 3) * in.h * 4);
         const ImageSize roi{in.w, in.h};
         const DevelopParameter p[7] = {{0.5f, nullptr}, {0.2f, nullptr}, {0.3f, nullptr}, {-0.2f, nullptr},
                                        {0.1f, nullptr}, {0.4f, nullptr}, {0.0f, nullptr}};
         ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(img.data(), (in.w + 3) * 16, &roi, &p[0], &p[1], &p[2], &p[3], &p[4], &p[5],
                                               &p[6], 0, 0, 0, 0.0f, 0, 0, 0);
         return AsBytes(img);
     }},
    {"blur", [](uint32_t s) {
         Input in(s);
         const int r = 1 + int(in.rng() % 4), m = 3 * r, stride = in.w + 2 * m;
         std::vector<float> src = in.Floats(size_t(stride) * (in.h + 2 * m) * 4), dst(size_t(in.w) * in.h * 4),
                            box(dst.size());
         float* origin = src.data() + (size_t(m) * stride + m) * 4;
         const ImageSize roi{in.w, in.h};
         BoxBlur_Rgba128F_SSE2(origin, stride * 16, box.data(), in.w * 16, &roi, r);
         FastGaussianBlur_Rgba128F_SSE2(origin, stride * 16, dst.data(), in.w * 16, &roi, r);
         XMImageGaussian5_Rgba128F_SSE2(in.w, in.h, dst.data(), in.w * 16, 0);
         return AsBytes(dst, box);
     }},
    {"gray-box+dehaze+gradient", [](uint32_t s) {
         Input in(s);
         std::vector<float> gray = in.Floats(size_t(in.w) * in.h), mean(gray.size()), tmp(gray.size());
         const ImageSize roi{in.w, in.h};
         XMImageComputeMeanII_Gray32Float(gray.data(), in.w * 4, mean.data(), in.w * 4, tmp.data(), in.h * 4, &roi, 3);
         std::vector<float> rgba = in.Floats(size_t(in.w) * in.h * 4), dark(gray.size());
         DarkChannel_32f_AC4C1R(rgba.data(), in.w * 16, dark.data(), in.w * 4, 0, 0, in.w, in.h, 4);
         std::vector<float> mask(size_t(in.w + 3) * in.h);
         const int32_t region[4] = {0, 0, in.w, in.h};
         const float c[2] = {10, 5}, radii[2] = {20, 9};
         ImageRadialGradient_Gray32F_SSE2_X4Y1(mask.data(), (in.w + 3) * 4, region, c, radii, 0.3f, 0.5f, 0, false, 2);
         return AsBytes(mean, dark, mask);
     }},
    {"inpaint-blocks", [](uint32_t s) {
         // The deterministic building blocks (the minimiser's draws come from each thread's own generator).
         Input in(s);
         Bytes src = in.Codes(size_t(in.w + 4) * (in.h + 4) * 4), dst(size_t(in.w / 2 + 1) * (in.h / 2 + 1) * 4);
         const ImageSize roi{in.w, in.h};
         ImageDownscaleMasked4x4_Bgra32(src.data(), (in.w + 4) * 4, &roi, dst.data(), (in.w / 2 + 1) * 4, 0);
         ImageSetBorder_Bgra32(src.data() + (in.w + 4) * 8 + 8, (in.w + 4) * 4, &roi, 2, 0xFFFFFFFFu);
         ImageInpaint_Bgra32_SSE2(src.data(), (in.w + 4) * 4, nullptr, in.w, dst.data(), 0, &roi, 0);
         const std::vector<float> a = in.Floats(9 * 4), b = in.Floats(9 * 4);
         std::vector<float> d(4);
         _mm_storeu_ps(d.data(), DistancePatch3_Rgba128F_SSE2(&a[16], &b[16], 1, 3));
         return AsBytes(d, src, dst);
     }},
    {"resize+local-laplacian", [](uint32_t s) {
         Input in(s);
         Bytes src = in.Codes(size_t(in.h) * 256), dst(size_t(in.h) * 512);
         const ImageSize from{in.w, in.h}, to{in.w + 5, (in.h + 1) / 2};
         ImageResize_Bgra32(src.data(), 256, &from, dst.data(), 512, &to);
         std::vector<float> img = in.Floats(size_t(in.w) * in.h * 4, 0.05f, 1.0f);
         const ImageSize roi{in.w, in.h};
         LocalLaplacian_Rgba128F(img.data(), in.w * 16, &roi, 0.5f, 0, 8);
         return AsBytes(img, dst);
     }},
};

TEST(Concurrency, EveryFamilyFromSeveralThreadsMatchesSerialRuns) {
    constexpr int kSeeds = 12, kThreads = 4, kRounds = 12;
    std::vector<std::vector<Bytes>> serial(kJobs.size());
    for (size_t j = 0; j < kJobs.size(); ++j)
        for (int s = 0; s < kSeeds; ++s) serial[j].push_back(kJobs[j].second(uint32_t(1000 * j + s)));
    std::vector<std::string> failures(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 order{uint32_t(t)};
            for (int round = 0; round < kRounds; ++round)
                for (size_t i = 0; i < kJobs.size() * kSeeds; ++i) {
                    const size_t j = order() % kJobs.size();
                    const int s = int(order() % kSeeds);
                    if (kJobs[j].second(uint32_t(1000 * j + s)) != serial[j][size_t(s)] && failures[size_t(t)].empty())
                        failures[size_t(t)] = std::string(kJobs[j].first) + " seed " + std::to_string(s);
                }
        });
    for (auto& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_TRUE(failures[size_t(t)].empty()) << "thread " << t << ": " << failures[size_t(t)];
}

}  // namespace
