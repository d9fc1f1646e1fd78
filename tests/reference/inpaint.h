// Plain scalar references for the inpainting building blocks, from their definitions: the
// weighted integer patch distance byte by byte, one PatchMatch sweep on one thread with the
// Windows runtime's rand() recurrence (where a fresh thread starts), the masked shrink with its
// tap window clipped up front, the float distances in double.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "velmora/imaging.h"

namespace ref {

// The Windows C runtime's rand(): seed 1 in a fresh thread, 15-bit results.
struct CrtRand {
    uint32_t state = 1;
    int operator()() {
        state = state * 214013u + 2531011u;
        return int((state >> 16) & 0x7fff);
    }
};

inline int PatchDistance(const uint8_t* a, const uint8_t* b, ptrdiff_t advance) {
    static const int weight[4] = {1, 6, 3, 0};
    int sum = 0;
    for (int r = 0; r < 4; ++r)
        for (int p = 0; p < 4; ++p) {
            const uint8_t* pa = a + r * advance + p * 4;
            const uint8_t* pb = b + r * advance + p * 4;
            const bool hole = (pa[0] & pa[1] & pa[2] & pa[3]) == 255 || (pb[0] & pb[1] & pb[2] & pb[3]) == 255;
            for (int k = 0; k < 4; ++k) {
                const int d = hole ? 255 : std::abs(pa[k] - pb[k]);
                sum += weight[k] * d * d;
            }
        }
    return sum;
}

// One minimiser call (forward then backward sweep) on one thread.
inline void Minimize(const uint8_t* target, int32_t tstep, const uint8_t* source, int32_t sstep, NNFEntry* nnf,
                     int32_t nstep, int w, int h, int ps, CrtRand& rnd) {
    const int o = (ps - 1) / 2;
    const ptrdiff_t adv = ps == 4 ? tstep : ptrdiff_t(tstep / 4 - ps) * 4;
    auto entry = [&](int c, int r) -> NNFEntry& {
        return reinterpret_cast<NNFEntry*>(reinterpret_cast<uint8_t*>(nnf) + ptrdiff_t(r) * nstep)[c];
    };
    auto visit = [&](int c, int r, int dir) {
        NNFEntry& e = entry(c, r);
        const uint8_t* t = target + ptrdiff_t(r - o) * tstep + (c - o) * 4;
        auto attempt = [&](int x, int y) {
            const int d = PatchDistance(t, source + ptrdiff_t(y - o) * sstep + (x - o) * 4, adv);
            if (d < e.distance) e = {x, y, d};
        };
        const int nc = c - dir, nr = r - dir;  // the neighbours this sweep has visited
        if (nc >= 0 && nc < w) {
            const NNFEntry n = entry(nc, r);
            if (n.x + dir >= 0 && n.x + dir <= w - 1) attempt(n.x + dir, n.y);
        }
        if (nr >= 0 && nr < h) {
            const NNFEntry n = entry(c, nr);
            if (n.y + dir >= 0 && n.y + dir <= h - 1) attempt(n.x, n.y + dir);
        }
        for (int radius = w; radius > 1; radius /= 2) {
            const int dx = rnd() % (2 * radius) - radius;
            const int dy = rnd() % (2 * radius) - radius;
            attempt(std::min(std::max(e.x + dx, 0), w - 1), std::min(std::max(e.y + dy, 0), h - 1));
        }
    };
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) visit(c, r, 1);
    for (int r = h - 1; r >= 0; --r)
        for (int c = w - 1; c >= 0; --c) visit(c, r, -1);
}

// The masked 4 x 4 shrink: the window's rows and columns clipped to 0 .. size - 2 first.
inline std::vector<uint32_t> DownscaleMasked(const uint8_t* src, int32_t step, int w, int h) {
    static const int k[4] = {1, 3, 3, 1};
    std::vector<uint32_t> out;
    for (int y = 0; y + 1 < h; y += 2)
        for (int x = 0; x + 1 < w; x += 2) {
            int taps = 0, holes = 0, sw = 0, s[3] = {};
            for (int yy = std::max(y - 2, 0); yy <= std::min(y + 1, h - 2); ++yy)
                for (int xx = std::max(x - 2, 0); xx <= std::min(x + 1, w - 2); ++xx) {
                    const uint8_t* p = src + ptrdiff_t(yy) * step + xx * 4;
                    ++taps;
                    if (p[3]) {
                        ++holes;
                        continue;
                    }
                    const int wt = k[yy - y + 2] * k[xx - x + 2];
                    sw += wt;
                    for (int c = 0; c < 3; ++c) s[c] += wt * p[c];
                }
            if (sw == 0 || 4 * holes > 3 * taps) {
                out.push_back(0xFF00FF00u);
                continue;
            }
            uint32_t v = 0;
            for (int c = 0; c < 3; ++c) v |= uint32_t(float(s[c]) * (1.0f / float(sw)) + 0.5f) << (8 * c);
            out.push_back(v);
        }
    return out;
}

// Per-channel sums of squared differences over a rectangle of pixels, in double.
inline std::vector<double> SquaredSums(const float* a, const float* b, ptrdiff_t row_floats, int x0, int y0, int x1,
                                       int y1) {
    std::vector<double> s(4, 0.0);
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x)
            for (int c = 0; c < 4; ++c) {
                const double d = double(a[y * row_floats + x * 4 + c]) - b[y * row_floats + x * 4 + c];
                s[c] += d * d;
            }
    return s;
}

}  // namespace ref
