// Hue and saturation. The master hue/saturation edit turns R, G, B about the grey axis (Rodrigues'
// rotation about (1, 1, 1) / sqrt 3, right-handed, so a positive hue turns red toward yellow;
// Haeberli 1993) and puts the pixel back at its old luminance by the gain rule, so greys never
// move and hue turns without changing brightness; saturation mixes with that old luminance and
// lightness pulls toward black or white. Nothing is clamped: values go as given (the host passes
// encoded values for the familiar look). Y = 0.28804 R + 0.711874 G + 0.000086 B; the gain rule
// multiplies by (Y + eps) / (Y' + eps), eps = 1.1920929e-07. Alpha is kept; exactly the region is
// read and written; no alignment is demanded. The formula is color_passes.h's, so the wider
// bodies run it too.
#include <cmath>
#include <cstdint>

#include "adjust/color_passes.h"

namespace velmora::adjust {
namespace {

// R = cos t I + sin t [k]x + (1 - cos t) k k^T with k = (1, 1, 1) / sqrt 3, in double, rounded to
// float once: row i gives output channel i.
void Rotation(float hue_degrees, float (&m)[9]) {
    const double t = static_cast<double>(hue_degrees) * (3.14159265358979323846 / 180.0);
    const double c = std::cos(t), sn = std::sin(t) / std::sqrt(3.0), o = (1.0 - c) / 3.0;
    const double rows[9] = {c + o, o - sn, o + sn, o + sn, c + o, o - sn, o - sn, o + sn, c + o};
    for (int i = 0; i < 9; ++i) m[i] = static_cast<float>(rows[i]);
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageHueSaturation_Rgba128F_SSE2(float* image, int32_t step,
                                                                           const ImageSize* roi, float hue,
                                                                           float saturation, float lightness) {
    float m[9];
    adjust::Rotation(hue, m);
    color::PassArgs a;
    a.matrix = m;
    a.turn = hue != 0.0f;
    a.saturation = saturation;
    a.lightness = lightness;
    color::RunWidest(color::Pass::HueSaturation, false, image, step, image, step, roi->width, roi->height, a);
}
