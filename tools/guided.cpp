#include "guided.h"

#include <algorithm>

#include "velmora/imaging.h"

namespace velmora::tool {

std::vector<float> GuidedFilter(const std::vector<float>& guide, const std::vector<float>& input, int w, int h, int radius,
                                float eps) {
    const size_t n = size_t(w) * h;
    std::vector<float> tmp(n), mean_i(n), mean_p(n), corr_ii(n), corr_ip(n), product(n);
    const ImageSize roi{w, h};
    const int32_t step = w * 4, tmp_step = h * 4;
    auto box = [&](const std::vector<float>& in, std::vector<float>& out) {
        XMImageBoxFilter_Gray32F_SSE2(in.data(), step, out.data(), step, tmp.data(), tmp_step, &roi, radius);
    };
    const bool self = &guide == &input;
    box(guide, mean_i);
    XMImageComputeMeanII_Gray32Float(guide.data(), step, corr_ii.data(), step, tmp.data(), tmp_step, &roi, radius);
    if (!self) {
        box(input, mean_p);
        for (size_t i = 0; i < n; ++i) product[i] = guide[i] * input[i];
        box(product, corr_ip);
    }
    // a and b go into the planes no longer needed, then their own window means.
    std::vector<float>& a = product;
    std::vector<float>& b = self ? mean_p : corr_ip;
    for (size_t i = 0; i < n; ++i) {
        const float var = std::max(corr_ii[i] - mean_i[i] * mean_i[i], 0.0f);
        const float cov = self ? var : corr_ip[i] - mean_i[i] * mean_p[i];
        a[i] = cov / (var + eps);
        b[i] = (self ? mean_i[i] : mean_p[i]) - a[i] * mean_i[i];
    }
    box(a, mean_i);
    box(b, corr_ii);
    std::vector<float> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = mean_i[i] * guide[i] + corr_ii[i];
    return out;
}

}  // namespace velmora::tool
