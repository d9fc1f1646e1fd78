// The local Laplacian filter's remapping of a row of luminances around its eight intensity
// samples g_k = k/7: r_k = L + alpha d 2^(-20 d^2), d = L - g_k, eight floats a pixel. Written once
// over the vector type B: four lanes make half a pixel (the SSE2 body), eight one pixel (AVX2),
// sixteen two pixels (AVX-512); every lane runs the same operations in the same order, and the
// xsimd 2^x gives the same bits at every width, so all bodies write the same floats.
#pragma once

#include <cstdint>

#include <xsimd/xsimd.hpp>

#include "core/xmmath.h"

namespace velmora::filter {

inline constexpr float kRemapSamples[8] = {0.0f,      0.14285715f, 0.2857143f,  0.42857143f,
                                           0.5714286f, 0.71428573f, 0.85714287f, 1.0f};

// Remaps pixels [x, width) of l into r (8 floats each) in vectors of B, pixel by pixel in order,
// and returns the first pixel it did not reach (the rest is less than a vector's worth).
template <class B>
int32_t RemapPixels(const float* l, int32_t x, int32_t width, float alpha, float* r) {
    constexpr int32_t kPixels = B::size >= 8 ? static_cast<int32_t>(B::size / 8) : 1;
    constexpr int32_t kParts = B::size >= 8 ? 1 : static_cast<int32_t>(8 / B::size);
    alignas(64) float g[B::size * kParts];
    for (size_t i = 0; i < B::size * kParts; ++i) g[i] = kRemapSamples[i % 8];
    const B a(alpha), k(-20.0f);
    for (; x + kPixels <= width; x += kPixels) {
        B L(l[x]);
        if constexpr (kPixels > 1) {
            alignas(64) float lanes[B::size];
            for (size_t i = 0; i < B::size; ++i) lanes[i] = l[x + static_cast<int32_t>(i / 8)];
            L = B::load_aligned(lanes);
        }
        for (int32_t part = 0; part < kParts; ++part) {
            const B d = L - B::load_aligned(g + part * B::size);
            const B w = XMVectorExp2((d * d) * k);
            (L + (a * d) * w).store_unaligned(r + 8 * x + part * static_cast<int32_t>(B::size));
        }
    }
    return x;
}

void RemapRowSse2(const float* l, int32_t width, float alpha, float* r);
void RemapRowAvx2(const float* l, int32_t width, float alpha, float* r);    // remap_avx2.cpp
void RemapRowAvx512(const float* l, int32_t width, float alpha, float* r);  // remap_avx512.cpp

}  // namespace velmora::filter
