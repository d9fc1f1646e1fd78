// 3D colour lookup tables (".cube" looks): the caller's cube of n x n x n RGB nodes, three floats a
// node, red index fastest (node (r, g, b) at (b n + g) n + r, as .cube files list them). A pixel's
// R, G, B are clamped to [0, 1] and scaled by n - 1; the cell's lower corner is the truncated
// position (held to n - 2, so the top edge sits at fraction 1 in the last cell and nothing past
// the cube is read) and the result blends the cell's corners by weights that sum to 1:
//  - trilinear: the eight corners, corner (i, j, k) weighted ((wr wg) wb) with w = 1 - f or f,
//    summed in the order of the corner index b g r (000 to 111);
//  - tetrahedral (Kasson et al. 1995): the four corners of the tetrahedron holding the point, from
//    the sorted fractions f1 >= f2 >= f3: ((1 - f1) C000 + (f1 - f2) Ca) + (f2 - f3) Cb) + f3 C111.
// Both are exact at the nodes (a weight of 1 and zeros), agree on an affine cube, and give the last
// node exactly at the top edge. Alpha is copied; exactly the region is read and written.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "adjust/color_rows.h"

namespace velmora::adjust {
namespace {

using color::Planes;

struct Lut3d {
    const float* cube;
    int32_t n;
    bool tetrahedral;

    // One pixel's R, G, B (already clamped) through the cube.
    void Pixel(const float (&in)[3], float (&out)[3]) const {
        const float scale = static_cast<float>(n - 1);
        int32_t i[3];
        float f[3];
        for (int c = 0; c < 3; ++c) {
            const float p = in[c] * scale;
            i[c] = static_cast<int32_t>(p);
            if (i[c] > n - 2) i[c] = n - 2;
            f[c] = p - static_cast<float>(i[c]);
        }
        const int64_t base = (int64_t{i[2]} * n + i[1]) * n + i[0];
        const int64_t dr = 1, dg = n, db = int64_t{n} * n;
        auto node = [&](int64_t offset) { return cube + 3 * (base + offset); };
        if (!tetrahedral) {
            for (int c = 0; c < 3; ++c) out[c] = 0.0f;
            for (int corner = 0; corner < 8; ++corner) {
                const bool r = corner & 1, g = corner & 2, b = corner & 4;
                const float w = ((r ? f[0] : 1.0f - f[0]) * (g ? f[1] : 1.0f - f[1])) * (b ? f[2] : 1.0f - f[2]);
                const float* v = node((r ? dr : 0) + (g ? dg : 0) + (b ? db : 0));
                for (int c = 0; c < 3; ++c) out[c] = out[c] + w * v[c];
            }
            return;
        }
        // The tetrahedron: from C000 along the axis of the largest fraction, then on to C111 less the
        // axis of the smallest. Where fractions tie, the vertex picked carries weight 0 (its weight is
        // their difference), so any choice gives the same bits; picking by comparisons, not branches
        // on the order, keeps random colours from mispredicting.
        const float fr = f[0], fg = f[1], fb = f[2];
        const float f1 = std::max(std::max(fr, fg), fb), f3 = std::min(std::min(fr, fg), fb);
        const float f2 = std::max(std::min(fr, fg), std::min(std::max(fr, fg), fb));
        const int64_t a = fr == f1 ? dr : fg == f1 ? dg : db;
        const int64_t b = (dr + dg + db) - (fb == f3 ? db : fg == f3 ? dg : dr);
        const float* c000 = node(0);
        const float* ca = node(a);
        const float* cb = node(b);
        const float* c111 = node(dr + dg + db);
        for (int c = 0; c < 3; ++c)
            out[c] = (((1.0f - f1) * c000[c] + (f1 - f2) * ca[c]) + (f2 - f3) * cb[c]) + f3 * c111[c];
    }

    void operator()(Planes& v) const {
        alignas(16) float lanes[4][4];
        for (int c = 0; c < 3; ++c) v4::StoreAligned(lanes[c], v4::Clamp01(v[c]));
        for (int p = 0; p < 4; ++p) {
            const float in[3] = {lanes[0][p], lanes[1][p], lanes[2][p]};
            float out[3];
            Pixel(in, out);
            for (int c = 0; c < 3; ++c) lanes[c][p] = out[c];
        }
        for (int c = 0; c < 3; ++c) v[c] = Batch4::load_aligned(lanes[c]);
    }
};

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API StatusCode VELMORA_CALL XMImage3DLut_Rgba128F_SSE2(const float* src, int32_t srcStep, float* dst,
                                                                         int32_t dstStep, const ImageSize* roi,
                                                                         const float* cube, int32_t n,
                                                                         int32_t interpolation) {
    if (srcStep == 0 || dstStep == 0 || src == nullptr || dst == nullptr || roi == nullptr || cube == nullptr)
        return StatusInvalidParameter;
    if (n < 2 || n > 256 || (interpolation != 0 && interpolation != 1)) return StatusInvalidParameter;
    color::QuadRows<color::Rgba128, color::Rgba128>(src, srcStep, dst, dstStep, roi->width, roi->height,
                                                    adjust::Lut3d{cube, n, interpolation == 1});
    return StatusOk;
}
