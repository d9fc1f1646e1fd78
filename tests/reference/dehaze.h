// Plain scalar references for the dehaze kernels and gradient masks, straight from their
// definitions: dark channels by direct window scan, the airlight by histogram walk and luma
// search, the transmissions and recovery per pixel, the masks per pixel in the kernels' float
// operation order.
#pragma once

#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace ref {

// Clipped window bounds around i in 0..n-1.
inline int Lo(int i, int r) { return i - std::min(r, i); }
inline int Hi(int i, int r, int n) { return i + std::min(r, n - 1 - i); }

inline std::vector<uint8_t> Erode(const std::vector<uint8_t>& in, int w, int h, int r) {
    std::vector<uint8_t> out(in.size());
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j) {
            uint8_t m = 255;
            for (int y = Lo(i, r); y <= Hi(i, r, h); ++y)
                for (int x = Lo(j, r); x <= Hi(j, r, w); ++x) m = std::min(m, in[size_t(y) * w + x]);
            out[size_t(i) * w + j] = m;
        }
    return out;
}

// Keeps the running value where it is strictly less, else takes the pixel's (NaN and signed
// zeros follow from that rule).
inline float KeepLess(float running, float p) { return running < p ? running : p; }

inline std::vector<float> DarkChannel(const std::vector<float>& rgba, int w, int h, int r) {
    std::vector<float> out(size_t(w) * h);
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j) {
            float m[3] = {1.0f, 1.0f, 1.0f};
            for (int y = Lo(i, r); y <= Hi(i, r, h); ++y)
                for (int x = Lo(j, r); x <= Hi(j, r, w); ++x)
                    for (int c = 0; c < 3; ++c) m[c] = KeepLess(m[c], rgba[(size_t(y) * w + x) * 4 + c]);
            out[size_t(i) * w + j] = KeepLess(KeepLess(m[2], m[1]), m[0]);
        }
    return out;
}

// Returns whether light was written.
inline bool Airlight(const std::vector<uint8_t>& rgb, const std::vector<uint8_t>& dark, int w, int h, uint8_t* light) {
    int hist[256] = {};
    for (uint8_t d : dark) ++hist[d];
    long remaining = long(std::ceil(float(w * h) * 0.1f));
    int threshold = -1;
    if (remaining == 0) threshold = 255;
    for (int b = 255; b >= 0 && threshold < 0; --b) {
        if (hist[b] >= remaining) threshold = b;
        else remaining -= hist[b];
    }
    float best = 0.0f;
    bool wrote = false;
    for (size_t i = 0; i < dark.size(); ++i) {
        if (dark[i] < threshold) continue;
        const uint8_t* p = &rgb[i * 3];
        const float y = float(p[0]) * 0.299f + float(p[1]) * 0.587f + float(p[2]) * 0.114f;
        if (y > best) best = y, std::memcpy(light, p, 3), wrote = true;
    }
    return wrote;
}

inline float Grey(float a0, float a1, float a2) { return (a1 + a0 + a2) * 0.33333334f; }

inline uint8_t TransmissionByte(uint8_t dark, float light, float omega) {
    const float v = std::max(1.0f - float(dark) * 0.003921569f * (omega / light), 0.0f);
    return uint8_t(int(v * 255.0f + 0.5f));
}

// One row of a float transmission: the 16-pixel blocks (when taken) with the processor's
// approximate reciprocal refined once, the rest with the exact reciprocal.
inline void TransmissionRow(const float* dark, float* out, int w, float omega, float abar, bool fast) {
    const float r = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(abar)));
    const float refined = (r + r) - (r * r) * abar;
    const int blocks = fast && w >= 16 ? w / 16 * 16 : 0;
    for (int x = 0; x < w; ++x) out[x] = 1.0f - (dark[x] * omega) * (x < blocks ? refined : 1.0f / abar);
}

inline float Recover(float v, uint8_t t, float abar, float t0) {
    const float tt = float(t) * 0.003921569f;
    const float s = 1.0f / (tt > t0 ? tt : t0);
    return (v - abar) * s + abar;
}

}  // namespace ref

