// The per-lane arithmetic of the Lab conversions, written once over the xsimd batch type: the
// SSE2 body (one block of four pixels a vector) and the AVX2 body (two blocks a vector) run the
// same operations in the same order on each lane, so both give the same bits. Nothing here may
// use a fused multiply-add; the library is built without contraction.
#pragma once

#include <cstdint>

#include <xsimd/xsimd.hpp>

#include "core/xmmath.h"

namespace velmora::adjust::lab {

// Reference white of D50 as the host's colour management states it.
constexpr float kWhiteX = 0.96422f;
constexpr float kWhiteZ = 0.82521f;
constexpr float kEpsilon = 0.008856452f;  // (6/29)^3: where the cube root meets the linear segment
constexpr float kKappa = 903.2963f;       // (29/3)^3
constexpr float kInv116 = 0.00862069f;
constexpr float kInvKappa = 0.0011070565f;

template <class B>
inline B Mul(B a, float b) {
    return a * B(b);
}

// (m0 a + m1 b) + m2 c: one row of a 3 x 3 matrix over three planes.
template <class B>
inline B Row3(B a, B b, B c, float m0, float m1, float m2) {
    return (Mul(a, m0) + Mul(b, m1)) + Mul(c, m2);
}

// f(t) of CIE lightness from t and its cube root: the root above epsilon, the straight segment
// at and below it. The root of a non-positive t is NaN or 0 and is never selected.
template <class B>
inline B LabF(B t, B root) {
    const B line = Mul(Mul(t, kKappa) + B(16.0f), kInv116);
    return xsimd::select(t > B(kEpsilon), root, line);
}

// Inverse of f for a and b: f^3 where the cube exceeds epsilon, else the straight segment.
template <class B>
inline B LabFInverse(B f) {
    const B cube = (f * f) * f;
    const B line = Mul(Mul(f, 116.0f) - B(16.0f), kInvKappa);
    return xsimd::select(cube > B(kEpsilon), cube, line);
}

template <class B>
inline B Lightness(B f) {
    return Mul(f, 116.0f) - B(16.0f);
}

// The cube roots of a group of vectors, as e^(ln t x 0.33333334): all logarithms first, then all
// exponentials, so the independent chains sit side by side for the out-of-order core instead
// of each exponential waiting on the logarithm just before it.
template <class B, int N>
inline void CubeRoots(const B (&t)[N], B (&root)[N]) {
    B ln[N];
    for (int i = 0; i < N; ++i) ln[i] = xsimd::log(t[i]);
    for (int i = 0; i < N; ++i) root[i] = XMVectorExpE(ln[i] * B(0.33333334f));
}

// L*, a*, b* from the white-relative tristimulus ratios x = X / Xn, y = Y / Yn, z = Z / Zn.
template <class B>
inline void LabFromRatios(const B (&t)[3], B& l, B& a, B& b) {
    B root[3];
    CubeRoots(t, root);
    const B fx = LabF(t[0], root[0]), fy = LabF(t[1], root[1]), fz = LabF(t[2], root[2]);
    l = Lightness(fy);
    a = Mul(fx - fy, 500.0f);
    b = Mul(fy - fz, 200.0f);
}

// Linear ProPhoto R, G, B (one channel per vector) to L*, a*, b* in their place; the fourth
// vector is not looked at.
template <class B>
inline void ProPhotoToLab(B (&v)[4]) {
    const B t[3] = {Row3(v[0], v[1], v[2], 0.7976749f, 0.1351917f, 0.0313534f) / B(kWhiteX),
                    Row3(v[0], v[1], v[2], 0.2880402f, 0.7118741f, 8.57e-05f), Mul(v[2], 0.82521f) / B(kWhiteZ)};
    LabFromRatios(t, v[0], v[1], v[2]);
}

// One block's lanes, already transposed to R, G, B and the fourth channel, become L*, a*, b*
// and the lightness of the fourth channel, in place.
template <class B>
inline void ToLab(B (&v)[4]) {
    const B t[1] = {v[3]};
    B root[1];
    CubeRoots(t, root);
    ProPhotoToLab(v);
    v[3] = Lightness(LabF(t[0], root[0]));
}

// X, Y, Z (D50 white) of L*, a*, b*. The stored-data rule takes the linear branch for Y only when
// L* itself is at or below epsilon (not kappa x epsilon = 8): Lab data was made with this rule,
// so it stays. The textbook inverse switches at kappa x epsilon = 8 instead.
template <bool Textbook, class B>
inline void LabToXyz(B lightness, B a, B b, B& x, B& y, B& z) {
    const B fy = Mul(lightness + B(16.0f), kInv116);
    const B fx = Mul(a, 0.002f) + fy;
    const B fz = fy - Mul(b, 0.005f);
    const B threshold(Textbook ? 8.0f : kEpsilon);  // kappa x epsilon is 8
    y = xsimd::select(lightness > threshold, (fy * fy) * fy, Mul(lightness, kInvKappa));
    x = Mul(LabFInverse(fx), kWhiteX);
    z = Mul(LabFInverse(fz), kWhiteZ);
}

// L*, a*, b* (one component per vector) to linear ProPhoto R, G, B in their place by the
// stored-data rule (or the textbook one); the fourth vector is not looked at.
template <bool Textbook = false, class B>
inline void LabToProPhoto(B (&v)[4]) {
    B xx, y, zz;
    LabToXyz<Textbook>(v[0], v[1], v[2], xx, y, zz);
    v[0] = Row3(xx, y, zz, 1.3459433f, -0.2556075f, -0.0511118f);
    v[1] = Row3(xx, y, zz, -0.5445989f, 1.5081673f, 0.0205351f);
    v[2] = Mul(zz, 1.2118129f);
}

// L*, a*, b* of a block become R, G, B and a zero fourth channel, in place (still one
// component per vector; the caller transposes back to pixels).
template <class B>
inline void FromLab(B (&v)[4]) {
    LabToProPhoto(v);
    v[3] = B(0.0f);
}

// The AVX2 bodies (lab_avx2.cpp), run only when the processor has AVX2: the same rows, two
// blocks a vector, touching exactly the blocks the SSE2 body touches. AVX alone would not pay:
// without 256-bit integer operations the exponent arithmetic inside e^x and ln x runs in halves,
// and eight lanes cost as much as two four-lane vectors.
void ToLabRowAvx2(float* row, int32_t width);
void FromLabRowAvx2(float* row, int32_t width);

}  // namespace velmora::adjust::lab
