// Linearizing loaders on 4000x3000, one thread, beside Little CMS (an sRGB to linear ProPhoto
// matrix-shaper transform into float, from 8-bit BGRA and from 16-bit RGBA) and libvips
// (vips_colourspace sRGB to scRGB, written out to memory). The in-place 16-bit member runs with
// one and two OpenMP threads, and without its table so the table pass can be told apart.
// Wall-clock time throughout: libvips computes on its own worker thread, so the calling thread's
// CPU time would flatter it.
#include <dlfcn.h>
#include <lcms2.h>
#include <vips/vips.h>

#include <cmath>
#include <vector>

#include "bench_support.h"
#include "velmora/imaging.h"

namespace {

using Loader = StatusCode (*)(const void*, int32_t, void*, int32_t, const ImageSize*, const float*, int32_t,
                              const float*);

// sRGB decoding curve sampled at n points, and linear sRGB to ProPhoto (D50) in row-vector order.
std::vector<float> SrgbTable(int n) {
    std::vector<float> t(n);
    for (int i = 0; i < n; ++i) {
        const double v = double(i) / (n - 1);
        t[i] = static_cast<float>(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
    }
    return t;
}
constexpr float kSrgbToProPhoto[9] = {0.5293f, 0.0984f, 0.0169f, 0.3300f, 0.8734f, 0.1177f, 0.1407f, 0.0282f, 0.8654f};

void Velmora(benchmark::State& state, Loader call, int src_bytes, int dst_bytes) {
    const vb::Plane src = vb::MakePlane(int64_t{vb::kWidth} * src_bytes);
    const vb::Plane dst = vb::MakePlane(int64_t{vb::kWidth} * dst_bytes);
    const auto table = SrgbTable(4096);
    const ImageSize roi{vb::kWidth, vb::kHeight};
    for (auto _ : state) {
        call(src.data(), src.step, dst.data(), dst.step, &roi, table.data(), 4096, kSrgbToProPhoto);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight,
                    int64_t{vb::kWidth} * vb::kHeight * (src_bytes + dst_bytes));
}

#define VELMORA_LOADER(name, src_bytes, dst_bytes)                                  \
    BENCHMARK_CAPTURE(Velmora, name, ImageToLinearRGB_##name, src_bytes, dst_bytes) \
        ->Name("linearize/" #name "/velmora")                                       \
        ->Unit(benchmark::kMillisecond)                                             \
        ->UseRealTime()

VELMORA_LOADER(Bgr24_Rgba128F_SSE2_X4, 3, 16);
VELMORA_LOADER(Rgb24_Rgba128F_SSE2_X4, 3, 16);
VELMORA_LOADER(Bgr32_Rgba128F_SSE2_X4, 4, 16);
VELMORA_LOADER(Bgra32_Rgba128F_SSE2_X4, 4, 16);
VELMORA_LOADER(Bgra32_Prgba128F_SSE2_X4, 4, 16);
VELMORA_LOADER(Pbgra32_Prgba128F_SSE2_X4, 4, 16);
VELMORA_LOADER(Gray8_Rgba128F_SSE2_X16, 1, 16);
VELMORA_LOADER(Bgr24_Rgba64_SSE2_X4, 3, 8);
VELMORA_LOADER(Rgb24_Rgba64_SSE2_X4, 3, 8);
VELMORA_LOADER(Rgb48_Rgba128F_SSE2_X4, 6, 16);
VELMORA_LOADER(Rgb48_Rgba64_SSE2_X4, 6, 8);
VELMORA_LOADER(Rgba64_Rgba128F_SSE2_X2, 8, 16);
VELMORA_LOADER(Rgba64_SSE2_X2, 8, 8);
BENCHMARK_CAPTURE(Velmora, second_generation, _ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4, 4, 16)
    ->Name("linearize/_Pbgra32_Prgba128F_SSE2_X4/velmora")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Little CMS: sRGB to linear ProPhoto through its matrix-shaper path, alpha copied.
void Lcms(benchmark::State& state, cmsUInt32Number in_format, int src_bytes) {
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    const cmsCIExyYTRIPLE prophoto = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE out = cmsCreateRGBProfile(cmsD50_xyY(), &prophoto, curves);
    cmsHTRANSFORM xform =
        cmsCreateTransform(srgb, in_format, out, TYPE_RGBA_FLT, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_COPY_ALPHA);
    const vb::Plane src = vb::MakePlane(int64_t{vb::kWidth} * src_bytes);
    const vb::Plane dst = vb::MakePlane(int64_t{vb::kWidth} * 16);
    for (auto _ : state) {
        cmsDoTransformLineStride(xform, src.data(), dst.data(), vb::kWidth, vb::kHeight, src.step, dst.step, 0, 0);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * (src_bytes + 16));
    cmsDeleteTransform(xform);
    cmsCloseProfile(out);
    cmsCloseProfile(srgb);
    cmsFreeToneCurve(linear);
}
BENCHMARK_CAPTURE(Lcms, bgra8, TYPE_BGRA_8, 4)
    ->Name("linearize/Bgra32_Rgba128F_SSE2_X4/lcms")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(Lcms, rgba16, TYPE_RGBA_16, 8)
    ->Name("linearize/Rgba64_Rgba128F_SSE2_X2/lcms")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// libvips on one worker: sRGB (or 16-bit RGB) to scRGB float, no matrix, output in memory.
void Vips(benchmark::State& state, VipsBandFormat format, VipsInterpretation interpretation, int src_bytes) {
    static const bool started = [] {
        if (VIPS_INIT("bench_linearize")) return false;
        vips_concurrency_set(1);
        vips_cache_set_max(0);
        return true;
    }();
    if (!started) {
        state.SkipWithError("libvips failed to start");
        return;
    }
    const size_t bytes = size_t(vb::kWidth) * vb::kHeight * src_bytes;
    const vb::Plane src = vb::MakePlane(bytes, 1);
    for (auto _ : state) {
        VipsImage* in = vips_image_new_from_memory(src.data(), bytes, vb::kWidth, vb::kHeight, 4, format);
        VipsImage *tagged = nullptr, *out = nullptr;
        vips_copy(in, &tagged, "interpretation", interpretation, nullptr);
        vips_colourspace(tagged, &out, VIPS_INTERPRETATION_scRGB, nullptr);
        size_t size = 0;
        void* pixels = vips_image_write_to_memory(out, &size);
        benchmark::DoNotOptimize(pixels);
        g_free(pixels);
        g_object_unref(out);
        g_object_unref(tagged);
        g_object_unref(in);
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * (src_bytes + 16));
}
BENCHMARK_CAPTURE(Vips, srgb8, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_sRGB, 4)
    ->Name("linearize/Bgra32_Rgba128F_SSE2_X4/vips")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(Vips, rgb16, VIPS_FORMAT_USHORT, VIPS_INTERPRETATION_RGB16, 8)
    ->Name("linearize/Rgba64_Rgba128F_SSE2_X2/vips")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The in-place member with range(0) OpenMP threads, with its table (range(1) = 1) or without.
// The runtime is the one the library loaded, reached by name.
void InPlace(benchmark::State& state) {
    const auto set_threads = reinterpret_cast<void (*)(int)>(dlsym(RTLD_DEFAULT, "omp_set_num_threads"));
    if (set_threads == nullptr) {
        state.SkipWithError("no OpenMP runtime");
        return;
    }
    set_threads(static_cast<int>(state.range(0)));
    const vb::Plane image = vb::MakePlane(int64_t{vb::kWidth} * 8);
    std::vector<uint16_t> table(65536);
    for (int i = 0; i < 65536; ++i) table[i] = static_cast<uint16_t>(i >> 1);
    const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (auto _ : state) {
        SSE_Linearize_Rgba64_VecX2(image.As<uint16_t>(), image.step, vb::kWidth, vb::kHeight,
                                   state.range(1) ? table.data() : nullptr, identity);
        benchmark::ClobberMemory();
    }
    vb::SetCounters(state, int64_t{vb::kWidth} * vb::kHeight, int64_t{vb::kWidth} * vb::kHeight * 16);
}
BENCHMARK(InPlace)
    ->Name("linearize/SSE_Linearize_Rgba64_VecX2/velmora")
    ->ArgNames({"threads", "table"})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({1, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
