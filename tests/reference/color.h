// Plain references for the colour matrices and fixed colour spaces: one pixel at a time, in float,
// each formula written out left to right as the header states it (so the kernels must agree bit
// for bit), and the Lab kernels in double precision through reference/lab.h and the sRGB curves.
#pragma once

#include <algorithm>
#include <cmath>

#include "reference/curves.h"
#include "reference/lab.h"
#include "reference/srgb.h"

namespace ref::color {

// ((m0 a + m1 b) + m2 c) (+ m3 d): one matrix row, left to right.
inline float Row(const float* m, float a, float b, float c) { return (m[0] * a + m[1] * b) + m[2] * c; }

inline void Twist4x4(const float* t, const float* s, float* d) {
    for (int i = 0; i < 4; ++i) d[i] = Row(t + 4 * i, s[0], s[1], s[2]) + t[4 * i + 3] * s[3];
}
inline void Affine3x4(const float* m, const float* s, float* d) {
    for (int i = 0; i < 3; ++i) d[i] = Row(m + 4 * i, s[0], s[1], s[2]) + m[4 * i + 3];
}

inline void RgbToYCbCr(const float* s, float* d) {
    d[0] = (0.299f * s[0] + 0.587f * s[1]) + 0.114f * s[2];
    d[1] = ((-0.168736f * s[0] - 0.331264f * s[1]) + 0.5f * s[2]) + 0.5f;
    d[2] = ((0.5f * s[0] - 0.418688f * s[1]) - 0.081312f * s[2]) + 0.5f;
    d[3] = s[3];
}
inline void YCbCrToRgb(const float* s, float* d) {
    const float cb = s[1] - 0.5f, cr = s[2] - 0.5f;
    d[0] = s[0] + 1.402f * cr;
    d[1] = (s[0] - 0.344136f * cb) - 0.714136f * cr;
    d[2] = s[0] + 1.772f * cb;
    d[3] = s[3];
}
inline void RgbToYuv(const float* s, float* d) {
    const float y = (0.299f * s[0] + 0.587f * s[1]) + 0.114f * s[2];
    d[0] = y, d[1] = 0.492111f * (s[2] - y), d[2] = 0.877283f * (s[0] - y), d[3] = s[3];
}
inline void YuvToRgb(const float* s, float* d) {
    d[0] = s[0] + 1.139883f * s[2];
    d[1] = (s[0] - 0.394642f * s[1]) - 0.580622f * s[2];
    d[2] = s[0] + 2.032062f * s[1];
    d[3] = s[3];
}
inline void RgbToCmy(const float* s, float* d) {
    for (int i = 0; i < 3; ++i) d[i] = 1.0f - s[i];
}
inline void RgbToCmyk(float g, const float* s, float* d) {
    const float k = std::clamp(g * (1.0f - std::max({s[0], s[1], s[2]})), 0.0f, 1.0f);
    for (int i = 0; i < 3; ++i) d[i] = k >= 1.0f ? 0.0f : ((1.0f - s[i]) - k) / (1.0f - k);
    d[3] = k;
}

// sRGB-D50 (Bradford) and its inverse, rows as in the header.
inline constexpr double kSrgbToXyz[9] = {0.4360747, 0.3850649, 0.1430804, 0.2225045, 0.7168786,
                                         0.0606169, 0.0139322, 0.0971045, 0.7141733};
inline constexpr double kXyzToSrgb[9] = {3.1338564, -1.6168668, -0.4906148, -0.9787686, 1.9161416,
                                         0.0334541, 0.0719452, -0.2289913, 1.4052427};
inline constexpr double kD50[3] = {kLabWhiteX, 1.0, kLabWhiteZ};

inline void Apply3(const double* m, const double in[3], double out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = m[3 * i] * in[0] + m[3 * i + 1] * in[1] + m[3 * i + 2] * in[2];
}

// sRGB-encoded RGB to L*, a*, b* with any matrix and white (the vector curve has no clamp: the
// double curve is extended the same way, linear below the threshold and the power above).
inline void SrgbToLab(const double* m, const double* white, const float* s, double* lab) {
    double lin[3], xyz[3];
    for (int i = 0; i < 3; ++i) lin[i] = s[i] <= 0.04045f ? s[i] / 12.92 : std::pow((s[i] + 0.055) / 1.055, 2.4);
    Apply3(m, lin, xyz);
    const Lab v = LabFromXyz(xyz[0], xyz[1], xyz[2], white);
    lab[0] = v.l, lab[1] = v.a, lab[2] = v.b;
}

// L*, a*, b* to sRGB-encoded RGB (unclamped curve).
inline void LabToSrgb(double l, double a, double b, bool textbook, double* out) {
    const Rgb x = XyzFromLab(l, a, b, textbook);
    const double xyz[3] = {x.r, x.g, x.b};
    Apply3(kXyzToSrgb, xyz, out);
    for (int i = 0; i < 3; ++i) out[i] = out[i] < 0.0031308 ? 12.92 * out[i] : 1.055 * std::pow(out[i], 1 / 2.4) - 0.055;
}

// Colourise, one pixel: the target T from the pixel's luminance Y (and its encoded l), then
// c + amount (T - c) on R, G, B. kind 0: one colour, 1: split toning, 2: three-way, 3: gradient map
// (stops of position, R, G, B). Colours are linear RGB `stride` floats apart.
struct Colourise {
    int kind = 0, stride = 3, n = 0;
    const float* colours = nullptr;
    float balance = 0.0f, amount = 1.0f;

