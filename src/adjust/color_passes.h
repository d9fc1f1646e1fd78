// The per-pixel formulas of the colour matrices and fixed colour spaces on four-float pixels,
// written once over the float batch: the SSE2 body runs four pixels a step, the AVX2 and AVX-512
// bodies (color_avx2.cpp, color_avx512.cpp) eight and sixteen, with the same operations in the
// same order on every lane, so every level gives the same bits. Each formula runs as the header
// writes it, left to right, without fused multiply-add.
#pragma once

#include <cstdint>

#include "adjust/color_rows.h"
#include "core/cpu.h"
#include "core/stream.h"

namespace velmora::color {

enum class Pass { Twist4x4, Affine3x4, RgbToYCbCr, YCbCrToRgb, RgbToYuv, YuvToRgb, RgbToCmy, RgbToCmyk, HueSaturation };

struct PassArgs {
    const float* matrix = nullptr;  // Twist4x4: 4 x 4, Affine3x4: 3 x 4, HueSaturation: 3 x 3 rotation
    float black_generation = 0.0f;  // RgbToCmyk
    bool turn = false;              // HueSaturation: rotate (a hue of 0 skips it)
    float saturation = 0.0f, lightness = 0.0f;
};

template <class B>
inline B Luma601(const B (&v)[4]) {
    return (v[0] * B(0.299f) + v[1] * B(0.587f)) + v[2] * B(0.114f);
}

template <class B>
inline void Apply(Pass pass, B (&v)[4], const PassArgs& a) {
    const B r = v[0], g = v[1], b = v[2], one(1.0f), half(0.5f);
    switch (pass) {
        case Pass::Twist4x4:
            for (int i = 0; i < 4; ++i) v[i] = Row3(r, g, b, a.matrix + 4 * i) + v[3] * B(a.matrix[4 * i + 3]);
            break;
        case Pass::Affine3x4:  // the fourth column is an offset; the fourth plane is not looked at
            for (int i = 0; i < 3; ++i) v[i] = Row3(r, g, b, a.matrix + 4 * i) + B(a.matrix[4 * i + 3]);
            break;
        case Pass::RgbToYCbCr:
            v[0] = Luma601(v);
            v[1] = ((r * B(-0.168736f) - g * B(0.331264f)) + b * B(0.5f)) + half;
            v[2] = ((r * B(0.5f) - g * B(0.418688f)) - b * B(0.081312f)) + half;
            break;
        case Pass::YCbCrToRgb: {
            const B cb = g - half, cr = b - half;
            v[0] = r + cr * B(1.402f);
            v[1] = (r - cb * B(0.344136f)) - cr * B(0.714136f);
            v[2] = r + cb * B(1.772f);
            break;
        }
        case Pass::RgbToYuv: {
            const B y = Luma601(v);
            v[0] = y, v[1] = (b - y) * B(0.492111f), v[2] = (r - y) * B(0.877283f);
            break;
        }
        case Pass::YuvToRgb:
            v[0] = r + b * B(1.139883f);
            v[1] = (r - g * B(0.394642f)) - b * B(0.580622f);
            v[2] = r + g * B(2.032062f);
            break;
        case Pass::RgbToCmy:
            for (int i = 0; i < 3; ++i) v[i] = one - v[i];
            break;
        case Pass::HueSaturation: {
            // Turned about the grey axis and put back at the old Y by the gain rule; then the
            // saturation mix with that Y and the lightness pull. Zero amounts skip their step.
            const B y = LumaProPhoto(r, g, b);
            if (a.turn) {
                for (int i = 0; i < 3; ++i) v[i] = Row3(r, g, b, a.matrix + 3 * i);
                const B gain = Gain(y, LumaProPhoto(v[0], v[1], v[2]));
                for (int i = 0; i < 3; ++i) v[i] = v[i] * gain;
            }
            for (int i = 0; i < 3; ++i) {
                if (a.saturation != 0.0f) v[i] = y + (v[i] - y) * B(1.0f + a.saturation);
                if (a.lightness < 0.0f) v[i] = v[i] * B(1.0f + a.lightness);
                else if (a.lightness > 0.0f) v[i] = v[i] + (one - v[i]) * B(a.lightness);
            }
            break;
        }
        case Pass::RgbToCmyk: {
            // K = clamp(g (1 - max(R, G, B)), 0, 1); each of C, M, Y is (1 - channel - K) / (1 - K),
            // or 0 where K reaches 1 (a black pixel has no colour left).
            const B zero(0.0f);
            const B k = xsimd::min(xsimd::max(B(a.black_generation) * (one - xsimd::max(xsimd::max(r, g), b)), zero), one);
            const auto black = k >= one;
            for (int i = 0; i < 3; ++i) v[i] = xsimd::select(black, zero, ((one - v[i]) - k) / (one - k));
            v[3] = k;
            break;
        }
    }
}

// A pass over four-float pixels, B::size at a time; keep_alpha leaves the destination's fourth
// float as it was. Large separate destinations with aligned rows take streaming stores. One switch per call picks the formula; the walk is instantiated per formula.
template <class B>
void RunPass(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
             int32_t width, int32_t height, const PassArgs& a) {
    const int64_t bytes = width > 0 && height > 0 ? int64_t{width} * height * 16 : 0;
    const bool streamed = !keep_alpha && stream::WorthwhileRows(src, dst, dst_step, bytes);
    const auto walk = [&](auto formula) {
        if (keep_alpha) {
            PlaneRows<B, Rgba128, Rgba128KeepAlpha>(src, src_step, dst, dst_step, width, height, formula);
        } else if (streamed) {
            PlaneRows<B, Rgba128, Rgba128Streamed>(src, src_step, dst, dst_step, width, height, formula);
            _mm_sfence();
        } else {
            PlaneRows<B, Rgba128, Rgba128>(src, src_step, dst, dst_step, width, height, formula);
        }
    };
    switch (pass) {
#define VELMORA_PASS(P) \
    case Pass::P: walk([&](B(&v)[4]) { Apply(Pass::P, v, a); }); break;
        VELMORA_PASS(Twist4x4)
        VELMORA_PASS(Affine3x4)
        VELMORA_PASS(RgbToYCbCr)
        VELMORA_PASS(YCbCrToRgb)
        VELMORA_PASS(RgbToYuv)
        VELMORA_PASS(YuvToRgb)
        VELMORA_PASS(RgbToCmy)
        VELMORA_PASS(RgbToCmyk)
        VELMORA_PASS(HueSaturation)
#undef VELMORA_PASS
    }
}

void RunPassAvx2(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
                 int32_t width, int32_t height, const PassArgs& a);
void RunPassAvx512(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
                   int32_t width, int32_t height, const PassArgs& a);

// The widest body this processor has, on a region of four-float pixels; matrix-style callers
// move the planes to (x, y) first.
inline void RunWidest(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst, int32_t dst_step,
                      int32_t width, int32_t height, const PassArgs& a = {}) {
    const auto body = cpu::Has(cpu::Level::Avx512) ? RunPassAvx512 : cpu::Has(cpu::Level::Avx2) ? RunPassAvx2 : RunPass<Batch4>;
    body(pass, keep_alpha, src, src_step, dst, dst_step, width, height, a);
}
inline StatusCode RunWidestAt(Pass pass, bool keep_alpha, const float* src, int32_t src_step, float* dst,
                              int32_t dst_step, int32_t x, int32_t y, int32_t width, int32_t height,
                              const PassArgs& a = {}) {
    if (width < 1 || height < 1) return StatusOk;
    RunWidest(pass, keep_alpha, frame::Row(src, src_step, y) + 4 * static_cast<ptrdiff_t>(x), src_step,
              frame::Row(dst, dst_step, y) + 4 * static_cast<ptrdiff_t>(x), dst_step, width, height, a);
    return StatusOk;
}

}  // namespace velmora::color
