// Hue and saturation. The master hue/saturation edit turns R, G, B about the grey axis (Rodrigues'
// rotation about (1, 1, 1) / sqrt 3, right-handed, so a positive hue turns red toward yellow;
// Haeberli 1993) and puts the pixel back at its old luminance by the gain rule, so greys never
// move and hue turns without changing brightness; saturation mixes with that old luminance and
// lightness pulls toward black or white. Nothing is clamped: values go as given (the host passes
// encoded values for the familiar look). Y = 0.28804 R + 0.711874 G + 0.000086 B; the gain rule
// multiplies by (Y + eps) / (Y' + eps), eps = 1.1920929e-07. Alpha is kept; exactly the region is
// read and written; no alignment is demanded.
#include <cmath>
#include <cstdint>

#include "adjust/color_rows.h"

namespace velmora::adjust {
namespace {

using color::Planes;

constexpr float kEps = 1.1920929e-07f;

inline Batch4 Luminance(Batch4 r, Batch4 g, Batch4 b) {
    return (r * Batch4(0.28804f) + g * Batch4(0.711874f)) + b * Batch4(0.000086f);
}

struct HueSaturation {
    float m[9];  // the rotation, row-major, one row per output channel
    float saturation, lightness;
    bool turn;  // a hue of 0 skips the rotation and saturation 0 the mix, so zero amounts change no bit

    HueSaturation(float hue_degrees, float s, float l) : saturation(s), lightness(l), turn(hue_degrees != 0.0f) {
        // R = cos t I + sin t [k]x + (1 - cos t) k k^T with k = (1, 1, 1) / sqrt 3, in double.
        const double t = static_cast<double>(hue_degrees) * (3.14159265358979323846 / 180.0);
        const double c = std::cos(t), sn = std::sin(t) / std::sqrt(3.0), o = (1.0 - c) / 3.0;
        const double rows[9] = {c + o, o - sn, o + sn, o + sn, c + o, o - sn, o - sn, o + sn, c + o};
        for (int i = 0; i < 9; ++i) m[i] = static_cast<float>(rows[i]);
    }

    void operator()(Planes& v) const {
        const Batch4 r = v[0], g = v[1], b = v[2];
        const Batch4 y = Luminance(r, g, b);
        Batch4 turned[3] = {r, g, b};
        if (turn) {
            for (int i = 0; i < 3; ++i)
                turned[i] = (r * Batch4(m[3 * i]) + g * Batch4(m[3 * i + 1])) + b * Batch4(m[3 * i + 2]);
            const Batch4 gain = (y + Batch4(kEps)) / (Luminance(turned[0], turned[1], turned[2]) + Batch4(kEps));
            for (Batch4& c : turned) c = c * gain;
        }
        for (int i = 0; i < 3; ++i) {
            Batch4 c = turned[i];
            if (saturation != 0.0f) c = y + (c - y) * Batch4(1.0f + saturation);
            if (lightness < 0.0f) c = c * Batch4(1.0f + lightness);
            else if (lightness > 0.0f) c = c + (Batch4(1.0f) - c) * Batch4(lightness);
            v[i] = c;
        }
    }
};

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageHueSaturation_Rgba128F_SSE2(float* image, int32_t step,
                                                                           const ImageSize* roi, float hue,
                                                                           float saturation, float lightness) {
    color::QuadRows<color::Rgba128, color::Rgba128>(image, step, image, step, roi->width, roi->height,
                                                    adjust::HueSaturation(hue, saturation, lightness));
}
