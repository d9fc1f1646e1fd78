// Selective colour: cyan, magenta, yellow and black ink added to or taken from nine colour ranges
// (reds, yellows, greens, cyans, blues, magentas, whites, neutrals, blacks), each pixel belonging
// to its ranges by weights from its own channels. With max >= mid >= min of R, G, B: the primary
// range of the largest channel (reds, greens, blues) weighs max - mid, the secondary range of the
// two largest (yellows R+G, cyans G+B, magentas B+R) mid - min, whites clamp(2 min - 1, 0, 1),
// blacks clamp(1 - 2 max, 0, 1), neutrals max(0, 1 - whites - blacks - (max - min)). Where
// channels tie, every range they could name gets the weight, which the tie makes 0. Cyan acts on
// R, magenta on G, yellow on B, black on all three: c <- clamp(c - s k, 0, 1), s the weighted sum
// of (ink + black) over the ranges in table order, k = 1 - c (relative) or 1 (absolute), c the
// source value. Alpha is copied; exactly the region is read and written.
#include <cstdint>

#include "adjust/color_rows.h"

namespace velmora::adjust {
namespace {

using color::Planes;

struct Selective {
    const float* table;  // 9 ranges x (cyan, magenta, yellow, black)
    bool relative;

    void operator()(Planes& v) const {
        const Batch4 r = v[0], g = v[1], b = v[2], zero(0.0f), one(1.0f);
        const Batch4 hi = xsimd::max(xsimd::max(r, g), b), lo = xsimd::min(xsimd::min(r, g), b);
        const Batch4 mid = xsimd::max(xsimd::min(r, g), xsimd::min(xsimd::max(r, g), b));
        const Batch4 primary = hi - mid, secondary = mid - lo;
        const Batch4 whites = xsimd::min(xsimd::max(Batch4(2.0f) * lo - one, zero), one);
        const Batch4 blacks = xsimd::min(xsimd::max(one - Batch4(2.0f) * hi, zero), one);
        const Batch4 neutrals = xsimd::max(zero, ((one - whites) - blacks) - (hi - lo));
        const Batch4 w[9] = {xsimd::select(r == hi, primary, zero), xsimd::select(b == lo, secondary, zero),
                             xsimd::select(g == hi, primary, zero), xsimd::select(r == lo, secondary, zero),
                             xsimd::select(b == hi, primary, zero), xsimd::select(g == lo, secondary, zero),
                             whites, neutrals, blacks};
        for (int c = 0; c < 3; ++c) {
            Batch4 s = zero;
            for (int range = 0; range < 9; ++range)
                s = s + w[range] * Batch4(table[4 * range + c] + table[4 * range + 3]);
            const Batch4 k = relative ? one - v[c] : one;
            v[c] = xsimd::min(xsimd::max(v[c] - s * k, zero), one);
        }
    }
};

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageSelectiveColor(const float* src, int32_t srcStep, float* dst,
                                                               int32_t dstStep, const ImageSize* roi,
                                                               const float* table, int32_t relative) {
    color::QuadRows<color::Rgba128, color::Rgba128>(src, srcStep, dst, dstStep, roi->width, roi->height,
                                                    adjust::Selective{table, relative != 0});
}