    static float Luma(const float* c) { return (0.28804f * c[0] + 0.711874f * c[1]) + 0.000086f * c[2]; }
    void TintOf(int k, float* t) const {
        const float* c = colours + stride * k;
        const float y = Luma(c);
        for (int i = 0; i < 3; ++i) t[i] = y > 1.1920929e-07f ? c[i] / y : 1.0f;
    }
    void operator()(const float* s, float* d) const {
        static const TableTransfer encode(true);
        const float y = Luma(s), l = encode(y);
        float target[3], a[3], b[3], c[3];
        if (kind == 0) {
            TintOf(0, a);
            for (int i = 0; i < 3; ++i) target[i] = y * a[i];
        } else if (kind == 1) {
            TintOf(0, a), TintOf(1, b);
            const float p = 0.5f - 0.5f * balance, lo = p - 0.25f, hi = p + 0.25f;
            const float t = std::clamp((l - lo) / (hi - lo), 0.0f, 1.0f), h = (t * t) * (3.0f - 2.0f * t);
            for (int i = 0; i < 3; ++i) target[i] = y * (a[i] + (b[i] - a[i]) * h);
        } else if (kind == 2) {
            TintOf(0, a), TintOf(1, b), TintOf(2, c);
            const float ws = (1 - l) * (1 - l), wm = (2 * l) * (1 - l), wh = l * l;
            for (int i = 0; i < 3; ++i) target[i] = y * ((ws * a[i] + wm * b[i]) + wh * c[i]);
        } else {
            int j = 0;  // the last stop at or below l (the first one when none is)
            for (int k = 1; k < n; ++k)
                if (colours[4 * k] <= l) j = k;
            const float* x = colours + 4 * j;
            const bool beyond = j == n - 1 || l <= x[0];
            for (int i = 0; i < 3; ++i)
                target[i] = beyond ? x[1 + i] : x[1 + i] + (x[5 + i] - x[1 + i]) * ((l - x[0]) / (x[4] - x[0]));
        }
        for (int i = 0; i < 3; ++i) d[i] = s[i] + amount * (target[i] - s[i]);
    }
};

// Tone curves: mode 0 the master on R, G, B; 1 each channel's own table then the master (tables of
// n + 2 floats back to back); 2 the curve on enc(Y) with the gain rule.
struct ToneCurve {
    int mode;
    const float* table;
    int n;
    void operator()(const float* s, float* d) const {
        static const TableTransfer encode(true), decode(false);
        if (mode == 0)
            for (int i = 0; i < 3; ++i) d[i] = Curve32(s[i], table, float(n));
        if (mode == 1)
            for (int i = 0; i < 3; ++i) d[i] = Curve32(Curve32(s[i], table + i * (n + 2), float(n)), table + 3 * (n + 2), float(n));
        if (mode == 2) {
            const float y = Colourise::Luma(s), target = decode(Curve32(encode(y), table, float(n)));
            const float gain = (target + 1.1920929e-07f) / (y + 1.1920929e-07f);
            for (int i = 0; i < 3; ++i) d[i] = s[i] * gain;
        }
    }
};

// Colour balance, 2^x in double (the kernel's is the vector 2^x).
struct Balance {
    const float* a;
    bool keep;
    void operator()(const float* s, float* d) const {
        static const TableTransfer encode(true);
        const double y = Colourise::Luma(s), l = encode(Colourise::Luma(s));
        const double w[3] = {(1 - l) * (1 - l), 2 * l * (1 - l), l * l};
        for (int c = 0; c < 3; ++c) d[c] = float(s[c] * std::exp2(w[0] * a[c] + w[1] * a[3 + c] + w[2] * a[6 + c]));
        const double gain = keep ? (y + 1.1920929e-07) / (Colourise::Luma(d) + 1.1920929e-07) : 1.0;
        for (int c = 0; c < 3; ++c) d[c] = float(d[c] * gain);
    }
};

// Master hue/saturation: the rotation matrix as the header states it (in double, then float),
// the float steps in the stated order.
struct HueSaturation {
    float m[9], s, l;
    HueSaturation(float hue, float saturation, float lightness) : s(saturation), l(lightness) {
        const double t = hue * (3.14159265358979323846 / 180.0), c = std::cos(t), sn = std::sin(t) / std::sqrt(3.0),
                     o = (1 - c) / 3;
        const double r[9] = {c + o, o - sn, o + sn, o + sn, c + o, o - sn, o - sn, o + sn, c + o};
        for (int i = 0; i < 9; ++i) m[i] = float(r[i]);
    }
    void operator()(const float* p, float* d) const {
        const float y = Colourise::Luma(p);
        float turned[3] = {p[0], p[1], p[2]};
        if (m[1] != 0.0f || m[2] != 0.0f) {  // a hue of 0 gives exactly the identity: no rotation
            for (int i = 0; i < 3; ++i) turned[i] = Row(m + 3 * i, p[0], p[1], p[2]);
            const float gain = (y + 1.1920929e-07f) / (Colourise::Luma(turned) + 1.1920929e-07f);
            for (float& c : turned) c *= gain;
        }
        for (int i = 0; i < 3; ++i) {
            float c = turned[i];
            if (s != 0.0f) c = y + (c - y) * (1.0f + s);
            d[i] = l < 0 ? c * (1.0f + l) : l > 0 ? c + (1.0f - c) * l : c;
        }
    }
};

// Selective colour, one pixel, the weights written out range by range.
struct SelectiveColour {
    const float* table;
    bool relative;
    void operator()(const float* p, float* d) const {
        const float r = p[0], g = p[1], b = p[2];
        const float hi = std::max({r, g, b}), lo = std::min({r, g, b});
        const float mid = std::max(std::min(r, g), std::min(std::max(r, g), b));  // the median
        const float whites = std::clamp(2 * lo - 1, 0.0f, 1.0f), blacks = std::clamp(1 - 2 * hi, 0.0f, 1.0f);
        const float w[9] = {r == hi ? hi - mid : 0, b == lo ? mid - lo : 0, g == hi ? hi - mid : 0,
                            r == lo ? mid - lo : 0, b == hi ? hi - mid : 0, g == lo ? mid - lo : 0,
                            whites, std::max(0.0f, ((1 - whites) - blacks) - (hi - lo)), blacks};
        for (int c = 0; c < 3; ++c) {
            float s = 0;
            for (int range = 0; range < 9; ++range) s = s + w[range] * (table[4 * range + c] + table[4 * range + 3]);
            d[c] = std::clamp(p[c] - s * (relative ? 1 - p[c] : 1.0f), 0.0f, 1.0f);
        }
        d[3] = p[3];
    }
};

// 3D LUT, one pixel: the cell and fractions, then trilinear over the eight corners or tetrahedral
// over the corners met walking the axes in order of decreasing fraction.
struct Lut3d {
    const float* cube;
    int n;
    bool tetrahedral;
    void operator()(const float* p, float* d) const {
        d[3] = p[3];
        int i[3];
        float f[3];
        for (int c = 0; c < 3; ++c) {
            const float x = Clamp01(p[c]) * float(n - 1);
            i[c] = std::min(int(x), n - 2);
            f[c] = x - float(i[c]);
        }
        auto node = [&](int dr, int dg, int db) { return cube + 3 * ((size_t(i[2] + db) * n + (i[1] + dg)) * n + (i[0] + dr)); };
        if (!tetrahedral) {
            for (int c = 0; c < 3; ++c) d[c] = 0;
            for (int k = 0; k < 8; ++k) {
                const int dr = k & 1, dg = (k >> 1) & 1, db = k >> 2;
                const float w = ((dr ? f[0] : 1 - f[0]) * (dg ? f[1] : 1 - f[1])) * (db ? f[2] : 1 - f[2]);
                for (int c = 0; c < 3; ++c) d[c] = d[c] + w * node(dr, dg, db)[c];
            }
            return;
        }
        int axis[3] = {0, 1, 2};
        std::stable_sort(axis, axis + 3, [&](int a, int b) { return f[a] > f[b]; });
        int step[3] = {0, 0, 0};
        step[axis[0]] = 1;
        const float* ca = node(step[0], step[1], step[2]);
        step[axis[1]] = 1;
        const float* cb = node(step[0], step[1], step[2]);
        const float f1 = f[axis[0]], f2 = f[axis[1]], f3 = f[axis[2]];
        for (int c = 0; c < 3; ++c)
            d[c] = (((1 - f1) * node(0, 0, 0)[c] + (f1 - f2) * ca[c]) + (f2 - f3) * cb[c]) + f3 * node(1, 1, 1)[c];
    }
};

// HSL by hue band (or per-degree curves), the float steps as the header states them, 2^x in double.
struct Hsl {
    const float* bands;
    const float* curves;
    void operator()(const float* p, float* d) const {
        static const float centre[9] = {0, 30, 60, 120, 180, 240, 270, 300, 360};
        const float r = p[0], g = p[1], b = p[2], hi = std::max({r, g, b}), lo = std::min({r, g, b}), dd = hi - lo;
        const bool grey = dd == 0 || hi <= 1.1920929e-07f;
        float h = r == hi ? 60 * ((g - b) / dd) : g == hi ? 60 * ((b - r) / dd + 2) : 60 * ((r - g) / dd + 4);
        if (h < 0) h += 360;
        if (h >= 360) h -= 360;
        float sum[3] = {0, 0, 0};
        for (int j = 0; j < 3 && !grey; ++j) {
            if (curves) {
                const float* c = curves + 361 * j;
                const int k = int(h);
                sum[j] = c[k] + (c[k + 1] - c[k]) * (h - float(k));
            } else {
                int k = 0;
                while (!(h < centre[k + 1])) ++k;
                const float t = (h - centre[k]) * (1.0f / (centre[k + 1] - centre[k]));
                sum[j] = (1 - t) * bands[8 * j + k] + t * bands[8 * j + (k + 1) % 8];
            }
        }
        const float chroma = grey ? 0 : dd / hi;
        float c[3] = {r, g, b};
        if (sum[0] != 0) {
            float x = h + 30 * sum[0];
            x = x - 360 * std::floor(x * (1.0f / 360));
            const float sector = std::min(std::floor(x * (1.0f / 60)), 5.0f), f = x * (1.0f / 60) - sector;
            const float v = hi, pp = v * (1 - chroma), q = v * (1 - chroma * f), t = v * (1 - chroma * (1 - f));
            const float rs[6] = {v, q, pp, pp, t, v}, gs[6] = {t, v, v, q, pp, pp}, bs[6] = {pp, pp, t, v, v, q};
            const int i = int(sector);
            c[0] = rs[i], c[1] = gs[i], c[2] = bs[i];
        }
        const float y = Colourise::Luma(c);
        const double gain = std::exp2(double(chroma * sum[2]));
        for (int i = 0; i < 3; ++i) d[i] = float((sum[1] != 0 ? y + (c[i] - y) * (1 + sum[1]) : c[i]) * gain);
    }
};

}  // namespace ref::color
