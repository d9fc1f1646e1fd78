#include "dehaze.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "guided.h"
#include "road.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace velmora::tool {
namespace {

uint8_t ToByte(float v) { return static_cast<uint8_t>(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f); }

}  // namespace

// The chain a host runs: dark channel of the picture, airlight from the brightest tenth of it,
// rough transmission, a guided filter that snaps the blocky transmission to the picture's edges
// (so depth edges get no halo), and the recovery. The picture is worked on as its sRGB codes,
// the scale the dark-channel prior was observed on.
Image DehazeImage(const Image& in, const DehazeSettings& s) {
    const int w = in.width, h = in.height;
    const int64_t pixels = int64_t{w} * h;
    const size_t n = size_t(pixels);
    const int radius = s.radius > 0 ? s.radius : std::max(2, std::min(w, h) / 80);
    std::optional<FloatImage> work;
    Stage(in.bits == 8 ? "Bgra32 -> Rgba128F" : "Rgba64 -> Rgba128F", pixels, [&] { work.emplace(ToWorking(in)); });
    std::vector<float> dark(n), alpha(n), guide(n);
    Stage("dark channel", pixels, [&] {
        DarkChannel_32f_AC4C1R(work->data.get(), work->step, dark.data(), w * 4, 0, 0, w, h, radius);
    });
    uint8_t light8[3] = {255, 255, 255};
    Stage("airlight (8-bit copies: tool)", pixels, [&] {
        std::vector<uint8_t> rgb(n * 3), dark8(n);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const size_t i = size_t(y) * w + x;
                const float* p = work->Row(y) + 4 * x;
                for (int c = 0; c < 3; ++c) rgb[3 * i + c] = ToByte(p[c]);
                dark8[i] = ToByte(dark[i]);
                alpha[i] = p[3];
                guide[i] = 0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2];
            }
        EstimateAtmosphericLight_8u_C3C1R(rgb.data(), w * 3, dark8.data(), w, 0, 0, w, h, light8);
    });
    const float light[3] = {light8[0] / 255.0f, light8[1] / 255.0f, light8[2] / 255.0f};
    if (Report()) std::fprintf(Report(), "  airlight %d %d %d, window radius %d\n", light8[0], light8[1], light8[2], radius);
    std::vector<float> rough(n);
    Stage("rough transmission", pixels, [&] {
        RoughtTransmissionMap_32f_C1R(dark.data(), w * 4, rough.data(), w * 4, 0, 0, w, h, light, s.strength);
    });
    std::vector<uint8_t> t8(n);
    Stage("guided refinement (box means)", pixels, [&] {
        const std::vector<float> t = GuidedFilter(guide, rough, w, h, 4 * radius, 1e-3f);
        for (size_t i = 0; i < n; ++i) t8[i] = ToByte(t[i]);
    });
    Stage("recovery", pixels, [&] {
        Dehaze_32f_AC4R(work->data.get(), work->step, t8.data(), w, work->data.get(), work->step, 0, 0, w, h, light, s.t0);
    });
    // The recovery treats alpha like a colour; the picture's own goes back.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) work->Row(y)[4 * x + 3] = alpha[size_t(y) * w + x];
    Image out;
    Stage(in.bits == 8 ? "Rgba128F -> Bgra32" : "Rgba128F -> Rgba64", pixels, [&] { out = FromWorking(*work, in.bits); });
    out.channels = in.channels;
    return out;
}

}  // namespace velmora::tool
