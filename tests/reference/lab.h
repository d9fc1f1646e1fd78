// Plain references for linear ProPhoto RGB <-> CIE L*a*b* (D50) in double precision, from the
// stated matrices, white point and constants, one pixel at a time.
#pragma once

#include <cmath>

namespace ref {

struct Lab {
    double l, a, b, w;  // w: lightness of the fourth lane
};

inline constexpr double kLabWhiteX = 0.96422, kLabWhiteZ = 0.82521;
inline constexpr double kLabEpsilon = 0.008856452, kLabKappa = 903.2963;

inline double LabF(double t) { return t > kLabEpsilon ? std::cbrt(t) : (kLabKappa * t + 16) / 116; }

inline Lab ProPhotoToLab(double r, double g, double b, double w) {
    const double x = (0.7976749 * r + 0.1351917 * g + 0.0313534 * b) / kLabWhiteX;
    const double y = 0.2880402 * r + 0.7118741 * g + 8.57e-05 * b;
    const double z = 0.82521 * b / kLabWhiteZ;
    return {116 * LabF(y) - 16, 500 * (LabF(x) - LabF(y)), 200 * (LabF(y) - LabF(z)), 116 * LabF(w) - 16};
}

struct Rgb {
    double r, g, b;
};

// The same formulas from and to X, Y, Z with any white (x = X / Xn and so on); the textbook
// inverse takes the cube for Y when L* > 8 instead of L* > epsilon.
inline Lab LabFromXyz(double x, double y, double z, const double white[3]) {
    const double fx = LabF(x / white[0]), fy = LabF(y / white[1]), fz = LabF(z / white[2]);
    return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz), 0};
}
inline Rgb XyzFromLab(double l, double a, double b, bool textbook) {
    const double fy = (l + 16) / 116, fx = a / 500 + fy, fz = fy - b / 200;
    auto inverse = [](double f) { return f * f * f > kLabEpsilon ? f * f * f : (116 * f - 16) / kLabKappa; };
    const double y = l > (textbook ? 8.0 : kLabEpsilon) ? fy * fy * fy : l / kLabKappa;
    return {kLabWhiteX * inverse(fx), y, kLabWhiteZ * inverse(fz)};
}

// D50 X, Y, Z to linear ProPhoto. The kernels' own inverse takes the straight segment for Y only
// at L* at or below epsilon itself: LabToProPhoto(l, a, b) is ProPhotoFromXyz(XyzFromLab(l, a, b, false)).
inline Rgb ProPhotoFromXyz(const Rgb& x) {
    return {1.3459433 * x.r - 0.2556075 * x.g - 0.0511118 * x.b, -0.5445989 * x.r + 1.5081673 * x.g + 0.0205351 * x.b,
            1.2118129 * x.b};
}
inline Rgb LabToProPhoto(double l, double a, double b) { return ProPhotoFromXyz(XyzFromLab(l, a, b, false)); }

}  // namespace ref
