// Hue and saturation. The master hue/saturation edit turns R, G, B about the grey axis (Rodrigues'
// rotation about (1, 1, 1) / sqrt 3, right-handed, so a positive hue turns red toward yellow;
// Haeberli 1993) and puts the pixel back at its old luminance by the gain rule, so greys never
// move and hue turns without changing brightness; saturation mixes with that old luminance and
// lightness pulls toward black or white. The HSL edit works by hue band: eight tent-shaped bands
// of the hexcone hue weigh each pixel's hue shift, saturation and luminance amounts (or per-degree
// curves do), and greys take none of them. Nothing is clamped: values go as given (the host passes
// encoded values for the familiar look). Y = 0.28804 R + 0.711874 G + 0.000086 B; the gain rule
// multiplies by (Y + eps) / (Y' + eps), eps = 1.1920929e-07. Alpha is kept; exactly the region is
// read and written; no alignment is demanded. The hue/saturation formula is color_passes.h's, so
// the wider bodies run it too.
#include <cmath>
#include <cstdint>

#include "adjust/color_passes.h"
#include "adjust/hsl_body.h"
#include "core/cpu.h"
#include "core/xmmath.h"

namespace velmora::adjust {
namespace {

using color::Planes;

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

namespace {

template <class AmountsAt>
void HslWidest(float* image, int32_t step, const ImageSize* roi, const AmountsAt& at,
               void (*avx512)(float*, int32_t, int32_t, int32_t, const AmountsAt&),
               void (*avx2)(float*, int32_t, int32_t, int32_t, const AmountsAt&)) {
    const auto rows = cpu::Has(cpu::Level::Avx512) ? avx512 : cpu::Has(cpu::Level::Avx2) ? avx2 : adjust::hsl::Rows<Batch4, AmountsAt>;
    rows(image, step, roi->width, roi->height, at);
}

}  // namespace

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F(float* image, int32_t step, const ImageSize* roi,
                                                             const float* bands) {
    // One pixel at a time through the four-lane steps (the other lanes zero), so it gives the bits
    // of the four-pixel export.
    const adjust::hsl::Bands at(bands);
    for (int32_t y = 0; y < roi->height; ++y)
        for (int32_t x = 0; x < roi->width; ++x)
            adjust::hsl::Rows<Batch4>(frame::Row(image, step, y) + 4 * static_cast<ptrdiff_t>(x), step, 1, 1, at);
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2(float* image, int32_t step, const ImageSize* roi,
                                                                  const float* bands) {
    HslWidest(image, step, roi, adjust::hsl::Bands(bands), adjust::hsl::BandRowsAvx512, adjust::hsl::BandRowsAvx2);
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Rgba128F_SSE2_Lut(float* image, int32_t step, const ImageSize* roi,
                                                                      const float* curves) {
    HslWidest(image, step, roi, adjust::hsl::Curves(curves), adjust::hsl::CurveRowsAvx512, adjust::hsl::CurveRowsAvx2);
}

extern "C" VELMORA_API void VELMORA_CALL Adjust_HSL_Bgra32_SSE2(uint8_t* image, int32_t step, const ImageSize* roi,
                                                                const float* bands) {
    const adjust::hsl::Bands at(bands);
    color::QuadRows<color::Bgra32, color::Bgra32>(image, step, image, step, roi->width, roi->height,
                                                  [&](color::Planes& v) { adjust::hsl::Edit(v, at); });
}