namespace ref::gradient {

inline float Clamp01(float v) { return std::min(std::max(v, 0.0f), 1.0f); }
inline float ClampParameter(float v) { return std::min(std::max(v, 0.0001f), 0.9999f); }

struct Axis {
    float dx, dy, length, nx, ny;
    Axis(const float* a, const float* b) : dx(b[0] - a[0]), dy(b[1] - a[1]), length(std::sqrt(dx * dx + dy * dy)) {
        nx = dx / length, ny = dy / length;
        const float k = 1.0f / std::sqrt(nx * nx + ny * ny);
        nx *= k, ny *= k;
    }
};

// Dual ramp (plateau half-width s |C - B| around the middle C), before any inversion: returns
// the clamped fall f; the mask is 1 - f, inverted f.
inline float DualFall(float px, float py, const float* a, const float* b, float width) {
    const Axis n(a, b);
    const float cx = a[0] + 0.5f * n.dx, cy = a[1] + 0.5f * n.dy;
    const float half = std::sqrt((cx - b[0]) * (cx - b[0]) + (cy - b[1]) * (cy - b[1]));
    const float inner = ClampParameter(width) * half;
    const float t = (px * n.nx + py * n.ny) - (n.nx * cx + n.ny * cy);
    return Clamp01((std::max(0.0f - t, t) - inner) * (1.0f / (half - inner)));
}

inline float Linear(float px, float py, const float* a, const float* b, float midpoint) {
    const Axis n(a, b);
    const float c = -(a[1] * n.ny + a[0] * n.nx);
    const float v = Clamp01((px * n.nx + c + py * n.ny) * (1.0f / n.length));
    if (std::fabs(midpoint - 0.5f) < 1e-6f) return v;
    const float m = ClampParameter(midpoint);
    return v >= m ? (v - m) * (0.5f / (1.0f - m)) + 0.5f : v * (0.5f / m);
}

// Reflected: returns the clamped fall (mask 1 - fall, inverted fall).
inline float ReflectedFall(float px, float py, const float* a, const float* b, float midpoint) {
    if (std::fabs(midpoint - 0.5f) < 1e-6f) return DualFall(px, py, a, b, 0.0f);
    const Axis n(a, b);
    const float m = ClampParameter(midpoint);
    const float pvx = a[0] + m * n.dx, pvy = a[1] + m * n.dy;
    const float t = (px * n.nx + py * n.ny) - (n.nx * pvx + n.ny * pvy);
    return Clamp01(t < 0.0f ? t * (-1.0f / (n.length * m)) : t * (1.0f / ((1.0f - m) * n.length)));
}

// Radial masks by selector (see the header), before inversion.
inline float Radial(float px, float py, const float* centre, const float* radii, float angle, float feather,
                    float shape, int selector) {
    const float c = std::cos(angle), s = std::sin(angle);
    const float dx = px - centre[0], dy = py - centre[1];
    const float u = dx * (c / radii[0]) + dy * (s / radii[0]), w = dy * (c / radii[1]) - dx * (s / radii[1]);
    const float f = std::min(std::max(feather, 0.0001f), 1.0f);
    float rho = std::sqrt(u * u + w * w);
    if (selector == 3) {  // signed distance to a box of half sizes 1, corners rounded by `corner`, plus 1
        const float corner = std::min(std::max(shape, 0.0f), 1.0f);
        const float qx = std::fabs(u) - (1.0f - corner), qy = std::fabs(w) - (1.0f - corner);
        const float ox = std::max(qx, 0.0f), oy = std::max(qy, 0.0f);
        rho = std::sqrt(ox * ox + oy * oy) + std::min(std::max(qx, qy), 0.0f) + (1.0f - corner);
    }
    const float ramp = Clamp01((1.0f - rho) * (1.0f / f));
    const float smooth = ramp * ramp * (3.0f - (ramp + ramp));
    const float beyond = std::max(rho - (1.0f - f), 0.0f);
    switch (selector) {
        case 1: return smooth;
        case 2: return std::exp(beyond * beyond * (-4.5f / (f * f)));
        case 4: return 1.0f - ramp;
        case 5: return 1.0f - smooth;
        default: return ramp;
    }
}

}  // namespace ref::gradient
