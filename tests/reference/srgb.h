// Scalar references for the sRGB transfer kernels.
//  - EncodeCurve/DecodeCurve: the sRGB curves in double precision with the textbook constants
//    (1/2.4 and the decimal thresholds, not their float roundings); every kernel is held to these
//    within a stated bound.
//  - PowfEncoder and TableTransfer: the documented float procedures step by step (runtime powf,
//    1025-entry table, clamp, index scale, interpolation order), so the exact bits can be checked.
#pragma once

#include <cmath>
#include <vector>

namespace ref {

inline double EncodeCurve(double v) {
    return v < 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

inline double DecodeCurve(double v) {
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// [0, 1] clamp in which NaN becomes 0, as the clamping kernels promise.
inline float Clamp01(float v) {
    if (!(v > 0.0f)) return 0.0f;
    return v > 1.0f ? 1.0f : v;
}

// Scalar encoder: clamped, then the runtime's single-precision powf.
inline float PowfEncoder(float v) {
    const float c = Clamp01(v);
    if (c < 0.0031308f) return c * 12.92f;
    return 1.055f * std::pow(c, 0.41666666f) - 0.055f;
}

// The interpolated table kernels: 1024 entries at i x (float)(1/1023) plus a copy of the last,
// looked up at the clamped value times 1023.9999.
class TableTransfer {
public:
    explicit TableTransfer(bool encode) : table_(1025) {
        for (int i = 0; i < 1024; ++i) {
            const float x = static_cast<float>(i) * 0.0009775171f;
            float t;
            if (x <= 0.0f) t = 0.0f;
            else if (encode && x <= 0.0031308f) t = x * 12.92f;
            else if (!encode && x <= 0.04045f) t = x * 0.07739938f;
            else if (x >= 1.0f) t = 1.0f;
            else if (encode) t = 1.055f * std::pow(x, 0.41666666f) - 0.055f;
            else t = std::pow(x * 0.9478673f + 0.052132703f, 2.4f);
            table_[i] = t;
        }
        table_[1024] = table_[1023];
    }
    float operator()(float v) const {
        const float pos = Clamp01(v) * 1023.9999f;
        const int k = static_cast<int>(pos);
        const float f = pos - static_cast<float>(k);
        return table_[k] + (table_[k + 1] - table_[k]) * f;
    }
    const std::vector<float>& table() const { return table_; }

private:
    std::vector<float> table_;
};

}  // namespace ref
