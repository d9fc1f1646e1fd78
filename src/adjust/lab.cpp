// Linear ProPhoto RGB (D50) to and from CIE L*a*b* (D50) in the blocked Lab128F layout, in place.
// A block is four consecutive pixels of a row, 64 bytes: L* of the four, then a*, then b*, then
// the lightness of their fourth lanes, so later Lab kernels see one component per vector.
//
// Pixels read and written: each row in whole blocks, so a width that is not a multiple of four
// reads and rewrites up to three pixels past the region (the caller's pitch must hold them).
#include "core/frame.h"
#include "core/vec4.h"
#include "core/xmmath.h"

namespace velmora::adjust {
namespace {

// Reference white of D50 as the host's colour management states it.
constexpr float kWhiteX = 0.96422f;
constexpr float kWhiteZ = 0.82521f;
constexpr float kEpsilon = 0.008856452f;  // (6/29)^3: where the cube root meets the linear segment
constexpr float kKappa = 903.2963f;       // (29/3)^3
constexpr float kInv116 = 0.00862069f;
constexpr float kInvKappa = 0.0011070565f;

inline __m128 Mul(__m128 a, float b) { return _mm_mul_ps(a, v4::Set1(b)); }

// (m0 a + m1 b) + m2 c: one row of a 3 x 3 matrix over three planes.
inline __m128 Row3(__m128 a, __m128 b, __m128 c, float m0, float m1, float m2) {
    return _mm_add_ps(_mm_add_ps(Mul(a, m0), Mul(b, m1)), Mul(c, m2));
}

// f(t) of CIE lightness from t and its cube root: the root above epsilon, the straight segment
// at and below it. The root of a non-positive t is NaN or 0 and is never selected.
inline __m128 LabF(__m128 t, __m128 root) {
    const __m128 line = Mul(_mm_add_ps(Mul(t, kKappa), v4::Set1(16.0f)), kInv116);
    return v4::Select(line, root, _mm_cmpgt_ps(t, v4::Set1(kEpsilon)));
}

// Inverse of f for a and b: f^3 where the cube exceeds epsilon, else the straight segment.
inline __m128 LabFInverse(__m128 f) {
    const __m128 cube = _mm_mul_ps(_mm_mul_ps(f, f), f);
    const __m128 line = Mul(_mm_sub_ps(Mul(f, 116.0f), v4::Set1(16.0f)), kInvKappa);
    return v4::Select(line, cube, _mm_cmpgt_ps(cube, v4::Set1(kEpsilon)));
}

inline __m128 Lightness(__m128 f) { return _mm_sub_ps(Mul(f, 116.0f), v4::Set1(16.0f)); }

// The cube roots of a group of vectors, as e^(ln t x 0.33333334): all logarithms first, then all
// exponentials, so the independent chains sit side by side for the out-of-order core instead
// of each exponential waiting on the logarithm just before it.
template <int N>
inline void CubeRoots(const __m128 (&t)[N], __m128 (&root)[N]) {
    __m128 ln[N];
    for (int i = 0; i < N; ++i) ln[i] = XMVectorLogE(t[i]);
    for (int i = 0; i < N; ++i) root[i] = XMVectorExpE(_mm_mul_ps(ln[i], v4::Set1(0.33333334f)));
}

void ToLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        __m128 r = v4::Load(block), g = v4::Load(block + 4), b = v4::Load(block + 8), w = v4::Load(block + 12);
        v4::Transpose4(r, g, b, w);
        const __m128 t[4] = {_mm_div_ps(Row3(r, g, b, 0.7976749f, 0.1351917f, 0.0313534f), v4::Set1(kWhiteX)),
                             Row3(r, g, b, 0.2880402f, 0.7118741f, 8.57e-05f),
                             _mm_div_ps(Mul(b, 0.82521f), v4::Set1(kWhiteZ)), w};
        __m128 root[4];
        CubeRoots(t, root);
        const __m128 fx = LabF(t[0], root[0]), fy = LabF(t[1], root[1]), fz = LabF(t[2], root[2]);
        v4::Store(block, Lightness(fy));
        v4::Store(block + 4, Mul(_mm_sub_ps(fx, fy), 500.0f));
        v4::Store(block + 8, Mul(_mm_sub_ps(fy, fz), 200.0f));
        v4::Store(block + 12, Lightness(LabF(t[3], root[3])));
    }
}

// The linear branch for Y is taken only when L* itself is at or below epsilon (not kappa x
// epsilon = 8): stored Lab data was made with this rule, so it stays.
void FromLabRow(float* row, int32_t width) {
    for (int32_t x = 0; x < width; x += 4) {
        float* block = row + 4 * x;
        const __m128 lightness = v4::Load(block);
        const __m128 fy = Mul(_mm_add_ps(lightness, v4::Set1(16.0f)), kInv116);
        const __m128 fx = _mm_add_ps(Mul(v4::Load(block + 4), 0.002f), fy);
        const __m128 fz = _mm_sub_ps(fy, Mul(v4::Load(block + 8), 0.005f));
        const __m128 y = v4::Select(Mul(lightness, kInvKappa), _mm_mul_ps(_mm_mul_ps(fy, fy), fy),
                                    _mm_cmpgt_ps(lightness, v4::Set1(kEpsilon)));
        const __m128 xx = Mul(LabFInverse(fx), kWhiteX);
        const __m128 zz = Mul(LabFInverse(fz), kWhiteZ);
        __m128 r = Row3(xx, y, zz, 1.3459433f, -0.2556075f, -0.0511118f);
        __m128 g = Row3(xx, y, zz, -0.5445989f, 1.5081673f, 0.0205351f);
        __m128 b = Mul(zz, 1.2118129f);
        __m128 w = v4::Zero();
        v4::Transpose4(r, g, b, w);
        v4::Store(block, r);
        v4::Store(block + 4, g);
        v4::Store(block + 8, b);
        v4::Store(block + 12, w);
    }
}

}  // namespace
}  // namespace velmora::adjust

using namespace velmora;

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToLab_ProPhotoRgb128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    frame::ForEachRow(image, step, image, step, roi,
                      [](const float*, float* row, int32_t width) { adjust::ToLabRow(row, width); });
}

extern "C" VELMORA_API void VELMORA_CALL XMImageConvertToProPhotoRGB_Lab128F_SSE2(float* image, int32_t step,
                                                                                  const ImageSize* roi) {
    frame::ForEachRow(image, step, image, step, roi,
                      [](const float*, float* row, int32_t width) { adjust::FromLabRow(row, width); });
}
