// Plain scalar references for the blurs and convolutions: one channel, one output at a time,
// straight from the definitions. Images carry their margins: coordinates are relative to the
// region's first pixel and may be negative. Sums run in the order the library defines (taps
// ascending; running sums start at each row's first output, subtract, then add), so float
// results compare exactly.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace ref {

struct Img {
    int w = 0, h = 0, c = 4, l = 0, t = 0, r = 0, b = 0;
    std::vector<float> v;
    Img(int w_, int h_, int c_, int l_ = 0, int t_ = 0, int r_ = 0, int b_ = 0)
        : w(w_), h(h_), c(c_), l(l_), t(t_), r(r_), b(b_), v(size_t(w + l + r) * (h + t + b) * c) {}
    float& at(int x, int y, int ch) { return v[(size_t(y + t) * (w + l + r) + (x + l)) * c + ch]; }
};

// Running box mean over count outputs; get(i) reads position i in -r .. count-1+r.
template <class Get, class Put>
void RunningBox(int count, int r, Get get, Put put) {
    if (count <= 0) return;
    const float scale = 1.0f / float(2 * r + 1);
    float s = get(-r);
    for (int k = -r + 1; k <= r; ++k) s += get(k);
    put(0, s * scale);
    for (int x = 1; x < count; ++x) {
        s -= get(x - 1 - r);
        s += get(x + r);
        put(x, s * scale);
    }
}

// Clipped weighted tap sum at x: taps -centre .. size-centre-1 limited to positions lo..hi.
template <class Get>
float Clipped(int x, int lo_pos, int hi_pos, const float* k, int size, int centre, Get get) {
    const int lo = std::max(-centre, lo_pos - x), hi = std::min(size - centre - 1, hi_pos - x);
    float acc = get(x + lo) * k[centre + lo], ws = k[centre + lo];
    for (int t = lo + 1; t <= hi; ++t) {
        acc += get(x + t) * k[centre + t];
        ws += k[centre + t];
    }
    return acc / ws;
}

// Symmetric margin-reading taps: centre, then left and right at each distance.
template <class Get>
float Symmetric(int x, const float* k, int r, Get get) {
    float acc = get(x) * k[r];
    for (int d = 1; d <= r; ++d) {
        acc += get(x - d) * k[r + d];
        acc += get(x + d) * k[r + d];
    }
    return acc;
}

// Box means across rows y0..y1 from column x0 (count outputs), then down columns from row y0+r,
// writing `out` at the same coordinates. Used for BoxBlur (one round) and each fast-Gaussian round.
inline void BoxRound(Img& in, Img& out, int x0, int y0, int count_x, int count_y, int r) {
    Img mid(in.w, in.h, in.c, in.l, in.t, in.r, in.b);
    for (int ch = 0; ch < in.c; ++ch) {
        for (int y = y0 - r; y < y0 + count_y + r; ++y)
            RunningBox(count_x, r, [&](int i) { return in.at(x0 + i, y, ch); },
                       [&](int i, float v) { mid.at(x0 + i, y, ch) = v; });
        for (int x = x0; x < x0 + count_x; ++x)
            RunningBox(count_y, r, [&](int i) { return mid.at(x, y0 + i, ch); },
                       [&](int i, float v) { out.at(x, y0 + i, ch) = v; });
    }
}

// Clipped separable convolution of a region with readable margins (those of `in`).
inline Img Separable(Img& in, const float* kx, int sx, const float* ky, int sy) {
    Img mid = in, out(in.w, in.h, in.c);
    for (int ch = 0; ch < in.c; ++ch) {
        for (int y = -in.t; y < in.h + in.b; ++y)
            for (int x = 0; x < in.w; ++x)
                mid.at(x, y, ch) = Clipped(x, -in.l, in.w - 1 + in.r, kx, sx, sx / 2, [&](int i) { return in.at(i, y, ch); });
        for (int y = 0; y < in.h; ++y)
            for (int x = 0; x < in.w; ++x)
                out.at(x, y, ch) = Clipped(y, -in.t, in.h - 1 + in.b, ky, sy, sy / 2, [&](int i) { return mid.at(x, i, ch); });
    }
    return out;
}

// Clipped gray box means along each row, by prefix sums (interior times 1/(2r+1), ends divided
// by their pixel count), transposed: out.at(y, x) = mean at (x, y).
inline Img GrayBoxTranspose(Img& in, int r, bool squares) {
    Img out(in.h, in.w, 1);
    const float inv = 1.0f / float(2 * r + 1);
    for (int y = 0; y < in.h; ++y) {
        std::vector<float> p(size_t(in.w) + 1, 0.0f);
        for (int x = 0; x < in.w; ++x) {
            const float v = in.at(x, y, 0);
            p[x + 1] = p[x] + (squares ? v * v : v);
        }
        for (int x = 0; x < in.w; ++x) {
            const int hi = std::min(x + r, in.w - 1), lo = std::max(x - r, 0);
            const float s = p[hi + 1] - p[lo];
            out.at(y, x, 0) = (x - r >= 0 && x + r < in.w) ? s * inv : s / float(hi - lo + 1);
        }
    }
    return out;
}

// One integer-kernel pass of 8-bit channels, clipped to the row, transposed: exact integer sums,
// one float division, round half to even, clamp; a zero weight sum gives 0.
inline std::vector<uint8_t> ConvolveTransposeBytes(const std::vector<uint8_t>& src, int w, int h,
                                                   const std::vector<int32_t>& k, std::vector<uint8_t> dst, bool last) {
    const int size = int(k.size()), centre = size / 2;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int ch = 0; ch < (last ? 4 : 3); ++ch) {
                int64_t acc = 0, ws = 0;
                for (int t = std::max(-centre, -x); t <= std::min(size - centre - 1, w - 1 - x); ++t) {
                    acc += int64_t{src[(size_t(y) * w + x + t) * 4 + ch]} * k[centre + t];
                    ws += k[centre + t];
                }
                const float q = ws == 0 ? 0.0f : std::nearbyint(float(acc) / float(ws));
                dst[(size_t(x) * h + y) * 4 + ch] = uint8_t(std::clamp(q, 0.0f, 255.0f));
            }
    return dst;
}

// Three rounds of truncate(sum / count + 0.5) over clipped (2r+1)-square windows, added one by one.
inline std::vector<uint8_t> ThreeBoxGray8(std::vector<uint8_t> img, int w, int h, int r) {
    for (int pass = 0; pass < 3; ++pass) {
        const std::vector<uint8_t> in = img;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                int64_t sum = 0, count = 0;
                for (int yy = std::max(0, y - r); yy <= std::min(h - 1, y + r); ++yy)
                    for (int xx = std::max(0, x - r); xx <= std::min(w - 1, x + r); ++xx, ++count) sum += in[size_t(yy) * w + xx];
                img[size_t(y) * w + x] = uint8_t(int(float(sum) / float(count) + 0.5f));
            }
    }
    return img;
}

}  // namespace ref
