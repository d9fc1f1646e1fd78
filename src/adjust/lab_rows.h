// The interleaved Lab kernels (each pixel's four floats hold L*, a*, b* and a fourth lane they
// leave alone), written once over the float batch: the SSE2 body runs four pixels a step, the
// AVX2 and AVX-512 bodies (lab_avx2.cpp, lab_avx512.cpp) eight and sixteen, through the same
// per-lane operations, so every level gives the same bits. Their cost is the transcendental
// functions (up to six e^x and ln x a pixel), which is what the wider vectors buy back.
#pragma once

#include <cstdint>

#include "adjust/color_rows.h"
#include "adjust/lab_math.h"
#include "pixel/srgb_math.h"

namespace velmora::adjust::lab {

enum class Interleaved {
    ProPhotoToLab,  // linear ProPhoto RGB to Lab
    LabToProPhoto,  // and back by the blocked conversion's rule
    SrgbToLab,      // sRGB-encoded RGB (any matrix and white) to Lab, normalised to [0, 1] if asked
    LabToSrgb,      // Lab to sRGB-encoded sRGB, unclamped
    NormToProPhoto, // normalised LAB to linear ProPhoto, textbook inverse
    NormToSrgb,     // normalised LAB to sRGB-encoded sRGB, textbook inverse, clamped to [0, 1]
    Loop,           // ProPhoto to Lab, L* through a curve, chroma gain, back
};

struct InterleavedArgs {
    const float* rgb_to_xyz = nullptr;  // SrgbToLab: rows X, Y, Z
    const float* white = nullptr;       // SrgbToLab: Xn, Yn, Zn
    bool normalise = false;             // SrgbToLab: write normalised LAB
    const float* curve = nullptr;       // Loop: n + 2 floats
    float intervals = 0.0f;             // Loop: n
    float chroma = 0.0f;                // Loop: a* and b* times 1 + chroma
};

// sRGB primaries adapted to D50 (Bradford), rows X, Y, Z, and the inverse, rows R, G, B.
inline constexpr float kSrgbToXyz[9] = {0.4360747f, 0.3850649f, 0.1430804f, 0.2225045f, 0.7168786f,
                                        0.0606169f, 0.0139322f, 0.0971045f, 0.7141733f};
inline constexpr float kXyzToSrgb[9] = {3.1338564f, -1.6168668f, -0.4906148f, -0.9787686f, 1.9161416f,
                                        0.0334541f, 0.0719452f, -0.2289913f, 1.4052427f};
inline constexpr float kWhite[3] = {kWhiteX, 1.0f, kWhiteZ};

// Lab normalised to [0, 1] for curves and integer storage: L* / 100, (a* + 128) / 255,
// (b* + 128) / 255, and back.
template <class B>
inline void Normalise(B (&v)[4]) {
    v[0] = v[0] / B(100.0f);
    v[1] = (v[1] + B(128.0f)) / B(255.0f);
    v[2] = (v[2] + B(128.0f)) / B(255.0f);
}
template <class B>
inline void Denormalise(B (&v)[4]) {
    v[0] = v[0] * B(100.0f);
    v[1] = v[1] * B(255.0f) - B(128.0f);
    v[2] = v[2] * B(255.0f) - B(128.0f);
}

// L*, a*, b* to sRGB-encoded R, G, B by the vector curve, unclamped.
template <bool Textbook, class B>
inline void LabToSrgb(B (&v)[4]) {
    B x, y, z;
    LabToXyz<Textbook>(v[0], v[1], v[2], x, y, z);
    for (int i = 0; i < 3; ++i) v[i] = pixel::srgb::EncodeByFormula(color::Row3(x, y, z, kXyzToSrgb + 3 * i));
}

template <class B>
void InterleavedRows(Interleaved kind, float* image, int32_t step, int32_t width, int32_t height,
                     const InterleavedArgs& a) {
    const auto run = [&](auto&& fn) {
        color::PlaneRows<B, color::Rgba128, color::Rgba128>(image, step, image, step, width, height, fn);
    };
    switch (kind) {
        case Interleaved::ProPhotoToLab: run([](B(&v)[4]) { ProPhotoToLab(v); }); break;
        case Interleaved::LabToProPhoto: run([](B(&v)[4]) { LabToProPhoto(v); }); break;
        case Interleaved::SrgbToLab:
            run([&](B(&v)[4]) {
                namespace srgb = pixel::srgb;
                const B r = srgb::DecodeByFormula(v[0]), g = srgb::DecodeByFormula(v[1]), b = srgb::DecodeByFormula(v[2]);
                const B t[3] = {color::Row3(r, g, b, a.rgb_to_xyz) / B(a.white[0]), color::Row3(r, g, b, a.rgb_to_xyz + 3) / B(a.white[1]),
                                color::Row3(r, g, b, a.rgb_to_xyz + 6) / B(a.white[2])};
                LabFromRatios(t, v[0], v[1], v[2]);
                if (a.normalise) Normalise(v);
            });
            break;
        case Interleaved::LabToSrgb: run([](B(&v)[4]) { LabToSrgb<false>(v); }); break;
        case Interleaved::NormToProPhoto:
            run([](B(&v)[4]) {
                Denormalise(v);
                LabToProPhoto<true>(v);
            });
            break;
        case Interleaved::NormToSrgb:
            run([](B(&v)[4]) {
                Denormalise(v);
                LabToSrgb<true>(v);
                // max(v, 0) returns its second operand for NaN, so NaN becomes 0.
                for (int i = 0; i < 3; ++i) v[i] = xsimd::min(xsimd::max(v[i], B(0.0f)), B(1.0f));
            });
            break;
        case Interleaved::Loop:
            run([&](B(&v)[4]) {
                ProPhotoToLab(v);
                v[0] = color::CurveLookup(v[0] / B(100.0f), a.curve, a.intervals) * B(100.0f);
                v[1] = v[1] * B(1.0f + a.chroma);
                v[2] = v[2] * B(1.0f + a.chroma);
                LabToProPhoto(v);
            });
            break;
    }
}

// The wider bodies, run only when the processor has the level.
void InterleavedRowsAvx2(Interleaved kind, float* image, int32_t step, int32_t width, int32_t height,
                         const InterleavedArgs& a);
void InterleavedRowsAvx512(Interleaved kind, float* image, int32_t step, int32_t width, int32_t height,
                           const InterleavedArgs& a);

}  // namespace velmora::adjust::lab
