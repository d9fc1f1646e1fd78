// Plain references for the resampling kernels, in double precision straight from the
// definitions: per axis, area coverage when shrinking, Keys' cubic (a = -0.5) at centre-aligned
// positions when growing; block means for the 2:1 halving.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace ref {

// Weights over the source index range for output o on one axis (summing to 1).
inline std::vector<double> AxisWeights(int in, int out, int o) {
    std::vector<double> w(size_t(in), 0.0);
    if (in == out) {
        w[size_t(o)] = 1;
    } else if (out < in) {
        const double s = double(in) / out, lo = o * s, hi = (o + 1) * s;
        for (int i = 0; i < in; ++i) w[size_t(i)] = std::max(0.0, std::min(hi, i + 1.0) - std::max(lo, double(i))) / s;
    } else {
        const double x = (o + 0.5) * in / out - 0.5;
        for (int i = int(std::floor(x)) - 1; i <= int(std::floor(x)) + 2; ++i) {
            const double d = std::fabs(x - i);
            const double k = d < 1 ? (1.5 * d - 2.5) * d * d + 1 : d < 2 ? ((-0.5 * d + 2.5) * d - 4) * d + 2 : 0;
            w[size_t(std::clamp(i, 0, in - 1))] += k;
        }
    }
    return w;
}

// Four-byte pixels, packed rows.
inline std::vector<uint8_t> Resize(const std::vector<uint8_t>& src, int sw, int sh, int dw, int dh) {
    std::vector<uint8_t> out(size_t(dw) * dh * 4);
    for (int oy = 0; oy < dh; ++oy) {
        const auto wy = AxisWeights(sh, dh, oy);
        for (int ox = 0; ox < dw; ++ox) {
            const auto wx = AxisWeights(sw, dw, ox);
            for (int c = 0; c < 4; ++c) {
                double v = 0;
                for (int y = 0; y < sh; ++y)
                    if (wy[size_t(y)] != 0)
                        for (int x = 0; x < sw; ++x) v += wy[size_t(y)] * wx[size_t(x)] * src[(size_t(y) * sw + x) * 4 + c];
                out[(size_t(oy) * dw + ox) * 4 + c] = uint8_t(std::clamp(std::floor(v + 0.5), 0.0, 255.0));
            }
        }
    }
    return out;
}

// (sum + n/2) / n over the pixels of each 2 x 2 block inside the source.
inline std::vector<uint8_t> Halve(const std::vector<uint8_t>& src, int w, int h) {
    const int ow = (w + 1) / 2, oh = (h + 1) / 2;
    std::vector<uint8_t> out(size_t(ow) * oh * 4);
    for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x)
            for (int c = 0; c < 4; ++c) {
                int sum = 0, n = 0;
                for (int yy = 2 * y; yy < std::min(2 * y + 2, h); ++yy)
                    for (int xx = 2 * x; xx < std::min(2 * x + 2, w); ++xx, ++n) sum += src[(size_t(yy) * w + xx) * 4 + c];
                out[(size_t(y) * ow + x) * 4 + c] = uint8_t((sum + n / 2) / n);
            }
    return out;
}

}  // namespace ref
