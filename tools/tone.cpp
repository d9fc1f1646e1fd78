#include "tone.h"

#include <algorithm>
#include <cmath>

#include "cli.h"

namespace velmora::tool {

LevelsSpec ParseLevels(const std::string& text) {
    const std::vector<float> v = ParseNumbers(text, ',', "--levels");
    if (v.size() != 2 && v.size() != 3) throw UsageError("--levels takes BLACK,WHITE[,GAMMA]");
    if (!(v[0] >= 0 && v[0] < v[1] && v[1] <= 255)) throw UsageError("--levels needs 0 <= BLACK < WHITE <= 255 (8-bit codes)");
    LevelsSpec l;
    l.on = true, l.black = v[0] / 255, l.white = v[1] / 255;
    if (v.size() == 3) {
        if (!(v[2] >= 0.1f && v[2] <= 10)) throw UsageError("--levels gamma runs from 0.1 to 10");
        l.gamma = v[2];
    }
    return l;
}

std::vector<float> ParseCurve(const std::string& text) {
    std::vector<double> x, y;
    for (const std::string& point : Split(text, ',')) {
        const std::vector<float> xy = ParseNumbers(point, ':', "--curve");
        if (xy.size() != 2) throw UsageError("--curve takes points X:Y separated by commas, not '" + point + "'");
        if (!(xy[0] >= 0 && xy[0] <= 255 && xy[1] >= 0 && xy[1] <= 255)) throw UsageError("--curve points are codes from 0 to 255");
        if (!x.empty() && !(xy[0] > x.back())) throw UsageError("--curve points need rising X");
        x.push_back(xy[0]), y.push_back(xy[1]);
    }
    for (double& v : x) v /= 255;
    for (double& v : y) v /= 255;
    const size_t n = x.size();
    if (n < 2 || n > 16) throw UsageError("--curve takes two to sixteen points");
    // Monotone cubic Hermite: each inner tangent is the weighted harmonic mean of the secants on
    // either side (0 at a peak or valley), the ends take their secant. Tangents then stay within
    // three times the secants, which keeps every piece monotone: no overshoot between points.
    std::vector<double> h(n - 1), d(n - 1), m(n);
    for (size_t k = 0; k + 1 < n; ++k) h[k] = x[k + 1] - x[k], d[k] = (y[k + 1] - y[k]) / h[k];
    m[0] = d[0], m[n - 1] = d[n - 2];
    for (size_t k = 1; k + 1 < n; ++k) {
        const double w1 = 2 * h[k] + h[k - 1], w2 = h[k] + 2 * h[k - 1];
        m[k] = d[k - 1] * d[k] <= 0 ? 0.0 : (w1 + w2) / (w1 / d[k - 1] + w2 / d[k]);
    }
    constexpr int kIntervals = 1024;
    std::vector<float> table(kIntervals + 2);
    for (int i = 0; i <= kIntervals; ++i) {
        const double at = double(i) / kIntervals;
        double v = at <= x[0] ? y[0] : y[n - 1];
        if (at > x[0] && at < x[n - 1]) {
            const size_t k = size_t(std::upper_bound(x.begin(), x.end(), at) - x.begin()) - 1;
            const double t = (at - x[k]) / h[k], t2 = t * t, t3 = t2 * t;
            v = (2 * t3 - 3 * t2 + 1) * y[k] + (t3 - 2 * t2 + t) * h[k] * m[k] + (3 * t2 - 2 * t3) * y[k + 1] +
                (t3 - t2) * h[k] * m[k + 1];
        }
        table[size_t(i)] = static_cast<float>(std::clamp(v, 0.0, 1.0));
    }
    table[kIntervals + 1] = table[kIntervals];  // the kernel reads one past the last interval at 1
    return table;
}

std::vector<float> ParseToneRegions(const std::string& text) {
    std::vector<float> p = ParseNumbers(text, ',', "--tone");
    if (p.size() == 4) p.insert(p.end(), {0.25f, 0.5f, 0.75f});
    if (p.size() != 7) throw UsageError("--tone takes SHADOWS,DARKS,LIGHTS,HIGHLIGHTS[,S1,S2,S3]");
    for (int i = 0; i < 4; ++i)
        if (!(p[size_t(i)] >= -1 && p[size_t(i)] <= 1)) throw UsageError("--tone amounts run from -1 to 1");
    if (!(0 < p[4] && p[4] < p[5] && p[5] < p[6] && p[6] < 1)) throw UsageError("--tone splits need 0 < S1 < S2 < S3 < 1");
    return p;
}

}  // namespace velmora::tool
