// Scalar reference for the linearizing loaders: one pixel at a time, straight from the rules.
// Transfer: p = code x ((n - 1.0001) x (nearest float to 1/255 or 1/65535)), k = trunc p,
// v = T[k] + (T[k+1] - T[k]) x (p - k), the neighbours' indices bounded to n - 1 (where k = n - 1
// the missing neighbour has weight 0). Matrix as a row vector, summed left to right.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "reference/convert.h"  // kInv255, kInv65535; ToWord for the 16-bit destinations

namespace ref::linearize {

inline float Position(int code, int n, bool sixteen) {
    const float s = (static_cast<float>(n) - 1.0001f) * (sixteen ? kInv65535 : kInv255);
    return static_cast<float>(code) * s;
}

// True when the single-precision position of the top code reaches n - 1. Used by the tests to
// tell the two kinds of table size apart.
inline bool TopCodeReachesEnd(int n, bool sixteen) {
    return static_cast<int>(Position(sixteen ? 65535 : 255, n, sixteen)) > n - 2;
}

inline float Transfer(const float* table, int n, int code, bool sixteen) {
    const float p = Position(code, n, sixteen);
    const int k = static_cast<int>(p);
    const float lo = table[std::min(k, n - 1)], hi = table[std::min(k + 1, n - 1)];
    return lo + (hi - lo) * (p - static_cast<float>(k));
}

struct Rgba {
    float r, g, b, a;
};

inline Rgba Multiply(const float* m, float r, float g, float b, float a) {
    return {m[0] * r + m[3] * g + m[6] * b, m[1] * r + m[4] * g + m[7] * b, m[2] * r + m[5] * g + m[8] * b, a};
}

// How the source alpha becomes output alpha.
enum class AlphaRule { Opaque, Scaled, Divided };

// A source layout: bytes a pixel, element offsets of R, G, B, A (in elements of 1 or 2 bytes;
// A -1 when absent; R = G = B for grey).
struct Layout {
    int pixel_bytes;
    int r, g, b, a;
    bool sixteen;
    AlphaRule alpha;
    bool premultiply;  // straight source into a premultiplied destination
};

inline int Element(const uint8_t* px, int index, bool sixteen) {
    if (!sixteen) return px[index];
    uint16_t w;
    std::memcpy(&w, px + 2 * index, 2);
    return w;
}

inline Rgba LoadPixel(const uint8_t* px, const Layout& f, const float* table, int n, const float* m) {
    const float r = Transfer(table, n, Element(px, f.r, f.sixteen), f.sixteen);
    const float g = f.g == f.r ? r : Transfer(table, n, Element(px, f.g, f.sixteen), f.sixteen);
    const float b = f.b == f.r ? r : Transfer(table, n, Element(px, f.b, f.sixteen), f.sixteen);
    float a = 1.f;
    if (f.alpha == AlphaRule::Scaled)
        a = static_cast<float>(Element(px, f.a, f.sixteen)) * (f.sixteen ? kInv65535 : kInv255);
    if (f.alpha == AlphaRule::Divided) a = static_cast<float>(Element(px, f.a, f.sixteen)) / 255.f;
    Rgba v = Multiply(m, r, g, b, a);
    if (f.premultiply) v = {v.r * a, v.g * a, v.b * a, a};
    return v;
}

// The in-place 16-bit member on one pixel: optional direct table, the matrix on the codes,
// round half to even, above 32767 stores 32767, negative stores 0x8000; alpha untouched.
inline void LinearizeInPlace(uint16_t* px, const uint16_t* table16, const float* m) {
    float c[3];
    for (int i = 0; i < 3; ++i) c[i] = static_cast<float>(table16 ? table16[px[i]] : px[i]);
    const Rgba v = Multiply(m, c[0], c[1], c[2], 0.f);
    const float lanes[3] = {v.r, v.g, v.b};
    for (int i = 0; i < 3; ++i) {
        double q = std::nearbyint(static_cast<double>(lanes[i]));
        if (q > 32767) q = 32767;
        if (q < 0) q = -32768;  // every negative result stores 0x8000
        px[i] = static_cast<uint16_t>(static_cast<int16_t>(q));
    }
}

}  // namespace ref::linearize
